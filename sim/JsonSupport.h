#pragma once

// Reading the simulator's JSON files: checks with messages that name the file and the entry.
// Internal to the simulator (it brings nlohmann-json, which consumers do not need).

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace vx::sim::json {

using Json = nlohmann::ordered_json;

// A problem found in one entry; the reader adds the file and the entry's path.
struct Problem {
    std::string text;
};

[[noreturn]] void Fail(std::string text);
std::string Quoted(std::string_view text);

// Raises the reader's error (invalid procedure call, 5): "<file>: <path>: <text>", the path left
// out when empty.
[[noreturn]] void Raise(const char* source, const std::string& fileName, const std::string& path,
                        const std::string& text);

// Runs `read` for the entry at `path`; a problem or a JSON error inside it becomes the reader's
// error naming the file and the entry.
template <typename Read>
void ReadEntry(const char* source, const std::string& fileName, const std::string& path,
               Read read) {
    try {
        read();
    } catch (const Problem& problem) {
        Raise(source, fileName, path, problem.text);
    } catch (const Json::exception& error) {
        Raise(source, fileName, path, error.what());
    }
}

// The document, or the reader's error "<file> line N: ..." for text that is no JSON.
Json Parse(std::string_view text, const std::string& fileName, const char* source);
// The file's bytes, or the reader's error "<path>: cannot be opened".
std::string ReadFile(const std::filesystem::path& path, const char* source);

// Fails for a key outside `allowed` ("comment" is allowed everywhere).
void CheckKeys(const Json& object, std::initializer_list<std::string_view> allowed);
const Json* Member(const Json& object, const char* key);
const Json& Required(const Json& object, const char* key);

std::int64_t Integer(const Json& value, const char* key, std::int64_t low, std::int64_t high);
bool Boolean(const Json& value, const char* key);
std::string Text(const Json& value, const char* key);
// A non-empty text without control codes.
std::string Name(const Json& value, const char* key);
// Hexadecimal digit pairs, blanks allowed between them, holding `low` .. `high` bytes.
std::vector<std::uint8_t> Bytes(const Json& value, const char* key, std::size_t low,
                                std::size_t high);

}  // namespace vx::sim::json

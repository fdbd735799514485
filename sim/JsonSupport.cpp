#include "JsonSupport.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "Hex.h"
#include "automation/ComError.h"

namespace vx::sim::json {

void Fail(std::string text) {
    throw Problem{std::move(text)};
}

std::string Quoted(std::string_view text) {
    // Appended, not "\"" + std::string(text): g++ 12 at -O3 takes that for an overlapping copy (a
    // false -Wrestrict).
    std::string quoted(1, '"');
    quoted.append(text).append(1, '"');
    return quoted;
}

void Raise(const char* source, const std::string& fileName, const std::string& path,
           const std::string& text) {
    std::string description = fileName + ": ";
    if (!path.empty()) description += path + ": ";
    throw ComError(kErrInvalidProcedureCall, source, description + text);
}

Json Parse(std::string_view text, const std::string& fileName, const char* source) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::parse_error& error) {
        // The position counts bytes read, the failing one included.
        const auto read = std::min<std::size_t>(error.byte, text.size());
        const auto before = text.substr(0, read > 0 ? read - 1 : 0);
        const auto line = 1 + std::count(before.begin(), before.end(), '\n');
        std::string what = error.what();
        if (const auto at = what.find("syntax error"); at != std::string::npos) {
            what = what.substr(at);
        }
        throw ComError(
            kErrInvalidProcedureCall, source,
            fileName + " line " + std::to_string(line) + ": not valid JSON (" + what + ")");
    } catch (const Json::exception& error) {  // a number beyond a double
        throw ComError(kErrInvalidProcedureCall, source,
                       fileName + ": not valid JSON (" + error.what() + ")");
    }
}

std::string ReadFile(const std::filesystem::path& path, const char* source) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw ComError(kErrInvalidProcedureCall, source, path.string() + ": cannot be opened");
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void CheckKeys(const Json& object, std::initializer_list<std::string_view> allowed) {
    for (const auto& [key, value] : object.items()) {
        const bool known =
            key == "comment" || std::find(allowed.begin(), allowed.end(), key) != allowed.end();
        if (!known) Fail("unknown key " + Quoted(key));
    }
}

const Json* Member(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

const Json& Required(const Json& object, const char* key) {
    const auto* member = Member(object, key);
    if (!member) Fail(Quoted(key) + " is missing");
    return *member;
}

std::int64_t Integer(const Json& value, const char* key, std::int64_t low, std::int64_t high) {
    const auto outside = [&] {
        Fail(std::string(key) + " must lie within " + std::to_string(low) + ".." +
             std::to_string(high));
    };
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (high < 0 || number > static_cast<std::uint64_t>(high)) outside();
        if (static_cast<std::int64_t>(number) < low) outside();
        return static_cast<std::int64_t>(number);
    }
    if (!value.is_number_integer()) Fail(std::string(key) + " must be a whole number");
    const auto number = value.get<std::int64_t>();
    if (number < low || number > high) outside();
    return number;
}

bool Boolean(const Json& value, const char* key) {
    if (!value.is_boolean()) Fail(std::string(key) + " must be true or false");
    return value.get<bool>();
}

std::string Text(const Json& value, const char* key) {
    if (!value.is_string()) Fail(std::string(key) + " must be a text");
    return value.get<std::string>();
}

std::string Name(const Json& value, const char* key) {
    std::string name = Text(value, key);
    if (name.empty()) Fail(std::string(key) + " must not be empty");
    for (const char c : name) {
        if (static_cast<unsigned char>(c) < 0x20) Fail(std::string(key) + " holds a control code");
    }
    return name;
}

std::vector<std::uint8_t> Bytes(const Json& value, const char* key, std::size_t low,
                                std::size_t high) {
    auto bytes = ParseHex(Text(value, key), true);
    if (!bytes) Fail(std::string(key) + " is not hexadecimal (digit pairs, blanks between them)");
    if (bytes->size() < low || bytes->size() > high) {
        Fail(std::string(key) + " holds " + std::to_string(bytes->size()) + " bytes, not " +
             std::to_string(low) + ".." + std::to_string(high));
    }
    return std::move(*bytes);
}

}  // namespace vx::sim::json

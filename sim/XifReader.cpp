#include "XifReader.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <vector>

#include "automation/ComError.h"

namespace vx::sim {
namespace {

constexpr const char* kSource = "Vx.Sim.ReadXif";
// A value larger than this cannot be held by one value buffer.
constexpr std::size_t kMaxValueBytes = 255;
constexpr std::int32_t kMaxElements = 1024;

std::vector<std::string_view> SplitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const auto end = text.find('\n');
        auto line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lines.push_back(line);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

std::vector<std::string_view> Tokens(std::string_view line) {
    std::vector<std::string_view> tokens;
    std::size_t at = 0;
    while (at < line.size()) {
        while (at < line.size() && (line[at] == ' ' || line[at] == '\t'))
            ++at;
        const auto start = at;
        while (at < line.size() && line[at] != ' ' && line[at] != '\t')
            ++at;
        if (at > start) tokens.push_back(line.substr(start, at - start));
    }
    return tokens;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

class Reader {
public:
    Reader(std::string_view text, std::string fileName)
        : m_lines(SplitLines(text)), m_fileName(std::move(fileName)) {}

    NodeDescription Read() {
        NodeDescription node;
        node.programId = ReadProgramId();
        node.neuronId = "000000000000";
        node.selfDoc = ReadNodeSelfDoc();
        while (SkipBlank()) {
            const auto tokens = Tokens(Current());
            if (tokens.empty() || tokens[0] != "VAR") break;  // FILE and NVVAL sections follow
            node.variables.push_back(ReadVariable());
        }
        return node;
    }

private:
    [[noreturn]] void Fail(const std::string& what) const {
        const auto line = std::min(m_at, m_lines.size());
        throw ComError(kErrInvalidProcedureCall, kSource,
                       m_fileName + " line " + std::to_string(line + 1) + ": " + what);
    }

    bool AtEnd() const { return m_at >= m_lines.size(); }
    std::string_view Current() const { return m_lines[m_at]; }
    std::string_view Take(const char* what) {
        if (AtEnd()) Fail(std::string("file ends where ") + what + " was expected");
        return m_lines[m_at++];
    }
    // Moves past blank lines; false at the end of the file.
    bool SkipBlank() {
        while (!AtEnd() && Tokens(Current()).empty())
            ++m_at;
        return !AtEnd();
    }

    std::int32_t Integer(std::string_view token, const char* what) const {
        std::int32_t value = 0;
        const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
        if (error != std::errc() || end != token.data() + token.size()) {
            Fail(std::string("expected a number for ") + what + ", found \"" + std::string(token) +
                 "\"");
        }
        return value;
    }

    std::string ReadProgramId() {
        for (; !AtEnd(); ++m_at) {
            const auto line = Current();
            if (line.size() != 23) continue;
            std::string digits;
            bool isProgramId = true;
            for (std::size_t i = 0; i < line.size() && isProgramId; ++i) {
                if (i % 3 == 2) {
                    isProgramId = line[i] == ':';
                } else {
                    isProgramId = HexDigit(line[i]) >= 0;
                    digits += static_cast<char>(std::toupper(static_cast<unsigned char>(line[i])));
                }
            }
            if (isProgramId) {
                ++m_at;
                return digits;
            }
        }
        m_at = 0;
        Fail("no program ID line (eight hexadecimal bytes separated by \":\")");
    }

    // Self-documentation: one or more lines that start with a quote, joined; a lone "*" is none.
    std::string ReadSelfDoc(const char* what) {
        if (!AtEnd() && Current() == "*") {
            ++m_at;
            return {};
        }
        if (AtEnd() || Current().empty() || Current().front() != '"') {
            Fail(std::string("expected the ") + what + " (a line starting with a quote or \"*\")");
        }
        std::string text;
        while (!AtEnd() && !Current().empty() && Current().front() == '"') {
            text += Unescape(Current().substr(1));
            ++m_at;
        }
        return text;
    }

    std::string Unescape(std::string_view raw) const {
        std::string text;
        for (std::size_t i = 0; i < raw.size(); ++i) {
            if (raw[i] == '\\' && i + 3 < raw.size() && (raw[i + 1] == 'x' || raw[i + 1] == 'X') &&
                HexDigit(raw[i + 2]) >= 0 && HexDigit(raw[i + 3]) >= 0) {
                text += static_cast<char>(HexDigit(raw[i + 2]) * 16 + HexDigit(raw[i + 3]));
                i += 3;
            } else if (raw[i] == '\\' && i + 1 < raw.size() &&
                       (raw[i + 1] == '\\' || raw[i + 1] == '"')) {
                text += raw[++i];
            } else {
                text += raw[i];
            }
        }
        return text;
    }

    std::string ReadNodeSelfDoc() {
        while (!AtEnd() && Current() != "*")
            ++m_at;
        if (AtEnd()) Fail("no \"*\" line before the node self-documentation");
        ++m_at;
        return ReadSelfDoc("node self-documentation");
    }

    VariableRecord ReadVariable() {
        VariableRecord variable;
        const auto header = Tokens(Take("a VAR record"));
        if (header.size() < 6) Fail("a VAR record needs a name, an index and three rates/counts");
        variable.name = std::string(header[1]);
        variable.index = Integer(header[2], "the variable index");
        variable.arrayCount = Integer(header[5], "the array count");

        const auto flags = Tokens(Take("the flag line"));
        if (flags.size() < 13) Fail("the flag line of " + variable.name + " needs 13 numbers");
        variable.isOutput = Integer(flags[3], "the direction flag") != 0;
        variable.polled = Integer(flags[10], "the polled flag") != 0;
        variable.isConfigClass = Integer(flags[12], "the config class flag") != 0;

        variable.selfDoc = ReadSelfDoc("variable self-documentation");

        const auto type = Tokens(Take("the type line"));
        if (type.size() < 3 || type[1] != "*") Fail("expected \"<type index> * <element count>\"");
        variable.typeIndex = Integer(type[0], "the type index");
        const auto elements = Integer(type[2], "the element count");
        if (elements < 0 || elements > kMaxElements) Fail("element count out of range");
        variable.value.assign(ValueSize(elements), 0);
        return variable;
    }

    // Bytes taken by the element lines: bit fields share bytes until one starts at bit 0 again.
    std::size_t ValueSize(std::int32_t elements) {
        std::size_t size = 0;
        std::size_t groupStart = 0;
        for (std::int32_t i = 0; i < elements; ++i) {
            const auto tokens = Tokens(Take("an element line"));
            if (tokens.size() < 5) Fail("an element line needs five numbers");
            const auto kind = Integer(tokens[0], "the element kind");
            const auto bitOffset = Integer(tokens[1], "the bit offset");
            const auto bitWidth = Integer(tokens[2], "the bit width");
            const auto arrayDim = Integer(tokens[4], "the array dimension");
            if (bitOffset < 0 || bitOffset > 7 || bitWidth < 0 || bitWidth > 255 || arrayDim < 0 ||
                arrayDim > 255) {
                Fail("element numbers out of range");
            }
            const std::size_t count = arrayDim > 0 ? static_cast<std::size_t>(arrayDim) : 1;
            switch (kind) {
                case 0:  // character array
                case 1:  // 8-bit
                    size += count;
                    break;
                case 2:  // 16-bit
                    size += 2 * count;
                    break;
                case 3:  // bit field, bit offset counted from the most significant bit
                    if (bitOffset == 0 || i == 0) groupStart = size;
                    size = std::max(size, groupStart + static_cast<std::size_t>(
                                                           (bitOffset + bitWidth + 7) / 8));
                    break;
                case 4:  // opaque block of bit_width bytes
                    size += static_cast<std::size_t>(bitWidth) * count;
                    break;
                default:
                    Fail("unknown element kind " + std::to_string(kind));
            }
            if (size > kMaxValueBytes) Fail("value larger than 255 bytes");
        }
        return size;
    }

    std::vector<std::string_view> m_lines;
    std::string m_fileName;
    std::size_t m_at = 0;
};

}  // namespace

NodeDescription ReadXif(std::string_view text, const std::string& fileName) {
    return Reader(text, fileName).Read();
}

NodeDescription LoadXif(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw ComError(kErrInvalidProcedureCall, kSource, path.string() + ": cannot be opened");
    }
    std::ostringstream content;
    content << file.rdbuf();
    return ReadXif(content.str(), path.filename().string());
}

}  // namespace vx::sim

#include "SelfDoc.h"

#include <cctype>
#include <optional>
#include <vector>

#include "SupportRoutines.h"
#include "automation/Conversions.h"

namespace vx {
namespace {

std::string_view UpTo(std::string_view text, char stop) {
    const auto at = text.find(stop);
    return at == std::string_view::npos ? text : text.substr(0, at);
}

std::string_view Piece(const std::vector<std::string_view>& pieces, std::size_t index) {
    return index < pieces.size() ? pieces[index] : std::string_view();
}

// The text as a Long by the platform's rules; nothing when it is no number or does not fit.
std::optional<std::int32_t> ToLong(std::string_view text) {
    try {
        return CLng(Variant(std::string(text)));
    } catch (const ComError&) {
        return std::nullopt;
    }
}

void ReadName(std::string_view selfDoc, std::string_view hostName, VariableSelfDoc& result) {
    result.name = std::string(hostName);
    if (IsLonMarkName(hostName)) return;
    auto at = selfDoc.find("nvi");
    if (at == std::string_view::npos) at = selfDoc.find("nvo");
    if (at == std::string_view::npos) {
        at = selfDoc.find("nci");
        if (at != std::string_view::npos) result.isProperty = true;
    }
    if (at == std::string_view::npos) return;
    const auto candidate = TrimBlanks(UpTo(selfDoc.substr(at), ','));
    if (IsLonMarkName(candidate)) result.name = std::string(candidate);
}

// "&header,selector,flags,type index": a configuration property.
void ReadProperty(std::string_view rest, VariableSelfDoc& result) {
    result.isProperty = true;
    const auto pieces = SplitText(UpTo(rest, ';'), ',');
    const auto selector = Piece(pieces, 1);
    const auto header = ToLong(Piece(pieces, 0));
    if (selector.find('-') != std::string_view::npos || header == 0) {
        result.objectIndex = -1;
        result.bound = true;
    } else if (header == 1) {
        if (const auto object = ToLong(selector)) {
            result.objectIndex = *object;
            result.bound = true;
        }
    } else if (header == 2) {
        if (const auto variable = ToLong(UpTo(selector, '.'))) result.objectIndex = *variable;
    }
    if (const auto scope = ToLong(Piece(pieces, 2).substr(0, 1))) result.scopeCode = *scope;
    if (const auto type = ToLong(Piece(pieces, 3))) result.memberNumber = *type;
}

// "@object|member": a network variable that is a member of an object.
void ReadMember(std::string_view rest, VariableSelfDoc& result) {
    std::string text(TrimBlanks(UpTo(rest, ';')));
    for (char& c : text) {
        if (c == '#') c = '|';
    }
    const auto pieces = SplitText(text, '|');
    if (const auto object = ToLong(Piece(pieces, 0))) {
        result.objectIndex = *object;
        result.bound = true;
    }
    if (const auto member = ToLong(Piece(pieces, 1))) {
        result.memberGroup = *member / 1000;   // the integer part, toward zero
        result.memberNumber = *member % 1000;  // with the sign of the member, as Mod gives it
    }
}

}  // namespace

bool IsLonMarkName(std::string_view text) {
    if (text.size() < 3) return false;
    std::string prefix(text.substr(0, 3));
    for (char& c : prefix)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return prefix == "nci" || prefix == "nvi" || prefix == "nvo";
}

VariableSelfDoc ParseVariableSelfDoc(std::string_view selfDoc, std::string_view hostName) {
    VariableSelfDoc result;
    ReadName(selfDoc, hostName, result);
    if (selfDoc.empty()) return result;
    const char kind = selfDoc.front();
    const auto rest = selfDoc.substr(1);
    if (kind == '&' || kind == '~') {
        ReadProperty(rest, result);
    } else if (kind == '@' || kind == '$') {
        ReadMember(rest, result);
    }
    return result;
}

}  // namespace vx

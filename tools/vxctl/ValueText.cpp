#include "ValueText.h"

#include <algorithm>
#include <string>

#include <fmt/format.h>

#include "CDeviceVariableElement.h"
#include "CatalogueType.h"
#include "Hex.h"
#include "automation/Collection.h"
#include "automation/Conversions.h"

namespace vx::vxctl {
namespace {

// Enumerations are 8-bit: a wider range belongs to a plain number.
constexpr std::int64_t kLargestEnumerationRange = 256;

Json JsonOf(const Variant& value) {
    switch (value.Type()) {
        case vbInteger:
        case vbLong:
        case vbByte:
            return CLng(value);
        case vbSingle:
        case vbDouble:
            // Through the platform's text form, so that a Single shows as 21.35 and not as the
            // nearest double of its binary value.
            return std::stod(CStr(value));
        case vbBoolean:
            return *value.Get<bool>();
        case vbString:
            return Utf8FromLatin1(*value.Get<std::string>());
        default:
            return nullptr;
    }
}

// One entry of a field that is no structure, for people.
std::string ScalarText(IOrvexDataElement& element, const IOrvexTypedef& type, const Variant& value,
                       std::int32_t arrayIndex) {
    if (value.Type() == vbBoolean) return *value.Get<bool>() ? "true" : "false";
    // fmt rather than +: g++ 12 at -O3 misreads the concatenation as an overlapping copy.
    if (value.IsString()) return fmt::format("\"{}\"", Utf8FromLatin1(*value.Get<std::string>()));
    if (value.Type() == vbLong || value.Type() == vbInteger) {
        if (std::string member = type.EnumMemberName(CLng(value)); !member.empty()) return member;
    }
    std::string text = CStr(value);
    const std::string units = Utf8FromLatin1(type.Units());
    if (const std::string formula = type.ScaleText(); !formula.empty()) {
        // The element gives the raw number where no integer factor states the scaling.
        if (const auto* catalogued = dynamic_cast<const CatalogueType*>(&type)) {
            text += fmt::format(" raw = {} {}", FormatDouble(catalogued->Engineering(CLng(value))),
                                units);
        } else {
            text += fmt::format(" raw ({} {})", formula, units);
        }
    } else if (!units.empty()) {
        text += " " + units;
    }
    try {
        if (element.Undefined(arrayIndex)) text += " (invalid)";
    } catch (const ComError&) {
        // A width the element cannot test (32-bit) has no invalid mark to show.
    }
    return text;
}

// The text of a character array: printable characters up to the first zero, zeros after it;
// nothing when it holds anything else, which is then shown entry by entry.
std::optional<std::string> CharacterText(IOrvexDataElement& element) {
    std::string text;
    bool ended = false;
    for (std::int32_t entry = 0; entry <= element.UBound(); ++entry) {
        const std::int32_t code = element.UnScaledValue(entry);
        if (code == 0) {
            ended = true;
        } else if (ended || code < kFirstPrintable || code > kLastPrintable) {
            return std::nullopt;
        } else {
            text += static_cast<char>(code);
        }
    }
    return text;
}

}  // namespace

bool IsCharacterArray(IOrvexDataElement& element) {
    const TypedefPtr type = element.Typedef();
    return type && element.UBound() >= 0 && type->TypeCategory() == kCategoryInteger &&
           type->BitSize() == 8 && !type->IsSigned() && type->MinValue() >= kFirstPrintable &&
           type->MaxValue() <= kLastPrintable && type->EnumMemberName(0).empty();
}

DecodedValue Undecoded(std::string text) {
    DecodedValue decoded;
    decoded.json = nullptr;
    decoded.text = std::move(text);
    return decoded;
}

std::string Utf8FromLatin1(std::string_view text) {
    std::string utf8;
    utf8.reserve(text.size());
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xC0 | (code >> 6));
            utf8 += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return utf8;
}

std::string Latin1FromUtf8(std::string_view text) {
    std::string latin1;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            latin1 += static_cast<char>(lead);
            continue;
        }
        std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        length = std::min(length, text.size() - i);
        if (length == 2 && lead <= 0xC3) {
            const auto trail = static_cast<unsigned char>(text[i + 1]);
            latin1 += static_cast<char>(((lead & 0x03) << 6) | (trail & 0x3F));
        } else {
            latin1 += '?';
        }
        i += length - 1;
    }
    return latin1;
}

DecodedValue DecodeElement(const DataElementPtr& element) {
    DecodedValue decoded;
    const TypedefPtr type = element->Typedef();
    if (!type) {
        decoded.json = nullptr;
        return decoded;
    }
    if (type->TypeCategory() == kCategoryStructure) {
        decoded.json = Json::object();
        const StringArray names = type->FieldNames();
        for (const std::string& name : names.Values()) {
            DecodedValue field = DecodeElement(element->SubElement({Variant(name)}));
            field.field = Utf8FromLatin1(name);
            decoded.json[field.field] = field.json;
            decoded.fields.push_back(std::move(field));
        }
        return decoded;
    }
    const std::int32_t last = element->UBound();
    if (last >= 0 && IsCharacterArray(*element)) {
        if (auto text = CharacterText(*element)) {
            decoded.json = Utf8FromLatin1(*text);
            decoded.text = fmt::format("\"{}\"", Utf8FromLatin1(*text));
            return decoded;
        }
    }
    if (last < 0) {
        const Variant value = element->Value(0);
        decoded.json = JsonOf(value);
        decoded.text = ScalarText(*element, *type, value, 0);
        return decoded;
    }
    decoded.json = Json::array();
    std::vector<std::string> texts;
    for (std::int32_t entry = 0; entry <= last; ++entry) {
        const Variant value = element->Value(entry);
        decoded.json.push_back(JsonOf(value));
        texts.push_back(ScalarText(*element, *type, value, entry));
    }
    decoded.text = fmt::format("[{}]", fmt::join(texts, ", "));
    return decoded;
}

DecodedValue DecodeEntry(const DataElementPtr& element, std::int32_t entry) {
    DecodedValue decoded;
    const Variant value = element->Value(entry);
    decoded.json = JsonOf(value);
    decoded.text = ScalarText(*element, *element->Typedef(), value, entry);
    return decoded;
}

DecodedValue DecodeVariable(CDeviceVariable& variable) {
    try {
        if (!variable.Typedef()) return Undecoded("no type, bytes " + RawHex(variable));
        return DecodeElement(variable.Element());
    } catch (const ComError& error) {
        return Undecoded("(" + ErrorText(error) + ")");
    }
}

std::string RawHex(CDeviceVariable& variable) {
    return sim::ToHex(variable.ValueBuffer()->GetBytes().Values());
}

std::string RawHex(CDeviceVariable& variable, const DataElementPtr& element,
                   std::optional<std::int32_t> entry) {
    const auto* concrete = dynamic_cast<const CDeviceVariableElement*>(element.get());
    const TypedefPtr type = element->Typedef();
    if (concrete == nullptr || !type || element == variable.Element()) return RawHex(variable);
    const std::vector<std::uint8_t> bytes = variable.ValueBuffer()->GetBytes().Values();
    const std::int32_t bits = type->BitSize();
    const std::int32_t entries = entry ? 1 : std::max(element->UBound() + 1, 1);
    std::size_t first = concrete->Offset()->ByteOffset();
    if (concrete->Offset()->BitOffset() == 0 && bits > 0 && bits % 8 == 0) {
        const auto stride = static_cast<std::size_t>(bits / 8);
        if (entry) first += stride * static_cast<std::size_t>(*entry);
        const std::size_t last = std::min(bytes.size(), first + stride * entries);
        if (first >= last) return {};
        return sim::ToHex(
            std::vector<std::uint8_t>(bytes.begin() + static_cast<std::ptrdiff_t>(first),
                                      bytes.begin() + static_cast<std::ptrdiff_t>(last)));
    }
    // A bit field: its raw number, as many digits as its width needs.
    const auto digits = static_cast<std::size_t>((std::max(bits, 1) + 3) / 4);
    return fmt::format(
        "{:0{}X}", static_cast<std::uint32_t>(element->UnScaledValue(entry.value_or(0))), digits);
}

std::string ValueWithUnits(const DecodedValue& decoded) {
    if (decoded.fields.empty()) return decoded.text;
    std::vector<std::string> parts;
    for (const auto& field : decoded.fields)
        parts.push_back(field.field + " " + ValueWithUnits(field));
    return fmt::format("{}", fmt::join(parts, "; "));
}

std::string ValueWithUnits(const DataElementPtr& element) {
    return ValueWithUnits(DecodeElement(element));
}

std::string ErrorText(const ComError& error) {
    const auto number = static_cast<std::uint32_t>(error.Number());
    const std::string hex = fmt::format("0x{:08X}", number);
    const std::string shown =
        error.Number() > 0 ? fmt::format("{} = {}", error.Number(), hex) : hex;
    return fmt::format("error {} ({}): {}", shown, Utf8FromLatin1(error.Source()),
                       Utf8FromLatin1(error.Description()));
}

Json ErrorJson(const ComError& error) {
    return {{"number", error.Number()},
            {"hex", fmt::format("0x{:08X}", static_cast<std::uint32_t>(error.Number()))},
            {"source", Utf8FromLatin1(error.Source())},
            {"description", Utf8FromLatin1(error.Description())}};
}

std::vector<std::pair<std::int32_t, std::string>> EnumMembers(const IOrvexTypedef& type) {
    std::vector<std::pair<std::int32_t, std::string>> members;
    const std::int64_t low = type.MinValue();
    const std::int64_t high = type.MaxValue();
    if (type.TypeCategory() != kCategoryInteger || high - low > kLargestEnumerationRange) {
        return members;
    }
    // The invalid member (-1) lies below the range the enumeration's limits give.
    for (std::int64_t raw = std::min<std::int64_t>(low, -1); raw <= high; ++raw) {
        std::string member = type.EnumMemberName(static_cast<std::int32_t>(raw));
        if (!member.empty())
            members.emplace_back(static_cast<std::int32_t>(raw), std::move(member));
    }
    return members;
}

std::optional<std::int32_t> EnumMemberNumber(const IOrvexTypedef& type, std::string_view text) {
    for (const auto& [raw, member] : EnumMembers(type)) {
        const auto underscore = member.find('_');
        if (FoldKey(member) == FoldKey(text) ||
            (underscore != std::string::npos &&
             FoldKey(std::string_view(member).substr(underscore + 1)) == FoldKey(text))) {
            return raw;
        }
    }
    return std::nullopt;
}

Variant InputValue(const IOrvexTypedef& type, std::string_view text) {
    switch (type.TypeCategory()) {
        case kCategoryBoolean:
            if (FoldKey(text) == "true" || FoldKey(text) == "on") return true;
            if (FoldKey(text) == "false" || FoldKey(text) == "off") return false;
            break;
        case kCategoryAscii:
            return Latin1FromUtf8(text);
        case kCategoryInteger:
            if (const auto member = EnumMemberNumber(type, text)) return *member;
            break;
        default:
            break;
    }
    return std::string(text);
}

}  // namespace vx::vxctl

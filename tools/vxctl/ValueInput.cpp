#include "ValueInput.h"

#include <charconv>
#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "CDeviceVariableElement.h"
#include "CatalogueType.h"
#include "Suggest.h"
#include "ToolErrors.h"
#include "Units.h"
#include "ValueText.h"
#include "automation/Collection.h"
#include "automation/Conversions.h"

namespace vx::vxctl {
namespace {

constexpr double kLargestSingle = 3.402823466e38;
constexpr std::string_view kInvalidWord = "invalid";

// How an integer type's raw numbers relate to engineering values.
struct IntegerScale {
    std::int64_t rawMin = 0;
    std::int64_t rawMax = 0;
    std::optional<std::int64_t> invalid;
    const CatalogueType* formula = nullptr;  // scaling the element does not do
    std::int32_t factor = 1;
    bool multiplies = false;

    double Engineering(std::int64_t raw) const {
        if (formula != nullptr) return formula->Engineering(raw);
        if (factor < 2) return static_cast<double>(raw);
        return multiplies ? static_cast<double>(raw) * factor : static_cast<double>(raw) / factor;
    }
    double Raw(double engineering) const {
        if (formula != nullptr) {
            return engineering / (formula->ScaleA() * std::pow(10.0, formula->ScaleB())) -
                   formula->ScaleC();
        }
        if (factor < 2) return engineering;
        return multiplies ? engineering / factor : engineering * factor;
    }
};

bool IsEnumeration(const IOrvexTypedef& type) {
    return !EnumMembers(type).empty();
}

std::optional<IntegerScale> IntegerScaleOf(const IOrvexTypedef& type) {
    if (type.TypeCategory() != kCategoryInteger || IsEnumeration(type)) return std::nullopt;
    IntegerScale scale;
    const std::int32_t bits = type.BitSize();
    if (bits < 1 || bits > 32) return std::nullopt;
    const bool isSigned = type.IsSigned();
    const std::int64_t typeMin = isSigned ? -(std::int64_t{1} << (bits - 1)) : 0;
    const std::int64_t typeMax = (std::int64_t{1} << (bits - (isSigned ? 1 : 0))) - 1;
    scale.rawMin = std::max<std::int64_t>(typeMin, type.MinValue());
    scale.rawMax = std::min<std::int64_t>(typeMax, type.MaxValue());
    if (!type.ScaleText().empty()) {
        scale.formula = dynamic_cast<const CatalogueType*>(&type);
    } else {
        scale.factor = type.ScaleFactor();
        scale.multiplies = type.ScaleMultiplies();
    }
    std::int32_t invalid = 0;
    if (type.InvalidValue(invalid) && invalid >= scale.rawMin && invalid <= scale.rawMax) {
        scale.invalid = invalid;
    }
    return scale;
}

// Seven significant digits: what a Single carries, without the noise of a double's tail.
std::string Number(double value) {
    constexpr double kWholeNumbersUpTo = 1e15;
    if (value == std::floor(value) && std::abs(value) < kWholeNumbersUpTo) {
        return fmt::format("{}", static_cast<std::int64_t>(value));
    }
    return fmt::format("{:.7g}", value);
}

std::string WithUnits(double value, const std::string& units) {
    return units.empty() ? Number(value) : Number(value) + " " + units;
}

std::string TypeNameOf(const IOrvexTypedef& type) {
    return Utf8FromLatin1(type.TypeName());
}

[[noreturn]] void Refuse(const std::string& shown, const std::string& what) {
    throw UsageError(fmt::format("{}: {}", shown, what));
}

std::string MembersText(const IOrvexTypedef& type) {
    std::vector<std::string> names;
    for (const auto& [raw, member] : EnumMembers(type))
        names.push_back(fmt::format("{} ({})", Utf8FromLatin1(member), raw));
    return fmt::format("{}", fmt::join(names, ", "));
}

CheckedValue CheckEnumeration(const IOrvexTypedef& type, std::string_view text,
                              const std::string& shown) {
    const std::string latin1 = Latin1FromUtf8(text);
    if (const auto member = EnumMemberNumber(type, latin1)) return {Variant(*member), {}};
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(latin1.data(), latin1.data() + latin1.size(), number);
    const bool isNumber = error == std::errc() && end == latin1.data() + latin1.size();
    if (isNumber && !type.EnumMemberName(number).empty()) return {Variant(number), {}};
    // A slip is matched against the names as typed: with or without the prefix.
    std::vector<std::string> names;
    std::vector<std::string> shortNames;
    for (const auto& [raw, member] : EnumMembers(type)) {
        names.push_back(Utf8FromLatin1(member));
        const auto underscore = member.find('_');
        shortNames.push_back(underscore == std::string::npos ? names.back()
                                                             : names.back().substr(underscore + 1));
    }
    std::string hint;
    if (!isNumber) {
        hint = DidYouMean(text, names);
        if (hint.empty()) hint = DidYouMean(text, shortNames);
    }
    Refuse(shown, fmt::format("'{}' is no member of {}{}; members: {}", text, TypeNameOf(type),
                              hint, MembersText(type)));
}

CheckedValue CheckBoolean(std::string_view text, const std::string& shown) {
    const std::string word = FoldKey(text);
    if (word == "true" || word == "on" || word == "1") return {Variant(true), {}};
    if (word == "false" || word == "off" || word == "0") return {Variant(false), {}};
    Refuse(shown, fmt::format("'{}' is no Boolean: true, false, on, off, 1 or 0", text));
}

// Characters beyond Latin-1 have no byte on the node; they are refused, not replaced.
std::string Latin1Text(std::string_view text, const std::string& shown) {
    const std::string latin1 = Latin1FromUtf8(text);
    if (Utf8FromLatin1(latin1) != text) {
        Refuse(shown, fmt::format("'{}' has characters the controller cannot hold (it takes "
                                  "Latin-1 characters)",
                                  text));
    }
    return latin1;
}

CheckedValue CheckText(const IOrvexTypedef& type, std::string_view text, const std::string& shown) {
    const std::string latin1 = Latin1Text(text, shown);
    // The last byte of a text field always holds its terminating zero.
    const std::size_t room =
        type.TextLength() > 0 ? static_cast<std::size_t>(type.TextLength()) - 1 : 0;
    if (latin1.size() > room) {
        Refuse(shown, fmt::format("'{}' has {} characters; {} takes at most {}", text,
                                  latin1.size(), TypeNameOf(type), room));
    }
    return {Variant(latin1), {}};
}

// A number as typed, in the type's units; `conversion` says how a unit given was converted.
double NumberInTypeUnits(const IOrvexTypedef& type, std::string_view text, const std::string& shown,
                         std::string& conversion) {
    const auto typed = SplitNumberAndUnit(text);
    if (!typed) {
        Refuse(shown, fmt::format("'{}' is no number{}", text,
                                  type.Units().empty() ? std::string()
                                                       : " (a unit may follow it: '21.5 " +
                                                             Utf8FromLatin1(type.Units()) + "')"));
    }
    if (typed->unit.empty()) return typed->number;
    const std::string units = Utf8FromLatin1(type.Units());
    if (units.empty()) {
        Refuse(shown,
               fmt::format("'{}': {} has no units; give the number alone", text, TypeNameOf(type)));
    }
    if (FoldKey(typed->unit) == FoldKey(units)) return typed->number;
    const bool difference = type.TypeName().find("_diff") != std::string::npos;
    const auto converted = ConvertUnits(typed->number, typed->unit, units, difference);
    if (!converted) {
        const std::string known = ConvertibleUnits(units);
        Refuse(shown, fmt::format("'{}': vxctl cannot convert {} to {} (the units of {}){}", text,
                                  typed->unit, units, TypeNameOf(type),
                                  known.empty() ? "" : "; it converts " + known));
    }
    conversion = fmt::format("{} {} is {} {}", Number(typed->number), typed->unit,
                             Number(*converted), units);
    return *converted;
}

CheckedValue CheckInteger(const IOrvexTypedef& type, const IntegerScale& scale,
                          std::string_view text, const std::string& shown) {
    const std::string units = Utf8FromLatin1(type.Units());
    NumberRange range = *RangeOf(type);
    if (FoldKey(text) == kInvalidWord) {
        if (!scale.invalid) Refuse(shown, fmt::format("{} has no invalid code", TypeNameOf(type)));
        return {Variant(static_cast<std::int32_t>(*scale.invalid)), {}};
    }
    CheckedValue checked;
    std::string conversion;
    const double engineering = NumberInTypeUnits(type, text, shown, conversion);
    const double exact = scale.Raw(engineering);
    const std::int64_t raw =
        std::abs(exact) < 4e18 ? static_cast<std::int64_t>(RoundHalfEven(exact)) : 0;
    const bool outside = std::abs(exact) >= 4e18 || raw < scale.rawMin || raw > scale.rawMax ||
                         (scale.invalid && raw == *scale.invalid);
    if (outside) {
        const std::string what =
            scale.invalid && raw == *scale.invalid
                ? fmt::format("{} is the invalid code of {}",
                              WithUnits(scale.Engineering(raw), units), TypeNameOf(type))
                : fmt::format("{} is outside the range of {}", WithUnits(engineering, units),
                              TypeNameOf(type));
        Refuse(shown, fmt::format("{}{}; it takes {}", conversion.empty() ? "" : conversion + ": ",
                                  what, RangeText(range)));
    }
    const double stored = scale.Engineering(raw);
    std::string note = conversion;
    if (std::abs(stored - engineering) > std::abs(engineering) * 1e-9 + 1e-12) {
        note += fmt::format("{}{} is stored as {} (the resolution of {} is {})",
                            note.empty() ? "" : "; ", Number(engineering), WithUnits(stored, units),
                            TypeNameOf(type), Number(range.step));
    }
    if (!note.empty()) checked.notes.push_back(note);
    checked.value = Variant(static_cast<std::int32_t>(raw));
    return checked;
}

CheckedValue CheckFloat(const IOrvexTypedef& type, std::string_view text,
                        const std::string& shown) {
    CheckedValue checked;
    std::string conversion;
    const double value = NumberInTypeUnits(type, text, shown, conversion);
    if (!conversion.empty()) checked.notes.push_back(conversion);
    const NumberRange range = *RangeOf(type);
    if (value < range.low || value > range.high) {
        Refuse(shown,
               fmt::format("{} is outside the range of {}; it takes {}",
                           WithUnits(value, range.units), TypeNameOf(type), RangeText(range)));
    }
    checked.value = Variant(value);
    return checked;
}

// Splits "100 1" or "\"Room 2\" 5" into values; quotes keep blanks inside one value.
std::vector<std::string> SplitValues(std::string_view text) {
    std::vector<std::string> values;
    std::size_t at = 0;
    while (at < text.size()) {
        while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
            ++at;
        if (at >= text.size()) break;
        std::string value;
        if (text[at] == '"') {
            const auto close = text.find('"', at + 1);
            value = std::string(text.substr(
                at + 1, close == std::string_view::npos ? std::string_view::npos : close - at - 1));
            at = close == std::string_view::npos ? text.size() : close + 1;
        } else {
            while (at < text.size() && text[at] != ' ' && text[at] != '\t')
                value += text[at++];
        }
        values.push_back(std::move(value));
    }
    return values;
}

// One value the whole-value form names: a scalar field, an array entry or a character array.
struct Leaf {
    std::string shown;
    DataElementPtr element;
    std::optional<std::int32_t> entry;  // nothing for a scalar field and a character array
    bool characters = false;
};

void CollectLeaves(const DataElementPtr& element, const std::string& shown,
                   std::vector<Leaf>& leaves) {
    const TypedefPtr type = element->Typedef();
    if (!type) return;
    if (type->TypeCategory() == kCategoryStructure) {
        const StringArray names = type->FieldNames();
        for (const std::string& name : names.Values()) {
            CollectLeaves(element->SubElement({Variant(name)}), shown + "." + Utf8FromLatin1(name),
                          leaves);
        }
        return;
    }
    const std::int32_t last = element->UBound();
    if (last >= 0 && IsCharacterArray(*element)) {
        leaves.push_back({shown, element, std::nullopt, true});
    } else if (last >= 0) {
        for (std::int32_t entry = 0; entry <= last; ++entry)
            leaves.push_back({fmt::format("{}[{}]", shown, entry), element, entry, false});
    } else {
        leaves.push_back({shown, element, std::nullopt, false});
    }
}

std::vector<std::uint8_t> CharacterBytes(IOrvexDataElement& element, std::string_view text,
                                         const std::string& shown) {
    const std::string latin1 = Latin1Text(text, shown);
    const auto entries = static_cast<std::size_t>(element.UBound() + 1);
    if (latin1.size() > entries) {
        Refuse(shown, fmt::format("'{}' has {} characters; the field holds at most {}", text,
                                  latin1.size(), entries));
    }
    std::vector<std::uint8_t> bytes(entries, 0);
    for (std::size_t i = 0; i < latin1.size(); ++i) {
        const auto code = static_cast<unsigned char>(latin1[i]);
        if (code < kFirstPrintable || code > kLastPrintable) {
            Refuse(shown,
                   fmt::format("'{}': the field holds printable ASCII characters only", text));
        }
        bytes[i] = code;
    }
    return bytes;
}

ElementWrite LeafWrite(const Leaf& leaf, std::string_view text) {
    ElementWrite write{leaf.shown, leaf.element, leaf.entry.value_or(0), {}, std::nullopt};
    if (leaf.characters) {
        write.characters = CharacterBytes(*leaf.element, text, leaf.shown);
    } else {
        write.value = CheckValue(*leaf.element->Typedef(), text, leaf.shown);
    }
    return write;
}

std::string ScalarText(const nlohmann::json& value) {
    if (value.is_string()) return value.get<std::string>();
    return value.dump();
}

void PlanJson(const DataElementPtr& element, const nlohmann::json& value, const std::string& shown,
              std::vector<ElementWrite>& writes) {
    const TypedefPtr type = element->Typedef();
    if (!type) Refuse(shown, "has no known type");
    if (type->TypeCategory() == kCategoryStructure) {
        if (!value.is_object()) {
            Refuse(shown, fmt::format("is a structure: give a JSON object of its fields ({})",
                                      fmt::join(type->FieldNames().Values(), ", ")));
        }
        for (const auto& [key, member] : value.items()) {
            const std::string latin1 = Latin1FromUtf8(key);
            const StringArray fieldNames = type->FieldNames();
            const auto& names = fieldNames.Values();
            const auto found = std::find_if(names.begin(), names.end(), [&](const std::string& n) {
                return FoldKey(n) == FoldKey(latin1);
            });
            if (found == names.end()) {
                Refuse(shown,
                       fmt::format("{} has no field '{}'{}; its fields: {}", TypeNameOf(*type), key,
                                   DidYouMean(latin1, names), fmt::join(names, ", ")));
            }
            PlanJson(element->SubElement({Variant(*found)}), member,
                     shown + "." + Utf8FromLatin1(*found), writes);
        }
        return;
    }
    const std::int32_t last = element->UBound();
    if (last >= 0 && !(IsCharacterArray(*element) && value.is_string())) {
        if (!value.is_array() || value.size() != static_cast<std::size_t>(last + 1)) {
            Refuse(shown, fmt::format("is an array: give a JSON array of {} entries", last + 1));
        }
        for (std::int32_t entry = 0; entry <= last; ++entry) {
            const Leaf leaf{fmt::format("{}[{}]", shown, entry), element, entry, false};
            writes.push_back(LeafWrite(leaf, ScalarText(value[static_cast<std::size_t>(entry)])));
        }
        return;
    }
    if (value.is_object() || value.is_array() || value.is_null()) {
        Refuse(shown, fmt::format("takes a single value, not {}", value.dump()));
    }
    writes.push_back(LeafWrite({shown, element, std::nullopt, last >= 0}, ScalarText(value)));
}

}  // namespace

std::optional<NumberRange> RangeOf(const IOrvexTypedef& type) {
    NumberRange range;
    range.units = Utf8FromLatin1(type.Units());
    if (type.TypeCategory() == kCategoryFloat) {
        range.low = -kLargestSingle;
        range.high = kLargestSingle;
        if (const auto* catalogued = dynamic_cast<const CatalogueType*>(&type)) {
            range.low = std::max(range.low, catalogued->MinEngineering());
            range.high = std::min(range.high, catalogued->MaxEngineering());
        }
        return range;
    }
    const auto scale = IntegerScaleOf(type);
    if (!scale) return std::nullopt;
    std::int64_t low = scale->rawMin;
    std::int64_t high = scale->rawMax;
    if (scale->invalid) {
        range.invalid = scale->Engineering(*scale->invalid);
        if (*scale->invalid == high) --high;
        if (*scale->invalid == low) ++low;
    }
    range.low = scale->Engineering(low);
    range.high = scale->Engineering(high);
    if (range.low > range.high) std::swap(range.low, range.high);
    range.step = std::abs(scale->Engineering(1) - scale->Engineering(0));
    return range;
}

std::string RangeText(const NumberRange& range) {
    std::string text =
        fmt::format("{} to {}", Number(range.low), WithUnits(range.high, range.units));
    if (range.invalid) {
        text +=
            fmt::format(" ({} is the invalid code: give 'invalid' for it)", Number(*range.invalid));
    }
    return text;
}

CheckedValue CheckValue(const IOrvexTypedef& type, std::string_view text,
                        const std::string& shown) {
    switch (type.TypeCategory()) {
        case kCategoryBoolean:
            return CheckBoolean(text, shown);
        case kCategoryAscii:
            return CheckText(type, text, shown);
        case kCategoryFloat:
            return CheckFloat(type, text, shown);
        case kCategoryInteger:
            if (IsEnumeration(type)) return CheckEnumeration(type, text, shown);
            if (const auto scale = IntegerScaleOf(type))
                return CheckInteger(type, *scale, text, shown);
            break;
        default:
            break;
    }
    Refuse(shown, fmt::format("{} takes no value of its own", TypeNameOf(type)));
}

std::vector<ElementWrite> PlanWrites(const DataElementPtr& element, std::string_view text,
                                     const std::string& shown) {
    std::vector<ElementWrite> writes;
    const std::string_view trimmed =
        text.substr(std::min(text.find_first_not_of(" \t"), text.size()));
    if (trimmed.starts_with('{') || trimmed.starts_with('[')) {
        const auto document = nlohmann::json::parse(trimmed, nullptr, false);
        if (document.is_discarded()) Refuse(shown, fmt::format("'{}' is no valid JSON", text));
        PlanJson(element, document, shown, writes);
        return writes;
    }
    std::vector<Leaf> leaves;
    CollectLeaves(element, shown, leaves);
    if (leaves.size() == 1) {
        writes.push_back(LeafWrite(leaves.front(), text));
        return writes;
    }
    const auto values = SplitValues(text);
    if (values.size() != leaves.size()) {
        std::vector<std::string> names;
        for (const auto& leaf : leaves)
            names.push_back(leaf.shown.substr(shown.size() + (leaf.shown[shown.size()] == '.')));
        Refuse(shown, fmt::format("takes {} values in this order: {} (or a JSON object of its "
                                  "fields); {} given",
                                  leaves.size(), fmt::join(names, " "), values.size()));
    }
    for (std::size_t i = 0; i < leaves.size(); ++i)
        writes.push_back(LeafWrite(leaves[i], values[i]));
    return writes;
}

void ApplyWrites(const std::vector<ElementWrite>& writes) {
    for (const auto& write : writes) {
        if (write.characters) {
            // Through the buffer: the element would lift the terminating zeros to a blank.
            const auto* concrete = dynamic_cast<const CDeviceVariableElement*>(write.element.get());
            if (concrete == nullptr) continue;
            for (std::size_t i = 0; i < write.characters->size(); ++i) {
                CDataOffset at;
                at.SetByteOffset(static_cast<std::uint8_t>(concrete->Offset()->ByteOffset() + i));
                at.SetBitOffset(0);
                concrete->Buffer()->SetUInt8(at, (*write.characters)[i]);
            }
        } else if (write.value.value.Type() == vbLong &&
                   write.element->Typedef()->TypeCategory() == kCategoryInteger) {
            // The raw number, checked against the type's range above, goes to the codec: the
            // element would round it a second time through a Single, and cannot take any value
            // of a 32-bit field, whose limits overflow its Long.
            const auto* concrete = dynamic_cast<const CDeviceVariableElement*>(write.element.get());
            if (concrete == nullptr) {
                write.element->SetUnScaledValue(write.entry, CLng(write.value.value));
            } else {
                concrete->Buffer()->SetLong(*write.element->Typedef(), concrete->Offset(),
                                            write.entry, CLng(write.value.value));
            }
        } else {
            write.element->SetValue(write.entry, write.value.value);
        }
    }
}

std::vector<std::uint8_t> RawBytesInput(std::string_view text, std::size_t length,
                                        const std::string& shown) {
    std::string digits;
    std::string_view rest = text;
    if (rest.starts_with("0x") || rest.starts_with("0X")) rest.remove_prefix(2);
    for (const char c : rest) {
        if (c == ' ' || c == ':' || c == '-') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) {
            Refuse(shown, fmt::format("'{}' is no hexadecimal byte string; this value has no "
                                      "known type, so it takes its {} bytes as hexadecimal "
                                      "digits (0x{})",
                                      text, length, std::string(length * 2, '0')));
        }
        digits += c;
    }
    if (digits.size() != length * 2) {
        Refuse(shown, fmt::format("'{}' gives {} hexadecimal digits; the value has {} bytes, "
                                  "{} digits",
                                  text, digits.size(), length, length * 2));
    }
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace vx::vxctl

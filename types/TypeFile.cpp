#include "TypeFile.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "TypeRegistry.h"
#include "automation/Collection.h"
#include "automation/ComError.h"

namespace vx::typefile {
namespace {

// Ordered, so that enumeration members keep the order the file gives them.
using Json = nlohmann::ordered_json;

constexpr std::int32_t kMaxValueBytes = 256;  // offsets run to byte 255
constexpr int kMaxNesting = 8;                // inline types inside inline types
constexpr std::int64_t kInt32Max = std::numeric_limits<std::int32_t>::max();
constexpr double kFloatLimit = 3.40282e38;

// A problem found while reading; turned into the file error with the entry's path.
struct Problem {
    std::string text;
};

[[noreturn]] void Fail(std::string text) {
    throw Problem{std::move(text)};
}

std::string Quoted(std::string_view text) {
    // Appended, not "\"" + std::string(text): g++ 12 at -O3 takes that for an overlapping copy (a
    // false -Wrestrict).
    std::string quoted(1, '"');
    quoted.append(text).append(1, '"');
    return quoted;
}

std::string CategoryName(std::int32_t category) {
    switch (category) {
        case kCategoryInteger:
            return "integer";
        case kCategoryFloat:
            return "float";
        case kCategoryBoolean:
            return "boolean";
        case kCategoryAscii:
            return "ascii";
        case kCategoryStructure:
            return "structure";
        default:
            return std::to_string(category);
    }
}

// The keys an object may have; anything else is a mistake worth reporting (a misspelt "signed"
// would otherwise silently give an unsigned type).
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

std::int64_t Integer(const Json& value, const char* key, std::int64_t low, std::int64_t high) {
    std::int64_t number = 0;
    if (value.is_number_unsigned()) {
        const auto unsignedNumber = value.get<std::uint64_t>();
        if (unsignedNumber > static_cast<std::uint64_t>(high)) {
            Fail(std::string(key) + " " + std::to_string(unsignedNumber) + " is outside " +
                 std::to_string(low) + ".." + std::to_string(high));
        }
        number = static_cast<std::int64_t>(unsignedNumber);
    } else if (value.is_number_integer()) {
        number = value.get<std::int64_t>();
    } else {
        Fail(std::string(key) + " must be a whole number");
    }
    if (number < low || number > high) {
        Fail(std::string(key) + " " + std::to_string(number) + " is outside " +
             std::to_string(low) + ".." + std::to_string(high));
    }
    return number;
}

std::int32_t Integer32(const Json& value, const char* key, std::int64_t low, std::int64_t high) {
    return static_cast<std::int32_t>(Integer(value, key, low, high));
}

double Number(const Json& value, const char* key) {
    if (!value.is_number()) Fail(std::string(key) + " must be a number");
    const double number = value.get<double>();
    if (!std::isfinite(number)) Fail(std::string(key) + " must be finite");
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

std::int32_t CategoryOf(const Json& value) {
    const std::string text = Text(value, "category");
    if (text == "integer") return kCategoryInteger;
    if (text == "float") return kCategoryFloat;
    if (text == "boolean") return kCategoryBoolean;
    if (text == "ascii") return kCategoryAscii;
    if (text == "structure") return kCategoryStructure;
    Fail("category " + Quoted(text) + " is none of integer, float, boolean, ascii, structure");
}

// The raw range a width can carry in the element's signed 32-bit Long.
std::pair<std::int64_t, std::int64_t> CarriedRange(std::int32_t bits, bool isSigned) {
    if (isSigned) return {-(std::int64_t{1} << (bits - 1)), (std::int64_t{1} << (bits - 1)) - 1};
    return {0, std::min<std::int64_t>((std::int64_t{1} << bits) - 1, kInt32Max)};
}

class Reader {
public:
    Reader(std::string_view sourceName, const Resolver& resolve)
        : m_source(sourceName), m_resolve(resolve) {}

    Definitions Read(std::string_view text) {
        Json document;
        try {
            document = Json::parse(text.begin(), text.end());
        } catch (const Json::exception& error) {  // syntax, and numbers beyond a double
            Raise("", std::string("not valid JSON (") + error.what() + ")");
        }
        try {
            if (!document.is_object()) Fail("the file must hold one object");
            CheckKeys(document, {"version", "types"});
            if (const auto* version = Member(document, "version")) {
                Integer(*version, "version", 1, 1);
            }
            const auto* types = Member(document, "types");
            if (!types || !types->is_array()) Fail("\"types\" must be an array");
            m_types = types;
        } catch (const Problem& problem) {
            Raise("", problem.text);
        }
        for (std::size_t i = 0; i < m_types->size(); ++i) {
            m_path = "types[" + std::to_string(i) + "]";
            try {
                ReadEntry((*m_types)[i]);
            } catch (const Problem& problem) {
                Raise(m_path, problem.text);
            } catch (const Json::exception& error) {  // a value read against its kind
                Raise(m_path, error.what());
            }
        }
        return std::move(m_result);
    }

private:
    [[noreturn]] void Raise(const std::string& path, const std::string& text) const {
        std::string description = m_source + ": ";
        if (!path.empty()) description += path + ": ";
        throw ComError(kTypeFileError, kTypeFileErrorSource, description + text);
    }

    void ReadEntry(const Json& entry) {
        if (!entry.is_object()) Fail("a type entry must be an object");
        const auto* name = Member(entry, "name");
        if (!name) Fail("\"name\" is missing");
        const std::string typeName = Name(*name, "name");
        m_path += " " + Quoted(typeName);
        if (!m_names.insert(FoldKey(typeName)).second) Fail("the file defines this name twice");
        auto type = ReadType(entry, typeName, 0, true);
        m_defined.emplace(FoldKey(typeName), type);
        m_result.types.push_back(type);
        if (const auto* aliases = Member(entry, "aliases")) ReadAliases(*aliases, type);
    }

    void ReadAliases(const Json& aliases, const CatalogueTypePtr& type) {
        if (!aliases.is_array()) Fail("\"aliases\" must be an array");
        for (const auto& alias : aliases) {
            std::string key;
            if (alias.is_string()) {
                key = Name(alias, "alias");
            } else if (alias.is_object()) {
                CheckKeys(alias, {"variable", "program_id"});
                const auto* variable = Member(alias, "variable");
                if (!variable) Fail("an alias object needs \"variable\"");
                key = Name(*variable, "variable");
                // The key of a device-specific definition: the variable name immediately followed
                // by the device's program ID text.
                if (const auto* programId = Member(alias, "program_id")) {
                    key += Name(*programId, "program_id");
                }
            } else {
                Fail("an alias must be a text or an object");
            }
            if (!m_aliases.insert(FoldKey(key)).second) Fail("alias " + Quoted(key) + " twice");
            m_result.aliases.emplace_back(std::move(key), type);
        }
    }

    // A type this file defined earlier, else one the registry holds.
    TypedefPtr Lookup(const std::string& name) const {
        const auto found = m_defined.find(FoldKey(name));
        if (found != m_defined.end()) return found->second;
        return m_resolve ? m_resolve(name) : nullptr;
    }

    CatalogueTypePtr ReadType(const Json& entry, const std::string& name, int depth,
                              bool topLevel) {
        if (!entry.is_object()) Fail("a type must be an object");
        CheckKeys(entry,
                  {"name", "base", "index", "category", "bits", "signed", "length", "size", "scale",
                   "min", "max", "invalid", "units", "description", "enum", "fields", "aliases"});
        if (!topLevel && Member(entry, "aliases")) Fail("a field's type cannot have aliases");

        TypeFacts facts;
        std::vector<CatalogueFieldPtr> fields;
        const bool derived = Member(entry, "base") != nullptr;
        if (derived) {
            const std::string baseName = Name(*Member(entry, "base"), "base");
            const auto found = Lookup(baseName);
            const auto* base = dynamic_cast<const CatalogueType*>(found.get());
            if (!found) Fail("base " + Quoted(baseName) + " is not a known type");
            if (!base) Fail("base " + Quoted(baseName) + " is not a catalogue type");
            for (const char* key : {"category", "bits", "signed", "length"}) {
                if (Member(entry, key)) {
                    Fail(std::string("\"") + key + "\" comes from the base and cannot be given");
                }
            }
            facts = base->Facts();
            facts.index = 0;
            fields = base->Fields();
            if (const auto* size = Member(entry, "size")) {
                if (facts.category != kCategoryStructure) {
                    Fail("\"size\" applies to structures only");
                }
                facts.byteSize = Integer32(*size, "size", 1, kMaxValueBytes);
                facts.bitSize = 8 * facts.byteSize;
            }
        } else {
            const auto* category = Member(entry, "category");
            if (!category) Fail("\"category\" is missing");
            facts.category = CategoryOf(*category);
            ReadShape(entry, facts);
        }
        facts.name = name;
        if (const auto* index = Member(entry, "index")) {
            facts.index = Integer32(*index, "index", 0, 32767);
        }
        if (const auto* text = Member(entry, "units")) facts.units = Text(*text, "units");
        if (const auto* text = Member(entry, "description")) {
            facts.description = Text(*text, "description");
        }
        ReadValueRules(entry, facts, derived);
        if (const auto* fieldList = Member(entry, "fields")) {
            fields = ReadFields(*fieldList, facts, depth);
        }
        auto type = std::make_shared<CatalogueType>(std::move(facts), std::move(fields));
        if (auto problem = CheckLayout(*type); !problem.empty()) Fail(problem);
        return type;
    }

    // Width, sign, text length and size of a type that has no base.
    static void ReadShape(const Json& entry, TypeFacts& facts) {
        const auto* bits = Member(entry, "bits");
        const auto* isSigned = Member(entry, "signed");
        const auto* length = Member(entry, "length");
        const auto* size = Member(entry, "size");
        const auto refuse = [&](const Json* member, const char* key) {
            if (member) {
                Fail(std::string("\"") + key + "\" does not apply to " +
                     CategoryName(facts.category) + " types");
            }
        };
        switch (facts.category) {
            case kCategoryInteger:
                refuse(length, "length");
                refuse(size, "size");
                if (!bits) Fail("\"bits\" is missing");
                facts.bitSize = Integer32(*bits, "bits", 1, 32);
                if (facts.bitSize > 8 && facts.bitSize % 8 != 0) {
                    Fail("bits " + std::to_string(facts.bitSize) +
                         ": widths above 8 must be whole bytes (16, 24, 32)");
                }
                facts.isSigned = isSigned && Boolean(*isSigned, "signed");
                // The element reads two's complement values of these widths only.
                if (facts.isSigned && facts.bitSize != 8 && facts.bitSize != 16) {
                    Fail("signed integers must be 8 or 16 bits wide");
                }
                facts.byteSize = (facts.bitSize + 7) / 8;
                break;
            case kCategoryFloat:
            case kCategoryBoolean: {
                // Fixed widths: an IEEE single, or one bit in a byte of its own.
                const std::int32_t width = facts.category == kCategoryFloat ? 32 : 1;
                refuse(isSigned, "signed");
                refuse(length, "length");
                refuse(size, "size");
                if (bits) Integer(*bits, "bits", width, width);
                facts.bitSize = width;
                facts.byteSize = (width + 7) / 8;
                break;
            }
            case kCategoryAscii:
                refuse(bits, "bits");
                refuse(isSigned, "signed");
                refuse(size, "size");
                if (!length) Fail("\"length\" is missing");
                facts.textLength = Integer32(*length, "length", 1, kMaxValueBytes);
                facts.byteSize = facts.textLength;
                facts.bitSize = 8 * facts.textLength;
                break;
            default:  // structure
                refuse(bits, "bits");
                refuse(isSigned, "signed");
                refuse(length, "length");
                if (!size) Fail("\"size\" is missing");
                facts.byteSize = Integer32(*size, "size", 1, kMaxValueBytes);
                facts.bitSize = 8 * facts.byteSize;
                break;
        }
    }

    // Scaling, limits, invalid code and enumeration; `inherit` keeps what a base stated where the
    // entry says nothing.
    void ReadValueRules(const Json& entry, TypeFacts& facts, bool inherit) const {
        const auto* scale = Member(entry, "scale");
        const auto* minimum = Member(entry, "min");
        const auto* maximum = Member(entry, "max");
        const auto* invalid = Member(entry, "invalid");
        const auto* enumeration = Member(entry, "enum");
        const bool integer = facts.category == kCategoryInteger;
        const bool boolean = facts.category == kCategoryBoolean;
        if (scale && !integer) Fail("\"scale\" applies to integer types only");
        if (enumeration && !integer) Fail("\"enum\" applies to integer types only");
        if (invalid && !integer && !boolean) {
            Fail("\"invalid\" applies to integer and boolean types only");
        }

        if (facts.category == kCategoryFloat) {
            if (!inherit) {
                facts.minValue = -kFloatLimit;
                facts.maxValue = kFloatLimit;
            }
            if (minimum) facts.minValue = Number(*minimum, "min");
            if (maximum) facts.maxValue = Number(*maximum, "max");
            if (facts.minValue > facts.maxValue) Fail("min is above max");
            // As Longs: the declared limits rounded outward, within what a Long holds.
            facts.minRaw = static_cast<std::int32_t>(std::max<double>(
                std::floor(facts.minValue), std::numeric_limits<std::int32_t>::min()));
            facts.maxRaw = static_cast<std::int32_t>(
                std::min<double>(std::ceil(facts.maxValue), static_cast<double>(kInt32Max)));
            return;
        }
        if (!integer && !boolean) {
            if (minimum || maximum) Fail("\"min\" and \"max\" apply to numbers only");
            return;
        }

        const auto [low, high] = CarriedRange(facts.bitSize, facts.isSigned);
        if (!inherit) {
            facts.minRaw = static_cast<std::int32_t>(low);
            facts.maxRaw = static_cast<std::int32_t>(high);
        }
        if (scale) {
            if (!scale->is_object()) Fail("\"scale\" must be an object");
            CheckKeys(*scale, {"a", "b", "c"});
            facts.scaleA = 1;
            facts.scaleB = 0;
            facts.scaleC = 0;
            if (const auto* a = Member(*scale, "a")) facts.scaleA = Number(*a, "scale a");
            if (!(facts.scaleA > 0)) Fail("scale a must be above 0");
            if (const auto* b = Member(*scale, "b")) {
                facts.scaleB = Integer32(*b, "scale b", -12, 12);
            }
            if (const auto* c = Member(*scale, "c")) {
                facts.scaleC = Integer32(*c, "scale c", -kInt32Max, kInt32Max);
            }
        }
        if (enumeration) ReadEnumeration(*enumeration, facts, low, high);
        if (minimum) facts.minRaw = Integer32(*minimum, "min", low, high);
        if (maximum) facts.maxRaw = Integer32(*maximum, "max", low, high);
        if (facts.minRaw > facts.maxRaw) Fail("min is above max");
        if (invalid && invalid->is_null()) {
            facts.hasInvalid = false;
            facts.invalidRaw = 0;
        } else if (invalid) {
            // A 32-bit code may use the top bit; it is kept as the Long with the same bits.
            const std::int64_t top = facts.bitSize == 32 ? 0xFFFFFFFF : high;
            const std::int64_t code = Integer(*invalid, "invalid", low, top);
            facts.hasInvalid = true;
            facts.invalidRaw = static_cast<std::int32_t>(static_cast<std::uint32_t>(code));
        }

        if (boolean) {
            facts.resultType = kResultTypeLong;
        } else {
            const auto mapping = MapScale(facts.scaleA, facts.scaleB, facts.scaleC);
            facts.scaleFactor = mapping.factor;
            facts.scaleMultiplies = mapping.multiplies;
            facts.scaleText = mapping.text;
            // Numbers that need no division stay Long; multiplied ones are read as a Single, so
            // that the factor is applied.
            facts.resultType = mapping.factor < 2 ? kResultTypeLong : 0;
        }
        const CatalogueType probe(facts);
        facts.minValue = probe.Engineering(facts.minRaw);
        facts.maxValue = probe.Engineering(facts.maxRaw);
        if (facts.bitSize == 32) {
            facts.note = "32-bit value: the element carries raw 0 .. 2147483647 of it";
        }
    }

    // "enum": the name of a type that has an enumeration, or an object of member names and values.
    // The members' range becomes the limits, and a member -1 the invalid code, unless the entry
    // states them.
    void ReadEnumeration(const Json& value, TypeFacts& facts, std::int64_t low,
                         std::int64_t high) const {
        if (value.is_string()) {
            const std::string enumName = Name(value, "enum");
            const auto found = Lookup(enumName);
            const auto* source = dynamic_cast<const CatalogueType*>(found.get());
            if (!source || !source->Members()) {
                Fail("enum " + Quoted(enumName) + " is not a known enumeration");
            }
            facts.enumName = source->EnumName();
            facts.enumMembers = source->Facts().enumMembers;
        } else if (value.is_object()) {
            if (value.empty()) Fail("\"enum\" has no members");
            auto members = std::make_shared<EnumMembers>();
            std::set<std::int32_t> values;
            for (const auto& [member, number] : value.items()) {
                if (member.empty()) Fail("an enum member needs a name");
                const std::int32_t raw = Integer32(number, "enum value", low, high);
                if (!values.insert(raw).second) {
                    Fail("enum value " + std::to_string(raw) + " is given twice");
                }
                members->push_back(EnumMember{member, raw});
            }
            facts.enumName = facts.name;
            facts.enumMembers = std::move(members);
        } else {
            Fail("\"enum\" must be an enumeration name or an object of members");
        }
        std::int32_t smallest = std::numeric_limits<std::int32_t>::max();
        std::int32_t largest = std::numeric_limits<std::int32_t>::min();
        bool none = false;
        for (const auto& member : *facts.enumMembers) {
            if (member.value < low || member.value > high) {
                Fail("enum member " + Quoted(member.name) + " does not fit the type");
            }
            smallest = std::min(smallest, member.value);
            largest = std::max(largest, member.value);
            none = none || member.value == -1;
        }
        facts.minRaw = smallest;
        facts.maxRaw = largest;
        if (none) {
            facts.hasInvalid = true;
            facts.invalidRaw = -1;
        }
    }

    std::vector<CatalogueFieldPtr> ReadFields(const Json& list, const TypeFacts& owner, int depth) {
        if (!list.is_array()) Fail("\"fields\" must be an array");
        std::vector<CatalogueFieldPtr> fields;
        std::unordered_set<std::string> names;
        const std::string outerPath = m_path;
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Json& field = list[i];
            m_path = outerPath + ": fields[" + std::to_string(i) + "]";
            if (!field.is_object()) Fail("a field must be an object");
            CheckKeys(field, {"name", "byte", "bit", "array", "type"});
            const auto* name = Member(field, "name");
            if (!name) Fail("\"name\" is missing");
            const std::string fieldName = Name(*name, "name");
            m_path.append(1, ' ').append(Quoted(fieldName));  // as in Quoted
            if (fieldName.find('.') != std::string::npos) {
                Fail("a field name cannot hold a point (points separate fields in paths)");
            }
            if (!names.insert(FoldKey(fieldName)).second) Fail("the type has this field twice");
            const auto* byte = Member(field, "byte");
            if (!byte) Fail("\"byte\" is missing");
            const std::int32_t byteOffset = Integer32(*byte, "byte", 0, kMaxValueBytes - 1);
            const auto* bit = Member(field, "bit");
            const std::int32_t bitOffset = bit ? Integer32(*bit, "bit", 0, 7) : 0;
            const auto* array = Member(field, "array");
            const std::int32_t arraySize = array ? Integer32(*array, "array", 0, 2048) : 0;
            const auto* type = Member(field, "type");
            if (!type) Fail("\"type\" is missing");
            TypedefPtr fieldType;
            if (type->is_string()) {
                const std::string typeName = Name(*type, "type");
                fieldType = Lookup(typeName);
                if (!fieldType) Fail("type " + Quoted(typeName) + " is not a known type");
            } else if (type->is_object()) {
                if (depth + 1 >= kMaxNesting) Fail("types nest too deep");
                std::string typeName = owner.name + "." + fieldName;
                if (const auto* inlineName = Member(*type, "name")) {
                    typeName = Name(*inlineName, "name");
                }
                fieldType = ReadType(*type, typeName, depth + 1, false);
            } else {
                Fail("\"type\" must be a type name or a type object");
            }
            fields.push_back(std::make_shared<CatalogueField>(fieldName, std::move(fieldType),
                                                              byteOffset, bitOffset, arraySize));
        }
        m_path = outerPath;
        return fields;
    }

    std::string m_source;
    const Resolver& m_resolve;
    const Json* m_types = nullptr;
    std::string m_path;
    std::unordered_set<std::string> m_names;    // folded names of this file's types
    std::unordered_set<std::string> m_aliases;  // folded aliases of this file
    std::unordered_map<std::string, CatalogueTypePtr> m_defined;
    Definitions m_result;
};

}  // namespace

Definitions Parse(std::string_view json, std::string_view sourceName, const Resolver& resolve) {
    return Reader(sourceName, resolve).Read(json);
}

std::string CheckLayout(const CatalogueType& type) {
    const auto& fields = type.Fields();
    if (fields.empty()) return {};
    const std::int64_t totalBits = std::int64_t{8} * type.ByteSize();
    std::vector<const CatalogueField*> owner(static_cast<std::size_t>(totalBits), nullptr);
    for (const auto& field : fields) {
        const auto& fieldType = field->Typedef();
        const std::string what = "field " + Quoted(field->Name());
        if (!fieldType) return what + " has no type";
        const std::int64_t width = fieldType->BitSize();
        if (width < 1) return what + " has a type without width";
        if (field->ByteOffset() < 0 || field->BitOffset() < 0 || field->BitOffset() > 7) {
            return what + " has an offset outside the value";
        }
        if (width % 8 == 0 && field->BitOffset() != 0) {
            return what + " is " + std::to_string(width) + " bits wide and must start at bit 0";
        }
        const std::int64_t start = std::int64_t{8} * field->ByteOffset() + field->BitOffset();
        const std::int64_t entries = std::max(field->ArraySize(), 1);
        for (std::int64_t entry = 0; entry < entries; ++entry) {
            const std::int64_t first = start + entry * width;
            if (width % 8 != 0 && first % 8 + width > 8) {
                return what + " has a bit field that crosses a byte boundary";
            }
            if (first + width > totalBits) {
                return what + " ends past the value's " + std::to_string(type.ByteSize()) +
                       " bytes";
            }
            for (std::int64_t at = first; at < first + width; ++at) {
                auto& holder = owner[static_cast<std::size_t>(at)];
                if (holder) {
                    return what + " overlaps field " + Quoted(holder->Name()) + " at byte " +
                           std::to_string(at / 8) + " bit " + std::to_string(at % 8);
                }
                holder = field.get();
            }
        }
    }
    return {};
}

}  // namespace vx::typefile

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "interfaces/IOrvexElementdef.h"
#include "interfaces/IOrvexTypedef.h"

namespace vx {

// One named value of an enumeration ("RQ_NORMAL" = 0).
struct EnumMember {
    std::string name;
    std::int32_t value = 0;
};
using EnumMembers = std::vector<EnumMember>;

// Everything a type description states, as plain data. Raw limits and codes are the numbers as
// they travel (before scaling); the engineering value of a raw number r is A * 10^B * (r + C).
struct TypeFacts {
    std::string name;
    std::int32_t index = 0;
    std::int32_t category = kCategoryInteger;
    std::int32_t bitSize = 8;
    std::int32_t textLength = 0;
    bool isSigned = false;
    std::int32_t byteSize = 1;
    std::int32_t resultType = 0;
    std::int32_t scaleFactor = 1;
    bool scaleMultiplies = false;
    bool hasInvalid = false;
    std::int32_t invalidRaw = 0;
    std::int32_t minRaw = 0;
    std::int32_t maxRaw = 0;
    // The documented engineering limits (for 32-bit integers wider than what minRaw..maxRaw carry).
    double minValue = 0;
    double maxValue = 0;
    double scaleA = 1;
    std::int32_t scaleB = 0;
    std::int32_t scaleC = 0;
    std::string scaleText;
    std::string units;
    std::string enumName;
    std::shared_ptr<const EnumMembers> enumMembers;
    std::string description;
    std::string note;
};

// How A * 10^B * (raw + C) maps onto the element's integer factor.
struct ScaleMapping {
    std::int32_t factor = 1;  // below 2: no scaling
    bool multiplies = false;
    // Empty when factor and direction state the scaling exactly; otherwise the element delivers the
    // raw number and this is the formula that turns it into the engineering value.
    std::string text;
};

// Maps the scaling exactly where it is an integer factor that multiplies (10) or divides (0.01 ->
// 100, 0.005 -> 200); an offset C or a factor such as 0.4 keeps the raw value (factor 1) and states
// the formula ("0.1 * (raw - 2740)", "0.4 * raw"). `a` must be positive and finite.
ScaleMapping MapScale(double a, std::int32_t b, std::int32_t c);

class CatalogueType;

// Where a field of a structure sits and what it is.
class CatalogueField final : public IOrvexElementdef {
public:
    CatalogueField(std::string name, TypedefPtr type, std::int32_t byteOffset,
                   std::int32_t bitOffset, std::int32_t arraySize);

    std::int32_t ArraySize() const override { return m_arraySize; }
    TypedefPtr Typedef() const override { return m_type; }
    std::int32_t ByteOffset() const override { return m_byteOffset; }
    std::int32_t BitOffset() const override { return m_bitOffset; }

    const std::string& Name() const noexcept { return m_name; }
    // Bits the field takes: the type's width times the entries (at least one).
    std::int32_t BitCount() const;

private:
    std::string m_name;
    TypedefPtr m_type;
    std::int32_t m_byteOffset;
    std::int32_t m_bitOffset;
    std::int32_t m_arraySize;
};

using CatalogueFieldPtr = std::shared_ptr<CatalogueField>;

// A type description of the catalogue: a standard type, an enumeration, a structure field's type
// or a definition loaded from a type file. Immutable once made.
class CatalogueType final : public IOrvexTypedef {
public:
    explicit CatalogueType(TypeFacts facts, std::vector<CatalogueFieldPtr> fields = {});

    std::string TypeName() const override { return m_facts.name; }
    std::int32_t TypeIndex() const override { return m_facts.index; }
    std::int32_t TypeCategory() const override { return m_facts.category; }
    std::int32_t BitSize() const override { return m_facts.bitSize; }
    std::int32_t TextLength() const override { return m_facts.textLength; }
    bool IsSigned() const override { return m_facts.isSigned; }
    std::int32_t ByteSize() const override { return m_facts.byteSize; }
    std::int32_t ResultType() const override { return m_facts.resultType; }
    std::int32_t ScaleFactor() const override { return m_facts.scaleFactor; }
    bool InvalidValue(std::int32_t& rawInvalid) const override;
    std::int32_t MinValue() const override { return m_facts.minRaw; }
    std::int32_t MaxValue() const override { return m_facts.maxRaw; }
    std::string Units() const override { return m_facts.units; }
    bool ScaleMultiplies() const override { return m_facts.scaleMultiplies; }
    std::string ScaleText() const override { return m_facts.scaleText; }
    // Field names compare without regard to case; an unknown name raises invalid procedure
    // call (5).
    std::shared_ptr<IOrvexElementdef> FieldByName(std::string_view name) const override;

    // Names in layout order, 0-based; unallocated when the type has no fields.
    StringArray FieldNames() const override;
    std::string EnumMemberName(std::int32_t raw) const override;

    // Beyond the interface.
    const TypeFacts& Facts() const noexcept { return m_facts; }
    const std::vector<CatalogueFieldPtr>& Fields() const noexcept { return m_fields; }
    CatalogueFieldPtr FindField(std::string_view name) const;
    // engineering = ScaleA() * 10^ScaleB() * (raw + ScaleC())
    double ScaleA() const noexcept { return m_facts.scaleA; }
    std::int32_t ScaleB() const noexcept { return m_facts.scaleB; }
    std::int32_t ScaleC() const noexcept { return m_facts.scaleC; }
    // The exact engineering value of a raw number by the formula above.
    double Engineering(std::int64_t raw) const;
    double MinEngineering() const noexcept { return m_facts.minValue; }
    double MaxEngineering() const noexcept { return m_facts.maxValue; }
    const std::string& EnumName() const noexcept { return m_facts.enumName; }
    const EnumMembers* Members() const noexcept { return m_facts.enumMembers.get(); }
    std::optional<std::int32_t> EnumMemberValue(std::string_view member) const;
    const std::string& Description() const noexcept { return m_facts.description; }
    // What the element model cannot carry of this type ("" when it carries all of it).
    const std::string& Note() const noexcept { return m_facts.note; }

private:
    TypeFacts m_facts;
    std::vector<CatalogueFieldPtr> m_fields;
    std::unordered_map<std::string, std::size_t> m_fieldPositions;  // folded name -> position
};

using CatalogueTypePtr = std::shared_ptr<CatalogueType>;

}  // namespace vx

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "automation/Variant.h"

namespace vx {

class IOrvexElementdef;

// Type categories of IOrvexTypedef::TypeCategory.
enum TypeCategory : std::int32_t {
    kCategoryInteger = 1,
    kCategoryFloat = 2,
    kCategoryBoolean = 3,
    kCategoryAscii = 4,
    kCategoryStructure = 5,
};

// ResultType value that keeps an integer needing no division as a Long.
inline constexpr std::int32_t kResultTypeLong = -2;

// A type description: how the raw bits of a value are laid out and scaled. Members are in their
// interface positions (0 is the first member after the IDispatch members).
class IOrvexTypedef : public virtual Object {
public:
    virtual std::string TypeName() const = 0;       // 0: "SNVT_temp_p", "UCPT_CRC", ...
    virtual std::int32_t TypeIndex() const = 0;     // 1: standard type index, 0 if none
    virtual std::int32_t TypeCategory() const = 0;  // 2
    virtual std::int32_t BitSize() const = 0;       // 3: raw width; array stride
    virtual std::int32_t TextLength() const = 0;    // 4: characters of an ASCII field
    virtual bool IsSigned() const = 0;              // 5
    virtual std::int32_t ByteSize() const = 0;      // 6: length of a whole value in bytes
    virtual std::int32_t ResultType() const = 0;    // 7: kResultTypeLong keeps integers Long
    virtual std::int32_t ScaleFactor() const = 0;   // 8: below 2 means no scaling
    // 9: whether the type has a raw code for "no valid data", and that code.
    virtual bool InvalidValue(std::int32_t& rawInvalid) const = 0;
    virtual std::int32_t MinValue() const = 0;  // 10: declared raw minimum
    virtual std::int32_t MaxValue() const = 0;  // 11: declared raw maximum
    virtual std::string Units() const = 0;      // 12: engineering units, "" if none
    virtual bool ScaleMultiplies() const = 0;   // 13: True: raw x factor, False: raw / factor
    // 14: the exact engineering formula where the integer factor cannot state it, else "".
    virtual std::string ScaleText() const = 0;
    // 15: the definition of a named structure field; raises when the type has no such field.
    virtual std::shared_ptr<IOrvexElementdef> FieldByName(std::string_view name) const = 0;

    // Beyond the interface positions: browsing aids with neutral defaults.
    virtual StringArray FieldNames() const { return {}; }
    // The enumeration member's name for a raw value ("RQ_NORMAL"), "" when there is none.
    virtual std::string EnumMemberName(std::int32_t /*raw*/) const { return {}; }
};

using TypedefPtr = std::shared_ptr<IOrvexTypedef>;

}  // namespace vx

#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>

#include "automation/Variant.h"
#include "interfaces/IOrvexTypedef.h"

namespace vx {

// A typed, scaled, range-checked view of one field (or array field) of a variable's value, members
// in interface order. `arrayIndex` is the zero-based entry of an array field and is ignored for a
// field that is no array.
class IOrvexDataElement : public virtual Object {
public:
    // Walks into structure fields (names, or one dotted path as the first subscript) and array
    // entries (Integer or Long subscripts). Never fails: malformed subscripts are skipped.
    virtual std::shared_ptr<IOrvexDataElement> SubElement(const VariantArray& subscripts) = 0;
    // The engineering value: Long, Single, Boolean or String, Empty for a structure.
    virtual Variant Value(std::int32_t arrayIndex = 0) = 0;
    virtual void SetValue(std::int32_t arrayIndex, const Variant& value) = 0;
    // The raw integer value.
    virtual std::int32_t UnScaledValue(std::int32_t arrayIndex = 0) = 0;
    virtual void SetUnScaledValue(std::int32_t arrayIndex, std::int32_t value) = 0;
    // True when the raw integer lies outside the field's range or equals its invalid code.
    virtual bool Undefined(std::int32_t arrayIndex = 0) = 0;
    virtual TypedefPtr Typedef() const = 0;
    virtual std::int32_t LBound() const = 0;  // always 0
    virtual std::int32_t UBound() const = 0;  // entries - 1; -1 for a field that is no array

    // The subscripts as a parameter list: SubElement({"setpoints", 2}).
    std::shared_ptr<IOrvexDataElement> SubElement(std::initializer_list<Variant> subscripts) {
        return SubElement(VariantArray(0, subscripts));
    }
};

using DataElementPtr = std::shared_ptr<IOrvexDataElement>;

}  // namespace vx

#pragma once

#include <ole2.h>
#include <windows.h>

#include "automation/Variant.h"

namespace vx::com {

// Each module supplies these two: how one of its objects crosses into COM (a new reference;
// nullptr for Nothing) and how an object from COM comes in (nullptr for Nothing).
IDispatch* ExportObject(const ObjectPtr& object);
ObjectPtr ImportObject(IUnknown* object);

// Fills `out` (which holds nothing that needs freeing) with `value` in its exact automation type;
// arrays become SAFEARRAYs with their bounds.
void ToVariant(const Variant& value, VARIANT* out);
// What a caller passed: by-reference values are followed, a missing optional argument is Empty,
// and types the library has no name for take the platform's conversion to Long or Double.
Variant FromVariant(const VARIANT& value);

// A VARIANT that frees what it holds.
class OwnedVariant {
public:
    OwnedVariant() { VariantInit(&m_value); }
    OwnedVariant(const OwnedVariant&) = delete;
    OwnedVariant& operator=(const OwnedVariant&) = delete;
    ~OwnedVariant() { VariantClear(&m_value); }
    VARIANT* operator&() { return &m_value; }
    const VARIANT& operator*() const { return m_value; }

private:
    VARIANT m_value;
};

}  // namespace vx::com

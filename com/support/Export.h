#pragma once

#include <ole2.h>
#include <windows.h>

#include "ComPtr.h"
#include "Errors.h"
#include "Variants.h"
#include "automation/Variant.h"

namespace vx::com {

// A library object as the COM interface a member returns (new reference; nullptr for Nothing).
template <typename Interface>
Interface* Export(const ObjectPtr& object) {
    const auto dispatch = ComPtr<IDispatch>::Adopt(ExportObject(object));
    if (!dispatch) return nullptr;
    Interface* typed = nullptr;
    if (FAILED(dispatch->QueryInterface(__uuidof(Interface), reinterpret_cast<void**>(&typed)))) {
        throw HresultError(E_NOINTERFACE);
    }
    return typed;
}

inline VARIANT_BOOL ToVariantBool(bool value) {
    return value ? VARIANT_TRUE : VARIANT_FALSE;
}

}  // namespace vx::com

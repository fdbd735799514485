#pragma once

#include <ole2.h>
#include <windows.h>

#include <vector>

#include "ComObject.h"
#include "automation/Variant.h"

namespace vx::com {

// For Each over a snapshot: the enumerator owns copies of the items it yields.
class EnumVariant final : public ComObject<IEnumVARIANT> {
public:
    // A new enumerator (one reference, for the caller) over `items`.
    static IUnknown* Create(const std::vector<Variant>& items);

    HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* items, ULONG* fetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override;
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** copy) override;

private:
    EnumVariant() = default;
    ~EnumVariant() override;

    std::vector<VARIANT> m_items;
    std::size_t m_position = 0;
};

}  // namespace vx::com

#include "EnumVariant.h"

#include <ole2.h>
#include <windows.h>

#include "Errors.h"
#include "Variants.h"

namespace vx::com {

IUnknown* EnumVariant::Create(const std::vector<Variant>& items) {
    auto* enumerator = new EnumVariant();
    try {
        enumerator->m_items.reserve(items.size());
        for (const auto& item : items) {
            VARIANT converted;
            ToVariant(item, &converted);
            enumerator->m_items.push_back(converted);
        }
    } catch (...) {
        enumerator->Release();
        throw;
    }
    return enumerator->Identity();
}

EnumVariant::~EnumVariant() {
    for (auto& item : m_items)
        VariantClear(&item);
}

HRESULT EnumVariant::Next(ULONG count, VARIANT* items, ULONG* fetched) {
    if (!items) return E_POINTER;
    ULONG given = 0;
    while (given < count && m_position < m_items.size()) {
        VariantInit(&items[given]);
        const HRESULT copied = VariantCopy(&items[given], &m_items[m_position]);
        if (FAILED(copied)) {
            while (given > 0)
                VariantClear(&items[--given]);
            return copied;
        }
        ++given;
        ++m_position;
    }
    if (fetched) *fetched = given;
    return given == count ? S_OK : S_FALSE;
}

HRESULT EnumVariant::Skip(ULONG count) {
    const std::size_t left = m_items.size() - m_position;
    m_position += count < left ? count : left;
    return count <= left ? S_OK : S_FALSE;
}

HRESULT EnumVariant::Reset() {
    m_position = 0;
    return S_OK;
}

HRESULT EnumVariant::Clone(IEnumVARIANT** copy) {
    if (!copy) return E_POINTER;
    *copy = nullptr;
    auto* clone = new (std::nothrow) EnumVariant();
    if (!clone) return E_OUTOFMEMORY;
    for (const auto& item : m_items) {
        VARIANT duplicate;
        VariantInit(&duplicate);
        if (FAILED(VariantCopy(&duplicate, const_cast<VARIANT*>(&item)))) {
            clone->Release();
            return E_OUTOFMEMORY;
        }
        clone->m_items.push_back(duplicate);
    }
    clone->m_position = m_position;
    *copy = clone;
    return S_OK;
}

}  // namespace vx::com

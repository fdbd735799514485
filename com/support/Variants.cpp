#include "Variants.h"

#include <ole2.h>
#include <windows.h>

#include <cstring>

#include "ComPtr.h"
#include "Errors.h"
#include "Text.h"
#include "automation/ComError.h"

namespace vx::com {
namespace {

// Owns a SAFEARRAY until it is handed to a VARIANT.
class ArrayHolder {
public:
    explicit ArrayHolder(SAFEARRAY* array) : m_array(array) {
        if (!m_array) throw std::bad_alloc();
    }
    ArrayHolder(const ArrayHolder&) = delete;
    ArrayHolder& operator=(const ArrayHolder&) = delete;
    ~ArrayHolder() {
        if (m_array) SafeArrayDestroy(m_array);
    }
    SAFEARRAY* Get() const { return m_array; }
    SAFEARRAY* Release() { return std::exchange(m_array, nullptr); }

private:
    SAFEARRAY* m_array;
};

SAFEARRAY* NewArray(VARTYPE type, std::int32_t lower, std::size_t count) {
    SAFEARRAYBOUND bound{static_cast<ULONG>(count), lower};
    return SafeArrayCreate(type, 1, &bound);
}

template <typename T, typename Store>
void ArrayToVariant(const SafeArray<T>& array, VARTYPE type, VARIANT* out, Store store) {
    V_VT(out) = static_cast<VARTYPE>(VT_ARRAY | type);
    if (!array.IsAllocated()) {
        V_ARRAY(out) = nullptr;  // a dynamic array that was never dimensioned
        return;
    }
    ArrayHolder holder(NewArray(type, array.LBound(), array.Count()));
    void* data = nullptr;
    Check(SafeArrayAccessData(holder.Get(), &data));
    try {
        store(array.Values(), data);
    } catch (...) {
        SafeArrayUnaccessData(holder.Get());
        throw;
    }
    SafeArrayUnaccessData(holder.Get());
    V_ARRAY(out) = holder.Release();
}

// The platform's type-mismatch error, for values no automation type of the library can hold.
[[noreturn]] void Mismatch() {
    RaiseRuntimeError(kErrTypeMismatch);
}

Variant ArrayFromVariant(SAFEARRAY* array, VARTYPE elementType) {
    if (!array) {
        if (elementType == VT_UI1) return Variant(ByteArray());
        if (elementType == VT_BSTR) return Variant(StringArray());
        return Variant(VariantArray());
    }
    if (SafeArrayGetDim(array) != 1) Mismatch();
    LONG lower = 0;
    LONG upper = -1;
    Check(SafeArrayGetLBound(array, 1, &lower));
    Check(SafeArrayGetUBound(array, 1, &upper));
    const auto count = static_cast<std::size_t>(static_cast<std::int64_t>(upper) - lower + 1);

    if (elementType == VT_UI1) {
        std::vector<std::uint8_t> bytes(count);
        void* data = nullptr;
        Check(SafeArrayAccessData(array, &data));
        if (count) std::memcpy(bytes.data(), data, count);
        SafeArrayUnaccessData(array);
        return Variant(ByteArray(lower, std::move(bytes)));
    }
    if (elementType == VT_BSTR) {
        std::vector<std::string> texts;
        texts.reserve(count);
        for (LONG index = lower; index <= upper; ++index) {
            BSTR text = nullptr;
            Check(SafeArrayGetElement(array, &index, &text));
            texts.push_back(FromBstr(text));
            SysFreeString(text);
        }
        return Variant(StringArray(lower, std::move(texts)));
    }
    // Any other element type arrives as an array of Variants, each converted on its own.
    std::vector<Variant> values;
    values.reserve(count);
    for (LONG index = lower; index <= upper; ++index) {
        OwnedVariant element;
        if (elementType == VT_VARIANT) {
            Check(SafeArrayGetElement(array, &index, &element));
        } else {
            V_VT(&element) = elementType;
            Check(SafeArrayGetElement(array, &index, &V_UI1(&element)));
        }
        values.push_back(FromVariant(*element));
    }
    return Variant(VariantArray(lower, std::move(values)));
}

Variant Converted(const VARIANT& value, VARTYPE to) {
    OwnedVariant converted;
    const HRESULT result = VariantChangeType(&converted, const_cast<VARIANT*>(&value), 0, to);
    if (result == DISP_E_OVERFLOW) RaiseRuntimeError(kErrOverflow);
    if (FAILED(result)) Mismatch();
    return FromVariant(*converted);
}

}  // namespace

void ToVariant(const Variant& value, VARIANT* out) {
    VariantInit(out);
    if (value.IsEmpty()) return;
    if (value.IsNull()) {
        V_VT(out) = VT_NULL;
    } else if (const auto* v16 = value.Get<std::int16_t>()) {
        V_VT(out) = VT_I2;
        V_I2(out) = *v16;
    } else if (const auto* v32 = value.Get<std::int32_t>()) {
        V_VT(out) = VT_I4;
        V_I4(out) = *v32;
    } else if (const auto* single = value.Get<float>()) {
        V_VT(out) = VT_R4;
        V_R4(out) = *single;
    } else if (const auto* dbl = value.Get<double>()) {
        V_VT(out) = VT_R8;
        V_R8(out) = *dbl;
    } else if (const auto* flag = value.Get<bool>()) {
        V_VT(out) = VT_BOOL;
        V_BOOL(out) = *flag ? VARIANT_TRUE : VARIANT_FALSE;
    } else if (const auto* byte = value.Get<std::uint8_t>()) {
        V_VT(out) = VT_UI1;
        V_UI1(out) = *byte;
    } else if (const auto* text = value.Get<std::string>()) {
        BSTR bstr = ToBstr(*text);
        V_VT(out) = VT_BSTR;
        V_BSTR(out) = bstr;
    } else if (const auto* object = value.Get<ObjectPtr>()) {
        IDispatch* exported = ExportObject(*object);
        V_VT(out) = VT_DISPATCH;
        V_DISPATCH(out) = exported;
    } else if (const auto* bytes = value.Get<ByteArray>()) {
        ArrayToVariant(*bytes, VT_UI1, out, [](const auto& values, void* data) {
            if (!values.empty()) std::memcpy(data, values.data(), values.size());
        });
    } else if (const auto* texts = value.Get<StringArray>()) {
        ArrayToVariant(*texts, VT_BSTR, out, [](const auto& values, void* data) {
            auto* slots = static_cast<BSTR*>(data);
            for (std::size_t i = 0; i < values.size(); ++i)
                slots[i] = ToBstr(values[i]);
        });
    } else if (const auto* variants = value.Get<VariantArray>()) {
        ArrayToVariant(*variants, VT_VARIANT, out, [](const auto& values, void* data) {
            auto* slots = static_cast<VARIANT*>(data);
            for (std::size_t i = 0; i < values.size(); ++i)
                ToVariant(values[i], &slots[i]);
        });
    }
}

Variant FromVariant(const VARIANT& value) {
    const VARTYPE type = V_VT(&value);
    if (type & VT_BYREF) {
        if (type == (VT_BYREF | VT_VARIANT)) return FromVariant(*V_VARIANTREF(&value));
        OwnedVariant direct;
        if (FAILED(VariantCopyInd(&direct, const_cast<VARIANT*>(&value)))) Mismatch();
        return FromVariant(*direct);
    }
    if (type & VT_ARRAY) return ArrayFromVariant(V_ARRAY(&value), type & VT_TYPEMASK);
    switch (type) {
        case VT_EMPTY:
            return {};
        case VT_NULL:
            return Variant::Null();
        case VT_I2:
            return Variant(static_cast<std::int16_t>(V_I2(&value)));
        case VT_I4:
            return Variant(static_cast<std::int32_t>(V_I4(&value)));
        case VT_R4:
            return Variant(V_R4(&value));
        case VT_R8:
            return Variant(V_R8(&value));
        case VT_BOOL:
            return Variant(V_BOOL(&value) != VARIANT_FALSE);
        case VT_UI1:
            return Variant(static_cast<std::uint8_t>(V_UI1(&value)));
        case VT_BSTR:
            return Variant(FromBstr(V_BSTR(&value)));
        case VT_DISPATCH:
            return Variant(ImportObject(V_DISPATCH(&value)));
        case VT_UNKNOWN:
            return Variant(ImportObject(V_UNKNOWN(&value)));
        case VT_ERROR:
            // An optional argument the caller left out.
            if (V_ERROR(&value) == DISP_E_PARAMNOTFOUND) return {};
            Mismatch();
        case VT_I1:
        case VT_UI2:
        case VT_UI4:
        case VT_INT:
        case VT_UINT:
        case VT_I8:
        case VT_UI8:
            return Converted(value, VT_I4);
        default:
            return Converted(value, VT_R8);
    }
}

}  // namespace vx::com

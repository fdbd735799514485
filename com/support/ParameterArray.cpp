#include "ParameterArray.h"

#include <ole2.h>
#include <windows.h>

#include "ComPtr.h"

namespace vx::com {

HRESULT ParameterArrayOf(const DISPPARAMS* params, SAFEARRAY** arguments,
                         UINT* badArgument) noexcept {
    if (!arguments) return E_POINTER;
    *arguments = nullptr;
    if (!params) return E_INVALIDARG;
    // A parameter array has no name to pass its entries by.
    if (params->cNamedArgs != 0) return DISP_E_NONAMEDARGS;
    const UINT count = params->cArgs;
    if (count != 0 && !params->rgvarg) return E_INVALIDARG;
    SAFEARRAY* array = SafeArrayCreateVector(VT_VARIANT, 0, count);
    if (!array) return E_OUTOFMEMORY;
    VARIANT* entries = nullptr;
    const HRESULT accessed = SafeArrayAccessData(array, reinterpret_cast<void**>(&entries));
    if (FAILED(accessed)) {
        SafeArrayDestroy(array);
        return accessed;
    }
    HRESULT copied = S_OK;
    for (UINT position = 0; position < count && SUCCEEDED(copied); ++position) {
        // Invoke lists the arguments last first.
        const UINT source = count - 1 - position;
        copied = VariantCopyInd(&entries[position], &params->rgvarg[source]);
        if (FAILED(copied) && badArgument) *badArgument = source;
    }
    SafeArrayUnaccessData(array);
    if (FAILED(copied)) {
        SafeArrayDestroy(array);
        return copied == E_OUTOFMEMORY ? copied : DISP_E_TYPEMISMATCH;
    }
    *arguments = array;
    return S_OK;
}

HRESULT ObjectInvokeResult(HRESULT outcome, IDispatch* object, VARIANT* result,
                           EXCEPINFO* exception) noexcept {
    if (FAILED(outcome)) {
        if (object) object->Release();
        if (exception) {
            *exception = EXCEPINFO{};
            exception->scode = outcome;
            ComPtr<IErrorInfo> info;
            if (GetErrorInfo(0, info.Put()) == S_OK && info) {
                info->GetSource(&exception->bstrSource);
                info->GetDescription(&exception->bstrDescription);
                info->GetHelpFile(&exception->bstrHelpFile);
                info->GetHelpContext(&exception->dwHelpContext);
            }
        }
        return DISP_E_EXCEPTION;
    }
    if (!result) {
        if (object) object->Release();
        return S_OK;
    }
    VariantInit(result);
    V_VT(result) = VT_DISPATCH;
    V_DISPATCH(result) = object;
    return S_OK;
}

}  // namespace vx::com

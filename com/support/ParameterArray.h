#pragma once

#include <ole2.h>
#include <windows.h>

namespace vx::com {

// The arguments of an IDispatch::Invoke as the one parameter array a member takes: any number of
// positional arguments, first argument first, lower bound 0, references followed. On success the
// caller owns `*arguments`; named arguments are refused (DISP_E_NONAMEDARGS).
HRESULT ParameterArrayOf(const DISPPARAMS* params, SAFEARRAY** arguments,
                         UINT* badArgument) noexcept;

// Ends an IDispatch::Invoke of a member that returned `outcome` and, on success, `object` (a
// reference the caller hands over): the object becomes the result, and a failure is reported as
// the type description's own invoke reports it (the thread's error object in `exception`,
// DISP_E_EXCEPTION).
HRESULT ObjectInvokeResult(HRESULT outcome, IDispatch* object, VARIANT* result,
                           EXCEPINFO* exception) noexcept;

}  // namespace vx::com

#pragma once

#include <windows.h>

#include <ole2.h>

namespace vx::com {

// The answer of a reserved place of a host interface: E_NOTIMPL, with no stale error object
// left on the thread for the caller to pick up.
HRESULT ReservedPlace();

}  // namespace vx::com

#pragma once

#include <ole2.h>
#include <windows.h>

#include "Export.h"
#include "automation/Variant.h"

namespace vx::com {

// The host objects the library consumes, seen as the library's interfaces; nullptr when the
// object offers none of them.
ObjectPtr AdaptHostObject(IUnknown* object);

}  // namespace vx::com

// The identifiers of the type library, defined once for the module.
#include <ole2.h>
#include <windows.h>

#include <initguid.h>

#include "VxInterfaces.h"

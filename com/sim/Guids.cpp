// The identifiers of both type libraries, defined once for the module.
#include <windows.h>

#include <ole2.h>

#include <initguid.h>

#include "VxInterfaces.h"
#include "VxSim.h"

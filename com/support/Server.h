#pragma once

#include <ole2.h>
#include <windows.h>

namespace vx::com {

// Makes a new instance of a creatable class: one reference, for the caller.
using MakeInstance = IUnknown* (*)();

// DllGetClassObject for a module with one creatable class.
HRESULT GetClassObject(REFCLSID asked, REFIID iid, void** out, REFCLSID creatable,
                       MakeInstance make);

// What registration writes for a module's creatable class and its type library.
struct ServerDescription {
    CLSID clsid;
    const wchar_t* progId;
    const wchar_t* description;
    GUID libid;
    WORD libraryMajor;
    WORD libraryMinor;
};

// DllRegisterServer: the type library embedded in the module, the class with its in-process
// server (apartment-threaded) and its ProgID.
HRESULT RegisterServer(const ServerDescription& server);
// DllUnregisterServer: removes all of it again.
HRESULT UnregisterServer(const ServerDescription& server);

// What each server module defines: its registration and its creatable class. ServerEntry.cpp,
// compiled into each module (not into the support library, so the linker always has it), makes
// the module's DllMain and its four exports from them.
const ServerDescription& ModuleServer();
IUnknown* MakeModuleInstance();

}  // namespace vx::com

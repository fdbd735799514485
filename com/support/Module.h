#pragma once

#include <ole2.h>
#include <windows.h>

#include <string>

namespace vx::com {

// The DLL this code runs in, recorded by DllMain.
void SetModuleHandle(HMODULE module);
HMODULE ModuleHandle();
// The DLL's full path, for registration and for loading its own type library.
std::wstring ModulePath();

// Every COM object of the module counts itself alive from construction to destruction, and
// IClassFactory::LockServer adds locks; the module may unload when both are zero.
void AddLiveObject();
void RemoveLiveObject();
void LockModule(bool lock);
bool ModuleInUse();

// Base of every COM object of the module: keeps the live count.
class LiveObject {
public:
    LiveObject() { AddLiveObject(); }
    LiveObject(const LiveObject&) = delete;
    LiveObject& operator=(const LiveObject&) = delete;
    virtual ~LiveObject() { RemoveLiveObject(); }
};

}  // namespace vx::com

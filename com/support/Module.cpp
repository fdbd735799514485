#include "Module.h"

#include <atomic>

namespace vx::com {
namespace {

HMODULE g_module = nullptr;
// Objects are apartment-threaded, but a host may ask DllCanUnloadNow from any thread.
std::atomic<long> g_liveObjects{0};
std::atomic<long> g_locks{0};

}  // namespace

void SetModuleHandle(HMODULE module) {
    g_module = module;
}
HMODULE ModuleHandle() {
    return g_module;
}

std::wstring ModulePath() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(g_module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

void AddLiveObject() {
    ++g_liveObjects;
}
void RemoveLiveObject() {
    --g_liveObjects;
}
void LockModule(bool lock) {
    if (lock) {
        ++g_locks;
    } else {
        --g_locks;
    }
}
bool ModuleInUse() {
    return g_liveObjects.load() > 0 || g_locks.load() > 0;
}

}  // namespace vx::com

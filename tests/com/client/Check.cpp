#include "Check.h"

#include <cstdio>
#include <exception>

namespace check {
namespace {

int g_passed = 0;
int g_failed = 0;
const char* g_case = "";

// The description of the error object a failing call left, if any; it is put back so that a
// check after this one still finds it.
std::string PendingErrorText() {
    IErrorInfo* info = nullptr;
    if (GetErrorInfo(0, &info) != S_OK || !info) return {};
    std::string text;
    BSTR description = nullptr;
    if (SUCCEEDED(info->GetDescription(&description)) && description) {
        text = " (" + Narrow(description) + ")";
    }
    SysFreeString(description);
    SetErrorInfo(0, info);
    info->Release();
    return text;
}

}  // namespace

void RunCase(const char* name, void (*body)()) {
    g_case = name;
    const int failedBefore = g_failed;
    try {
        body();
    } catch (const Abort&) {
        std::printf("  [%s] stopped at the failure above\n", name);
    } catch (const std::exception& error) {
        Record(false, __FILE__, __LINE__, std::string("unexpected exception: ") + error.what());
    }
    std::printf("%s %s\n", g_failed == failedBefore ? "ok  " : "FAIL", name);
    std::fflush(stdout);
}

bool Record(bool passed, const char* file, int line, const std::string& failure) {
    if (passed) {
        ++g_passed;
        return true;
    }
    ++g_failed;
    std::printf("%s:%d: [%s] %s\n", file, line, g_case, failure.c_str());
    std::fflush(stdout);
    return false;
}

int Finish() {
    std::printf("%d passed, %d failed\n", g_passed, g_failed);
    std::fflush(stdout);
    return g_failed == 0 ? 0 : 1;
}

std::string Narrow(const wchar_t* text) {
    if (!text || !*text) return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return {};
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, narrow.data(), size, nullptr, nullptr);
    narrow.pop_back();  // the terminating zero
    return narrow;
}

std::string Hex(HRESULT result) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(result));
    return text;
}

bool Result(HRESULT actual, HRESULT expected, const char* file, int line, const char* expression) {
    if (actual == expected) return Record(true, file, line, {});
    return Record(false, file, line,
                  std::string(expression) + ": expected " + Hex(expected) + ", got " + Hex(actual) +
                      (FAILED(actual) ? PendingErrorText() : std::string()));
}

}  // namespace check

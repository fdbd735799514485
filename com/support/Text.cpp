#include "Text.h"

#include <ole2.h>
#include <windows.h>

#include <new>

namespace vx::com {

BSTR ToBstr(const std::string& text) {
    const int length = static_cast<int>(text.size());
    const int wideLength = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
    BSTR result = SysAllocStringLen(nullptr, static_cast<UINT>(wideLength));
    if (!result) throw std::bad_alloc();
    MultiByteToWideChar(CP_ACP, 0, text.data(), length, result, wideLength);
    return result;
}

std::string FromBstr(BSTR text) {
    const int wideLength = static_cast<int>(SysStringLen(text));
    if (wideLength == 0) return {};
    const int length =
        WideCharToMultiByte(CP_ACP, 0, text, wideLength, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_ACP, 0, text, wideLength, result.data(), length, nullptr, nullptr);
    return result;
}

}  // namespace vx::com

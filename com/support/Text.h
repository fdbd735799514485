#pragma once

#include <ole2.h>
#include <windows.h>

#include <string>

namespace vx::com {

// The library keeps one byte per character (its ANSI code); BSTRs hold UTF-16. Both directions
// go through the ANSI code page, so bytes and characters convert one to one.
BSTR ToBstr(const std::string& text);
std::string FromBstr(BSTR text);

}  // namespace vx::com

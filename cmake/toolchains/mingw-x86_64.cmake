# 64-bit Windows (x86_64): see mingw.cmake.
set(VX_MINGW_ARCH x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)

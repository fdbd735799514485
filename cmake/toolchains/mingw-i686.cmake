# 32-bit Windows (i686): see mingw.cmake.
set(VX_MINGW_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)

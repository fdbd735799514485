# Cross-builds the Windows DLLs with MinGW-w64 for VX_MINGW_ARCH (set by the per-architecture
# toolchain files). The posix thread variant gives the standard library its threads and mutexes;
# the runtime is linked statically (see com/).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${VX_MINGW_ARCH})
set(VX_MINGW_TRIPLET ${VX_MINGW_ARCH}-w64-mingw32)

set(CMAKE_C_COMPILER ${VX_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VX_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${VX_MINGW_TRIPLET}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${VX_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Cross builds take header-only libraries from the build machine. Only each library's own folder
# goes on the include path (through a link in the build tree), never the machine's system headers.
set(VX_HOST_HEADERS ${CMAKE_BINARY_DIR}/host-headers)
file(MAKE_DIRECTORY ${VX_HOST_HEADERS})
if(NOT EXISTS /usr/include/nlohmann/json.hpp)
  message(FATAL_ERROR "nlohmann-json3-dev is missing: run scripts/setup.sh")
endif()
file(CREATE_LINK /usr/include/nlohmann ${VX_HOST_HEADERS}/nlohmann SYMBOLIC)
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED)
target_include_directories(nlohmann_json::nlohmann_json INTERFACE ${VX_HOST_HEADERS})

# Warning and sanitizer settings shared by every target of the project.
add_library(vx_options INTERFACE)
target_compile_options(vx_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  -Wno-sign-conversion)
if(VX_WERROR)
  target_compile_options(vx_options INTERFACE -Werror)
endif()
if(VX_SANITIZE)
  target_compile_options(vx_options INTERFACE -fsanitize=${VX_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(vx_options INTERFACE -fsanitize=${VX_SANITIZE})
endif()

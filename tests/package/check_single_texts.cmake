# Every message text lives once, in core/resources/StringTable.def: no product source may carry a
# second copy of one (tests may state expected texts).
file(STRINGS ${SOURCE_DIR}/core/resources/StringTable.def entries REGEX "^VX_STRING")
file(GLOB_RECURSE product_files
  ${SOURCE_DIR}/core/* ${SOURCE_DIR}/types/* ${SOURCE_DIR}/sim/* ${SOURCE_DIR}/tools/*
  ${SOURCE_DIR}/com/* ${SOURCE_DIR}/examples/*)
list(FILTER product_files EXCLUDE REGEX "StringTable\\.def$")
set(copies "")
foreach(entry ${entries})
  string(REGEX REPLACE "^VX_STRING\\([0-9]+, \"(.*)\"\\)$" "\\1" text "${entry}")
  foreach(file ${product_files})
    file(READ ${file} content)
    string(FIND "${content}" "${text}" at)
    if(NOT at EQUAL -1)
      list(APPEND copies "${file}: ${text}")
    endif()
  endforeach()
endforeach()
if(copies)
  message(FATAL_ERROR "message texts copied outside the string table:\n${copies}")
endif()

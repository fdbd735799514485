# Turns a text file into a C++ source that returns it from a function, so that the library carries
# it and never looks for it at run time.
#   cmake -DINPUT=<file> -DOUTPUT=<source> -DFUNCTION=<qualified name> -P EmbedText.cmake
file(READ "${INPUT}" content HEX)
string(LENGTH "${content}" digits)
math(EXPR count "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${content}")
# A line break after every 16 bytes keeps the source readable for compilers and people.
string(REGEX REPLACE "((0x[0-9a-f][0-9a-f],){16})" "\\1\n    " bytes "${bytes}")
string(REGEX REPLACE "::[^:]*$" "" namespace "${FUNCTION}")
string(REGEX REPLACE "^.*::" "" name "${FUNCTION}")
get_filename_component(input_name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp" "// Generated from ${input_name} by EmbedText.cmake. Do not edit.
#include <string_view>

namespace ${namespace} {
namespace {
// The bytes of the file and a terminating zero (an array may not be empty).
constexpr unsigned char kBytes[] = {
    ${bytes}0x00};
}  // namespace

std::string_view ${name}() {
    return {reinterpret_cast<const char*>(kBytes), ${count}};
}

}  // namespace ${namespace}
")
# Rewrite only on change, so that the library is not rebuilt for nothing.
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")

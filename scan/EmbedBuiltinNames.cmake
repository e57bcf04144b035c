# cmake -DINPUT=<host-builtins.txt> -DOUTPUT=<file.cpp> -P EmbedBuiltinNames.cmake
# Writes a C++ source that holds the list of the host's built-in function
# names as bytes, so that the library carries it and runs with no resources
# folder at all.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
set(content "// Generated at build time from resources/host-builtins.txt by EmbedBuiltinNames.cmake.
#include <string_view>

namespace depattr::scan::detail {

namespace {
unsigned char const text[] = {${bytes}};
}  // namespace

std::string_view shippedBuiltinNamesText() {
    return {reinterpret_cast<char const*>(text), sizeof text};
}

}  // namespace depattr::scan::detail
")
# Rewrite only on change, so that an unchanged list rebuilds nothing.
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} previous)
  if(previous STREQUAL content)
    return()
  endif()
endif()
file(WRITE ${OUTPUT} "${content}")

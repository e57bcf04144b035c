# cmake -DRESOURCES=<folder> -DOUTPUT=<file.cpp> -P EmbedCatalogs.cmake
# Writes a C++ source that holds every catalog file under RESOURCES (the
# files <language>/<...>.xml) as bytes, so that the library carries its
# English and Japanese texts and works with no resources folder at all.
file(GLOB_RECURSE catalog_files RELATIVE ${RESOURCES} ${RESOURCES}/*.xml)
list(SORT catalog_files)
set(arrays "")
set(entries "")
set(index 0)
foreach(relative ${catalog_files})
  file(READ ${RESOURCES}/${relative} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(APPEND arrays "unsigned char const file${index}[] = {${bytes}};\n")
  string(APPEND entries "        {\"${relative}\", {reinterpret_cast<char const*>(file${index}), sizeof file${index}}},\n")
  math(EXPR index "${index} + 1")
endforeach()
set(content "// Generated at build time from the resources folder by EmbedCatalogs.cmake.
#include \"platform/fl/detail/BuiltInCatalogs.hpp\"

namespace fl::i18n::detail {

namespace {
${arrays}}  // namespace

std::span<BuiltInCatalogFile const> builtInCatalogFiles() {
    static BuiltInCatalogFile const files[] = {
${entries}    };
    return files;
}

}  // namespace fl::i18n::detail
")
# Rewrite only on change, so that an unchanged catalog rebuilds nothing.
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} previous)
  if(previous STREQUAL content)
    return()
  endif()
endif()
file(WRITE ${OUTPUT} "${content}")

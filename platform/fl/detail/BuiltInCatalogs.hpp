#pragma once
// The catalog files built into the library from the resources folder.

#include <span>
#include <string_view>

namespace fl::i18n::detail {

struct BuiltInCatalogFile {
    std::string_view path;  // relative to a resources folder, e.g.
                            // "ja/dependency/attribute.xml"
    std::string_view text;  // the file's bytes
};

// Every built-in file, sorted by path.
std::span<BuiltInCatalogFile const> builtInCatalogFiles();

}  // namespace fl::i18n::detail

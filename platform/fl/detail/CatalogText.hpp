#pragma once
// The reader of one catalog file's text, on its own so that it can be fed
// any bytes (fuzzing) without files or the process-wide catalog cache.

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace fl::i18n::detail {

// Message texts by key.
using CatalogMessages = std::unordered_map<std::string, std::u16string>;

// Parses the text of a catalog file holding catalog `catalog`. Throws
// CatalogError naming `file` (with line and byte offset where known) for
// malformed XML, a wrong root element or name, a message without a key, a key
// given twice or an element inside a message.
std::shared_ptr<CatalogMessages const> parseCatalogText(std::string const& file, std::string_view text,
                                                        std::string const& catalog);

}  // namespace fl::i18n::detail

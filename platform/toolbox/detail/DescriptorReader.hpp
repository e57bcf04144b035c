#pragma once
// Reads one product descriptor file of an installation root.

#include "platform/toolbox/ProductInfo.hpp"

#include <filesystem>
#include <memory>

namespace dependency::toolbox::detail {

// Throws ToolboxCatalogError naming `file`, with the line and column of the
// offending value where the parser can tell it. A relative version folder is
// taken against `absoluteRoot`.
std::shared_ptr<ProductInfo> readProductDescriptor(std::filesystem::path const& file,
                                                   std::filesystem::path const& absoluteRoot);

}  // namespace dependency::toolbox::detail

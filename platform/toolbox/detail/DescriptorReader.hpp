#pragma once
// Reads one product descriptor file of an installation root.

#include "platform/toolbox/ProductInfo.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string_view>

namespace dependency::toolbox::detail {

// The largest descriptor file read; a larger one is an error, found before it is read.
inline constexpr std::size_t maxDescriptorBytes = 16 << 20;

// Throws ToolboxCatalogError naming `file`, with the line and column of the
// offending value where the parser can tell it. A relative version folder is
// taken against `absoluteRoot`.
std::shared_ptr<ProductInfo> readProductDescriptor(std::filesystem::path const& file,
                                                   std::filesystem::path const& absoluteRoot);

// The same for a descriptor's text; `file` names it in errors.
std::shared_ptr<ProductInfo> parseProductDescriptor(std::string_view text, std::filesystem::path const& file,
                                                    std::filesystem::path const& absoluteRoot);

}  // namespace dependency::toolbox::detail

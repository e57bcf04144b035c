// Feeds arbitrary bytes to the product-descriptor reader of an installation
// root. A descriptor loads or fails with ToolboxCatalogError naming the file,
// never crashes, hangs or throws anything else.
#include "platform/toolbox/ToolboxFinder.hpp"
#include "platform/toolbox/detail/DescriptorReader.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    try {
        auto const product = dependency::toolbox::detail::parseProductDescriptor(text, "fuzz.json", "/root");
        // What loads is complete: a name and base code, and a version folder when installed.
        if (product->getName().empty() || product->getBaseCode().empty() ||
            (product->isInstalled() && product->getVerDir().empty())) {
            std::abort();
        }
    } catch (dependency::toolbox::ToolboxCatalogError const& error) {
        if (error.file() != "fuzz.json") {
            std::abort();
        }
    }
    return 0;
}

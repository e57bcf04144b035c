// Feeds arbitrary bytes to the message-catalog reader. Catalog files come from
// translators (DEPATTR_RESOURCES): they parse or fail with CatalogError naming
// the file, never crash, hang or throw anything else.
#include "platform/fl/MessageCatalog.hpp"
#include "platform/fl/detail/CatalogText.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    try {
        auto const messages = fl::i18n::detail::parseCatalogText("fuzz.xml", text, "QORVEX:dependency:attribute");
        for (auto const& [key, message] : *messages) {
            if (key.empty()) {
                std::abort();
            }
        }
    } catch (fl::i18n::CatalogError const& error) {
        if (error.file() != "fuzz.xml") {
            std::abort();
        }
    }
    return 0;
}

// Feeds arbitrary bytes to the package-definition reader. A definition loads or
// fails with PackageDefinitionError naming the file, never crashes, hangs or
// throws anything else.
#include "platform/packages/PackageDescriptor.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    try {
        auto const definition = foundation::packages::parsePackageDefinition(text, "fuzz.json");
        if (definition->GetName().empty() || definition->GetVersion().empty()) {
            std::abort();
        }
        for (auto const& dependency : definition->GetDependencyRanges()) {
            if (dependency.GetName().empty()) {
                std::abort();
            }
        }
    } catch (foundation::packages::PackageDefinitionError const& error) {
        if (error.file() != "fuzz.json") {
            std::abort();
        }
    }
    return 0;
}

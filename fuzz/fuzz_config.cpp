// Feeds arbitrary bytes to the reader of depattr.toml. A configuration file is
// read or fails with ConfigError naming the file, never crashes, hangs or
// throws anything else (in particular no error of the TOML library itself).
#include "cli/Config.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    try {
        (void)depattr::cli::readConfigText(text, "/fuzz/depattr.toml");
    } catch (depattr::cli::ConfigError const& error) {
        if (std::string_view(error.what()).substr(0, 18) != "/fuzz/depattr.toml") {
            std::abort();
        }
    }
    return 0;
}

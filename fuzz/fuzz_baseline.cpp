// Feeds arbitrary bytes to the baseline reader (--baseline FILE). A baseline
// is read or fails with BaselineError naming the file, never crashes, hangs or
// throws anything else.
#include "cli/Baseline.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    try {
        auto baseline = depattr::cli::Baseline::parse(text, "fuzz.json");
        (void)baseline.take("0123456789abcdef");
    } catch (depattr::cli::BaselineError const& error) {
        if (!std::string_view(error.what()).starts_with("fuzz.json")) {
            std::abort();
        }
    }
    return 0;
}

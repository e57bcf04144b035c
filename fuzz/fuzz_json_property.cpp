// Feeds arbitrary bytes to the JSON property reader, which reads node
// properties written by whoever built the graph. It reports failures as
// result codes and must never throw, crash or run away on deep nesting; on
// failure it leaves its output as it was, and on success it stops inside the input.
#include "attribute/analyzers/JsonPropertyReader.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    using namespace dependency::attribute::jsonproperty;
    auto const* begin = reinterpret_cast<char const*>(data);
    auto const* end = begin + size;

    std::vector<foundation::json::Value> values(1);  // a sentinel that failure must leave in place
    char const* pos = begin;
    int const code = readArray(pos, end, values, 0);
    if (code != Success && values.size() != 1) {
        std::abort();
    }
    if (pos < begin || pos > end) {
        std::abort();
    }
    if (code == Success) {
        for (auto const& value : values) {
            try {
                (void)value.asString();
            } catch (std::runtime_error const&) {
                // Only strings convert; the error is the documented one.
            }
        }
    }

    foundation::json::Value single;
    pos = begin;
    (void)readValue(pos, end, single, 0);
    if (pos < begin || pos > end) {
        std::abort();
    }
    return 0;
}

#pragma once
// The hash of sets and maps keyed by strings and looked up by views of text
// (with std::equal_to<>), so that a lookup makes no string.

#include <cstddef>
#include <functional>
#include <string_view>

namespace foundation {

template <class Char>
struct BasicViewHash {
    using is_transparent = void;
    std::size_t operator()(std::basic_string_view<Char> text) const noexcept {
        return std::hash<std::basic_string_view<Char>>{}(text);
    }
};

using ViewHash = BasicViewHash<char>;
using U16ViewHash = BasicViewHash<char16_t>;

}  // namespace foundation

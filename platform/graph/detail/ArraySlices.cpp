#include "platform/graph/detail/ArraySlices.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace dependency::graph::detail {

namespace {

constexpr std::size_t blockBytes = 64;

// The brackets outside strings in a block of 64 bytes (bit i for byte i),
// and whether the block ends inside a string or just after a backslash
// inside one: the state the next block starts from.
struct Block {
    std::uint64_t opening = 0;  // '{' and '['
    std::uint64_t closing = 0;  // '}' and ']'
};

struct ScanState {
    bool inString = false;
    bool escaped = false;  // the byte after a backslash, inside a string
};

// Byte by byte: any block where escapes play a part.
Block scanBytes(char const* p, std::size_t count, ScanState& state) noexcept {
    Block block;
    for (std::size_t i = 0; i < count; ++i) {
        char const c = p[i];
        if (state.inString) {
            if (state.escaped) {
                state.escaped = false;
            } else if (c == '\\') {
                state.escaped = true;
            } else if (c == '"') {
                state.inString = false;
            }
        } else if (c == '"') {
            state.inString = true;
        } else if (c == '{' || c == '[') {
            block.opening |= std::uint64_t{1} << i;
        } else if (c == '}' || c == ']') {
            block.closing |= std::uint64_t{1} << i;
        }
    }
    return block;
}

#if defined(__SSE2__)
std::uint64_t bytesEqual(__m128i const (&lanes)[4], char c) noexcept {
    __m128i const wanted = _mm_set1_epi8(c);
    std::uint64_t mask = 0;
    for (int lane = 0; lane < 4; ++lane) {
        auto const bits = static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(lanes[lane], wanted)));
        mask |= std::uint64_t{bits} << (16 * lane);
    }
    return mask;
}

// Sixteen bytes at a time: the quotes of a block without backslashes open and
// close strings in turn, so the bytes inside strings are the running parity
// of the quotes before them.
Block scanBlock(char const* p, std::size_t count, ScanState& state) noexcept {
    __m128i const lanes[4] = {_mm_loadu_si128(reinterpret_cast<__m128i const*>(p)),
                              _mm_loadu_si128(reinterpret_cast<__m128i const*>(p + 16)),
                              _mm_loadu_si128(reinterpret_cast<__m128i const*>(p + 32)),
                              _mm_loadu_si128(reinterpret_cast<__m128i const*>(p + 48))};
    std::uint64_t const valid = count >= blockBytes ? ~std::uint64_t{0} : (std::uint64_t{1} << count) - 1;
    if (state.escaped || (bytesEqual(lanes, '\\') & valid) != 0) {
        return scanBytes(p, count, state);
    }
    std::uint64_t inside = bytesEqual(lanes, '"') & valid;
    for (int shift = 1; shift < 64; shift *= 2) {
        inside ^= inside << shift;
    }
    if (state.inString) {
        inside = ~inside;
    }
    state.inString = ((inside >> (count - 1)) & 1) != 0;
    std::uint64_t const outside = ~inside & valid;
    return {(bytesEqual(lanes, '{') | bytesEqual(lanes, '[')) & outside,
            (bytesEqual(lanes, '}') | bytesEqual(lanes, ']')) & outside};
}
#else
Block scanBlock(char const* p, std::size_t count, ScanState& state) noexcept {
    return scanBytes(p, count, state);
}
#endif

}  // namespace

char const* skipBlanks(char const* p, char const* const end) noexcept {
    while (p < end && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t')) {
        ++p;
    }
    return p;
}

std::optional<ArraySlice> nextSlice(char const* const open, char const* const end, std::size_t const bytes) noexcept {
    ArraySlice slice;
    slice.open = open;
    ScanState state;
    std::size_t depth = 0;  // 0 between the elements
    for (char const* block = open + 1; block < end; block += blockBytes) {
        auto const count = std::min<std::size_t>(blockBytes, static_cast<std::size_t>(end - block));
        Block const brackets = scanBlock(block, count, state);
        for (std::uint64_t all = brackets.opening | brackets.closing; all != 0; all &= all - 1) {
            auto const bit = std::countr_zero(all);
            char const* const at = block + bit;
            if ((brackets.opening >> bit) & 1) {
                ++depth;
                continue;
            }
            if (depth == 0) {
                // The array's end, or a stray bracket the reader of the slice will find.
                if (*at != ']' || (slice.elements == 0 && *open != '[')) {
                    return std::nullopt;
                }
                slice.close = at;
                return slice;
            }
            if (--depth == 0) {
                ++slice.elements;
                if (static_cast<std::size_t>(at + 1 - open) >= bytes) {
                    char const* const next = skipBlanks(at + 1, end);
                    if (next == end || (*next != ',' && *next != ']')) {
                        return std::nullopt;
                    }
                    slice.close = next;
                    return slice;
                }
            }
        }
    }
    return std::nullopt;
}

}  // namespace dependency::graph::detail

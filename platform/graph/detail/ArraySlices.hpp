#pragma once
// Cuts the elements of a JSON array of objects, as they stand in a text, into
// slices of about a given size, without reading the elements: the loader hands
// each slice to the JSON reader as an array of its own, so that the reader's
// index of the text is the size of a slice and not of the whole file.
//
// Only where the elements' brackets balance is looked at (brackets inside
// strings do not count), and that a comma or the array's ']' follows the last
// element of a slice. Whether the elements are objects, well-formed and
// separated by commas is for the reader of the slice to tell: it must read as
// many elements as the slice counts. The text must be followed by at least 64
// readable bytes (the padding the JSON reader needs too), as the scan reads
// 64 bytes at a time.

#include <cstddef>
#include <optional>

namespace dependency::graph::detail {

// Where the blanks a JSON reader skips (space, tab, line feed, carriage
// return) that begin at `p` end; `end` at the latest.
char const* skipBlanks(char const* p, char const* end) noexcept;

// One slice of an array's elements.
struct ArraySlice {
    // The byte before the slice's first element, blanks aside: the array's '['
    // for the first slice, else the comma that ends the slice before.
    char const* open = nullptr;
    // The byte after its last element, blanks aside: the comma before the next
    // slice, or the array's ']'.
    char const* close = nullptr;
    std::size_t elements = 0;
    bool last() const noexcept { return *close == ']'; }
};

// The slice that begins at `open` (the array's '[' or the comma that ended the
// slice before): elements (arrays or objects) are added until the slice spans
// at least `bytes` bytes or the array ends, so a slice holds one element at
// least, however large. Nothing when the array does not end before `end`,
// when a slice would end in other than a comma or a ']', or when a slice
// after a comma holds no element.
std::optional<ArraySlice> nextSlice(char const* open, char const* end, std::size_t bytes) noexcept;

}  // namespace dependency::graph::detail

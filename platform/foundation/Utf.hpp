#pragma once
// UTF-16 <-> UTF-8 conversions for every layer above the foundation. The
// message catalogs offer the same functions under fl::i18n.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace foundation::utf {

// Ill-formed input (unpaired surrogates, invalid UTF-8 bytes) becomes U+FFFD
// instead of failing.
std::string to_string(std::u16string const& text);        // UTF-16 -> UTF-8
std::u16string to_ustring(std::string const& text);       // UTF-8 -> UTF-16
std::string ustring_to_utf8(std::u16string const& text);  // same as to_string
// The byte offset of the first byte of `text` that does not begin a valid
// UTF-8 sequence (overlong forms, encoded surrogates and values beyond U+10FFFF
// are not valid), or nothing when all of it is valid.
std::optional<std::size_t> first_invalid_utf8(std::string_view text);
// Appends the UTF-8 form of one code point (a lone surrogate is encoded as it
// is).
void append_utf8(std::string& out, char32_t c);

}  // namespace foundation::utf

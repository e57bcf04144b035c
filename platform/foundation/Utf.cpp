// UTF-16 <-> UTF-8 conversion. Written out rather than taken from a library so
// that ill-formed input is repaired the same way everywhere: every unpaired
// surrogate or invalid UTF-8 sequence becomes one U+FFFD.
#include "platform/foundation/Utf.hpp"

#include <cstdint>
#include <optional>
#include <string_view>

namespace foundation::utf {

namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

void appendUtf16(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out.push_back(static_cast<char16_t>(c));
    } else {
        c -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
    }
}

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Decodes one code point at `pos` and advances past it; an invalid sequence yields U+FFFD and advances by one byte.
char32_t decodeUtf8(std::string_view text, std::size_t& pos) {
    auto const lead = static_cast<unsigned char>(text[pos]);
    std::size_t length = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if (lead < 0x80) {
        ++pos;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, c = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, c = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, c = lead & 0x07, minimum = 0x10000;
    } else {
        ++pos;
        return replacementCharacter;
    }
    if (pos + length > text.size()) {
        ++pos;
        return replacementCharacter;
    }
    for (std::size_t i = 1; i < length; ++i) {
        auto const byte = static_cast<unsigned char>(text[pos + i]);
        if (!isContinuation(byte)) {
            ++pos;
            return replacementCharacter;
        }
        c = (c << 6) | (byte & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
    if (c < minimum || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
        ++pos;
        return replacementCharacter;
    }
    pos += length;
    return c;
}

}  // namespace

void append_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::string to_string(std::u16string const& text) {
    // The ASCII beginning (nearly always the whole text: IDs, names, paths)
    // is narrowed as it stands; the rest is converted unit by unit.
    std::size_t ascii = 0;
    while (ascii < text.size() && text[ascii] < 0x80) {
        ++ascii;
    }
    std::string out(ascii, '\0');
    for (std::size_t i = 0; i < ascii; ++i) {
        out[i] = static_cast<char>(text[i]);
    }
    if (ascii == text.size()) {
        return out;
    }
    out.reserve(text.size() + text.size() / 2);
    for (std::size_t i = ascii; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = replacementCharacter;
        }
        append_utf8(out, c);
    }
    return out;
}

std::optional<std::size_t> first_invalid_utf8(std::string_view text) {
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t const start = pos;
        if (decodeUtf8(text, pos) == replacementCharacter && pos == start + 1) {
            return start;  // a replacement made for a bad sequence, not an encoded U+FFFD
        }
    }
    return std::nullopt;
}

std::string ustring_to_utf8(std::u16string const& text) {
    return to_string(text);
}

std::u16string to_ustring(std::string const& text) {
    std::u16string out;
    out.reserve(text.size());
    std::size_t pos = 0;
    while (pos < text.size()) {
        appendUtf16(out, decodeUtf8(text, pos));
    }
    return out;
}

}  // namespace foundation::utf

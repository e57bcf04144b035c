#pragma once
// Our own texts for the errors of the JSON reader (simdjson) that the file
// readers (graph files, product descriptors, package definitions, baselines)
// build on, so that a message about a bad file explains the file in
// plain words instead of quoting the reader's internal error names.

#include "platform/foundation/Utf.hpp"

#include <simdjson.h>

#include <string_view>

namespace foundation::json {

inline char const* describeReaderError(simdjson::error_code error) noexcept {
    switch (error) {
    case simdjson::CAPACITY:
        return "the text is larger than the 4 GiB the JSON reader can hold";
    case simdjson::MEMALLOC:
        return "not enough memory to read the text";
    case simdjson::DEPTH_ERROR:
        return "arrays and objects are nested more than 1024 levels deep";
    case simdjson::STRING_ERROR:
        return "a string holds a bad escape sequence (or a \\u escape of a lone surrogate)";
    case simdjson::T_ATOM_ERROR:
    case simdjson::F_ATOM_ERROR:
    case simdjson::N_ATOM_ERROR:
        return "a word that is not true, false or null";
    case simdjson::NUMBER_ERROR:
        return "a malformed number";
    case simdjson::NUMBER_OUT_OF_RANGE:
        return "a number out of range";
    case simdjson::UTF8_ERROR:
        return "the text is not valid UTF-8";
    case simdjson::EMPTY:
        return "the text is empty";
    case simdjson::UNESCAPED_CHARS:
        return "a string holds a control character (such as NUL or a line break) that must be escaped";
    case simdjson::UNCLOSED_STRING:
        return "a string is not closed";
    case simdjson::INCORRECT_TYPE:
        return "a value of the wrong type";
    case simdjson::INCOMPLETE_ARRAY_OR_OBJECT:
        return "the text ends before an array or object is complete";
    case simdjson::TRAILING_CONTENT:
        return "unexpected text after the JSON value";
    case simdjson::IO_ERROR:
        return "the file cannot be read";
    default:
        return "the text is not well-formed JSON";
    }
}

// Where in `text` an error of the reader's first pass over the whole text
// lies, as that pass gives no place itself: the first byte that is not UTF-8,
// the first control character inside a string, or the end of a text that ends
// too early. Null for other errors.
inline char const* locateReaderError(simdjson::error_code error, std::string_view text) noexcept {
    if (error == simdjson::UTF8_ERROR) {
        auto const invalid = foundation::utf::first_invalid_utf8(text);
        return invalid ? text.data() + *invalid : nullptr;
    }
    if (error == simdjson::UNCLOSED_STRING || error == simdjson::INCOMPLETE_ARRAY_OR_OBJECT) {
        return text.data() + text.size();  // where the text ends
    }
    if (error == simdjson::UNESCAPED_CHARS) {
        bool inString = false;
        for (std::size_t i = 0; i < text.size(); ++i) {
            char const c = text[i];
            if (!inString) {
                inString = c == '"';
            } else if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            } else if (static_cast<unsigned char>(c) < 0x20) {
                return text.data() + i;
            }
        }
    }
    return nullptr;
}

}  // namespace foundation::json

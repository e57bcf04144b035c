#include "platform/foundation/Printable.hpp"

namespace foundation::printable {

namespace {

// Whether a character is written as it stands.
bool plain(char c) {
    auto const byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte != 0x7f && c != '\\';
}

}  // namespace

std::string_view escapeControls(std::string_view text, std::string& storage) {
    // Checked without stopping early, so that the compiler can take many
    // characters at a time: nearly every text is plain throughout.
    bool escapes = false;
    for (char const c : text) {
        escapes |= !plain(c);
    }
    if (!escapes) {
        return text;
    }
    storage = escapeControls(text);
    return storage;
}

std::string escapeControls(std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    // Runs of plain characters, nearly all of any text, are copied whole.
    for (std::size_t i = 0; i < text.size();) {
        std::size_t run = i;
        while (run < text.size() && plain(text[run])) {
            ++run;
        }
        out.append(text.data() + i, run - i);
        if (run == text.size()) {
            break;
        }
        char const c = text[run];
        auto const byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\\') {
            out += "\\\\";
        } else {
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xf];
        }
        i = run + 1;
    }
    return out;
}

}  // namespace foundation::printable

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
    // Counted without stopping early and without branches, so that the
    // compiler takes many characters at a time: nearly every text is plain
    // throughout.
    std::size_t escapes = 0;
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        escapes += static_cast<std::size_t>((byte < 0x20) | (byte == 0x7f) | (c == '\\'));
    }
    if (escapes == 0) {
        return text;
    }
    storage = escapeControls(text);
    return storage;
}

std::string escapeControls(std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    appendEscaped(out, text, plain, [](std::string& escaped, char c) {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            escaped += "\\n";
        } else if (c == '\r') {
            escaped += "\\r";
        } else if (c == '\t') {
            escaped += "\\t";
        } else if (c == '\\') {
            escaped += "\\\\";
        } else {
            escaped += "\\x";
            escaped += hex[byte >> 4];
            escaped += hex[byte & 0xf];
        }
    });
    return out;
}

}  // namespace foundation::printable

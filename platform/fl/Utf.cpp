// The UTF conversions of the message catalogs are the foundation's own.
#include "platform/foundation/Utf.hpp"
#include "platform/fl/MessageCatalog.hpp"

namespace fl::i18n {

std::string to_string(std::u16string const& text) {
    return foundation::utf::to_string(text);
}

std::u16string to_ustring(std::string const& text) {
    return foundation::utf::to_ustring(text);
}

std::string ustring_to_utf8(std::u16string const& text) {
    return foundation::utf::ustring_to_utf8(text);
}

std::optional<std::size_t> first_invalid_utf8(std::string_view text) {
    return foundation::utf::first_invalid_utf8(text);
}

void append_utf8(std::string& out, char32_t c) {
    foundation::utf::append_utf8(out, c);
}

}  // namespace fl::i18n

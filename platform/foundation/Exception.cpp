#include "platform/foundation/Exception.hpp"

#include "platform/fl/MessageCatalog.hpp"

namespace foundation::core::except {

IException::~IException() = default;

char const* IException::what() const noexcept {
    try {
        std::call_once(whatText_.once, [this] {
            try {
                whatText_.text = fl::i18n::to_string(ToUstringImpl());
            } catch (...) {
                // No text (a missing catalog, say): the identifier still tells what failed.
                whatText_.text = GetID();
            }
        });
        return whatText_.text.c_str();
    } catch (...) {
        return "foundation::core::except::IException";
    }
}

IUserException::~IUserException() = default;

std::u16string IUserException::convert_str(std::u16string const& text) const {
    return text;
}

std::u16string IUserException::convert_str(std::string const& text) const {
    return fl::i18n::to_ustring(text);
}

std::u16string IUserException::ToUstringImpl() const {
    return GetUnicodeMessageTxt();
}

IMsgIDException::~IMsgIDException() = default;

std::string IMsgIDException::get_error_id(resource_core::BaseMsgID const& id) {
    return id.catalog() + ":" + id.key();
}

std::u16string IMsgIDException::GetUnicodeMessageTxt() const {
    return fl::i18n::MessageCatalog::get_message(GetBaseMsgIDObj());
}

}  // namespace foundation::core::except

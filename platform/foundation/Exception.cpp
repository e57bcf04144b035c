#include "platform/foundation/Exception.hpp"

#include "platform/foundation/MessageText.hpp"
#include "platform/foundation/Utf.hpp"

#include <atomic>
#include <stdexcept>

namespace foundation::core::except {

namespace {

std::atomic<MessageTextSource> textSource{nullptr};

}  // namespace

void setMessageTextSource(MessageTextSource source) noexcept {
    textSource.store(source);
}

std::u16string messageTextOf(resource_core::BaseMsgID const& id) {
    auto const source = textSource.load();
    if (source == nullptr) {
        throw std::logic_error("no message catalogs are loaded to give the text of " +
                               IMsgIDException::get_error_id(id));
    }
    return source(id);
}

IException::~IException() = default;

char const* IException::what() const noexcept {
    try {
        std::call_once(whatText_.once, [this] {
            try {
                whatText_.text = foundation::utf::to_string(ToUstringImpl());
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
    return foundation::utf::to_ustring(text);
}

std::u16string IUserException::ToUstringImpl() const {
    return GetUnicodeMessageTxt();
}

IMsgIDException::~IMsgIDException() = default;

std::string IMsgIDException::get_error_id(resource_core::BaseMsgID const& id) {
    return id.catalog() + ":" + id.key();
}

std::u16string IMsgIDException::GetUnicodeMessageTxt() const {
    return messageTextOf(GetBaseMsgIDObj());
}

}  // namespace foundation::core::except

#include "attribute/analyzers/Messages.hpp"

#include "platform/fl/MessageCatalog.hpp"

namespace dependency::attribute {

std::u16string attributeMessage(char const* key, std::vector<resource_core::MessageArgument> args) {
    return fl::i18n::MessageCatalog::get_message(resource_core::BaseMsgID(attributeCatalog, key, std::move(args)));
}

}  // namespace dependency::attribute

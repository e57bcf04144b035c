#pragma once
// Localised texts of the built-in analyzers' findings.

#include "platform/foundation/BaseMsgID.hpp"

#include <string>
#include <vector>

namespace dependency::attribute {

inline constexpr char const* attributeCatalog = "QORVEX:dependency:attribute";

// Text of `key` in the catalog "QORVEX:dependency:attribute" for the language
// of the global locale, placeholders filled from `args`. Throws
// fl::i18n::MessageNotFound when no catalog has the key.
std::u16string attributeMessage(char const* key, std::vector<resource_core::MessageArgument> args = {});

}  // namespace dependency::attribute

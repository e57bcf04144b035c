#pragma once
// Where the message-identified exceptions get their texts. The foundation
// reads no catalog itself (it is the ground floor, below the message catalogs):
// the catalogs (fl::i18n) install their lookup here when their library is
// loaded.

#include "platform/foundation/BaseMsgID.hpp"

#include <string>

namespace foundation::core::except {

using MessageTextSource = std::u16string (*)(resource_core::BaseMsgID const& id);

// Installs the lookup every exception's text comes from; a later call replaces it.
void setMessageTextSource(MessageTextSource source) noexcept;

// The text of `id` in the current language, from the installed lookup (which
// throws when the catalogs cannot give it). Throws std::logic_error when no
// lookup is installed.
std::u16string messageTextOf(resource_core::BaseMsgID const& id);

}  // namespace foundation::core::except

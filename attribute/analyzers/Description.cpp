#include "attribute/analyzers/Description.hpp"

#include "attribute/analyzers/Messages.hpp"

#include <algorithm>

namespace dependency::attribute {

namespace {

template <class Text>
bool idMatches(FindingDescription const& kind, Text const& id) {
    // IDs are ASCII, so a narrow and a UTF-16 ID compare character by character.
    if (kind.idIsPrefix ? id.size() < kind.id.size() : id.size() != kind.id.size()) {
        return false;
    }
    return std::equal(kind.id.begin(), kind.id.end(), id.begin(),
                      [](char a, auto b) { return static_cast<char16_t>(a) == static_cast<char16_t>(b); });
}

}  // namespace

bool FindingDescription::matches(std::u16string_view id) const noexcept {
    return idMatches(*this, id);
}

bool FindingDescription::matches(std::string_view id) const noexcept {
    return idMatches(*this, id);
}

std::shared_ptr<AttributeIdentity> makeIdentity(FindingDescription const& kind,
                                                std::vector<resource_core::MessageArgument> args,
                                                std::u16string_view idSuffix) {
    std::u16string id(kind.id.begin(), kind.id.end());
    id += idSuffix;
    return std::make_shared<AttributeIdentity>(id, attributeMessage(kind.messageKey, std::move(args)), kind.severity);
}

}  // namespace dependency::attribute

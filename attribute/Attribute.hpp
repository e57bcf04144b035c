#pragma once

#include "attribute/AttributeIdentity.hpp"
#include "platform/services/Shareable.hpp"

#include <functional>
#include <memory>
#include <string>

namespace dependency::attribute {

// One finding about one node: a shared identity and an optional fix action.
class Attribute : public dependency::services::Shareable {
public:
    Attribute(std::shared_ptr<AttributeIdentity> const& identity, std::function<void()> fix);
    ~Attribute() override;

    bool hasFix() const noexcept { return fix_ != nullptr; }
    // Invokes the fix without checking for one first: on an attribute without a
    // fix this throws std::bad_function_call. Callers ask hasFix() first.
    void applyFix() const;

    std::shared_ptr<AttributeIdentity> getIdentity() const { return identity_; }
    std::u16string const& getID() const { return identity_->getID(); }
    std::u16string const& getName() const { return identity_->getName(); }
    Severity const& getSeverity() const { return identity_->getSeverity(); }

private:
    std::shared_ptr<AttributeIdentity> identity_;
    // Null without a fix. Most findings have none, and a large analysis makes
    // a million of them: an absent fix costs a pointer, not a whole function.
    std::unique_ptr<std::function<void()> const> fix_;
};

}  // namespace dependency::attribute

#pragma once

#include "attribute/Severity.hpp"
#include "platform/services/Shareable.hpp"

#include <string>

namespace dependency::attribute {

// The kind of a finding: machine ID, display Name and Severity. Immutable and
// shared by every attribute of that kind; compared by value, never by address.
class AttributeIdentity : public dependency::services::Shareable {
public:
    AttributeIdentity(std::u16string const& id, std::u16string const& name, Severity const& severity);
    ~AttributeIdentity() override;

    std::u16string const& getID() const noexcept { return id_; }
    std::u16string const& getName() const noexcept { return name_; }
    Severity const& getSeverity() const noexcept { return severity_; }

private:
    std::u16string id_;
    std::u16string name_;
    Severity severity_;
};

// Lexicographic over (ID, Name, Severity); strings compare as unsigned UTF-16
// code units, severities as signed numbers.
bool operator<(AttributeIdentity const& a, AttributeIdentity const& b) noexcept;
bool operator==(AttributeIdentity const& a, AttributeIdentity const& b) noexcept;
bool operator!=(AttributeIdentity const& a, AttributeIdentity const& b) noexcept;

}  // namespace dependency::attribute

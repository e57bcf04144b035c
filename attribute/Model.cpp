// Severity, AttributeIdentity, Attribute and AttributeAnalyzer.
#include "attribute/Attribute.hpp"
#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/AttributeIdentity.hpp"
#include "attribute/Severity.hpp"
#include "services/HostClassNames.hpp"

namespace dependency::attribute {

namespace {

// The host class names, interned once: objects are made by the thousand (one
// attribute per finding) and take the name as it stands.
services::InternedName attributeClass() {
    static auto const& name = services::internName(services::AttributeClassName);
    return {name};
}
services::InternedName identityClass() {
    static auto const& name = services::internName(services::AttributeIdentityClassName);
    return {name};
}
services::InternedName analyzerClass() {
    static auto const& name = services::internName(services::AttributeAnalyzerClassName);
    return {name};
}

}  // namespace

std::string_view toString(Severity severity) noexcept {
    switch (severity) {
    case Severity::Information:
        return "Information";
    case Severity::Warning:
        return "Warning";
    case Severity::Problem:
        return "Problem";
    }
    return {};
}

AttributeIdentity::AttributeIdentity(std::u16string const& id, std::u16string const& name, Severity const& severity)
    : Shareable(identityClass()), id_(id), name_(name), severity_(severity) {}

AttributeIdentity::~AttributeIdentity() = default;

// std::u16string's comparison works on char16_t, an unsigned type, so it is
// exactly the code-unit order with the shorter prefix first.
bool operator<(AttributeIdentity const& a, AttributeIdentity const& b) noexcept {
    if (int const byId = a.getID().compare(b.getID()); byId != 0) {
        return byId < 0;
    }
    if (int const byName = a.getName().compare(b.getName()); byName != 0) {
        return byName < 0;
    }
    return static_cast<std::int32_t>(a.getSeverity()) < static_cast<std::int32_t>(b.getSeverity());
}

bool operator==(AttributeIdentity const& a, AttributeIdentity const& b) noexcept {
    return a.getID() == b.getID() && a.getName() == b.getName() && a.getSeverity() == b.getSeverity();
}

bool operator!=(AttributeIdentity const& a, AttributeIdentity const& b) noexcept {
    return !(a == b);
}

Attribute::Attribute(std::shared_ptr<AttributeIdentity> const& identity, std::function<void()> fix)
    : Shareable(attributeClass()),
      identity_(identity),
      fix_(fix ? std::make_unique<std::function<void()> const>(std::move(fix)) : nullptr) {}

void Attribute::applyFix() const {
    if (fix_ == nullptr) {
        throw std::bad_function_call();
    }
    (*fix_)();
}

Attribute::~Attribute() = default;

AttributeAnalyzer::AttributeAnalyzer() : Shareable(analyzerClass()) {}

AttributeAnalyzer::~AttributeAnalyzer() = default;

}  // namespace dependency::attribute

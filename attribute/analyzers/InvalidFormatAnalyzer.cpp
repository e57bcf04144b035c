// Turns the four format flags that the graph's producer sets on nodes into findings.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Messages.hpp"

#include <array>

namespace dependency::attribute {

namespace {

struct FormatFinding {
    std::u16string property;
    std::shared_ptr<Attribute> attribute;
};

// In priority order: a node flagged several ways gets only the first.
using FormatFindings = std::array<FormatFinding, 4>;

FormatFinding makeFinding(char16_t const* property, char16_t const* id, char const* messageKey) {
    auto identity = std::make_shared<AttributeIdentity>(id, attributeMessage(messageKey), Severity::Warning);
    return {property, std::make_shared<Attribute>(identity, nullptr)};
}

// The attributes themselves are process-wide: every flagged node receives the
// very same object, so callers must treat findings as immutable.
FormatFindings const& formatFindings() {
    static FormatFindings const findings{
        makeFinding(u"futureRelease", u"FutureRelease", "FutureReleaseProblem"),
        makeFinding(u"invalidFormat", u"InvalidFormat", "InvalidFormatProblem"),
        makeFinding(u"syntaxError", u"SyntaxError", "SyntaxErrorProblem"),
        makeFinding(u"isModelInPackage", u"ModelInPackage", "ModelInPackageProblem"),
    };
    return findings;
}

class InvalidFormatAnalyzer final : public AttributeAnalyzer {
public:
    ~InvalidFormatAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& /*graph*/) const override {
        for (auto const& finding : formatFindings()) {
            // Only the exact text "true" sets a flag.
            if (auto const value = node->getProperty(finding.property); value && *value == u"true") {
                return {finding.attribute};
            }
        }
        return {};
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createInvalidFormatAnalyzer() {
    return std::make_shared<InvalidFormatAnalyzer>();
}

}  // namespace dependency::attribute

// Turns the four format flags that the graph's producer sets on nodes into findings.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"

#include <array>

namespace dependency::attribute {

namespace {

struct FormatFinding {
    std::u16string property;
    std::shared_ptr<Attribute> attribute;
};

// In priority order: a node flagged several ways gets only the first.
using FormatFindings = std::array<FormatFinding, 4>;

constexpr std::array<FindingDescription, 4> invalidFormatKinds{{
    {"FutureRelease", false, "FutureRelease", "FutureReleaseProblem", Severity::Warning},
    {"InvalidFormat", false, "InvalidFormat", "InvalidFormatProblem", Severity::Warning},
    {"SyntaxError", false, "SyntaxError", "SyntaxErrorProblem", Severity::Warning},
    {"ModelInPackage", false, "ModelInPackage", "ModelInPackageProblem", Severity::Warning},
}};

FormatFinding makeFinding(char16_t const* property, FindingDescription const& kind) {
    return {property, std::make_shared<Attribute>(makeIdentity(kind), nullptr)};
}

// The attributes themselves are process-wide: every flagged node receives the
// very same object, so callers must treat findings as immutable.
FormatFindings const& formatFindings() {
    static FormatFindings const findings{
        makeFinding(u"futureRelease", invalidFormatKinds[0]),
        makeFinding(u"invalidFormat", invalidFormatKinds[1]),
        makeFinding(u"syntaxError", invalidFormatKinds[2]),
        makeFinding(u"isModelInPackage", invalidFormatKinds[3]),
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

DEPATTR_DESCRIBE_ANALYZER(InvalidFormat, "invalid-format", "AnalyzerInvalidFormat", invalidFormatKinds)

}  // namespace dependency::attribute

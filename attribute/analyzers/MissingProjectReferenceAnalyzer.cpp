// Reports project references that could not be resolved.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"

#include <array>

namespace dependency::attribute {

namespace {

constexpr std::array<FindingDescription, 1> missingProjectReferenceKinds{{
    {"Missing", false, "MissingProjectReference", "MissingProjectReferenceProblem", Severity::Warning},
}};

class MissingProjectReferenceAnalyzer final : public AttributeAnalyzer {
public:
    ~MissingProjectReferenceAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& /*graph*/) const override {
        if (!(node->getType() == dependency::graph::Type::PROJECT()) || node->isResolved()) {
            return {};
        }
        // A fresh identity per finding, its Name in the locale current now. It
        // shares the ID "Missing" with the missing-file finding; the Names differ.
        auto identity = makeIdentity(missingProjectReferenceKinds[0]);
        return {std::make_shared<Attribute>(identity, nullptr)};
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createMissingProjectReferenceAnalyzer() {
    return std::make_shared<MissingProjectReferenceAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(MissingProjectReference, "missing-project-reference", "AnalyzerMissingProjectReference",
                          missingProjectReferenceKinds)

}  // namespace dependency::attribute

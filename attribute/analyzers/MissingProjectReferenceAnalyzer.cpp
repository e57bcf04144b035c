// Reports project references that could not be resolved.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Messages.hpp"

namespace dependency::attribute {

namespace {

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
        auto identity = std::make_shared<AttributeIdentity>(
            u"Missing", attributeMessage("MissingProjectReferenceProblem"), Severity::Warning);
        return {std::make_shared<Attribute>(identity, nullptr)};
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createMissingProjectReferenceAnalyzer() {
    return std::make_shared<MissingProjectReferenceAnalyzer>();
}

}  // namespace dependency::attribute

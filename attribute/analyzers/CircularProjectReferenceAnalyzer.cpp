// Reports the circular references that the graph's producer recorded on a
// project node: the property "circularReferences" holds a JSON array with one element per cycle through the project.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"
#include "attribute/analyzers/JsonPropertyReader.hpp"
#include "attribute/analyzers/Messages.hpp"

#include "platform/fl/MessageCatalog.hpp"

#include <array>

namespace dependency::attribute {

namespace {

constexpr std::array<FindingDescription, 1> circularProjectReferenceKinds{{
    {"CircularDependency", false, "CircularProjectReference", "CircularDependency", Severity::Warning},
}};

class CircularProjectReferenceAnalyzer final : public AttributeAnalyzer {
public:
    ~CircularProjectReferenceAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& /*graph*/) const override {
        if (!(node->getType() == dependency::graph::Type::PROJECT())) {
            return {};
        }
        auto const property = node->getProperty(u"circularReferences");
        if (!property) {
            return {};
        }
        std::string const text = fl::i18n::to_string(*property);
        char const* pos = text.data();
        std::vector<foundation::json::Value> cycles;
        // The result code is ignored on purpose: a malformed property leaves
        // `cycles` empty and so yields no findings rather than an error.
        (void)jsonproperty::readArray(pos, text.data() + text.size(), cycles, 0);

        std::vector<std::shared_ptr<Attribute>> findings;
        findings.reserve(cycles.size());
        for (auto const& cycle : cycles) {
            // A cycle that is not a string throws the conversion error.
            std::u16string const cycleText = fl::i18n::to_ustring(cycle.asString());
            auto identity = makeIdentity(circularProjectReferenceKinds[0], {cycleText});
            findings.push_back(std::make_shared<Attribute>(identity, nullptr));
        }
        return findings;
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createCircularProjectReferenceAnalyzer() {
    return std::make_shared<CircularProjectReferenceAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(CircularProjectReference, "circular-project-reference", "AnalyzerCircularProjectReference",
                          circularProjectReferenceKinds)

}  // namespace dependency::attribute

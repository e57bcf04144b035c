// Reports, for a node that requires products, each required product that is
// not installed.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Description.hpp"
#include "attribute/analyzers/Messages.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <unordered_set>

namespace dependency::attribute {

namespace {

constexpr std::array<FindingDescription, 1> missingProductKinds{{
    {"MissingProduct", true, "MissingProduct", "MissingProductProblem", Severity::Warning},
}};

using dependency::graph::Node;
using dependency::toolbox::ProductInfo;
using dependency::toolbox::ToolboxFinder;

struct NodeIdHash {
    std::size_t operator()(std::shared_ptr<Node> const& node) const noexcept {
        return std::hash<std::u16string>{}(node->getID());
    }
};

struct NodeValueEqual {
    bool operator()(std::shared_ptr<Node> const& a, std::shared_ptr<Node> const& b) const noexcept { return *a == *b; }
};

using ProductNodeSet = std::unordered_set<std::shared_ptr<Node>, NodeIdHash, NodeValueEqual>;

// Each finding names its product in both ID and Name, so every finding gets an
// identity of its own rather than a shared one.
std::shared_ptr<Attribute> missingProductFinding(ProductInfo const& product) {
    auto identity = makeIdentity(missingProductKinds[0], {product.getName()}, product.getBaseCode());
    return std::make_shared<Attribute>(identity, nullptr);
}

// The product node's location entries are locators; the requirement is met when
// any catalogue entry they denote is installed. A product the catalogue does not
// know at all yields no finding.
void appendMissingProductFindings(Node const& productNode, std::vector<std::shared_ptr<Attribute>>& findings) {
    auto const finder = ToolboxFinder::getInstance();
    ToolboxFinder::ProductList candidates;
    for (auto const& locator : productNode.getLocation()) {
        auto found = finder->findProductsByLocator(locator);
        candidates.insert(candidates.end(), found.begin(), found.end());
    }
    if (std::any_of(candidates.begin(), candidates.end(), [](auto const& product) { return product->isInstalled(); })) {
        return;
    }
    for (auto const& candidate : candidates) {
        findings.push_back(missingProductFinding(*candidate));
    }
}

class MissingProductsAnalyzer final : public AttributeAnalyzer {
public:
    ~MissingProductsAnalyzer() override = default;

    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const override {
        // A product reached through several dependencies is looked up once.
        ProductNodeSet requiredProducts;
        for (auto const& edge : graph->getDownstreamDependencies(*node)) {
            // The edge knows its node's type: only products are reached.
            if (edge->getDownstreamType() == dependency::graph::Type::PRODUCT()) {
                requiredProducts.insert(edge->getDownstreamNode());
            }
        }
        std::vector<std::shared_ptr<Attribute>> findings;
        for (auto const& productNode : requiredProducts) {
            appendMissingProductFindings(*productNode, findings);
        }
        return findings;
    }
};

}  // namespace

std::shared_ptr<AttributeAnalyzer> createMissingProductAnalyzer() {
    return std::make_shared<MissingProductsAnalyzer>();
}

DEPATTR_DESCRIBE_ANALYZER(MissingProduct, "missing-product", "AnalyzerMissingProduct", missingProductKinds)

}  // namespace dependency::attribute

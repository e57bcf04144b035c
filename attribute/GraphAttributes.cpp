#include "attribute/GraphAttributes.hpp"

#include <map>
#include <set>

namespace dependency::attribute {

using dependency::graph::Graph;
using dependency::graph::Node;

namespace {

// Orders map keys by the nodes they point at, so that equivalent node objects
// are one key.
struct NodeValueLess {
    bool operator()(std::shared_ptr<Node> const& a, std::shared_ptr<Node> const& b) const noexcept { return *a < *b; }
};

struct IdentityValueLess {
    bool operator()(std::shared_ptr<AttributeIdentity> const& a,
                    std::shared_ptr<AttributeIdentity> const& b) const noexcept {
        return *a < *b;
    }
};

using AttributeList = std::vector<std::shared_ptr<Attribute>>;

class GraphAttributesImpl final : public GraphAttributes {
public:
    // First-wins: a node already present keeps its list.
    void add(std::shared_ptr<Node> const& node, AttributeList&& list) {
        attributes_.try_emplace(node, std::move(list));
    }

    AttributeList getAttributes(std::shared_ptr<Node> const& node) const override {
        auto const it = attributes_.find(node);
        return it == attributes_.end() ? AttributeList{} : it->second;
    }

    AttributeList getAttributes(std::shared_ptr<Node> const& node, Severity const& minimumSeverity) const override {
        auto const it = attributes_.find(node);
        if (it == attributes_.end()) {
            return {};
        }
        if (minimumSeverity == Severity::Information) {
            return it->second;
        }
        auto const threshold = static_cast<std::int32_t>(minimumSeverity);
        AttributeList result;
        for (auto const& attribute : it->second) {
            if (static_cast<std::int32_t>(attribute->getSeverity()) >= threshold) {
                result.push_back(attribute);
            }
        }
        return result;
    }

    std::vector<std::shared_ptr<Node>> getNodesWith(AttributeIdentity const& identity) const override {
        std::vector<std::shared_ptr<Node>> result;
        for (auto const& [node, list] : attributes_) {
            for (auto const& attribute : list) {
                if (*attribute->getIdentity() == identity) {
                    result.push_back(node);
                    break;
                }
            }
        }
        return result;
    }

    std::vector<std::shared_ptr<AttributeIdentity>> getAllProblemIdentities() const override {
        std::set<std::shared_ptr<AttributeIdentity>, IdentityValueLess> identities;
        for (auto const& [node, list] : attributes_) {
            for (auto const& attribute : list) {
                if (attribute->getSeverity() != Severity::Information) {
                    identities.insert(attribute->getIdentity());
                }
            }
        }
        return {identities.begin(), identities.end()};
    }

private:
    std::map<std::shared_ptr<Node>, AttributeList, NodeValueLess> attributes_;
};

}  // namespace

GraphAttributes::GraphAttributes() : Shareable("dependencies.internal.attribute.GraphAttributes") {}

GraphAttributes::~GraphAttributes() = default;

std::shared_ptr<GraphAttributes> analyzeGraph(std::shared_ptr<Graph const> const& graph,
                                              std::vector<std::shared_ptr<AttributeAnalyzer>> const& analyzers) {
    auto result = std::make_shared<GraphAttributesImpl>();
    for (auto const& node : graph->getNodes()) {
        AttributeList list;
        for (auto const& analyzer : analyzers) {
            auto found = analyzer->analyze(node, graph);
            if (list.empty()) {
                list = std::move(found);
            } else {
                list.insert(list.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
            }
        }
        if (!list.empty()) {
            result->add(node, std::move(list));
        }
    }
    return result;
}

}  // namespace dependency::attribute

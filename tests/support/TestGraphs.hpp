#pragma once
// Small graphs and analyzers for tests of the attribute model and the driver.

#include "attribute/Attribute.hpp"
#include "attribute/AttributeAnalyzer.hpp"
#include "platform/graph/Graph.hpp"
#include "platform/graph/GraphBuilder.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace depattr_test {

// An ASCII text as the UTF-16 text the graph and the code analysis take.
inline std::u16string wide(std::string const& ascii) {
    return {ascii.begin(), ascii.end()};
}

using dependency::attribute::Attribute;
using dependency::attribute::AttributeAnalyzer;
using dependency::graph::Graph;
using dependency::graph::Node;

// An analyzer whose behaviour is a function of the node; records every call.
class ScriptedAnalyzer : public AttributeAnalyzer {
public:
    using Behaviour = std::function<std::vector<std::shared_ptr<Attribute>>(Node const&)>;

    explicit ScriptedAnalyzer(Behaviour behaviour) : behaviour_(std::move(behaviour)) {}

    std::vector<std::shared_ptr<Attribute>> analyze(std::shared_ptr<Node> const& node,
                                                    std::shared_ptr<Graph const> const&) const override {
        calls.push_back(node->getID());
        return behaviour_(*node);
    }

    mutable std::vector<std::u16string> calls;

private:
    Behaviour behaviour_;
};

// A graph that yields a fixed sequence of node pointers, repeats allowed.
class SequenceGraph : public Graph {
public:
    explicit SequenceGraph(std::vector<std::shared_ptr<Node>> sequence) : sequence_(std::move(sequence)) {}
    dependency::graph::NodeRange getNodes() const override { return dependency::graph::NodeRange(sequence_); }

private:
    std::vector<std::shared_ptr<Node>> sequence_;
};

inline std::shared_ptr<Node> makeNode(std::u16string id) {
    dependency::graph::NodeData data;
    data.id = std::move(id);
    return std::make_shared<Node>(std::move(data));
}

}  // namespace depattr_test

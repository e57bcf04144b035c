#pragma once

#include "attribute/Attribute.hpp"
#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/AttributeIdentity.hpp"
#include "attribute/Severity.hpp"
#include "platform/graph/Graph.hpp"
#include "platform/services/Shareable.hpp"

#include <memory>
#include <vector>

namespace dependency::attribute {

// The immutable result of one analysis: each node's findings, keyed by node
// value. Every query returns new owners of the stored objects.
class GraphAttributes : public dependency::services::Shareable {
public:
    ~GraphAttributes() override;

    // The node's findings in production order; empty for a node without any.
    virtual std::vector<std::shared_ptr<Attribute>> getAttributes(
        std::shared_ptr<dependency::graph::Node> const& node) const = 0;
    // Only those whose severity is numerically at or above `minimumSeverity`.
    virtual std::vector<std::shared_ptr<Attribute>> getAttributes(std::shared_ptr<dependency::graph::Node> const& node,
                                                                  Severity const& minimumSeverity) const = 0;
    // The nodes carrying a finding whose identity equals `identity` by value, in node order.
    virtual std::vector<std::shared_ptr<dependency::graph::Node>> getNodesWith(
        AttributeIdentity const& identity) const = 0;
    // One identity per distinct Warning or Problem identity, ascending.
    virtual std::vector<std::shared_ptr<AttributeIdentity>> getAllProblemIdentities() const = 0;

protected:
    GraphAttributes();
};

// Runs every analyzer, in list order, on every node, in the graph's node order,
// and collects the non-empty findings. Catches nothing: the first exception
// ends the analysis and no partial result is returned. A node yielded twice
// keeps the findings of its first visit.
std::shared_ptr<GraphAttributes> analyzeGraph(std::shared_ptr<dependency::graph::Graph const> const& graph,
                                              std::vector<std::shared_ptr<AttributeAnalyzer>> const& analyzers);

}  // namespace dependency::attribute

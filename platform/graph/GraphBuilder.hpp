#pragma once
// Builds a Graph in code: add nodes, add edges between them by ID, build.

#include "platform/graph/Graph.hpp"

#include <memory>
#include <string>
#include <vector>

namespace dependency::graph {

class GraphBuilder {
public:
    // Adds a node; throws std::invalid_argument when its ID is already taken.
    std::shared_ptr<Node> addNode(NodeData data);
    // Shorthand for the common cases in code and tests.
    std::shared_ptr<Node> addNode(std::u16string id, Type type);

    // Adds an edge from `upstreamId` to `downstreamId`; throws
    // std::invalid_argument when either end is not a node of this builder.
    void addDependency(std::u16string const& upstreamId, std::u16string const& downstreamId, Type relationship);

    std::size_t nodeCount() const noexcept { return nodes_.size(); }

    // Hands the nodes and edges to a new graph and leaves the builder empty.
    std::shared_ptr<Graph const> build();

private:
    std::vector<std::shared_ptr<Node>> nodes_;
    std::vector<std::shared_ptr<Dependency>> dependencies_;
    std::unordered_map<std::u16string, std::shared_ptr<Node>> byId_;
};

}  // namespace dependency::graph

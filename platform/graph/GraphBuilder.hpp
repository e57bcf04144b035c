#pragma once
// Builds a Graph in code: add nodes, add edges between them by ID, build.

#include "platform/graph/Graph.hpp"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <string>
#include <vector>

namespace dependency::graph {

// Thrown by GraphBuilder::addNode for an ID that is already taken.
class DuplicateNodeError : public std::invalid_argument {
public:
    explicit DuplicateNodeError(std::size_t existingIndex)
        : std::invalid_argument("duplicate node ID"), existingIndex_(existingIndex) {}
    // The index of the node that has the ID already.
    std::size_t existingIndex() const noexcept { return existingIndex_; }

private:
    std::size_t existingIndex_;
};

class GraphBuilder {
public:
    // Makes room for this many nodes in all.
    void reserve(std::size_t nodes);

    // Adds a node; throws DuplicateNodeError when its ID is already taken.
    std::shared_ptr<Node> addNode(NodeData data);
    // Shorthand for the common cases in code and tests.
    std::shared_ptr<Node> addNode(std::u16string id, Type type);

    // Adds an edge from `upstreamId` to `downstreamId`; throws
    // std::invalid_argument when either end is not a node of this builder.
    void addDependency(std::u16string const& upstreamId, std::u16string const& downstreamId, Type relationship);
    // The same by node index (the order of addNode calls); throws
    // std::out_of_range for an index past the last node.
    void addDependency(std::size_t upstreamIndex, std::size_t downstreamIndex, Type relationship);

    // The index of the node with this ID, or nothing.
    std::optional<std::size_t> indexOf(std::u16string_view id) const;
    std::size_t nodeCount() const noexcept { return nodes_.size(); }
    // The node added at this index.
    std::shared_ptr<Node> const& node(std::size_t index) const { return nodes_.at(index); }

    // Hands the nodes and edges to a new graph and leaves the builder empty.
    std::shared_ptr<Graph const> build();

private:
    std::vector<std::shared_ptr<Node>> nodes_;
    std::vector<std::vector<std::shared_ptr<Dependency>>> downstream_;  // parallel to nodes_
    std::unordered_map<std::u16string_view, std::size_t> index_;         // keys view the node IDs
    std::size_t dependencyCount_ = 0;
};

}  // namespace dependency::graph

#pragma once
// Builds a Graph in code: add nodes, add edges between them by ID, build.

#include "platform/graph/Graph.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
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
    // The same with the ID's hash (detail::NodeIndex::hashOf) computed already,
    // for loaders that prefetch the ID's place in the index while they read on.
    std::shared_ptr<Node> addNode(NodeData data, std::uint64_t idHash);
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
    // The ID index, for loaders that resolve many IDs and prefetch ahead.
    detail::NodeIndex const& index() const noexcept { return index_; }

    // Hands the nodes and edges to a new graph and leaves the builder empty.
    std::shared_ptr<Graph const> build();

    // Makes room for this many edges in all.
    void reserveDependencies(std::size_t dependencies);

private:
    // An edge by node positions; the Dependency objects are made by build(),
    // when every node's number of edges is known and each node's list can be
    // allocated once at its final size.
    struct Edge {
        std::uint32_t upstream;
        std::uint32_t downstream;
        Type relationship;
    };

    // The nodes live side by side in blocks of this arena, made without an
    // allocation each; every node pointer handed out shares ownership of the
    // arena, so a node lives as long as any pointer to any node of it.
    class NodeArena;
    std::shared_ptr<NodeArena> arena_;
    std::vector<std::shared_ptr<Node>> nodes_;
    std::vector<Type> nodeTypes_;  // parallel to nodes_, for the edges' downstream types
    detail::NodeIndex index_;      // keys view the node IDs
    std::vector<Edge> edges_;      // in the order they were added
};

}  // namespace dependency::graph

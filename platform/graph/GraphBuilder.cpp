#include "platform/graph/GraphBuilder.hpp"

#include <stdexcept>

namespace dependency::graph {

std::shared_ptr<Node> GraphBuilder::addNode(NodeData data) {
    auto node = std::make_shared<Node>(std::move(data));
    // The key views the ID inside the node, which never changes or moves.
    if (auto const existing = index_.insert(node->getID())) {
        throw DuplicateNodeError(*existing);
    }
    nodes_.push_back(node);
    return node;
}

void GraphBuilder::reserve(std::size_t nodes) {
    nodes_.reserve(nodes);
    index_.reserve(nodes);
}

void GraphBuilder::reserveDependencies(std::size_t dependencies) {
    edges_.reserve(dependencies);
}

std::shared_ptr<Node> GraphBuilder::addNode(std::u16string id, Type type) {
    NodeData data;
    data.name = id;
    data.id = std::move(id);
    data.type = type;
    data.isFile = type == Type::FILE() || type == Type::DERIVED();
    return addNode(std::move(data));
}

std::optional<std::size_t> GraphBuilder::indexOf(std::u16string_view id) const {
    return index_.find(id);
}

void GraphBuilder::addDependency(std::u16string const& upstreamId, std::u16string const& downstreamId,
                                 Type relationship) {
    auto const upstream = indexOf(upstreamId);
    auto const downstream = indexOf(downstreamId);
    if (!upstream || !downstream) {
        throw std::invalid_argument("a dependency names a node that was not added");
    }
    addDependency(*upstream, *downstream, relationship);
}

void GraphBuilder::addDependency(std::size_t upstreamIndex, std::size_t downstreamIndex, Type relationship) {
    if (upstreamIndex >= nodes_.size() || downstreamIndex >= nodes_.size()) {
        throw std::out_of_range("a dependency names a node index past the last node");
    }
    // Node positions fit 32 bits: the index refuses more nodes than that.
    edges_.push_back(
        Edge{static_cast<std::uint32_t>(upstreamIndex), static_cast<std::uint32_t>(downstreamIndex), relationship});
}

std::shared_ptr<Graph const> GraphBuilder::build() {
    Graph::Adjacency downstream(nodes_.size());
    {
        std::vector<std::uint32_t> counts(nodes_.size(), 0);
        for (Edge const& edge : edges_) {
            ++counts[edge.upstream];
        }
        for (std::size_t i = 0; i < nodes_.size(); ++i) {
            downstream[i].reserve(counts[i]);
        }
    }
    // Each edge takes another owner of its downstream node, which in a large
    // graph lies anywhere in memory: the node's entry and then the node itself
    // (with its reference count beside it) are prefetched some edges ahead.
    constexpr std::size_t entryAhead = 16;
    constexpr std::size_t nodeAhead = 8;
    for (std::size_t i = 0; i < edges_.size(); ++i) {
        if (i + entryAhead < edges_.size()) {
            __builtin_prefetch(&nodes_[edges_[i + entryAhead].downstream]);
        }
        if (i + nodeAhead < edges_.size()) {
            __builtin_prefetch(nodes_[edges_[i + nodeAhead].downstream].get(), 1);
        }
        Edge const& edge = edges_[i];
        downstream[edge.upstream].push_back(
            std::make_shared<Dependency>(nodes_[edge.upstream], nodes_[edge.downstream], edge.relationship));
    }
    std::size_t const dependencyCount = edges_.size();
    std::shared_ptr<Graph const> graph(
        new Graph(std::move(nodes_), std::move(downstream), std::move(index_), dependencyCount));
    nodes_.clear();
    index_.clear();
    edges_.clear();
    edges_.shrink_to_fit();
    return graph;
}

}  // namespace dependency::graph

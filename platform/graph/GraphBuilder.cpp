#include "platform/graph/GraphBuilder.hpp"

#include <stdexcept>

namespace dependency::graph {

std::shared_ptr<Node> GraphBuilder::addNode(NodeData data) {
    auto node = std::make_shared<Node>(std::move(data));
    // The key views the ID inside the node, which never changes or moves.
    auto const [it, inserted] = index_.emplace(node->getID(), nodes_.size());
    if (!inserted) {
        throw DuplicateNodeError(it->second);
    }
    nodes_.push_back(node);
    downstream_.emplace_back();
    return node;
}

void GraphBuilder::reserve(std::size_t nodes) {
    nodes_.reserve(nodes);
    downstream_.reserve(nodes);
    index_.reserve(nodes);
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
    auto const it = index_.find(id);
    if (it == index_.end()) {
        return std::nullopt;
    }
    return it->second;
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
    downstream_.at(upstreamIndex)
        .push_back(std::make_shared<Dependency>(nodes_.at(upstreamIndex), nodes_.at(downstreamIndex), relationship));
    ++dependencyCount_;
}

std::shared_ptr<Graph const> GraphBuilder::build() {
    std::shared_ptr<Graph const> graph(
        new Graph(std::move(nodes_), std::move(downstream_), std::move(index_), dependencyCount_));
    nodes_.clear();
    downstream_.clear();
    index_.clear();
    dependencyCount_ = 0;
    return graph;
}

}  // namespace dependency::graph

#include "platform/graph/GraphBuilder.hpp"

#include <stdexcept>

namespace dependency::graph {

std::shared_ptr<Node> GraphBuilder::addNode(NodeData data) {
    auto node = std::make_shared<Node>(std::move(data));
    if (!byId_.emplace(node->getID(), node).second) {
        throw std::invalid_argument("duplicate node ID");
    }
    nodes_.push_back(node);
    return node;
}

std::shared_ptr<Node> GraphBuilder::addNode(std::u16string id, Type type) {
    NodeData data;
    data.name = id;
    data.id = std::move(id);
    data.type = type;
    data.isFile = type == Type::FILE() || type == Type::DERIVED();
    return addNode(std::move(data));
}

void GraphBuilder::addDependency(std::u16string const& upstreamId, std::u16string const& downstreamId,
                                 Type relationship) {
    auto const upstream = byId_.find(upstreamId);
    auto const downstream = byId_.find(downstreamId);
    if (upstream == byId_.end() || downstream == byId_.end()) {
        throw std::invalid_argument("a dependency names a node that was not added");
    }
    dependencies_.push_back(std::make_shared<Dependency>(upstream->second, downstream->second, relationship));
}

std::shared_ptr<Graph const> GraphBuilder::build() {
    auto graph = std::make_shared<Graph const>(std::move(nodes_), std::move(dependencies_));
    nodes_.clear();
    dependencies_.clear();
    byId_.clear();
    return graph;
}

}  // namespace dependency::graph

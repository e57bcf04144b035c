#pragma once
// What a built graph's edges refer to: the node table, and the edges a
// builder made, in one object. The graph hands out its edges as owners of
// this store, so an edge (and through it its nodes' entries) stays valid
// after the graph itself is gone.

#include "platform/graph/Graph.hpp"

#include <memory>
#include <vector>

namespace dependency::graph::detail {

struct GraphStore {
    std::vector<std::shared_ptr<Node>> nodes;
    // Made by a builder, grouped by upstream node; large, so in huge pages where the system offers them.
    std::vector<Dependency, LargeArrayAllocator<Dependency>> dependencies;
};

}  // namespace dependency::graph::detail

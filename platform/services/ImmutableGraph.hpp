#pragma once
// A host-shareable, read-only wrapper of a dependency graph.

#include "platform/graph/Graph.hpp"
#include "platform/services/Shareable.hpp"

#include <memory>

namespace dependency::services {

class ImmutableGraph : public Shareable {
public:
    explicit ImmutableGraph(std::shared_ptr<dependency::graph::Graph const> graph);
    ~ImmutableGraph() override;

    std::shared_ptr<dependency::graph::Graph const> getGraph() const { return graph_; }

private:
    std::shared_ptr<dependency::graph::Graph const> graph_;
};

}  // namespace dependency::services

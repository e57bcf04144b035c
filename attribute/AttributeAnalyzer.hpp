#pragma once

#include "attribute/Attribute.hpp"
#include "platform/graph/Graph.hpp"
#include "platform/services/Shareable.hpp"

#include <memory>
#include <vector>

namespace dependency::attribute {

// Produces the findings of one node. Every analyzer, built-in or written in the
// host language, shows the one host class "dependencies.internal.attribute.AttributeAnalyzer".
class AttributeAnalyzer : public dependency::services::Shareable {
public:
    ~AttributeAnalyzer() override;

    // The node's findings in the order produced; empty when there are none.
    // Failure is reported by throwing.
    virtual std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const& node,
        std::shared_ptr<dependency::graph::Graph const> const& graph) const = 0;

protected:
    AttributeAnalyzer();
};

}  // namespace dependency::attribute

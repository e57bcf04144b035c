#pragma once
// Turns an analysis result into the reports the command line prints.

#include "attribute/GraphAttributes.hpp"
#include "platform/graph/Graph.hpp"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace depattr::cli {

struct NodeFindings {
    std::shared_ptr<dependency::graph::Node> node;
    std::vector<std::shared_ptr<dependency::attribute::Attribute>> attributes;
};

struct Report {
    std::string graphName;
    std::size_t nodeCount = 0;
    std::size_t dependencyCount = 0;
    std::size_t analyzerCount = 0;
    dependency::attribute::Severity minimum = dependency::attribute::Severity::Information;
    std::vector<NodeFindings> findings;  // in node order (by ID), nodes without findings left out

    std::size_t count(dependency::attribute::Severity severity) const;
    bool empty() const { return findings.empty(); }
};

// The findings at or above `minimum` of every node of `graph`, in node order.
Report makeReport(dependency::graph::Graph const& graph, dependency::attribute::GraphAttributes const& result,
                  dependency::attribute::Severity minimum);

// Grouped by node, columns aligned; severities coloured when `colour` is set.
void writeText(std::ostream& out, Report const& report, bool colour);
// One JSON object: graph, counts and the findings per node.
void writeJson(std::ostream& out, Report const& report);

std::string toUtf8(std::u16string const& text);

}  // namespace depattr::cli

#pragma once
// Turns an analysis result into the reports the command line prints.

#include "attribute/GraphAttributes.hpp"
#include "cli/FindingSources.hpp"
#include "platform/graph/Graph.hpp"

#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace depattr::cli {

struct Finding {
    std::shared_ptr<dependency::attribute::Attribute> attribute;
    std::string analyzer;  // the analyzer that reported it; empty when not known
};

struct NodeFindings {
    std::shared_ptr<dependency::graph::Node> node;
    std::vector<Finding> findings;
};

struct Report {
    std::string graphName;
    std::size_t nodeCount = 0;
    std::size_t dependencyCount = 0;
    std::size_t analyzerCount = 0;
    dependency::attribute::Severity minimum = dependency::attribute::Severity::Information;
    std::vector<NodeFindings> nodes;  // in node order (by ID), nodes without findings left out

    std::size_t count(dependency::attribute::Severity severity) const;
    bool empty() const { return nodes.empty(); }
};

// The findings at or above `minimum` of every node of `graph`, in node order,
// each with its analyzer when `sources` knows it.
Report makeReport(dependency::graph::Graph const& graph, dependency::attribute::GraphAttributes const& result,
                  dependency::attribute::Severity minimum, FindingSources const* sources = nullptr);

// Grouped by node, columns aligned; severities coloured when `colour` is set.
void writeText(std::ostream& out, Report const& report, bool colour);
// One JSON object: graph, counts and the findings per node.
void writeJson(std::ostream& out, Report const& report);
// A SARIF 2.1.0 log with one run, for code-scanning services. One rule per
// analyzer and ID; file paths under `baseFolder` become URIs relative to it.
void writeSarif(std::ostream& out, Report const& report, std::string_view toolVersion,
                std::filesystem::path const& baseFolder);
// A Graphviz digraph of every node and edge, nodes with findings at or above
// the threshold filled by their gravest severity.
void writeDot(std::ostream& out, dependency::graph::Graph const& graph, Report const& report);

std::string toUtf8(std::u16string const& text);
// `text` as a JSON string literal, quotes included.
std::string jsonString(std::string_view text);

}  // namespace depattr::cli

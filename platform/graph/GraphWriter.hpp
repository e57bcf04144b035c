#pragma once
// Writes a graph in the graph-file format (docs/graph-format.md), so that a
// graph built in code (a scan) can be kept, compared and loaded again with
// loadGraphFile, giving the same nodes, properties and edges in the same order.

#include "platform/graph/Graph.hpp"

#include <filesystem>
#include <ostream>

namespace dependency::graph {

// Paths (a node's path and entry 0 of the location of file, derived and
// function nodes) below `baseFolder` are written relative to it, so that the
// file can be moved with the folder; others stay as they are. An empty
// baseFolder writes every path as it is.
void writeGraph(std::ostream& out, Graph const& graph, std::filesystem::path const& baseFolder);

}  // namespace dependency::graph

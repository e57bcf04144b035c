#pragma once
// Writes a graph in the graph-file format (docs/graph-format.md), so that a
// graph built in code (a scan) can be kept, compared and loaded again with
// loadGraphFile, giving the same nodes, properties and edges in the same order.

#include "platform/graph/Graph.hpp"

#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace dependency::graph {

// A graph that cannot be written as it is (a "circularReferences" property
// that is not a JSON array of strings), or a stream or file that failed.
class GraphWriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Paths (a node's path and entry 0 of the location of file nodes, derived
// nodes and function nodes: the entries the loader resolves) below
// `baseFolder` are written relative to it, so that the file can be moved with
// the folder; others stay as they are. An empty baseFolder writes every path
// as it is. For a round trip through loadGraphFile, baseFolder is the absolute
// folder of the file written. Throws GraphWriteError.
void writeGraph(std::ostream& out, Graph const& graph, std::filesystem::path const& baseFolder);

// Writes the graph to `file` (replaced when it exists), with paths relative to
// the file's folder. Throws GraphWriteError naming the file when it cannot be
// written.
void writeGraphFile(std::filesystem::path const& file, Graph const& graph);

// Appends `utf8` to `out` as a JSON string, quotes included: '"' and '\'
// escaped, control characters as \n, \t, ... or \u00XX, everything else as it
// is (UTF-8).
void appendJsonString(std::string& out, std::string_view utf8);

}  // namespace dependency::graph

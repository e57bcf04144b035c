#pragma once
// Scans a scratch tree and shows the graph as text: edges "from -type-> to", node properties.

#include "platform/graph/Graph.hpp"
#include "scan/Scanner.hpp"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace scan_test {

inline std::string text(std::u16string const& s) {
    return std::filesystem::path(s).string();
}

// Every edge as "from -type-> to", in graph order.
inline std::vector<std::string> edges(dependency::graph::Graph const& graph, std::string const& type = "") {
    std::vector<std::string> out;
    for (auto const& node : graph.getNodes()) {
        for (auto const& edge : graph.getDownstreamDependencies(*node)) {
            std::string const kind(edge->getRelationship().name());
            if (type.empty() || kind == type) {
                out.push_back(text(node->getID()) + " -" + kind + "-> " + text(edge->getDownstreamNode()->getID()));
            }
        }
    }
    return out;
}

inline std::vector<std::string> sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
}

inline std::string property(dependency::graph::Graph const& graph, std::u16string const& id,
                            std::u16string const& key) {
    auto const node = graph.findNode(id);
    if (!node) {
        return "<no node>";
    }
    auto const value = node->getProperty(key);
    return value ? text(*value) : "<none>";
}

inline std::vector<std::string> diagnostics(depattr::scan::ScanResult const& result,
                                            std::filesystem::path const& root) {
    std::vector<std::string> out;
    for (auto const& d : result.diagnostics) {
        out.push_back(d.file.lexically_relative(root).generic_string() + ":" + std::to_string(d.line) + ":" +
                      std::to_string(d.column) + ": " + d.message);
    }
    return out;
}

}  // namespace scan_test

// Feeds arbitrary bytes to the graph-file reader. A graph file is input from
// outside: it must load or fail with GraphFileError, never crash, hang or throw
// anything else. What loads must hold its own invariants.
#include "platform/graph/GraphFile.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string_view const text(reinterpret_cast<char const*>(data), size);
    try {
        auto const graph = dependency::graph::parseGraph(text, "fuzz.json", "/base");
        std::size_t nodes = 0;
        for (auto const& node : graph->getNodes()) {
            ++nodes;
            if (graph->findNode(node->getID()) != node) {
                std::abort();
            }
            for (auto const& edge : graph->getDownstreamDependencies(*node)) {
                if (!edge->getDownstreamNode() || graph->findNode(edge->getDownstreamNode()->getID()) == nullptr) {
                    std::abort();
                }
            }
        }
        if (nodes != graph->nodeCount()) {
            std::abort();
        }
    } catch (dependency::graph::GraphFileError const& error) {
        if (error.file() != "fuzz.json") {
            std::abort();
        }
    }
    return 0;
}

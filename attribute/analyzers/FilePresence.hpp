#pragma once
// The file-presence test shared by the missing-file and derived-file analyzers.

#include "platform/fl/FileSystem.hpp"
#include "platform/graph/Graph.hpp"

namespace dependency::attribute::detail {

// True exactly when the node is resolved and something exists at the first
// entry of its location. The location is asked for only for a resolved node.
// Never throws: a node whose presence cannot be established counts as absent.
// Within one analysis both analyzers share the one question per path.
inline bool isPresentFile(dependency::graph::Node const& node) noexcept {
    try {
        if (!node.isResolved()) {
            return false;
        }
        auto const& location = node.getLocation();
        return !location.empty() && fl::filesystem::shared_exists(location.front());
    } catch (...) {
        return false;
    }
}

}  // namespace dependency::attribute::detail

#pragma once
// Loads graph files (JSON; the format is described in docs/graph-format.md).

#include "platform/foundation/SourceText.hpp"
#include "platform/graph/Graph.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace dependency::graph {

// A graph file that cannot be read or is not a valid graph. what() reads
// "<file>:<line>:<column>: <reason>" (line and column are 1-based; both are 0
// when the error has no position, for example an unreadable file).
class GraphFileError : public foundation::source::FileError {
public:
    using FileError::FileError;
};

// A place in a text file: 1-based line and 1-based column, counted in bytes.
using TextPosition = foundation::source::SourcePosition;

// Where each node of a graph file begins, so that a message about a node can
// point into the file. One byte offset per node, nothing more.
class NodePositions {
public:
    std::string const& file() const noexcept { return file_; }

    // Where the node's object begins in the file; nothing for a node that was
    // not read from it. Reads the file again to count lines, so it is meant
    // for error messages, not for every node.
    std::optional<TextPosition> positionOf(Graph const& graph, Node const& node) const;

    // Records the next node's byte offset; the loader's part.
    void add(std::uint64_t offset) { offsets_.push_back(offset); }
    void reset(std::string file, std::size_t expectedNodes);

private:
    std::string file_;
    std::vector<std::uint64_t> offsets_;  // in node order
};

struct GraphFileOptions {
    // When set, filled with the position of every node.
    NodePositions* positions = nullptr;
    // When set, called now and then while the file is read with the bytes read
    // so far and the file's size.
    std::function<void(std::size_t done, std::size_t total)> progress{};
    // When set, called with the line, column and text of what the file may
    // hold but is likely a mistake: a flag property ("syntaxError" and the
    // others of docs/graph-format.md) whose text is neither "true" nor
    // "false", which the analyzers count as not set.
    std::function<void(std::size_t line, std::size_t column, std::string const& message)> warning{};
};

// The largest graph file the reader takes (4 GiB less one byte); a larger one
// is refused before it is read.
inline constexpr std::size_t maxGraphFileBytes = 0xFFFF'FFFF;
// A graph file of at least this many bytes is mapped into memory instead of
// being read into it (see loadGraphFile).
inline constexpr std::size_t smallestMappedGraphFile = std::size_t{64} << 10;

// Reads the graph file at `path`. Relative paths inside the file are resolved
// against the file's folder.
std::shared_ptr<Graph const> loadGraphFile(std::filesystem::path const& path, GraphFileOptions const& options = {});

// Parses graph-file text. `fileName` names the source in errors; relative paths
// are resolved against `baseFolder` (left relative when it is empty).
std::shared_ptr<Graph const> parseGraph(std::string_view text, std::string const& fileName,
                                        std::filesystem::path const& baseFolder);

}  // namespace dependency::graph

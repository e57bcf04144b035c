#pragma once
// Loads graph files (JSON; the format is described in docs/graph-format.md).

#include "platform/graph/Graph.hpp"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace dependency::graph {

// A graph file that cannot be read or is not a valid graph. what() reads
// "<file>:<line>:<column>: <reason>" (line and column are 1-based; both are 0
// when the error has no position, for example an unreadable file).
class GraphFileError : public std::runtime_error {
public:
    GraphFileError(std::string file, std::size_t line, std::size_t column, std::string const& reason);

    std::string const& file() const noexcept { return file_; }
    std::size_t line() const noexcept { return line_; }
    std::size_t column() const noexcept { return column_; }
    std::string const& reason() const noexcept { return reason_; }

private:
    std::string file_;
    std::size_t line_;
    std::size_t column_;
    std::string reason_;
};

// Reads the graph file at `path`. Relative paths inside the file are resolved
// against the file's folder.
std::shared_ptr<Graph const> loadGraphFile(std::filesystem::path const& path);

// Parses graph-file text. `fileName` names the source in errors; relative paths
// are resolved against `baseFolder` (left relative when it is empty).
std::shared_ptr<Graph const> parseGraph(std::string_view text, std::string const& fileName,
                                        std::filesystem::path const& baseFolder);

}  // namespace dependency::graph

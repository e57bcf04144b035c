#pragma once
// Host-language analyzers from the folders named by --analyzer-path and the
// configuration's "analyzer-paths".

#include "cli/AnalyzerCatalog.hpp"

#include <filesystem>
#include <ostream>
#include <vector>

namespace depattr::cli {

// This is where loading host-language analyzers from folders will be wired:
// it needs the host runtime, which the program does not start yet. Until then
// nothing is loaded, and when folders were given a note on `notes` says so
// (the folders themselves have been checked to exist).
std::vector<NamedAnalyzer> loadHostAnalyzers(std::vector<std::filesystem::path> const& folders, std::ostream& notes);

}  // namespace depattr::cli

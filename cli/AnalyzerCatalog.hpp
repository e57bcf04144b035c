#pragma once
// The built-in analyzers by their command-line names.

#include "attribute/AttributeAnalyzer.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

struct AnalyzerEntry {
    std::string_view name;         // e.g. "missing-file"
    std::string_view description;  // one line for --help
    std::shared_ptr<dependency::attribute::AttributeAnalyzer> (*create)();
};

// An analyzer made from the catalogue, with the name it was chosen by.
struct NamedAnalyzer {
    std::string_view name;
    std::shared_ptr<dependency::attribute::AttributeAnalyzer> analyzer;
};

// Every built-in analyzer, in the order they run by default.
std::vector<AnalyzerEntry> const& builtInAnalyzers();

// New analyzers for a comma-separated list of names ("all" or empty: every
// one), in the order given. Throws std::invalid_argument naming an unknown name.
std::vector<NamedAnalyzer> createAnalyzers(std::string_view names);

}  // namespace depattr::cli

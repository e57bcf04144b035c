#include "cli/AnalyzerCatalog.hpp"

#include "attribute/analyzers/Analyzers.hpp"

#include <algorithm>
#include <stdexcept>

namespace depattr::cli {

namespace da = dependency::attribute;

std::vector<AnalyzerEntry> const& builtInAnalyzers() {
    static std::vector<AnalyzerEntry> const entries = {
        {"missing-file", "file nodes: present or missing on disk", &da::createMissingFileAnalyzer},
        {"derived-file", "derived files older than what they were derived from", &da::createDerivedFileAnalyzer},
        {"missing-function", "function nodes whose definition is not in their file", &da::createMissingFunctionAnalyzer},
        {"missing-product", "required products that are not installed", &da::createMissingProductAnalyzer},
        {"missing-package-dependency", "packages used but not declared by their product",
         &da::createMissingPackageDependencyAnalyzer},
        {"invalid-format", "files flagged as of a later release, unreadable, with syntax errors or models in packages",
         &da::createInvalidFormatAnalyzer},
        {"missing-project-reference", "project references that could not be found",
         &da::createMissingProjectReferenceAnalyzer},
        {"circular-project-reference", "circular references between projects",
         &da::createCircularProjectReferenceAnalyzer},
    };
    return entries;
}

std::vector<NamedAnalyzer> createAnalyzers(std::string_view names) {
    std::vector<NamedAnalyzer> analyzers;
    if (names.empty() || names == "all") {
        for (auto const& entry : builtInAnalyzers()) {
            analyzers.push_back({entry.name, entry.create()});
        }
        return analyzers;
    }
    while (!names.empty()) {
        auto const comma = names.find(',');
        auto const name = names.substr(0, comma);
        names = comma == std::string_view::npos ? std::string_view{} : names.substr(comma + 1);
        auto const& entries = builtInAnalyzers();
        auto const it = std::find_if(entries.begin(), entries.end(), [&](auto const& e) { return e.name == name; });
        if (it == entries.end()) {
            std::string known;
            for (auto const& entry : entries) {
                known += (known.empty() ? "" : ", ") + std::string(entry.name);
            }
            throw std::invalid_argument("unknown analyzer \"" + std::string(name) + "\" (known: " + known + ")");
        }
        analyzers.push_back({it->name, it->create()});
    }
    return analyzers;
}

}  // namespace depattr::cli

#include "cli/HostAnalyzers.hpp"

#include "cli/Texts.hpp"

namespace depattr::cli {

std::vector<NamedAnalyzer> loadHostAnalyzers(std::vector<std::filesystem::path> const& folders, std::ostream& notes) {
    if (!folders.empty()) {
        notes << "depattr: " << text("NoteAnalyzerPathsNotLoaded", {static_cast<long>(folders.size())}) << '\n';
    }
    return {};
}

}  // namespace depattr::cli

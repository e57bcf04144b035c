#include "attribute/analyzers/Registry.hpp"

#include <algorithm>
#include <array>

namespace dependency::attribute {

std::span<AnalyzerDescription const* const> builtInAnalyzers() {
#define DEPATTR_DESCRIPTION_OF(Stem) &Stem##Description(),
    static std::array const descriptions{DEPATTR_BUILT_IN_ANALYZERS(DEPATTR_DESCRIPTION_OF)};
#undef DEPATTR_DESCRIPTION_OF
    return descriptions;
}

AnalyzerDescription const* findBuiltInAnalyzer(std::string_view name) {
    auto const all = builtInAnalyzers();
    auto const found = std::find_if(all.begin(), all.end(), [&](auto const* d) { return d->name == name; });
    return found == all.end() ? nullptr : *found;
}

}  // namespace dependency::attribute

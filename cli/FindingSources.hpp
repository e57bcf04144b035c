#pragma once
// Remembers which analyzer produced each finding, so that reports can name it.
// Several analyzers share an ID ("Missing" is used by four of them), so the ID
// alone does not say where a finding came from.

#include "attribute/Attribute.hpp"
#include "cli/AnalyzerCatalog.hpp"

#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace depattr::cli {

class FindingSources : public std::enable_shared_from_this<FindingSources> {
public:
    // Analyzers that behave as the given ones and record each finding under
    // the analyzer's name. The wrappers keep this object alive.
    std::vector<std::shared_ptr<dependency::attribute::AttributeAnalyzer>> track(
        std::vector<NamedAnalyzer> const& analyzers);

    // The name of the analyzer that returned this finding; empty when none of
    // the tracked analyzers did. An attribute object that an analyzer hands to
    // several nodes is one finding source all the same.
    std::string_view analyzerOf(std::shared_ptr<dependency::attribute::Attribute const> const& attribute) const;

    // The first analyzer recorded for an attribute stays its source. Recorded
    // attributes are kept alive, so that an address is never reused for another.
    void record(std::shared_ptr<dependency::attribute::Attribute const> attribute, std::string_view analyzer);

private:
    std::unordered_map<std::shared_ptr<dependency::attribute::Attribute const>, std::string_view> sources_;
};

}  // namespace depattr::cli

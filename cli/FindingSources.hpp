#pragma once
// Remembers which analyzer produced each finding, so that reports can name it.
// Several analyzers share an ID ("Missing" is used by four of them), so the ID
// alone does not say where a finding came from.

#include "attribute/Attribute.hpp"
#include "services/AnalysisSession.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

// An analyzer failed on a node (the analysis session raises it).
using AnalyzerFailure = dependency::services::AnalyzerFailure;

class FindingSources {
public:
    // The name of the analyzer that returned this finding; empty when none of
    // the tracked analyzers did. An attribute object that an analyzer hands to
    // several nodes is one finding source all the same.
    std::string_view analyzerOf(std::shared_ptr<dependency::attribute::Attribute const> const& attribute) const;

    // The first analyzer recorded for an attribute stays its source. Recorded
    // attributes are kept alive, so that an address is never reused for another.
    // `analyzer` must outlive this object.
    void record(std::shared_ptr<dependency::attribute::Attribute const> attribute, std::string_view analyzer);
    // Room for about this many records, so that a large analysis's record is
    // not moved as it grows.
    void reserve(std::size_t records) { sources_.reserve(records); }

private:
    struct Source {
        std::shared_ptr<dependency::attribute::Attribute const> attribute;
        std::string_view analyzer;
    };
    // In the order recorded; sorted by attribute address (the first record of
    // each kept first) when first asked. A large analysis records a million
    // findings: a flat array takes half the memory of a hash map of them.
    mutable std::vector<Source> sources_;
    mutable std::size_t sorted_ = 0;  // how many of sources_ are sorted
};

}  // namespace depattr::cli

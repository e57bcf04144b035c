#pragma once
// Remembers which analyzer produced each finding, so that reports can name it.
// Several analyzers share an ID ("Missing" is used by four of them), so the ID
// alone does not say where a finding came from.

#include "attribute/Attribute.hpp"
#include "cli/AnalyzerCatalog.hpp"

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

// An analyzer failed on a node. what() is the analyzer's own reason; the
// program adds where the node is in the graph file.
class AnalyzerFailure : public std::runtime_error {
public:
    // `reason` is ready to print: its control characters already escaped.
    AnalyzerFailure(std::string analyzer, std::shared_ptr<dependency::graph::Node> node, std::string const& reason)
        : std::runtime_error(reason), analyzer_(std::move(analyzer)), node_(std::move(node)) {}
    std::string const& analyzer() const noexcept { return analyzer_; }
    std::shared_ptr<dependency::graph::Node> const& node() const noexcept { return node_; }

private:
    std::string analyzer_;
    std::shared_ptr<dependency::graph::Node> node_;
};

class FindingSources : public std::enable_shared_from_this<FindingSources> {
public:
    // Analyzers that behave as the given ones and record each finding under
    // the analyzer's name; a failure leaves them as an AnalyzerFailure naming
    // the analyzer and the node. The wrappers keep this object alive.
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

#pragma once
// Analyzers written in the host language, and the host's road into an
// analysis. Loading puts the analyzer folders on the host-language search
// path, checks every code file in them, defines each class deriving from
// "dependencies.internal.attribute.AttributeAnalyzer" and makes one object of
// each. An analysis then registers the chosen built-in analyzers (made through
// their gateways) and the host analyzers, in that order, in the host-language
// registry, and runs analyzeInQorvex(graph) on the VM's command thread.

#include "attribute/GraphAttributes.hpp"
#include "cli/AnalyzerCatalog.hpp"
#include "cli/FindingSources.hpp"
#include "platform/host/HostError.hpp"

#include <deque>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace depattr::cli {

// "context: file:line:column: message [identifier]" of a host error (each part
// where it has one), then one "called from" line for each call that led there;
// a run of identical calls (deep recursion) is one line and "... N more calls
// of NAME". The text is ready to print: control characters of the parts are
// escaped, and only the line breaks between the lines are real.
std::string describe(qcos::HostError const& error);

// Whether a host error is the stop that Ctrl-C asked for.
bool isInterruption(qcos::HostError const& error);

// An analysis stopped by Ctrl-C.
class Interrupted : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class HostAnalyzers {
public:
    // Loads the analyzers of the folders. A code file that does not parse, uses
    // a construct outside the supported subset, or fails while its class is
    // defined or its analyzer made, throws std::runtime_error
    // "file:line:column: message [identifier]".
    static std::shared_ptr<HostAnalyzers> load(std::vector<std::filesystem::path> const& folders);

    // The class names of the host analyzers, in the order they run.
    std::vector<std::string> names() const;

    // Runs the built-in analyzers named and then the host analyzers over the
    // graph through analyzeInQorvex; every finding is recorded in `sources`
    // under its analyzer's name. `progress`, when given, takes part as one
    // more analyzer. Ctrl-C stops the analysis (Interrupted); a host error is a
    // std::runtime_error naming where it happened.
    std::shared_ptr<dependency::attribute::GraphAttributes> analyze(
        std::shared_ptr<dependency::graph::Graph const> const& graph, std::vector<NamedAnalyzer> const& builtIns,
        FindingSources& sources, std::shared_ptr<dependency::attribute::AttributeAnalyzer> const& progress) const;

private:
    HostAnalyzers() = default;
    std::deque<std::string> names_;         // findings refer to them by view
    std::vector<NamedAnalyzer> analyzers_;  // adapters of the host analyzer objects
};

}  // namespace depattr::cli

#pragma once
// One road through an analysis, for every program built on the library (the
// command line's `analyze` and `scan`, and programs that embed the host):
// a graph, the analyzers chosen by name among the built-in ones and those
// written in the host language, and an observer that follows the analysis
// node by node and may stop it.
//
// Without host-language folders the chosen analyzers run on the caller's
// thread through analyzeGraph. With them the session loads the host
// analyzers first; an analysis then registers the chosen built-in analyzers
// (made through their gateways) and the chosen host analyzers, in the order
// chosen, in the host-language registry and runs analyzeInQorvex on the VM's
// command thread, as the host itself would. Either way every finding is
// handed to the observer with the name of the analyzer that made it.

#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/GraphAttributes.hpp"
#include "attribute/analyzers/Description.hpp"

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace dependency::services {

// An analyzer failed on a node. what() is the analyzer's own reason (for host
// code: where it failed and through which calls); the caller adds where the
// node is in its graph file.
class AnalyzerFailure : public std::runtime_error {
public:
    // `reason` is ready to print: its control characters already escaped.
    AnalyzerFailure(std::string analyzer, std::shared_ptr<graph::Node> node, std::string const& reason)
        : std::runtime_error(reason), analyzer_(std::move(analyzer)), node_(std::move(node)) {}
    std::string const& analyzer() const noexcept { return analyzer_; }
    std::shared_ptr<graph::Node> const& node() const noexcept { return node_; }

private:
    std::string analyzer_;
    std::shared_ptr<graph::Node> node_;
};

// The observer, or Ctrl-C, stopped the analysis.
class AnalysisStopped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Follows an analysis. Its calls come from the thread that runs the analyzers
// (the VM's command thread when host analyzers take part), one at a time.
class AnalysisObserver {
public:
    virtual ~AnalysisObserver() = default;
    // Asked before each node; true stops the analysis (AnalysisStopped).
    virtual bool stopRequested() { return false; }
    // A node is about to be analysed; nodes come in the graph's order.
    virtual void startingNode(graph::Node const& /*node*/) {}
    // The findings (never none) that the named analyzer reported for a node.
    virtual void reported(std::string_view /*analyzer*/,
                          std::vector<std::shared_ptr<attribute::Attribute>> const& /*findings*/) {}
};

// An analyzer written in the host language, as the session found it.
struct HostAnalyzerInfo {
    std::string name;                     // its class name
    std::vector<std::string> findingIds;  // the IDs of its class's constant AttributeIdentity values
};

class AnalysisSession {
public:
    // A session of the built-in analyzers only.
    AnalysisSession();
    // Loads the analyzers of the host-language folders: puts the folders on
    // the host-language search path, checks every code file in them, defines
    // each class deriving from the library's AttributeAnalyzer class and makes
    // one object of each. A code file that does not parse, uses a construct
    // outside the supported subset, or fails while its class is defined or its
    // analyzer made, throws std::runtime_error "file:line:column: message [identifier]".
    explicit AnalysisSession(std::vector<std::filesystem::path> const& hostFolders);
    ~AnalysisSession();
    AnalysisSession(AnalysisSession const&) = delete;
    AnalysisSession& operator=(AnalysisSession const&) = delete;

    // The host analyzers loaded, in the order they run by default.
    std::vector<HostAnalyzerInfo> const& hostAnalyzers() const noexcept;

    // Chooses the analyzers by name: built-in names ("missing-file") and host
    // class names, run in the order given; none given: every built-in analyzer
    // and then every host analyzer. Throws std::invalid_argument naming an
    // unknown name and the known ones.
    void select(std::vector<std::string> const& names);
    // Chooses exactly these analyzers, made by the caller, in this order; each
    // is named in findings and failures by the name given.
    struct NamedAnalyzer {
        std::string name;
        std::shared_ptr<attribute::AttributeAnalyzer> analyzer;
    };
    void select(std::vector<NamedAnalyzer> const& analyzers);
    // The names of the chosen analyzers, in the order they run.
    std::vector<std::string> selected() const;

    // Runs the chosen analyzers over the graph. Throws AnalyzerFailure when an
    // analyzer fails, AnalysisStopped when the observer (or, with host
    // analyzers loaded, Ctrl-C) stops the analysis; no partial result.
    std::shared_ptr<attribute::GraphAttributes> analyze(std::shared_ptr<graph::Graph const> const& graph,
                                                        AnalysisObserver& observer) const;

private:
    struct Host;
    struct Chosen {
        std::string name;
        attribute::AnalyzerDescription const* builtIn;       // made afresh for each analysis; null for the others
        std::shared_ptr<attribute::AttributeAnalyzer> made;  // a host analyzer, or one the caller made
    };
    std::unique_ptr<Host> host_;  // null without host-language folders
    std::vector<Chosen> chosen_;
};

}  // namespace dependency::services

#pragma once
// Turns an analysis result into the reports the command line prints.

#include "attribute/GraphAttributes.hpp"
#include "cli/AnalyzerCatalog.hpp"
#include "cli/FindingSources.hpp"
#include "platform/foundation/Printable.hpp"
#include "platform/graph/Graph.hpp"

#include <array>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <memory_resource>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

class Baseline;
class FindingFilter;

struct Finding {
    std::shared_ptr<dependency::attribute::Attribute> attribute;
    std::string_view
        analyzer;  // the analyzer that reported it (its name lives as long as the analyzer list); empty when not known
    FindingKind const* kind = nullptr;  // its kind, when a built-in analyzer reported it
    std::uint64_t fingerprint = 0;      // stable across runs, machines and languages (fingerprintText writes it)
    bool suppressed = false;            // hidden by the baseline (SARIF keeps it as suppressed)
    // Its attribute's identity, which the attribute keeps alive; null when
    // not noted. The writers read the ID, name and severity through it: the
    // few identities stay in cache, where each attribute lies at a place of
    // its own in memory.
    dependency::attribute::AttributeIdentity const* noted = nullptr;

    dependency::attribute::AttributeIdentity const& identity() const {
        return noted != nullptr ? *noted : *attribute->getIdentity();
    }
};

// A place in the code that a node's findings concern, from the properties a
// scanned graph records: where a function is defined or called, where a file
// is named, where a code file's syntax error is.
struct CodePlace {
    enum class Role { Definition, Call, Reference, SyntaxError };
    Role role = Role::Call;
    std::string file;  // shown as node paths are: relative to the working folder when below it
    std::size_t line = 0;
    std::size_t column = 0;
    std::string detail;  // the parser's message, for a syntax error
};

// The code places of one node. Most nodes have none, and a large report has
// a million entries: an empty list is one null pointer.
class CodePlaces {
public:
    CodePlaces() = default;
    // Not explicit: a vector of places converts as it stands.
    CodePlaces(std::vector<CodePlace> places)
        : places_(places.empty() ? nullptr : std::make_unique<std::vector<CodePlace>>(std::move(places))) {}

    bool empty() const noexcept { return places_ == nullptr; }
    std::size_t size() const noexcept { return places_ ? places_->size() : 0; }
    CodePlace const& operator[](std::size_t i) const { return (*places_)[i]; }
    CodePlace const* begin() const noexcept { return places_ ? places_->data() : nullptr; }
    CodePlace const* end() const noexcept { return places_ ? places_->data() + places_->size() : nullptr; }

private:
    std::unique_ptr<std::vector<CodePlace>> places_;  // null when there are none
};

struct NodeFindings {
    std::shared_ptr<dependency::graph::Node> node;
    // The node's path relative to the working folder when it lies below it,
    // else as the graph gives it; empty for a node without a path. The text
    // lives in the report (Report::keep).
    std::string_view path;
    std::vector<Finding> findings;
    // Definition and syntax error first, then call sites and references in
    // the order the graph gives them.
    CodePlaces places;

    // Where a reader finds the node: its path, else its ID.
    std::string where() const;
};

// A host-language analyzer's class file and the class's help text: the
// comment lines that open the class (docs/host-language.md).
struct HostClassHelp {
    std::filesystem::path file;  // absolute
    std::string text;            // empty when the class has no comment block
};

struct Report {
    std::string graphName;
    // The host-language analyzers of the run by class name, for the rules of SARIF.
    std::map<std::string, HostClassHelp, std::less<>> hostHelp;
    std::size_t nodeCount = 0;
    std::size_t dependencyCount = 0;
    std::vector<std::string> analyzers;  // the analyzers run, in order
    dependency::attribute::Severity minimum = dependency::attribute::Severity::Information;
    dependency::attribute::Severity failOn = dependency::attribute::Severity::Warning;
    std::size_t hiddenByBaseline = 0;
    bool exitZero = false;  // --exit-zero: the run exits 0 even when it fails
    // In node order (by ID), nodes without findings left out. A deque: the
    // count is not known ahead, and a vector that doubles would hold the
    // entries twice while it moves them.
    std::deque<NodeFindings> nodes;

    // Findings of this severity that are reported (not hidden by the baseline).
    std::size_t count(dependency::attribute::Severity severity) const;
    std::size_t reportedNodes() const;
    // Both at once, in one pass over the findings.
    struct Tally {
        std::array<std::size_t, 3> findings{};  // by severity
        std::size_t nodes = 0;

        // Counts `finding` when it is reported; whether it is.
        bool add(Finding const& finding);
        // Counts the reported findings of `entry`, and the entry when it has
        // one; whether it has.
        bool add(NodeFindings const& entry);

        std::size_t of(dependency::attribute::Severity severity) const {
            auto const index = static_cast<std::size_t>(severity);
            return index < findings.size() ? findings[index] : 0;
        }
    };
    Tally tally() const;
    // Whether a reported finding reaches the fail threshold.
    bool fails() const;
    bool empty() const { return nodes.empty(); }

    // `text`, kept as long as the report: the entries' paths, packed one after
    // another in large blocks rather than one allocation each.
    std::string_view keep(std::string_view text);

private:
    // Behind a pointer, so that the texts stay where they are when the report moves.
    std::unique_ptr<std::pmr::monotonic_buffer_resource> texts_ =
        std::make_unique<std::pmr::monotonic_buffer_resource>();
};

struct ReportSettings {
    dependency::attribute::Severity minimum = dependency::attribute::Severity::Information;
    dependency::attribute::Severity failOn = dependency::attribute::Severity::Warning;
    FindingSources const* sources = nullptr;
    FindingFilter const* filter = nullptr;  // null keeps every finding
    Baseline* baseline = nullptr;           // null hides nothing
    std::filesystem::path workingFolder{};  // node paths below it are shown relative to it
    // Relative files of the place properties (callSites, referencedAt) are
    // relative to it: the scanned folder, or the graph file's folder.
    std::filesystem::path placesFolder{};
};

// The findings at or above the minimum of every node of `graph` that the
// filter keeps, in node order, each with its analyzer, kind and fingerprint;
// those the baseline holds are marked suppressed.
Report makeReport(dependency::graph::Graph const& graph, dependency::attribute::GraphAttributes const& result,
                  ReportSettings const& settings);

// Gives each finding of one node a fingerprint of its own: of the findings
// that share one (same ID and English name), the first of the gravest
// severity keeps it and each other gets it with its details (severity,
// whether it offers a fix) and its number among equal ones folded in.
// Returns the shared fingerprints, in the order of `findings`.
std::vector<std::uint64_t> distinguishFingerprints(std::vector<Finding>& findings);

// The help text of a class of the host language, from its file's code: the
// block of comment lines right after the classdef line, else the one right
// before it; each line without its '%' and the one space after it. Empty when
// there is neither.
std::string classHelpText(std::string_view code);

// Whether an absolute path has no empty, "." or ".." component and no
// separator at the end: normalising it changes nothing, and whether it lies
// below a folder of that form can be decided on the text.
bool isNormalAbsolute(std::string_view path);

// "file:line:column" of a place, "file" when it has no line.
std::string placeText(CodePlace const& place);
// "definition", "call", "reference", "syntaxError": the role's name in JSON.
std::string_view placeRoleName(CodePlace::Role role);
// The place as a line of the text report: "called at src/a.qx:3:7".
std::string placeLine(CodePlace const& place);

// Grouped by node, columns aligned; severities coloured when `colour` is set.
// Control characters of node and finding texts are escaped.
void writeText(std::ostream& out, Report const& report, bool colour);
// One line per finding: where, finding ID, name, analyzer.
void writeConcise(std::ostream& out, Report const& report);
// Workflow annotations of a CI service: one "::warning file=...::" command per finding.
void writeGithub(std::ostream& out, Report const& report);
// One JSON object, laid out in docs/json-report.md.
void writeJson(std::ostream& out, Report const& report, std::string_view toolVersion);
// A SARIF 2.1.0 log with one run, for code-scanning services. One rule per
// analyzer and kind of finding; file paths under `baseFolder` become URIs relative to it.
void writeSarif(std::ostream& out, Report const& report, std::string_view toolVersion,
                std::filesystem::path const& baseFolder);
// A Graphviz digraph of every node and edge, nodes with findings at or above
// the threshold filled by their gravest severity.
void writeDot(std::ostream& out, dependency::graph::Graph const& graph, Report const& report);

// `depattr analyzers`: each analyzer, its description and its kinds of finding.
void writeAnalyzerList(std::ostream& out, bool json);

// Asks for every cache line of a node that is read soon: a node spans two or three.
inline void prefetchNode(dependency::graph::Node const* node) {
    auto const* const bytes = reinterpret_cast<char const*>(node);
    for (std::size_t offset = 0; offset < sizeof(dependency::graph::Node); offset += 64) {
        __builtin_prefetch(bytes + offset);
    }
    __builtin_prefetch(bytes + sizeof(dependency::graph::Node) - 1);
}

std::string toUtf8(std::u16string const& text);
// The same into `out`, whose memory it reuses.
void toUtf8(std::u16string const& text, std::string& out);
// The node's display name; its ID when it has none.
std::string displayNameOf(dependency::graph::Node const& node);
// `text` as a JSON string literal, quotes included.
std::string jsonString(std::string_view text);
// Display width of UTF-8 text in terminal columns: East Asian wide characters take two.
std::size_t displayWidth(std::string_view text);
// `text` padded with spaces to `width` columns.
std::string padded(std::string const& text, std::size_t width);
// `text` with control characters written as escapes (\n, \t, \x1b), for terminals.
using foundation::printable::escapeControls;
// An error whose text is ready to print (see Printable.hpp).
using foundation::printable::EscapedError;

}  // namespace depattr::cli

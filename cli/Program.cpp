#include "cli/Program.hpp"

#include "attribute/GraphAttributes.hpp"
#include "cli/AnalyzerCatalog.hpp"
#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "cli/FindingSources.hpp"
#include "cli/Output.hpp"
#include "cli/ProgressMeter.hpp"
#include "cli/Report.hpp"
#include "cli/Statistics.hpp"
#include "cli/Texts.hpp"
#include "cli/report/Formats.hpp"
#include "platform/fl/FileSystem.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/GraphFile.hpp"
#include "platform/graph/GraphWriter.hpp"
#include "platform/host/lang/Language.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "scan/Scanner.hpp"
#include "services/AnalysisSession.hpp"

#include <boost/locale/generator.hpp>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace depattr::cli {

namespace {

bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isNameCharacter(char c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || c == '-' || c == '_';
}

// language[_TERRITORY][.CODESET][@MODIFIER], as locale names are written: a
// language of two or three letters, a territory of two letters or three
// digits, a codeset and a modifier of at most 32 letters, digits, '-' and '_'.
// The locale library is never given anything else.
bool isValidLocaleName(std::string_view name) {
    std::size_t at = 0;
    auto const run = [&](auto&& accepts) {
        std::size_t const start = at;
        while (at < name.size() && accepts(name[at])) {
            ++at;
        }
        return at - start;
    };
    auto const language = run(isAsciiLetter);
    if (language < 2 || language > 3) {
        return false;
    }
    if (at < name.size() && name[at] == '_') {
        ++at;
        auto const letters = run(isAsciiLetter);
        auto const digits = letters == 0 ? run(isAsciiDigit) : 0;
        if (letters != 2 && digits != 3) {
            return false;
        }
    }
    for (char const separator : {'.', '@'}) {
        if (at < name.size() && name[at] == separator) {
            ++at;
            auto const length = run(isNameCharacter);
            if (length == 0 || length > 32) {
                return false;
            }
        }
    }
    return at == name.size();
}

}  // namespace

void applyLocale(std::string name) {
    std::string source = "--locale";
    if (name.empty()) {
        for (char const* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            if (char const* value = std::getenv(variable); value != nullptr && *value != '\0') {
                name = value;
                source = variable;
                break;
            }
        }
    }
    if (name.empty() || name == "C" || name == "POSIX" || name.starts_with("C.")) {
        return;
    }
    if (!isValidLocaleName(name)) {
        if (source == "--locale") {
            throw UsageError(text("ErrorBadLocale", {source, escapeControls(name)}));
        }
        // A malformed environment is not the user's command: say so and go on in English.
        std::cerr << "depattr: " << text("WarningBadLocale", {source, escapeControls(name)}) << '\n';
        return;
    }
    std::string const requested = name;
    if (name.find('.') == std::string::npos) {
        name += ".UTF-8";
    }
    // Boost.Locale makes the locale whether or not the system has it installed.
    std::locale::global(boost::locale::generator()(name));
    auto const language = fl::i18n::MessageCatalog::current_language();
    if (language != "en" && !fl::i18n::MessageCatalog::has_catalog(programCatalog, language)) {
        std::cerr << "depattr: no texts in the language of locale \"" << requested << "\"; using English\n";
    }
}

void checkResourcesOverride() {
    std::string const folder = fl::i18n::MessageCatalog::resources_folder();
    if (folder.empty()) {
        return;
    }
    std::string reason;
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        reason = "it is not a folder";
    } else {
        try {
            for (char const* catalog : {programCatalog, "QORVEX:dependency:attribute", "QORVEX:dependency:analysis"}) {
                if (!fl::i18n::MessageCatalog::has_catalog(catalog, "en")) {
                    reason = std::string("it has no English catalog \"") + catalog + "\"";
                    break;
                }
            }
        } catch (std::exception const& failure) {
            reason = failure.what();
        }
    }
    if (reason.empty()) {
        return;
    }
    // The override is for translators; a broken one must not stop the program.
    std::cerr << "depattr: warning: the catalogs of DEPATTR_RESOURCES (" << escapeControls(folder)
              << ") cannot be used: " << escapeControls(reason) << "; using the built-in texts\n";
    ::unsetenv("DEPATTR_RESOURCES");
    fl::i18n::MessageCatalog::clear_cache();
}

namespace {

// Set by Ctrl-C while the built-in analyzers run; asked before each node.
volatile std::sig_atomic_t interruptRequested = 0;

extern "C" void onProgramInterrupt(int) {
    interruptRequested = 1;
    // A second Ctrl-C ends the program at once.
    std::signal(SIGINT, SIG_DFL);
}

// Ctrl-C stops the analysis between two nodes, so that the program can say
// so; the handler before it is back once the analysis is over. A session with
// host analyzers puts its own handler in place while the host code runs.
class ProgramInterrupts {
public:
    ProgramInterrupts() : previous_(std::signal(SIGINT, onProgramInterrupt)) { interruptRequested = 0; }
    ~ProgramInterrupts() { std::signal(SIGINT, previous_); }
    ProgramInterrupts(ProgramInterrupts const&) = delete;
    ProgramInterrupts& operator=(ProgramInterrupts const&) = delete;

private:
    void (*previous_)(int);
};

// What the program hears of an analysis: each node moves the progress bar on,
// and each finding is recorded under the analyzer that made it.
class ProgramObserver final : public dependency::services::AnalysisObserver {
public:
    ProgramObserver(FindingSources& sources, ProgressMeter* progress) : sources_(sources), progress_(progress) {}

    bool stopRequested() override { return interruptRequested != 0; }

    void startingNode(dependency::graph::Node const& /*node*/) override {
        if (progress_ != nullptr) {
            progress_->advance();
        }
    }

    void reported(std::string_view analyzer,
                  std::vector<std::shared_ptr<dependency::attribute::Attribute>> const& findings) override {
        for (auto const& finding : findings) {
            sources_.record(finding, analyzer);
        }
    }

private:
    FindingSources& sources_;
    ProgressMeter* progress_;
};

// Names that only a host-language analyzer could know: each must be known to
// one of those loaded, else its error is thrown now.
void resolveHostNames(std::vector<UnresolvedName> const& names, dependency::services::AnalysisSession const& session) {
    auto const& hosts = session.hostAnalyzers();
    for (auto const& name : names) {
        auto const selector = splitSelector(name.name);
        bool const known = std::any_of(hosts.begin(), hosts.end(), [&](auto const& host) {
            if (name.isAnalyzer) {
                return host.name == name.name;
            }
            // A finding ID or a prefix of some, or "Analyzer/ID" for one analyzer's.
            return (selector.analyzer.empty() || host.name == selector.analyzer) &&
                   std::any_of(host.findingIds.begin(), host.findingIds.end(),
                               [&](auto const& id) { return selectorIdMatches(selector, id); });
        });
        if (!known) {
            std::rethrow_exception(name.error);
        }
    }
}

}  // namespace

namespace {

// A class file larger than this is not read for its help (the loader would
// have refused it anyway).
constexpr std::size_t maxClassFileBytes = std::size_t{256} << 20;

// The class file and help text of each host-language analyzer loaded, found
// as the session found them: the first folder's class of a name wins. A file
// that cannot be read again gives no help text, never an error.
std::map<std::string, HostClassHelp, std::less<>> hostClassHelp(dependency::services::AnalysisSession const& session,
                                                                std::vector<std::filesystem::path> const& folders) {
    std::map<std::string, HostClassHelp, std::less<>> help;
    if (session.hostAnalyzers().empty()) {
        return help;
    }
    for (auto const& folder : folders) {
        for (auto const& file : qlang::listCodeFiles(folder)) {
            auto const& hosts = session.hostAnalyzers();
            if (help.contains(file.qualifiedName) || std::none_of(hosts.begin(), hosts.end(), [&](auto const& host) {
                    return host.name == file.qualifiedName;
                })) {
                continue;
            }
            HostClassHelp entry{std::filesystem::absolute(file.path).lexically_normal(), {}};
            try {
                entry.text = classHelpText(fl::filesystem::read_file(file.path.string(), maxClassFileBytes));
            } catch (std::exception const&) {
                // Only the rule's help is lost.
            }
            help.emplace(file.qualifiedName, std::move(entry));
        }
    }
    return help;
}

// The analyzers of a run, host-language ones loaded (and their errors
// reported) before any graph is read or anything runs.
std::unique_ptr<dependency::services::AnalysisSession> openSession(ProgramOptions const& options) {
    if (!options.installRoot.empty()) {
        dependency::toolbox::ToolboxFinder::setInstallRoot(std::filesystem::absolute(options.installRoot));
    }
    auto session = std::make_unique<dependency::services::AnalysisSession>(options.analyzerPaths);
    resolveHostNames(options.unresolved, *session);
    session->select(options.analyzers);
    return session;
}

std::unique_ptr<ProgressMeter> progressMeter() {
    if (isatty(STDERR_FILENO) == 1) {
        return std::make_unique<ProgressMeter>(0, std::cerr);
    }
    return nullptr;
}

// Where a failed node is, for the message: its place in the graph file, else
// (a scanned graph) its path.
using NodePlace = std::function<std::string(dependency::graph::Node const&)>;

// Taking a large graph and its report apart, a million nodes and findings
// freed one by one, costs a tenth of a second that ending the program saves:
// the system takes back the memory whole. They are kept until then, reachable
// from here, so that a leak checker does not count them as lost.
void keepUntilExit(std::shared_ptr<void const> object) {
    static auto* const kept = new std::vector<std::shared_ptr<void const>>();
    kept->push_back(std::move(object));
}

// The road both commands share once they have a graph: analyse, filter, hide
// what the baseline holds, report; the exit status.
int analyzeAndReport(ProgramOptions const& options, dependency::services::AnalysisSession& session,
                     std::shared_ptr<dependency::graph::Graph const> const& graph, NodePlace const& placeOf,
                     std::string const& graphName, std::filesystem::path const& placesFolder,
                     std::unique_ptr<ProgressMeter> progress, std::string_view toolVersion) {
    std::optional<Baseline> baseline;
    if (!options.baseline.empty()) {
        baseline = Baseline::read(options.baseline);
    }
    // The result and the report list nodes by ID: the graph's ID order is
    // made on the other core while the analysis runs. It is the same order
    // whichever thread makes it, and a caller that needs it first waits for it.
    std::jthread idOrder([&graph] {
        try {
            graph->positionsInIdOrder();
        } catch (...) {
            // Made again by the first caller that needs it.
        }
    });
    auto sources = std::make_unique<FindingSources>();
    sources->reserve(graph->nodeCount());  // a finding on every node, at a guess
    if (progress) {
        progress->startAnalysis(graph->nodeCount());
    }
    std::shared_ptr<dependency::attribute::GraphAttributes> result;
    try {
        ProgramInterrupts interrupts;
        ProgramObserver observer(*sources, progress.get());
        result = session.analyze(graph, observer);
    } catch (AnalyzerFailure const& failure) {
        if (progress) {
            progress->finish();
        }
        std::cerr << "depattr: " << text("ErrorPrefix")
                  << text("ErrorAnalyzerFailed",
                          {escapeControls(failure.analyzer()), escapeControls(toUtf8(failure.node()->getID())),
                           placeOf(*failure.node()), failure.what()})
                  << '\n';
        return exitBadInput;
    } catch (dependency::services::AnalysisStopped const&) {
        if (progress) {
            progress->finish();
        }
        std::cerr << "depattr: " << text("ErrorInterrupted") << '\n';
        return exitInterrupted;
    } catch (...) {
        if (progress) {
            progress->finish();
        }
        throw;
    }
    if (progress) {
        progress->finish();
    }

    FindingFilter const filter(options);
    auto report = makeReport(*graph, *result,
                             ReportSettings{.minimum = options.minimum,
                                            .failOn = options.failOn,
                                            .sources = sources.get(),
                                            .filter = &filter,
                                            .baseline = baseline ? &*baseline : nullptr,
                                            .workingFolder = std::filesystem::current_path(),
                                            .placesFolder = placesFolder});
    // The report holds everything shown from here on: the result and the
    // record of which analyzer made which finding (a large graph's million
    // findings) can go before the report is written.
    result.reset();
    sources.reset();
    report.graphName = graphName;
    report.analyzers = session.selected();
    report.hostHelp = hostClassHelp(session, options.analyzerPaths);
    report.exitZero = options.exitZero;

    if (baseline) {
        // Entries no finding took are fixed or gone: say so, or drop them.
        auto const stale = baseline->stale();
        if (options.pruneBaseline) {
            Baseline::write(options.baseline, report, true);
            std::cerr << "depattr: "
                      << text("NoteBaselinePruned",
                              {counted("CountEntry", stale), escapeControls(options.baseline.string())})
                      << '\n';
        } else if (stale > 0 && options.analyzers.empty() && options.select.empty() && options.ignore.empty() &&
                   options.pathIgnores.empty() && options.minimum == dependency::attribute::Severity::Information) {
            // Only a run that could find every recorded finding can tell.
            std::cerr << "depattr: "
                      << text("NoteBaselineStale",
                              {counted("CountEntry", stale), escapeControls(options.baseline.string())})
                      << '\n';
        }
    }
    if (!options.writeBaseline.empty()) {
        Baseline::write(options.writeBaseline, report);
        std::size_t recorded = 0;
        for (auto const& entry : report.nodes) {
            recorded += entry.findings.size();
        }
        std::cerr << "depattr: "
                  << text("NoteBaselineWritten",
                          {counted("CountFinding", recorded), escapeControls(options.writeBaseline.string())})
                  << '\n';
        return exitClean;
    }

    bool const toTerminal = options.output.empty() && isatty(STDOUT_FILENO) == 1;
    ReportOutput output(options.output);
    auto const* format = findReportFormat(options.format);
    if (format == nullptr) {
        format = &reportFormats().front();
    }
    format->write(output.stream(), ReportContext{.report = report,
                                                 .graph = *graph,
                                                 .toolVersion = toolVersion,
                                                 .colour = useColour(options.colour, toTerminal),
                                                 .workingFolder = std::filesystem::current_path()});
    output.finish();
    if (options.statistics) {
        // On standard output after the report; beside a machine-readable
        // report there, on standard error so that the report stays whole.
        std::ostringstream statistics;
        writeStatistics(statistics, report);
        if (options.output.empty() && options.format != "text") {
            std::cerr << statistics.str();
        } else {
            writeStandardOutput(statistics.str());
        }
    }
    int const status = report.fails() && !options.exitZero ? exitFindings : exitClean;
    keepUntilExit(graph);
    keepUntilExit(std::make_shared<Report>(std::move(report)));
    return status;
}

// A path for messages: relative to the working folder when below it.
std::string shownPath(std::filesystem::path const& path) {
    std::error_code error;
    auto const relative = path.lexically_relative(std::filesystem::current_path(error));
    if (!error && !relative.empty() && *relative.begin() != "..") {
        return relative.generic_string();
    }
    return path.generic_string();
}

}  // namespace

namespace {

// The graph reader's reasons, each with the catalog text that says it in the
// user's language; {0}, {1}, ... stand for the parts that come from the file
// (names, versions) or the system, which stay as they are, or that name what
// the reason is about or what the JSON reader found (graphReasonParts). The
// first pattern that fits is taken, so the catch-all "{0}: {1}" comes last. A
// reason not listed here stays as the reader wrote it.
struct GraphReason {
    std::string_view pattern;
    char const* key;
};
constexpr std::array graphReasons{
    GraphReason{"cannot read the graph file: {0}", "GraphCannotRead"},
    GraphReason{"the text ends before the graph is complete", "GraphEndsEarly"},
    GraphReason{"the text ends inside a string", "GraphEndsInString"},
    GraphReason{"the file is empty: a graph file holds one JSON object", "GraphEmpty"},
    GraphReason{"a graph file must hold one JSON object", "GraphNotObject"},
    GraphReason{"unexpected text after the graph", "GraphTextAfter"},
    GraphReason{"the graph has no \"nodes\" member", "GraphNoNodes"},
    GraphReason{"unknown member \"{0}\" in the graph", "GraphUnknownMember"},
    GraphReason{"unknown member \"{0}\" in a node", "GraphUnknownNodeMember"},
    GraphReason{"unknown member \"{0}\" in an edge", "GraphUnknownEdgeMember"},
    GraphReason{"a node needs a non-empty \"id\"", "GraphNodeNeedsId"},
    GraphReason{"a node needs a \"type\"", "GraphNodeNeedsType"},
    GraphReason{"edge end \"{0}\" is not a node of the graph", "GraphUnknownEdgeEnd"},
    GraphReason{"an edge needs \"from\", \"to\" and \"type\"", "GraphEdgeNeedsEnds"},
    GraphReason{"unsupported graph-file version {0} (expected 1)", "GraphUnsupportedVersion"},
    GraphReason{"not a JSON document: {0}", "GraphNotJson"},
    GraphReason{"the graph has two \"nodes\" members", "GraphTwoNodes"},
    GraphReason{"\"format\" must be \"depattr-graph\"", "GraphBadFormat"},
    GraphReason{"\"version\" must be the number 1", "GraphBadVersion"},
    GraphReason{"unmatched '{0}'", "GraphUnmatched"},
    GraphReason{"\"nodes\" must be an array", "GraphNodesNotArray"},
    GraphReason{"a node must be an object", "GraphNodeNotObject"},
    GraphReason{"unknown node type \"{0}\" (expected file, function, package, product, project or derived)",
                "GraphUnknownNodeType"},
    GraphReason{"duplicate node ID \"{0}\" (first defined at line {1}, column {2})", "GraphDuplicateNode"},
    GraphReason{"a function node needs a \"location\" whose first two entries are the path of its file and the "
                "function's name, neither empty",
                "GraphFunctionNeedsLocation"},
    GraphReason{"a package node needs a \"location\" of four entries, the fourth its unique ID",
                "GraphPackageNeedsLocation"},
    GraphReason{"the fourth \"location\" entry of a package node must be a UUID such as "
                "\"0f8fad5b-d9cb-469f-a165-70867728950e\", not \"{0}\"",
                "GraphPackageNeedsUuid"},
    GraphReason{"a derived node needs a \"path\" (or a \"location\" whose first entry is one)",
                "GraphDerivedNeedsPath"},
    GraphReason{"\"location\" must be an array of strings", "GraphLocationNotStrings"},
    GraphReason{"\"properties\" must be an object", "GraphPropertiesNotObject"},
    GraphReason{"property \"circularReferences\" must be an array of strings", "GraphCyclesNotStrings"},
    GraphReason{"each element of \"circularReferences\" must be a string describing one cycle", "GraphCycleNotString"},
    GraphReason{"property \"{0}\" must be a string, true, false, an array or an object", "GraphPropertyBadValue"},
    GraphReason{"\"edges\" must be an array", "GraphEdgesNotArray"},
    GraphReason{"an edge must be an object", "GraphEdgeNotObject"},
    GraphReason{"unknown relationship type \"{0}\" (expected derived, call, inheritance, reference or requirement)",
                "GraphUnknownRelationship"},
    GraphReason{"\"{0}\" must be a string", "GraphMustBeString"},
    GraphReason{"\"{0}\" must be true or false", "GraphMustBeBool"},
    GraphReason{"property \"{0}\" is \"{1}\", which counts as not set: a flag is \"true\" or \"false\"",
                "GraphFlagNotSet"},
    GraphReason{"{0} has the wrong type", "GraphWrongType"},
    GraphReason{"{0}: {1}", "GraphReaderError"},
};
// The texts that stand in the parts of a reason: what it is about ("a node"),
// and what the JSON reader found (foundation/JsonReaderErrors.hpp).
constexpr std::array graphReasonParts{
    GraphReason{"the graph", "GraphPartGraph"},
    GraphReason{"a member of the graph", "GraphPartGraphMember"},
    GraphReason{"a node", "GraphPartNode"},
    GraphReason{"a member of a node", "GraphPartNodeMember"},
    GraphReason{"a location entry", "GraphPartLocationEntry"},
    GraphReason{"a property", "GraphPartProperty"},
    GraphReason{"an edge", "GraphPartEdge"},
    GraphReason{"a member of an edge", "GraphPartEdgeMember"},
    GraphReason{"the text is larger than the 4 GiB the JSON reader can hold", "JsonCapacity"},
    GraphReason{"not enough memory to read the text", "JsonMemory"},
    GraphReason{"arrays and objects are nested more than 1024 levels deep", "JsonDepth"},
    GraphReason{"a string holds a bad escape sequence (or a \\u escape of a lone surrogate)", "JsonBadEscape"},
    GraphReason{"a word that is not true, false or null", "JsonBadWord"},
    GraphReason{"a malformed number", "JsonBadNumber"},
    GraphReason{"a number out of range", "JsonNumberRange"},
    GraphReason{"the text is not valid UTF-8", "JsonNotUtf8"},
    GraphReason{"the text is empty", "JsonEmpty"},
    GraphReason{"a string holds a control character (such as NUL or a line break) that must be escaped",
                "JsonControlCharacter"},
    GraphReason{"a string is not closed", "JsonUnclosedString"},
    GraphReason{"a value of the wrong type", "JsonWrongType"},
    GraphReason{"the text ends before an array or object is complete", "JsonIncomplete"},
    GraphReason{"unexpected text after the JSON value", "JsonTrailing"},
    GraphReason{"the file cannot be read", "JsonCannotRead"},
    GraphReason{"the text is not well-formed JSON", "JsonNotWellFormed"},
};

// The parts of `reason` that stand for {0}, {1}, ... of `pattern`, or
// nothing when it does not have the pattern's form.
std::optional<std::vector<std::string>> matchReason(std::string_view pattern, std::string_view reason) {
    std::vector<std::string> parts;
    while (true) {
        auto const hole = pattern.find('{');
        if (hole == std::string_view::npos) {
            return pattern == reason ? std::optional(parts) : std::nullopt;
        }
        if (reason.substr(0, hole) != pattern.substr(0, hole)) {
            return std::nullopt;
        }
        reason.remove_prefix(hole);
        pattern.remove_prefix(hole + 3);  // "{0}"
        // A part runs to the text that follows it in the pattern, found from
        // the end so that a part may hold that text itself.
        auto const next = pattern.find('{');
        auto const literal = pattern.substr(0, next);
        auto const end = next == std::string_view::npos
                             ? (reason.ends_with(literal) ? reason.size() - literal.size() : std::string_view::npos)
                             : reason.find(literal);
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        parts.emplace_back(reason.substr(0, end));
        reason.remove_prefix(end);
    }
}

// A reason of the graph reader in the user's language, where the catalog has it.
std::string localisedGraphReason(std::string const& reason) {
    // The JSON reader's description alone, where it points at the place itself.
    for (auto const& part : graphReasonParts) {
        if (part.pattern == reason) {
            return text(part.key);
        }
    }
    for (auto const& known : graphReasons) {
        if (auto const parts = matchReason(known.pattern, reason)) {
            std::vector<resource_core::MessageArgument> arguments;
            for (auto const& part : *parts) {
                auto const common = std::find_if(graphReasonParts.begin(), graphReasonParts.end(),
                                                 [&](auto const& p) { return p.pattern == part; });
                arguments.emplace_back(common != graphReasonParts.end() ? text(common->key) : part);
            }
            return text(known.key, arguments);
        }
    }
    return reason;
}

// A graph-file error in the user's language, where the catalog has its reason.
dependency::graph::GraphFileError localised(dependency::graph::GraphFileError const& error) {
    auto reason = localisedGraphReason(error.reason());
    if (reason == error.reason()) {
        return error;
    }
    return {error.file(), error.position(), std::move(reason)};
}

}  // namespace

int runAnalyze(ProgramOptions const& options, std::string_view toolVersion) {
    auto session = openSession(options);
    auto progress = progressMeter();
    dependency::graph::NodePositions positions;
    dependency::graph::GraphFileOptions loadOptions;
    loadOptions.positions = &positions;
    // A few warnings say what is wrong; a file full of the same mistake
    // does not bury the report under them.
    constexpr std::size_t shownWarnings = 20;
    std::size_t warnings = 0;
    loadOptions.warning = [&](std::size_t line, std::size_t column, std::string const& message) {
        if (++warnings > shownWarnings) {
            return;
        }
        if (progress) {
            progress->finish();
        }
        std::cerr << "depattr: "
                  << text("WarningScan", {escapeControls(options.graph.string()) + ":" + std::to_string(line) + ":" +
                                          std::to_string(column) + ": " + localisedGraphReason(message)})
                  << '\n';
    };
    if (progress) {
        loadOptions.progress = [&](std::size_t done, std::size_t total) { progress->loading(done, total); };
    }
    std::shared_ptr<dependency::graph::Graph const> graph;
    try {
        graph = dependency::graph::loadGraphFile(options.graph, loadOptions);
        if (warnings > shownWarnings) {
            std::cerr << "depattr: "
                      << text("WarningScan", {text("GraphMoreWarnings", {std::to_string(warnings - shownWarnings)})})
                      << '\n';
        }
    } catch (dependency::graph::GraphFileError const& error) {
        if (progress) {
            progress->finish();
        }
        throw localised(error);
    } catch (...) {
        if (progress) {
            progress->finish();
        }
        throw;
    }
    auto const placeOf = [&](dependency::graph::Node const& node) {
        std::string where = escapeControls(positions.file());
        if (auto const position = positions.positionOf(*graph, node)) {
            where += ":" + std::to_string(position->line) + ":" + std::to_string(position->column);
        }
        return where;
    };
    return analyzeAndReport(options, *session, graph, placeOf, options.graph.string(),
                            std::filesystem::absolute(options.graph).parent_path(), std::move(progress), toolVersion);
}

int runScan(ProgramOptions const& options, std::string_view toolVersion) {
    auto session = openSession(options);
    auto progress = progressMeter();
    depattr::scan::ScanSettings settings;
    settings.folder = options.scanFolder;
    settings.pathFolders = options.scan.pathFolders;
    settings.exclude = options.scan.exclude;
    settings.knownFunctions = options.scan.knownFunctions;
    // Derived-file patterns of depattr.toml are written from its folder; the
    // scanner takes them from the scanned folder.
    auto const prefix = options.scan.base.empty()
                            ? std::string()
                            : options.scan.base.lexically_relative(options.scanFolder).generic_string();
    for (auto rule : options.scan.derived) {
        if (!prefix.empty() && prefix != ".") {
            rule.output = prefix + "/" + rule.output;
            rule.source = prefix + "/" + rule.source;
        }
        settings.derived.push_back(std::move(rule));
    }
    if (progress) {
        settings.progress = [&](std::size_t done, std::size_t total) { progress->scanning(done, total); };
    }
    depattr::scan::ScanResult scanned;
    try {
        scanned = depattr::scan::scanProject(settings);
    } catch (...) {
        if (progress) {
            progress->finish();
        }
        throw;
    }
    if (progress) {
        progress->finish();
    }
    // What the scan could not read is said, and the scan goes on without it.
    for (auto const& diagnostic : scanned.diagnostics) {
        std::string where = shownPath(diagnostic.file);
        if (diagnostic.line > 0) {
            where += ":" + std::to_string(diagnostic.line) + ":" + std::to_string(diagnostic.column);
        }
        std::cerr << "depattr: " << text("WarningScan", {escapeControls(where + ": " + diagnostic.message)}) << '\n';
    }
    if (!options.writeGraph.empty()) {
        dependency::graph::writeGraphFile(options.writeGraph, *scanned.graph);
        std::cerr << "depattr: "
                  << text("NoteGraphWritten",
                          {escapeControls(shownPath(options.scanFolder)), escapeControls(options.writeGraph.string())})
                  << '\n';
    }
    auto const placeOf = [](dependency::graph::Node const& node) {
        auto const path = toUtf8(node.getPath());
        return escapeControls(path.empty() ? toUtf8(node.getID()) : shownPath(path));
    };
    return analyzeAndReport(options, *session, scanned.graph, placeOf, shownPath(options.scanFolder),
                            options.scanFolder, std::move(progress), toolVersion);
}

int runListAnalyzers(std::string_view format) {
    std::ostringstream out;
    writeAnalyzerList(out, format == "json");
    writeStandardOutput(out.str());
    return exitClean;
}

}  // namespace depattr::cli

#include "cli/CommandLine.hpp"

#include "cli/AnalyzerCatalog.hpp"
#include "cli/Config.hpp"
#include "cli/Program.hpp"
#include "cli/Report.hpp"
#include "cli/Texts.hpp"
#include "cli/report/Formats.hpp"
#include "platform/foundation/Printable.hpp"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

namespace depattr::cli {

using dependency::attribute::Severity;
using foundation::printable::escapeControls;

namespace {

// Each value of a repeatable option may also be a comma-separated list.
std::vector<std::string> splitLists(std::vector<std::string> const& values) {
    std::vector<std::string> items;
    for (auto const& value : values) {
        std::string_view rest = value;
        while (true) {
            auto const comma = rest.find(',');
            if (auto const item = rest.substr(0, comma); !item.empty()) {
                items.emplace_back(item);
            }
            if (comma == std::string_view::npos) {
                break;
            }
            rest = rest.substr(comma + 1);
        }
    }
    return items;
}

Severity severityOption(std::string const& option, std::string const& value) {
    auto const severity = parseSeverity(value);
    if (!severity) {
        throw UsageError(text("ErrorBadSeverity", {option, escapeControls(value)}));
    }
    return *severity;
}

}  // namespace

void checkChoice(std::string const& option, std::string const& value, std::vector<std::string> const& choices) {
    if (std::find(choices.begin(), choices.end(), value) == choices.end()) {
        std::string list;
        for (auto const& choice : choices) {
            list += (list.empty() ? "" : ", ") + choice;
        }
        throw UsageError(text("ErrorBadChoice", {option, escapeControls(value), list}));
    }
}

namespace {

// The IDs of a --select or --ignore. With analyzer paths, an ID unknown to
// the built-in analyzers is checked again once the host analyzers are loaded.
std::vector<std::string> findingIds(std::string const& option, std::vector<std::string> const& values,
                                    ProgramOptions& options) {
    auto ids = splitLists(values);
    for (auto const& id : ids) {
        if (!isKnownFindingSelector(id)) {
            UsageError error(text("ErrorUnknownFindingId", {option, escapeControls(id), knownFindingIds()}));
            if (options.analyzerPaths.empty()) {
                throw error;
            }
            options.unresolved.push_back({id, false, std::make_exception_ptr(error)});
        }
    }
    return ids;
}

}  // namespace

ProgramOptions programOptions(CommandLine const& line) {
    auto const given = [&](char const* name) { return line.given.contains(name); };
    ProgramOptions options;
    if (line.scanning) {
        std::error_code error;
        if (!std::filesystem::is_directory(line.folder, error)) {
            throw UsageError(text("ErrorNoSuchFolder", {"scan", escapeControls(line.folder)}));
        }
        options.scanFolder = std::filesystem::absolute(line.folder).lexically_normal();
        options.writeGraph = line.writeGraph;
        // A scan of real code is quiet about what merely exists.
        options.minimum = Severity::Warning;
    } else {
        // Without a graph argument the graph is graph.json in the current
        // folder, as a project's graph is usually called; when there is none
        // the user is told that a graph is needed.
        options.graph = line.graph;
        if (line.graph.empty()) {
            options.graph = "graph.json";
            std::error_code error;
            if (!std::filesystem::exists(options.graph, error)) {
                throw UsageError(text("ErrorNoGraph"));
            }
        }
    }
    options.locale = line.locale;
    if (findReportFormat(line.format) == nullptr) {
        throw UsageError(text("ErrorBadChoice", {"--format", escapeControls(line.format), reportFormatChoices()}));
    }
    options.format = line.format;
    // A picture needs Graphviz: said before the analysis, not after it.
    if ((line.format == "svg" || line.format == "png") && !graphvizProgram()) {
        throw UsageError(text("ErrorNoGraphviz", {line.format}));
    }
    // A PNG is bytes that would garble a terminal.
    if (line.format == "png" && line.output.empty() && isatty(STDOUT_FILENO) == 1) {
        throw UsageError(text("ErrorPngToTerminal"));
    }
    checkChoice("--color", line.colour, {"auto", "always", "never"});
    options.colour = line.colour == "always"  ? ColourChoice::Always
                     : line.colour == "never" ? ColourChoice::Never
                                              : ColourChoice::Auto;
    options.output = line.output;
    options.baseline = line.baseline;
    options.writeBaseline = line.writeBaseline;
    // Writing a baseline writes no report, so a format or an output file
    // given with it would be silently ignored.
    if (!line.writeBaseline.empty()) {
        for (char const* option : {"--format", "--output"}) {
            if (given(option)) {
                throw UsageError(text("ErrorWithWriteBaseline", {option}));
            }
        }
    }

    if (line.noConfig && !line.config.empty()) {
        throw UsageError(text("ErrorConfigAndNoConfig"));
    }
    std::optional<std::filesystem::path> configFile;
    if (!line.config.empty()) {
        configFile = line.config;
    } else if (!line.noConfig) {
        std::error_code error;
        configFile = line.scanning ? findConfigFile(options.scanFolder)
                                   : findConfigFile(std::filesystem::absolute(options.graph, error).parent_path());
    }
    std::optional<ConfigFile> config;
    if (configFile) {
        // Names only a host-language analyzer could know wait until those are
        // loaded. Without analyzer paths on the command line, a file that
        // fails, or gives no paths either, is read again so that its first
        // error is thrown, just as if nothing had waited.
        bool const strictAgain = line.analyzerPaths.empty();
        try {
            config = readConfigFile(*configFile, true);
        } catch (...) {
            if (!strictAgain) {
                throw;
            }
            config = readConfigFile(*configFile);
        }
        if (strictAgain && !config->unresolved.empty() && config->analyzerPaths.empty()) {
            config = readConfigFile(*configFile);
        }
    }
    if (config) {
        options.unresolved = config->unresolved;
        options.configFile = config->file;
        if (config->analyzers) {
            options.analyzers = *config->analyzers;
        }
        options.minimum = config->minimum.value_or(options.minimum);
        options.failOn = config->failOn.value_or(options.failOn);
        if (config->installRoot) {
            options.installRoot = *config->installRoot;
        }
        options.analyzerPaths = config->analyzerPaths;
        if (config->select) {
            options.select = *config->select;
        }
        options.ignore = config->ignore;
        options.pathIgnores = config->pathIgnores;
        if (config->scan) {
            options.scan = *config->scan;
        }
    }

    if (given("--analyzers")) {
        if (splitLists({line.analyzers}).empty()) {
            throw UsageError(text("ErrorEmptyAnalyzers"));
        }
        options.analyzers.clear();
        if (line.analyzers != "all") {
            options.analyzers = splitLists({line.analyzers});
        }
    }
    // An analyzer named twice runs once, where it was first named.
    for (auto at = options.analyzers.begin(); at != options.analyzers.end(); ++at) {
        options.analyzers.erase(std::remove(std::next(at), options.analyzers.end(), *at), options.analyzers.end());
    }
    options.exitZero = line.exitZero;
    options.pruneBaseline = line.pruneBaseline;
    options.statistics = line.statistics;
    if (given("--min-severity")) {
        options.minimum = severityOption("--min-severity", line.minimum);
    }
    if (given("--fail-on")) {
        options.failOn = severityOption("--fail-on", line.failOn);
    }
    if (given("--install-root")) {
        options.installRoot = line.installRoot;
    }
    for (auto const& folder : line.analyzerPaths) {
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error)) {
            throw UsageError(text("ErrorNoSuchFolder", {"--analyzer-path", escapeControls(folder)}));
        }
        options.analyzerPaths.emplace_back(std::filesystem::absolute(folder));
    }
    if (given("--select")) {
        options.select = findingIds("--select", line.select, options);
        if (options.select.empty()) {
            throw UsageError(text("ErrorEmptySelect"));
        }
    }
    auto const ignored = findingIds("--ignore", line.ignore, options);
    options.ignore.insert(options.ignore.end(), ignored.begin(), ignored.end());
    // Pruning drops what this run did not find: the run must be able to find
    // everything the baseline may hold.
    if (options.pruneBaseline) {
        if (options.baseline.empty()) {
            throw UsageError(text("ErrorPruneNeedsBaseline"));
        }
        if (!options.analyzers.empty() || !options.select.empty() || !options.ignore.empty() ||
            !options.pathIgnores.empty() || options.minimum != Severity::Information) {
            throw UsageError(text("ErrorPruneNeedsWholeRun"));
        }
    }
    // The environment's install root is read by the analyzers much later,
    // where a bad value would be blamed on whichever node asked first.
    if (options.installRoot.empty()) {
        if (char const* root = std::getenv("DEPATTR_INSTALL_ROOT"); root != nullptr && *root != '\0') {
            std::error_code error;
            if (!std::filesystem::is_directory(root, error)) {
                throw UsageError(text("ErrorNoSuchFolder", {"DEPATTR_INSTALL_ROOT", escapeControls(root)}));
            }
        }
    }
    if (!options.installRoot.empty()) {
        std::error_code error;
        if (!std::filesystem::is_directory(options.installRoot, error)) {
            throw UsageError(
                text("ErrorNoSuchFolder", {"--install-root", escapeControls(options.installRoot.string())}));
        }
    }
    return options;
}

}  // namespace depattr::cli

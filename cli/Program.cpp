#include "cli/Program.hpp"

#include "attribute/GraphAttributes.hpp"
#include "cli/AnalyzerCatalog.hpp"
#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "cli/FindingSources.hpp"
#include "cli/HostAnalyzers.hpp"
#include "cli/Output.hpp"
#include "cli/ProgressMeter.hpp"
#include "cli/Report.hpp"
#include "cli/Texts.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/GraphFile.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"

#include <boost/locale/generator.hpp>

#include <cstdlib>
#include <iostream>
#include <sstream>
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

// Writes the report in the chosen format.
void render(std::ostream& out, ProgramOptions const& options, dependency::graph::Graph const& graph,
            Report const& report, std::string_view toolVersion, bool colour) {
    if (options.format == "json") {
        writeJson(out, report, toolVersion);
    } else if (options.format == "sarif") {
        writeSarif(out, report, toolVersion, std::filesystem::current_path());
    } else if (options.format == "dot") {
        writeDot(out, graph, report);
    } else if (options.format == "concise") {
        writeConcise(out, report);
    } else if (options.format == "github") {
        writeGithub(out, report);
    } else {
        writeText(out, report, colour);
    }
}

std::string failureMessage(AnalyzerFailure const& failure, dependency::graph::Graph const& graph,
                           dependency::graph::NodePositions const& positions) {
    std::string where = positions.file();
    if (auto const position = positions.positionOf(graph, *failure.node())) {
        where += ":" + std::to_string(position->line) + ":" + std::to_string(position->column);
    }
    return text("ErrorAnalyzerFailed", {failure.analyzer(), escapeControls(toUtf8(failure.node()->getID())), where,
                                        escapeControls(failure.what())});
}

}  // namespace

int runAnalyze(ProgramOptions const& options, std::string_view toolVersion) {
    if (!options.installRoot.empty()) {
        dependency::toolbox::ToolboxFinder::setInstallRoot(std::filesystem::absolute(options.installRoot));
    }
    auto const chosen = createAnalyzers(options.analyzers);
    // Analyzers written in the host language are loaded, and their errors
    // reported, before the graph is read or anything runs.
    std::shared_ptr<HostAnalyzers> hostAnalyzers;
    if (!options.analyzerPaths.empty()) {
        hostAnalyzers = HostAnalyzers::load(options.analyzerPaths);
    }
    std::optional<Baseline> baseline;
    if (!options.baseline.empty()) {
        baseline = Baseline::read(options.baseline);
    }

    std::shared_ptr<ProgressMeter> progress;
    if (isatty(STDERR_FILENO) == 1) {
        progress = std::make_shared<ProgressMeter>(0, std::cerr);
    }
    dependency::graph::NodePositions positions;
    dependency::graph::GraphFileOptions loadOptions;
    loadOptions.positions = &positions;
    if (progress) {
        loadOptions.progress = [&](std::size_t done, std::size_t total) { progress->loading(done, total); };
    }
    std::shared_ptr<dependency::graph::Graph const> graph;
    try {
        graph = dependency::graph::loadGraphFile(options.graph, loadOptions);
    } catch (...) {
        if (progress) {
            progress->finish();
        }
        throw;
    }

    auto sources = std::make_shared<FindingSources>();
    if (progress) {
        progress->startAnalysis(graph->nodeCount());
    }
    std::shared_ptr<dependency::attribute::GraphAttributes> result;
    try {
        if (hostAnalyzers) {
            // The host's road: the registry holds the built-in and the host
            // analyzers, and analyzeInQorvex runs them.
            result = hostAnalyzers->analyze(graph, chosen, *sources, progress);
        } else {
            auto analyzers = sources->track(chosen);
            if (progress) {
                analyzers.push_back(progress);
            }
            result = dependency::attribute::analyzeGraph(graph, analyzers);
        }
    } catch (AnalyzerFailure const& failure) {
        if (progress) {
            progress->finish();
        }
        std::cerr << "depattr: " << text("ErrorPrefix") << failureMessage(failure, *graph, positions) << '\n';
        return exitBadInput;
    } catch (Interrupted const&) {
        if (progress) {
            progress->finish();
        }
        std::cerr << "depattr: " << text("ErrorInterrupted") << '\n';
        return exitInterrupted;
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
                                            .workingFolder = std::filesystem::current_path()});
    // The report holds everything shown from here on: the result and the
    // record of which analyzer made which finding (a large graph's million
    // findings) can go before the report is written.
    result.reset();
    sources.reset();
    report.graphName = options.graph.string();
    for (auto const& analyzer : chosen) {
        report.analyzers.emplace_back(analyzer.name);
    }
    if (hostAnalyzers) {
        for (auto const& name : hostAnalyzers->names()) {
            report.analyzers.push_back(name);
        }
    }

    if (!options.writeBaseline.empty()) {
        Baseline::write(options.writeBaseline, report);
        std::size_t recorded = 0;
        for (auto const& entry : report.nodes) {
            recorded += entry.findings.size();
        }
        std::cerr << "depattr: "
                  << text("NoteBaselineWritten", {counted("CountFinding", recorded), options.writeBaseline.string()})
                  << '\n';
        return exitClean;
    }

    bool const toTerminal = options.output.empty() && isatty(STDOUT_FILENO) == 1;
    ReportOutput output(options.output);
    render(output.stream(), options, *graph, report, toolVersion, useColour(options.colour, toTerminal));
    output.finish();
    return report.fails() ? exitFindings : exitClean;
}

int runListAnalyzers(std::string_view format) {
    std::ostringstream out;
    writeAnalyzerList(out, format == "json");
    writeStandardOutput(out.str());
    return exitClean;
}

}  // namespace depattr::cli

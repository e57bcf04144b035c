// depattr: runs the dependency analyzers over a graph file and reports the findings.
#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "cli/Options.hpp"
#include "cli/Output.hpp"
#include "cli/Program.hpp"
#include "cli/Report.hpp"
#include "cli/Texts.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/GraphFile.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <iostream>

namespace {

using namespace depattr::cli;
using dependency::attribute::Severity;

// What the command line said, before it is laid over the configuration.
struct CommandLine {
    std::string graph = DEPATTR_EXAMPLE_GRAPH;
    std::string analyzers;
    std::string minimum;
    std::string failOn;
    std::string format = "text";
    std::string output;
    std::string locale;
    std::string installRoot;
    std::vector<std::string> analyzerPaths;
    std::vector<std::string> select;
    std::vector<std::string> ignore;
    std::string config;
    bool noConfig = false;
    std::string baseline;
    std::string writeBaseline;
    std::string colour = "auto";
    std::string listFormat = "text";
};

// The locale named on the command line, read before the real parse so that
// --help and every message are in its language.
std::string localeArgument(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::string_view const argument = argv[i];
        if ((argument == "-l" || argument == "--locale") && i + 1 < argc) {
            return argv[i + 1];
        }
        if (argument.starts_with("--locale=")) {
            return std::string(argument.substr(9));
        }
        if (argument.starts_with("-l") && argument.size() > 2) {
            return std::string(argument.substr(2));
        }
    }
    return {};
}

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
        throw UsageError(text("ErrorBadSeverity", {option, value}));
    }
    return *severity;
}

void checkChoice(std::string const& option, std::string const& value, std::vector<std::string> const& choices) {
    if (std::find(choices.begin(), choices.end(), value) == choices.end()) {
        std::string list;
        for (auto const& choice : choices) {
            list += (list.empty() ? "" : ", ") + choice;
        }
        throw UsageError(text("ErrorBadChoice", {option, value, list}));
    }
}

std::vector<std::string> findingIds(std::string const& option, std::vector<std::string> const& values) {
    auto ids = splitLists(values);
    for (auto const& id : ids) {
        if (!isKnownFindingId(id)) {
            throw UsageError(text("ErrorUnknownFindingId", {option, id, knownFindingIds()}));
        }
    }
    return ids;
}

// The command line laid over the configuration file laid over the defaults.
ProgramOptions programOptions(CommandLine const& line, CLI::App const& analyze) {
    auto const given = [&](char const* name) { return analyze.get_option(name)->count() > 0; };
    ProgramOptions options;
    options.graph = line.graph;
    options.locale = line.locale;
    checkChoice("--format", line.format, {"text", "concise", "json", "sarif", "github", "dot"});
    options.format = line.format;
    checkChoice("--color", line.colour, {"auto", "always", "never"});
    options.colour = line.colour == "always"  ? ColourChoice::Always
                     : line.colour == "never" ? ColourChoice::Never
                                              : ColourChoice::Auto;
    options.output = line.output;
    options.baseline = line.baseline;
    options.writeBaseline = line.writeBaseline;

    if (line.noConfig && !line.config.empty()) {
        throw UsageError(text("ErrorConfigAndNoConfig"));
    }
    std::optional<ConfigFile> config;
    if (!line.config.empty()) {
        config = readConfigFile(line.config);
    } else if (!line.noConfig) {
        std::error_code error;
        auto const graphFolder = std::filesystem::absolute(options.graph, error).parent_path();
        if (auto const found = findConfigFile(graphFolder)) {
            config = readConfigFile(*found);
        }
    }
    if (config) {
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
    }

    if (given("--analyzers")) {
        options.analyzers.clear();
        if (line.analyzers != "all") {
            options.analyzers = splitLists({line.analyzers});
        }
    }
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
            throw UsageError(text("ErrorNoSuchFolder", {"--analyzer-path", folder}));
        }
        options.analyzerPaths.emplace_back(std::filesystem::absolute(folder));
    }
    if (given("--select")) {
        options.select = findingIds("--select", line.select);
    }
    auto const ignored = findingIds("--ignore", line.ignore);
    options.ignore.insert(options.ignore.end(), ignored.begin(), ignored.end());
    if (!options.installRoot.empty()) {
        std::error_code error;
        if (!std::filesystem::is_directory(options.installRoot, error)) {
            throw UsageError(text("ErrorNoSuchFolder", {"--install-root", options.installRoot.string()}));
        }
    }
    return options;
}

void localiseHelp(CLI::App& app) {
    auto formatter = app.get_formatter();
    for (char const* label : {"Usage", "OPTIONS", "Options", "Positionals", "POSITIONALS", "REQUIRED", "SUBCOMMANDS",
                              "Subcommands", "SUBCOMMAND"}) {
        formatter->label(label, text((std::string("HelpLabel") + label).c_str()));
    }
}

int run(int argc, char** argv) {
    checkResourcesOverride();
    try {
        applyLocale(localeArgument(argc, argv));
    } catch (std::exception const& error) {
        std::cerr << "depattr: " << error.what() << '\n';
        return exitBadInput;
    }

    CommandLine line;
    CLI::App app{text("HelpProgram")};
    CLI::App* analyze = nullptr;
    CLI::App* list = nullptr;
    try {
        localiseHelp(app);
        // Subcommands copy these defaults, so every option group is headed in the locale's language.
        app.option_defaults()->group(text("HelpLabelOptions"));
        app.set_help_flag("-h,--help", text("HelpHelp"));
        app.set_version_flag("--version", "depattr " DEPATTR_VERSION, text("HelpVersion"));
        app.require_subcommand(1);

        analyze = app.add_subcommand("analyze", text("HelpAnalyze"));
        analyze->group(text("HelpLabelSubcommands"));
        analyze->set_help_flag("-h,--help", text("HelpHelp"));
        analyze->add_option("graph", line.graph, text("HelpGraph"))->option_text("GRAPH");
        analyze->add_option("-a,--analyzers", line.analyzers, text("HelpAnalyzers"))->option_text("NAMES");
        analyze->add_option("-s,--min-severity", line.minimum, text("HelpMinSeverity"))->option_text("LEVEL");
        analyze->add_option("--fail-on", line.failOn, text("HelpFailOn"))->option_text("LEVEL");
        analyze->add_option("-f,--format", line.format, text("HelpFormat"))->option_text("FORMAT");
        analyze->add_option("-o,--output", line.output, text("HelpOutput"))->option_text("FILE");
        analyze->add_option("-l,--locale", line.locale, text("HelpLocale"))->option_text("NAME");
        analyze->add_option("-i,--install-root", line.installRoot, text("HelpInstallRoot"))->option_text("DIR");
        analyze->add_option("--analyzer-path", line.analyzerPaths, text("HelpAnalyzerPath"))
            ->option_text("DIR")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        analyze->add_option("--select", line.select, text("HelpSelect"))
            ->option_text("IDS")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        analyze->add_option("--ignore", line.ignore, text("HelpIgnore"))
            ->option_text("IDS")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        analyze->add_option("--config", line.config, text("HelpConfig"))->option_text("FILE");
        analyze->add_flag("--no-config", line.noConfig, text("HelpNoConfig"));
        analyze->add_option("--baseline", line.baseline, text("HelpBaseline"))->option_text("FILE");
        analyze->add_option("--write-baseline", line.writeBaseline, text("HelpWriteBaseline"))->option_text("FILE");
        analyze->add_option("--color", line.colour, text("HelpColor"))->option_text("WHEN");

        list = app.add_subcommand("analyzers", text("HelpList"));
        list->group(text("HelpLabelSubcommands"));
        list->set_help_flag("-h,--help", text("HelpHelp"));
        list->add_option("-f,--format", line.listFormat, text("HelpListFormat"))->option_text("FORMAT");
        list->add_option("-l,--locale", line.locale, text("HelpLocale"))->option_text("NAME");
    } catch (std::exception const& error) {
        std::cerr << "depattr: " << error.what() << '\n';
        return exitBadInput;
    }

    // An unknown command is named as such, not reported as a missing one.
    if (argc > 1 && argv[1][0] != '-' && std::string_view(argv[1]) != "analyze" &&
        std::string_view(argv[1]) != "analyzers") {
        std::cerr << "depattr: " << text("ErrorPrefix") << text("ErrorUnknownCommand", {std::string(argv[1])}) << '\n'
                  << text("HintHelp") << '\n';
        return exitBadInput;
    }

    try {
        app.parse(argc, argv);
    } catch (CLI::CallForHelp const&) {
        try {
            writeStandardOutput(app.help("", CLI::AppFormatMode::Normal));
        } catch (std::exception const& error) {
            std::cerr << "depattr: " << error.what() << '\n';
            return exitBadInput;
        }
        return exitClean;
    } catch (CLI::CallForVersion const&) {
        try {
            writeStandardOutput("depattr " DEPATTR_VERSION "\n");
        } catch (std::exception const& error) {
            std::cerr << "depattr: " << error.what() << '\n';
            return exitBadInput;
        }
        return exitClean;
    } catch (CLI::ParseError const& error) {
        // A help request on a subcommand arrives here too.
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        std::string reason = error.what();
        if (dynamic_cast<CLI::RequiredError const*>(&error) != nullptr && !analyze->parsed() && !list->parsed()) {
            reason = text("ErrorNoCommand");
        }
        std::cerr << "depattr: " << text("ErrorPrefix") << reason << '\n' << text("HintHelp") << '\n';
        return exitBadInput;
    }

    try {
        if (list->parsed()) {
            checkChoice("--format", line.listFormat, {"text", "json"});
            return runListAnalyzers(line.listFormat);
        }
        return runAnalyze(programOptions(line, *analyze), DEPATTR_VERSION);
    } catch (UsageError const& error) {
        std::cerr << "depattr: " << text("ErrorPrefix") << error.what() << '\n' << text("HintHelp") << '\n';
        return exitBadInput;
    } catch (std::exception const& error) {
        std::cerr << "depattr: " << text("ErrorPrefix") << escapeControls(error.what()) << '\n';
        return exitBadInput;
    }
}

}  // namespace

int main(int argc, char** argv) {
    // A write past the file-size limit fails with EFBIG, reported like a full
    // disk, instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    // Whatever escapes is a message and status 2, never std::terminate. The
    // texts of the catalogs may be what failed, so these messages are plain.
    try {
        return run(argc, argv);
    } catch (std::exception const& error) {
        std::cerr << "depattr: error: " << escapeControls(error.what()) << '\n';
    } catch (...) {
        std::cerr << "depattr: error: an unexpected failure ended the program\n";
    }
    return exitBadInput;
}

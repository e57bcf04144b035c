// depattr: runs the dependency analyzers over a graph file, or over the graph of
// a scanned folder, and reports the findings.
#include "cli/CommandLine.hpp"
#include "cli/Output.hpp"
#include "cli/Program.hpp"
#include "cli/Suggestion.hpp"
#include "cli/Texts.hpp"
#include "cli/report/Formats.hpp"
#include "platform/fl/MessageCatalog.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <iostream>

namespace {

using namespace depattr::cli;

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

void localiseHelp(CLI::App& app) {
    auto formatter = app.get_formatter();
    for (char const* label : {"Usage", "OPTIONS", "Options", "Positionals", "POSITIONALS", "REQUIRED", "SUBCOMMANDS",
                              "Subcommands", "SUBCOMMAND"}) {
        formatter->label(label, text((std::string("HelpLabel") + label).c_str()));
    }
}

// The options `analyze` and `scan` share: which analyzers, which findings,
// which format and where, settings, baseline, colour.
void addAnalysisOptions(CLI::App* command, CommandLine& line) {
    command->add_option("-a,--analyzers", line.analyzers, text("HelpAnalyzers"))->option_text("NAMES");
    command->add_option("-s,--min-severity", line.minimum, text("HelpMinSeverity"))->option_text("LEVEL");
    command->add_option("--fail-on", line.failOn, text("HelpFailOn"))->option_text("LEVEL");
    command->add_option("-f,--format", line.format, reportFormatHelp())->option_text("FORMAT");
    command->add_option("-o,--output", line.output, text("HelpOutput"))->option_text("FILE");
    command->add_option("-l,--locale", line.locale, text("HelpLocale"))->option_text("NAME");
    command->add_option("-i,--install-root", line.installRoot, text("HelpInstallRoot"))->option_text("DIR");
    command->add_option("--analyzer-path", line.analyzerPaths, text("HelpAnalyzerPath"))
        ->option_text("DIR")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--select", line.select, text("HelpSelect"))
        ->option_text("IDS")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--ignore", line.ignore, text("HelpIgnore"))
        ->option_text("IDS")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--config", line.config, text("HelpConfig"))->option_text("FILE");
    command->add_flag("--no-config", line.noConfig, text("HelpNoConfig"));
    command->add_option("--baseline", line.baseline, text("HelpBaseline"))->option_text("FILE");
    command->add_option("--write-baseline", line.writeBaseline, text("HelpWriteBaseline"))->option_text("FILE");
    command->add_option("--color", line.colour, text("HelpColor"))->option_text("WHEN");
    command->add_flag("--prune-baseline", line.pruneBaseline, text("HelpPruneBaseline"));
    command->add_flag("--exit-zero", line.exitZero, text("HelpExitZero"));
    command->add_flag("--statistics", line.statistics, text("HelpStatistics"));
}

// The long options of `app` ("--format"), for suggestions.
std::vector<std::string> longOptionNames(CLI::App const& app) {
    std::vector<std::string> names;
    for (auto const* option : app.get_options()) {
        for (auto const& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

// "; did you mean --format?" for a misspelt option or command, else nothing.
std::string suggestionFor(std::string_view given, std::vector<std::string> const& known) {
    given = given.substr(0, given.find('='));
    auto const closest = closestName(given, known);
    return closest.empty() ? std::string() : text("HintDidYouMean", {closest});
}

// The parser's "arguments were not expected" in the program's words: each
// argument named, and for a misspelt option the one meant.
std::string unexpectedArguments(CLI::App const& app, std::initializer_list<CLI::App const*> commands) {
    std::vector<std::string> extras = app.remaining();
    CLI::App const* parsed = &app;
    for (auto const* command : commands) {
        if (command->parsed()) {
            parsed = command;
        }
    }
    CLI::App const& command = *parsed;
    if (&command != &app) {
        auto const more = command.remaining();
        extras.insert(extras.end(), more.begin(), more.end());
    }
    if (extras.empty()) {
        return {};
    }
    std::string named;
    for (auto const& extra : extras) {
        named += (named.empty() ? "\"" : ", \"") + escapeControls(extra) + "\"";
    }
    std::string message =
        extras.size() == 1 ? text("ErrorUnexpectedArgument", {named}) : text("ErrorUnexpectedArguments", {named});
    auto const option = std::find_if(extras.begin(), extras.end(), [](auto const& e) { return e.starts_with('-'); });
    if (option != extras.end()) {
        message += suggestionFor(*option, longOptionNames(command));
    }
    return message;
}

// A completion script for `shell` (bash or zsh), made from the commands and
// options as they are defined, so that it never lags behind them. zsh runs
// the bash script through its bash-completion layer.
std::string completionScript(std::string_view shell, CLI::App const& app) {
    std::string script = shell == "zsh" ? "#compdef depattr\nautoload -U +X bashcompinit && bashcompinit\n" : "";
    script +=
        "_depattr() {\n"
        "  local cur=${COMP_WORDS[COMP_CWORD]} command= word\n"
        "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        "    case ${word} in -*) ;; *) command=${word}; break ;; esac\n"
        "  done\n"
        "  case ${command} in\n";
    std::string commands;
    for (auto const* command : app.get_subcommands({})) {
        commands += (commands.empty() ? "" : " ") + command->get_name();
        std::string options;
        for (auto const& option : longOptionNames(*command)) {
            options += (options.empty() ? "" : " ") + option;
        }
        std::string const words = command->get_name() == "completion" ? "bash zsh" : "";
        script += "    " + command->get_name() + ")\n" +
                  "      if [[ ${cur} == -* ]]; then COMPREPLY=($(compgen -W \"" + options + "\" -- \"${cur}\"))\n" +
                  (words.empty() ? "      else COMPREPLY=($(compgen -f -- \"${cur}\")); fi ;;\n"
                                 : "      else COMPREPLY=($(compgen -W \"" + words + "\" -- \"${cur}\")); fi ;;\n");
    }
    script += "    *) COMPREPLY=($(compgen -W \"" + commands +
              " --help --version\" -- \"${cur}\")) ;;\n"
              "  esac\n"
              "}\n"
              "complete -o filenames -F _depattr depattr\n";
    return script;
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
    CLI::App* scan = nullptr;
    CLI::App* list = nullptr;
    CLI::App* completion = nullptr;
    std::string completionShell;
    try {
        localiseHelp(app);
        // Subcommands copy these defaults, so every option group is headed in the locale's language.
        app.option_defaults()->group(text("HelpLabelOptions"));
        app.set_help_flag("-h,--help", text("HelpHelp"));
        app.set_version_flag("-V,--version", "depattr " DEPATTR_VERSION, text("HelpVersion"));
        app.require_subcommand(1);

        analyze = app.add_subcommand("analyze", text("HelpAnalyze"));
        analyze->group(text("HelpLabelSubcommands"));
        analyze->set_help_flag("-h,--help", text("HelpHelp"));
        analyze->add_option("graph", line.graph, text("HelpGraph"))->option_text("GRAPH");
        addAnalysisOptions(analyze, line);

        scan = app.add_subcommand("scan", text("HelpScan"));
        scan->group(text("HelpLabelSubcommands"));
        scan->set_help_flag("-h,--help", text("HelpHelp"));
        scan->add_option("folder", line.folder, text("HelpFolder"))->option_text("FOLDER");
        addAnalysisOptions(scan, line);
        scan->add_option("--write-graph", line.writeGraph, text("HelpWriteGraph"))->option_text("FILE");

        list = app.add_subcommand("analyzers", text("HelpList"));
        list->group(text("HelpLabelSubcommands"));
        list->set_help_flag("-h,--help", text("HelpHelp"));
        list->add_option("-f,--format", line.listFormat, text("HelpListFormat"))->option_text("FORMAT");
        list->add_option("-l,--locale", line.locale, text("HelpLocale"))->option_text("NAME");

        completion = app.add_subcommand("completion", text("HelpCompletion"));
        completion->group(text("HelpLabelSubcommands"));
        completion->set_help_flag("-h,--help", text("HelpHelp"));
        completion->add_option("shell", completionShell, text("HelpCompletionShell"))->option_text("SHELL")->required();

        // Every command's help ends as the program's does: examples (its
        // own), then the exit statuses and the environment.
        auto const status = text("HelpFooterStatus");
        app.footer(text("HelpFooter") + "\n\n" + status);
        analyze->footer(text("HelpExamplesAnalyze") + "\n\n" + status);
        scan->footer(text("HelpExamplesScan") + "\n\n" + status);
        list->footer(text("HelpExamplesAnalyzers") + "\n\n" + status);
        completion->footer(text("HelpExamplesCompletion") + "\n\n" + status);
    } catch (std::exception const& error) {
        std::cerr << "depattr: " << error.what() << '\n';
        return exitBadInput;
    }

    // An unknown command is named as such, not reported as a missing one.
    if (argc > 1 && argv[1][0] != '-' && std::string_view(argv[1]) != "analyze" &&
        std::string_view(argv[1]) != "scan" && std::string_view(argv[1]) != "analyzers" &&
        std::string_view(argv[1]) != "completion") {
        std::cerr << "depattr: " << text("ErrorPrefix") << text("ErrorUnknownCommand", {escapeControls(argv[1])})
                  << suggestionFor(argv[1], {"analyze", "scan", "analyzers", "completion"}) << '\n'
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
        std::string reason = escapeControls(error.what());
        if (dynamic_cast<CLI::RequiredError const*>(&error) != nullptr && !analyze->parsed() && !scan->parsed() &&
            !list->parsed() && !completion->parsed()) {
            reason = text("ErrorNoCommand");
        } else if (dynamic_cast<CLI::ExtrasError const*>(&error) != nullptr) {
            if (auto const unexpected = unexpectedArguments(app, {analyze, scan, list, completion});
                !unexpected.empty()) {
                reason = unexpected;
            }
        }
        std::cerr << "depattr: " << text("ErrorPrefix") << reason << '\n' << text("HintHelp") << '\n';
        return exitBadInput;
    }

    try {
        if (completion->parsed()) {
            checkChoice("shell", completionShell, {"bash", "zsh"});
            writeStandardOutput(completionScript(completionShell, app));
            return exitClean;
        }
        if (list->parsed()) {
            checkChoice("--format", line.listFormat, {"text", "json"});
            return runListAnalyzers(line.listFormat);
        }
        line.scanning = scan->parsed();
        for (auto const* option : (line.scanning ? scan : analyze)->get_options()) {
            if (option->count() > 0) {
                line.given.insert(option->get_name());
            }
        }
        auto const options = programOptions(line);
        return line.scanning ? runScan(options, DEPATTR_VERSION) : runAnalyze(options, DEPATTR_VERSION);
    } catch (UsageError const& error) {
        std::cerr << "depattr: " << text("ErrorPrefix") << error.what() << '\n' << text("HintHelp") << '\n';
        return exitBadInput;
    } catch (EscapedError const& error) {
        // Already escaped, with real line breaks between its call lines.
        std::cerr << "depattr: " << text("ErrorPrefix") << error.what() << '\n';
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

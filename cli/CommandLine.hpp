#pragma once
// The options of `depattr analyze` as the command line gave them, and their
// merging with the configuration file and the defaults.

#include "cli/Options.hpp"

#include <set>
#include <string>
#include <vector>

namespace depattr::cli {

// What the command line said, before it is laid over the configuration.
struct CommandLine {
    std::string graph;  // empty: graph.json in the current folder
    // `depattr scan`: set by the program when that command runs; the folder
    // (default: the current folder) and --write-graph.
    bool scanning = false;
    std::string folder = ".";
    std::string writeGraph;
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
    bool exitZero = false;
    bool pruneBaseline = false;
    bool statistics = false;
    std::string listFormat = "text";
    // The options of `analyze` that were given, by CLI11 name ("--select", "--fail-on").
    std::set<std::string> given;
};

// The command line laid over the configuration file (--config, else the
// nearest depattr.toml above the graph file, or in or above the scanned
// folder, unless --no-config) laid over the defaults (a scan shows Warning and
// above unless told otherwise). Throws UsageError for a bad value or clashing options and
// ConfigError for a configuration file that cannot be used.
ProgramOptions programOptions(CommandLine const& line);

// Throws UsageError unless `value` is one of `choices`.
void checkChoice(std::string const& option, std::string const& value, std::vector<std::string> const& choices);

}  // namespace depattr::cli

#pragma once
// Everything that decides one run of `depattr analyze`: the command line laid
// over the configuration file laid over the defaults.

#include "attribute/Severity.hpp"
#include "scan/ProjectFile.hpp"

#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace depattr::cli {

enum class ColourChoice { Auto, Always, Never };

// Findings whose node path matches `glob` lose the finding IDs listed.
struct PathIgnore {
    std::string glob;                  // fnmatch(3) pattern; '*' also matches '/'
    std::vector<std::string> ids;      // finding IDs
    std::filesystem::path baseFolder;  // node paths under it are matched relative to it
};

// An analyzer name or finding ID unknown to the built-in analyzers, with the
// error that reports it unless a host-language analyzer turns out to know it.
struct UnresolvedName {
    std::string name;
    bool isAnalyzer = false;  // else a finding ID
    std::exception_ptr error;
};

// The `[scan]` table of depattr.toml: how `depattr scan` reads the folder.
struct ScanConfig {
    std::vector<std::filesystem::path> pathFolders;  // absolute; empty: the scanned tree
    std::vector<std::string> exclude;                // globs, relative to the scanned folder
    std::vector<depattr::scan::DerivedRule> derived;
    std::vector<std::string> knownFunctions;
    std::filesystem::path base;  // the configuration file's folder: derived patterns are relative to it
};

struct ProgramOptions {
    std::filesystem::path graph;  // `analyze`: the graph file
    // `scan`: the folder scanned (empty for `analyze`), its settings and where
    // the scanned graph is written (empty: nowhere).
    std::filesystem::path scanFolder;
    ScanConfig scan;
    std::filesystem::path writeGraph;
    std::vector<std::string> analyzers;  // empty: every analyzer, built-in and host
    dependency::attribute::Severity minimum = dependency::attribute::Severity::Information;
    dependency::attribute::Severity failOn = dependency::attribute::Severity::Warning;
    std::string format = "text";
    std::filesystem::path output;  // empty: standard output
    std::string locale;
    std::filesystem::path installRoot;
    // Folders of host-language analyzers (HostAnalyzers.hpp), checked to exist.
    std::vector<std::filesystem::path> analyzerPaths;
    std::vector<std::string> select;  // empty: every finding ID
    std::vector<std::string> ignore;
    std::vector<PathIgnore> pathIgnores;
    std::filesystem::path configFile;  // the file read, empty when none
    std::filesystem::path baseline;
    std::filesystem::path writeBaseline;
    ColourChoice colour = ColourChoice::Auto;
    // Rewrite the baseline without the entries no finding took (needs a run
    // of every analyzer and finding, at every severity).
    bool pruneBaseline = false;
    bool exitZero = false;    // exit 0 even when findings reach failOn (bad input is still 2)
    bool statistics = false;  // after the report, the count of findings per finding ID
    // Names left to check against the host-language analyzers once they are
    // loaded; always empty when there are no analyzer paths.
    std::vector<UnresolvedName> unresolved;
};

}  // namespace depattr::cli

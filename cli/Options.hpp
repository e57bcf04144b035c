#pragma once
// Everything that decides one run of `depattr analyze`: the command line laid
// over the configuration file laid over the defaults.

#include "attribute/Severity.hpp"

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

struct ProgramOptions {
    std::filesystem::path graph;
    std::vector<std::string> analyzers;  // empty: every built-in analyzer
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
};

}  // namespace depattr::cli

#pragma once
// The scanner: turns a folder of host-language code into a dependency graph.
// It reads code only through platform/codeanalysis (each file parsed once, in
// parallel, through the shared result cache) and never runs code. The rules
// (what becomes a node, which edges, how a name resolves) are in docs/scan.md;
// the node properties it records are in docs/graph-format.md.

#include "platform/graph/Graph.hpp"
#include "scan/ProjectFile.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace depattr::scan {

struct ScanSettings {
    // The folder to scan.
    std::filesystem::path folder;
    // Folders of the search path, in order (relative ones against `folder`).
    // Empty: the scanned folder and every ordinary folder below it, unless a
    // project file in the folder names path folders.
    std::vector<std::filesystem::path> pathFolders;
    // Globs of files and folders left out, matched against the path relative
    // to `folder` with '/' separators and against the bare name ('*' crosses
    // '/'; "build", "build/*" and "*.tmp" are typical).
    std::vector<std::string> exclude;
    // Derived-file rules with patterns relative to `folder` (added to those of
    // the project files).
    std::vector<DerivedRule> derived;
    // Names taken as built-in functions besides the shipped list.
    std::vector<std::string> knownFunctions;
    // Called while files are read and parsed with (files done, files in all);
    // from the scanning thread only, never concurrently.
    std::function<void(std::size_t done, std::size_t total)> progress;
    // Worker threads for parsing; 0 means one per core.
    unsigned threads = 0;
};

// A problem with one input that did not stop the scan. `line` and `column` are
// 1-based, both 0 when the problem has no place in the file.
struct ScanDiagnostic {
    std::filesystem::path file;
    std::size_t line = 0;
    std::size_t column = 0;
    std::string message;
};

struct ScanCounts {
    std::size_t files = 0;            // regular files met in the walk (excluded ones not counted)
    std::size_t codeFiles = 0;        // .qx files
    std::size_t parsed = 0;           // code files that parsed without error
    std::size_t syntaxErrors = 0;     // code files with a syntax error
    std::size_t unreadable = 0;       // code files that could not be read
    std::size_t functions = 0;        // function definitions found (main, local, nested, methods)
    std::size_t calls = 0;            // call sites looked up (built-in ones included)
    std::size_t resolvedCalls = 0;    // call sites that resolved to a definition in the tree or a product
    std::size_t builtinCalls = 0;     // call sites that resolved to a built-in function
    std::size_t unresolvedCalls = 0;  // call sites that resolved nowhere (reported)
    std::size_t unresolvedNames = 0;  // distinct names that resolved nowhere
    std::size_t projects = 0;         // project files read
};

struct ScanResult {
    std::shared_ptr<dependency::graph::Graph const> graph;
    // In the order files are walked (folders by name), then graph-wide ones.
    std::vector<ScanDiagnostic> diagnostics;
    ScanCounts counts;
};

// Scans settings.folder. Problems with single inputs become diagnostics; only a
// folder that cannot be scanned at all (absent, not a folder) throws ScanError.
ScanResult scanProject(ScanSettings const& settings);

class ScanError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace depattr::scan

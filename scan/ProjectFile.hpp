#pragma once
// Project files (*.qxproj): the XML form of a project, read with pugixml. The
// format is documented in docs/project-files.md.
//
//   <project name="app">
//     <reference project="lib"/>                 a project by name, found among the scanned project files
//     <reference path="../lib/lib.qxproj"/>      or by file, relative to this file's folder
//     <path folder="src"/>                       a folder on the project's search path, in order
//     <derived output="build/*.qxc" source="src/*.qx"/>   a derived-file rule
//   </project>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace depattr::scan {

// A project file that cannot be read or is not a valid project. what() reads
// "FILE:LINE:COLUMN: reason" (line and column 1-based, the column counted in
// bytes), or "FILE: reason" when there is no position (an unreadable file).
class ProjectFileError : public std::runtime_error {
public:
    ProjectFileError(std::string file, std::size_t line, std::size_t column, std::string const& reason);

    std::string const& file() const noexcept { return file_; }
    std::size_t line() const noexcept { return line_; }
    std::size_t column() const noexcept { return column_; }
    std::string const& reason() const noexcept { return reason_; }

private:
    std::string file_;
    std::size_t line_;
    std::size_t column_;
    std::string reason_;
};

// The largest project file read (16 MiB); a larger one is refused unread.
inline constexpr std::size_t maxProjectFileBytes = std::size_t{16} << 20;

// At most this many cycles are listed for one project: the shortest (then
// first by text) of the first maxCyclesSearched found. Projects that
// reference each other densely have exponentially many cycles.
inline constexpr std::size_t maxCyclesListed = 100;
inline constexpr std::size_t maxCyclesSearched = 1000;

// "build/*.qxc" = "src/*.qx": every file matching `output` (a glob relative to
// the rule's base folder) is derived from the file matching `source` with the
// same text in place of the '*' (one '*' at most on each side; without one, the
// output is derived from that one source file).
struct DerivedRule {
    std::string output;
    std::string source;
    std::size_t line = 0;  // where the rule is written (0: not from a file)
    std::size_t column = 0;
};

struct ProjectReference {
    std::string project;               // the referenced project's name, or empty
    std::filesystem::path file;        // the referenced project file (absolute, lexically normal), or empty
    std::size_t line = 0, column = 0;  // where the reference is written
};

struct ProjectFile {
    std::filesystem::path file;  // absolute, lexically normal
    std::string name;            // the project's name; the file's stem when the XML gives none
    std::vector<ProjectReference> references;
    std::vector<std::filesystem::path> pathFolders;  // absolute, lexically normal, in order
    std::vector<DerivedRule> derived;                // relative to the project file's folder
};

// Reads a project file. Throws ProjectFileError naming the file, line and
// column of the first problem (not UTF-8, not well-formed XML, not a
// <project> root, an unknown element or attribute, a missing, repeated or
// empty attribute, a reference with neither or both of project/path, a
// derived rule with more than one '*' on a side or a '*' in its source only).
ProjectFile readProjectFile(std::filesystem::path const& file);

// For every project (by index into `projects`) that lies on a reference cycle,
// the text of its "circularReferences" property: a JSON array with one string
// per elementary cycle through it, each "a > b > a" (project names, starting and
// ending at the project itself), cycles ordered by length, then by text (at
// most maxCyclesListed). Projects on no cycle get nothing (std::nullopt). A
// reference by file names the project read from that file, a reference by
// name the first project of that name among `projects`; unresolved
// references are ignored here.
std::vector<std::optional<std::string>> circularReferences(std::vector<ProjectFile> const& projects);

}  // namespace depattr::scan

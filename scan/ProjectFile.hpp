#pragma once
// Project files (*.qxproj): the XML form of a project, read with pugixml. The
// format is documented in docs/scan.md ("Project files").
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
#include <string>
#include <vector>

namespace depattr::scan {

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
// column of the first problem (not XML, not a <project> root, an unknown
// element or attribute, a reference with neither or both of project/path).
ProjectFile readProjectFile(std::filesystem::path const& file);

// For every project (by index into `projects`) that lies on a reference cycle,
// the text of its "circularReferences" property: a JSON array with one string
// per elementary cycle through it, each "a > b > a" (project names, starting and
// ending at the project itself), cycles in a deterministic order. Projects on
// no cycle get nothing (std::nullopt). References resolve by file first, then
// by name among `projects`; unresolved references are ignored here.
std::vector<std::optional<std::string>> circularReferences(std::vector<ProjectFile> const& projects);

}  // namespace depattr::scan

#include "scan/ProjectFile.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <map>

using namespace depattr::scan;
namespace fs = std::filesystem;

namespace {

ProjectFile project(std::string name, std::vector<std::string> references) {
    ProjectFile result;
    result.file = "/projects/" + name + ".qxproj";
    result.name = std::move(name);
    for (auto& reference : references) {
        ProjectReference entry;
        entry.project = std::move(reference);
        result.references.push_back(std::move(entry));
    }
    return result;
}

// The cycle lists by project name; "-" for a project on no cycle.
std::map<std::string, std::string> cyclesByName(std::vector<ProjectFile> const& projects) {
    auto const cycles = circularReferences(projects);
    std::map<std::string, std::string> result;
    for (std::size_t i = 0; i < projects.size(); ++i) {
        result[projects[i].name] = cycles.at(i).value_or("-");
    }
    return result;
}

}  // namespace

TEST(ProjectFileTest, ReadsNameReferencesPathFoldersAndDerivedRules) {
    depattr_test::ScratchFolder scratch("project-file");
    auto const file = scratch.write("app/app.qxproj", R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- a comment -->
<project name="caf&#233; &amp; co">
  <reference project="lib"/>
  <reference path="../lib/./lib.qxproj"></reference>
  <path folder="src"/>
  <path folder="/opt/shared/"/>
  <?tool ignored?>
      <derived output="build/*.qxc" source="src/*.qx"/>
  <derived output="out/report.txt" source="Makefile"/>
</project>
)");
    auto const read = readProjectFile(file);
    EXPECT_EQ(read.file, file.lexically_normal());
    EXPECT_EQ(read.name, "caf\xC3\xA9 & co");
    ASSERT_EQ(read.references.size(), 2U);
    EXPECT_EQ(read.references[0].project, "lib");
    EXPECT_TRUE(read.references[0].file.empty());
    EXPECT_EQ(std::make_pair(read.references[0].line, read.references[0].column), std::make_pair(4UL, 3UL));
    EXPECT_TRUE(read.references[1].project.empty());
    EXPECT_EQ(read.references[1].file, scratch.path() / "lib/lib.qxproj");
    EXPECT_EQ(read.references[1].line, 5U);
    EXPECT_EQ(read.pathFolders, (std::vector<fs::path>{scratch.path() / "app/src", "/opt/shared/"}));
    ASSERT_EQ(read.derived.size(), 2U);
    EXPECT_EQ(read.derived[0].output, "build/*.qxc");
    EXPECT_EQ(read.derived[0].source, "src/*.qx");
    EXPECT_EQ(std::make_pair(read.derived[0].line, read.derived[0].column), std::make_pair(9UL, 7UL));
    EXPECT_EQ(read.derived[1].source, "Makefile");

    // Without a name the project is named after its file; an empty project is valid.
    auto const unnamed = readProjectFile(scratch.write("tools.qxproj", "\xEF\xBB\xBF<project/>"));
    EXPECT_EQ(unnamed.name, "tools");
    EXPECT_TRUE(unnamed.references.empty() && unnamed.pathFolders.empty() && unnamed.derived.empty());
    // The example's project file reads.
    auto const example = readProjectFile(fs::path(DEPATTR_SOURCE_DIR) / "examples/project/app.qxproj");
    EXPECT_EQ(example.name, "app");
    EXPECT_EQ(example.references.size(), 2U);
}

TEST(ProjectFileTest, ReportsEveryProblemWhereItIs) {
    struct Case {
        std::string text;
        std::string message;  // after "FILE:"
    };
    std::vector<Case> const cases = {
        {"<project name=\"a\">\n  <reference project=\"b\">\n</project>",
         "3:3: not well-formed XML: Start-end tags mismatch"},
        {"", "1:1: not well-formed XML: No document element found"},
        {"<project", "1:8: not well-formed XML: Error parsing start element tag"},
        {"<solution name=\"a\"/>", "1:1: the root element is <solution>, not <project>"},
        {"<project/>\n<project/>", "2:1: a second top-level element <project>: a project file holds one <project>"},
        {"<project>\n  <refrence project=\"b\"/>\n</project>",
         "2:3: unknown element <refrence> in <project> (expected reference, path or derived)"},
        {"<project nme=\"a\"/>", "1:10: unknown attribute \"nme\" of <project> (expected name)"},
        {"<project>\n <path folder=\"a\" recursive=\"true\"/></project>",
         "2:19: unknown attribute \"recursive\" of <path> (expected folder)"},
        {"<project>\n  <reference/>\n</project>",
         "2:3: a <reference> names a project either by \"project\" or by \"path\", not neither"},
        {"<project><reference project=\"a\" path=\"a.qxproj\"/></project>",
         "1:10: a <reference> names a project either by \"project\" or by \"path\", not both"},
        {"<project name=\"\"/>", "1:10: attribute \"name\" of <project> is empty"},
        {"<project><path folder=''/></project>", "1:16: attribute \"folder\" of <path> is empty"},
        {"<project><reference project=\"\"/></project>", "1:21: attribute \"project\" of <reference> is empty"},
        {"<project name=\"a\" name=\"b\"/>", "1:19: attribute \"name\" is given twice in <project>"},
        {"<project><path/></project>", "1:10: <path> needs a \"folder\" attribute"},
        {"<project><derived output=\"a\"/></project>", "1:10: <derived> needs a \"source\" attribute"},
        {"<project><derived output=\"*/*.x\" source=\"*.y\"/></project>",
         "1:10: a <derived> rule holds one '*' at most in its output and in its source"},
        {"<project><derived output=\"a.x\" source=\"*.y\"/></project>",
         "1:10: a <derived> rule with a '*' in its source needs one in its output"},
        {"<project>\n  stray text\n</project>", "2:3: unexpected text in <project>"},
        {"<project><path folder=\"a\">x</path></project>", "1:27: unexpected text in <path>"},
        {"<project><path folder=\"a\"><sub/></path></project>",
         "1:27: unknown element <sub> in <path>: it takes attributes only"},
        {"<project name=\"a\xFF\"/>", "1:17: the file is not UTF-8 text (byte 0xFF)"},
        {"<project name=\"a\"/>\n\xC3", "2:1: the file is not UTF-8 text (byte 0xC3)"},
        {std::string("<project name=\"a\0\"/>", 20), "1:17: the file is not UTF-8 text (byte 0x00)"},
    };
    depattr_test::ScratchFolder scratch("project-file");
    for (auto const& [text, message] : cases) {
        auto const file = scratch.write("bad.qxproj", text);
        auto const error = depattr_test::thrown<ProjectFileError>([&] { readProjectFile(file); });
        ASSERT_TRUE(error) << text;
        EXPECT_EQ(error->what(), file.string() + ":" + message) << text;
        EXPECT_EQ(error->file(), file.string());
        EXPECT_EQ(std::to_string(error->line()) + ":" + std::to_string(error->column()) + ": " + error->reason(),
                  message);
    }
    auto const missing = scratch.path() / "missing.qxproj";
    EXPECT_EQ(depattr_test::whatOf<ProjectFileError>([&] { readProjectFile(missing); }),
              missing.string() + ": cannot read the project file: No such file or directory");
    EXPECT_EQ(depattr_test::whatOf<ProjectFileError>([&] { readProjectFile(scratch.path()); }),
              scratch.path().string() + ": cannot read the project file: it is a folder");
}

TEST(ProjectFileTest, ListsEveryElementaryCycleThroughEachProject) {
    struct Case {
        std::string what;
        std::vector<ProjectFile> projects;
        std::map<std::string, std::string> expected;
    };
    std::vector<Case> const cases = {
        {"the example's projects",
         {project("app", {"lib", "tools", "vendor"}), project("lib", {"app"}), project("tools", {"lib"})},
         {{"app", R"(["app > lib > app", "app > tools > lib > app"])"},
          {"lib", R"(["lib > app > lib", "lib > app > tools > lib"])"},
          {"tools", R"(["tools > lib > app > tools"])"}}},
        {"no cycle, a repeated reference",
         {project("a", {"b", "b"}), project("b", {"c"}), project("c", {})},
         {{"a", "-"}, {"b", "-"}, {"c", "-"}}},
        {"a project referencing itself",
         {project("a", {"a", "b"}), project("b", {})},
         {{"a", R"(["a > a"])"}, {"b", "-"}}},
        {"order by length, then text, whatever the order written",
         {project("z", {"y", "x"}), project("y", {"z"}), project("x", {"w"}), project("w", {"z"})},
         {{"z", R"(["z > y > z", "z > x > w > z"])"},
          {"y", R"(["y > z > y"])"},
          {"x", R"(["x > w > z > x"])"},
          {"w", R"(["w > z > x > w"])"}}},
        {"names escaped as JSON text",
         {project("q\"uote\\", {"t\tab"}), project("t\tab", {"q\"uote\\"})},
         {{"q\"uote\\", R"(["q\"uote\\ > t\tab > q\"uote\\"])"}, {"t\tab", R"(["t\tab > q\"uote\\ > t\tab"])"}}},
    };
    for (auto const& [what, projects, expected] : cases) {
        EXPECT_EQ(cyclesByName(projects), expected) << what;
    }

    // A reference by file names the project read from that file, even when a
    // project of the same name comes first.
    auto decoy = project("lib", {});
    decoy.file = "/elsewhere/lib.qxproj";
    auto app = project("app", {});
    ProjectReference byFile;
    byFile.file = "/projects/sub/../lib.qxproj";
    app.references.push_back(byFile);
    auto const withFiles = circularReferences({decoy, app, project("lib", {"app"})});
    EXPECT_EQ(withFiles[0], std::nullopt);
    EXPECT_EQ(withFiles[1], R"(["app > lib > app"])");
}

TEST(ProjectFileTest, BoundsTheCyclesOfDenseAndLongReferenceGraphs) {
    // Every one of 9 projects references every other: over 100,000 cycles through each.
    std::vector<ProjectFile> dense;
    for (char name = 'a'; name < 'j'; ++name) {
        std::vector<std::string> others;
        for (char other = 'a'; other < 'j'; ++other) {
            if (other != name) {
                others.emplace_back(1, other);
            }
        }
        dense.push_back(project(std::string(1, name), others));
    }
    auto const cycles = circularReferences(dense);
    for (auto const& list : cycles) {
        ASSERT_TRUE(list);
        ASSERT_TRUE(list->starts_with("[\"") && list->ends_with("\"]")) << *list;
        // The listed cycles, in order: no longer one before a shorter one.
        std::vector<std::string> listed;
        std::string_view rest = std::string_view(*list).substr(2, list->size() - 4);
        for (std::size_t end = 0; end != std::string_view::npos; rest.remove_prefix(end + 4)) {
            end = rest.find("\", \"");
            listed.emplace_back(rest.substr(0, end));
            if (end == std::string_view::npos) {
                break;
            }
        }
        EXPECT_EQ(listed.size(), maxCyclesListed);
        EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end(), [](std::string const& a, std::string const& b) {
            return std::make_pair(a.size(), a) < std::make_pair(b.size(), b);
        }));
        EXPECT_EQ(listed.front().front(), listed.front().back());
    }

    // A ring of 1,000 projects: one cycle each, found without a deep call stack.
    std::vector<ProjectFile> ring;
    for (int i = 0; i < 1000; ++i) {
        ring.push_back(project("p" + std::to_string(i), {"p" + std::to_string((i + 1) % 1000)}));
    }
    auto const ringCycles = circularReferences(ring);
    EXPECT_TRUE(ringCycles[0]->starts_with(R"(["p0 > p1 > p2 > )"));
    EXPECT_TRUE(ringCycles[0]->ends_with(R"( > p999 > p0"])"));
    EXPECT_TRUE(ringCycles[999]->starts_with(R"(["p999 > p0 > p1 > )"));
}

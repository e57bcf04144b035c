// The graph a scan builds: node kinds, IDs, properties and edges, products and packages, projects and derived
// files, and the same graph whatever the thread timing.

#include "ScanTestSupport.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "support/Scratch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace {

namespace fs = std::filesystem;
using depattr::scan::scanProject;
using depattr::scan::ScanSettings;
using depattr_test::ScratchFolder;
using dependency::graph::Type;
using dependency::toolbox::ProductInfo;
using dependency::toolbox::ToolboxFinder;
using scan_test::edges;
using scan_test::property;
using scan_test::text;
using testing::Contains;
using testing::ElementsAre;

class ScanGraphTest : public testing::Test {
protected:
    void TearDown() override { ToolboxFinder::setInstance(nullptr); }
};

TEST_F(ScanGraphTest, NodesCarryWhereTheyComeFrom) {
    ScratchFolder scratch("depattr-scan");
    scratch.write("src/main.qx",
                  "function main\nx = helper(1);\ntext = fileread('notes.txt');\n"
                  "d = load('data/missing.mat');\nnowhere(x)\nend\n");
    scratch.write("src/helper.qx", "function y = helper(x)\ny = x;\nend\n");
    scratch.write("src/notes.txt", "hello\n");
    scratch.write("src/broken.qx", "function broken\nx = (1 + ;\nend\n");
    scratch.write("other.qx", "function other\nhelper(2)\nnowhere\nend\n");

    ScanSettings settings;
    settings.folder = scratch.path();
    auto const result = scanProject(settings);
    auto const& graph = *result.graph;

    std::vector<std::string> ids;
    for (auto const& node : graph.getNodes()) {
        ids.push_back(text(node->getID()) + " " + std::string(node->getType().name()) +
                      (node->isResolved() ? "" : " unresolved"));
    }
    EXPECT_THAT(ids, ElementsAre("other.qx file", "src/broken.qx file", "src/helper.qx file", "src/main.qx file",
                                 "src/notes.txt file", "src/data/missing.mat file unresolved",
                                 "src/helper.qx>helper function", "unresolved:nowhere function unresolved"))
        << "node order: code files in walk order, referenced files, then functions in order of first use";

    // A file that does not parse says where and why; one that parses has no such property.
    EXPECT_EQ(property(graph, u"src/broken.qx", u"syntaxError"), "true");
    EXPECT_EQ(property(graph, u"src/broken.qx", u"syntaxErrorAt"), "2:10");
    EXPECT_NE(property(graph, u"src/broken.qx", u"syntaxErrorMessage"), "<none>");
    EXPECT_EQ(property(graph, u"src/main.qx", u"syntaxError"), "<none>");
    EXPECT_THAT(scan_test::diagnostics(result, scratch.path()), Contains(testing::StartsWith("src/broken.qx:2:10: ")));

    // Functions: defining file and name, the definition's place, every call site.
    auto const helper = graph.findNode(u"src/helper.qx>helper");
    ASSERT_TRUE(helper);
    EXPECT_THAT(helper->getLocation(), ElementsAre((scratch.path() / "src/helper.qx").u16string(), u"helper"));
    EXPECT_EQ(text(helper->getPath()), (scratch.path() / "src/helper.qx").string());
    EXPECT_EQ(property(graph, u"src/helper.qx>helper", u"definedAt"), "1:14");
    EXPECT_EQ(property(graph, u"src/helper.qx>helper", u"callSites"), R"(["other.qx:2:1","src/main.qx:2:5"])");
    auto const nowhere = graph.findNode(u"unresolved:nowhere");
    ASSERT_TRUE(nowhere);
    EXPECT_EQ(nowhere->getLocation().at(1), u"nowhere");
    EXPECT_FALSE(nowhere->getLocation().at(0).empty());
    EXPECT_EQ(property(graph, u"unresolved:nowhere", u"callSites"), R"(["other.qx:3:1","src/main.qx:5:1"])");

    // Files read by code: found beside the caller, or unresolved where the caller would read it.
    EXPECT_EQ(text(graph.findNode(u"src/notes.txt")->getLocation().at(0)), (scratch.path() / "src/notes.txt").string());
    EXPECT_EQ(property(graph, u"src/notes.txt", u"referencedAt"), R"(["src/main.qx:3:17"])");
    EXPECT_THAT(edges(graph),
                ElementsAre("other.qx -call-> src/helper.qx>helper", "other.qx -call-> unresolved:nowhere",
                            "src/main.qx -call-> src/helper.qx>helper", "src/main.qx -call-> unresolved:nowhere",
                            "src/main.qx -reference-> src/notes.txt", "src/main.qx -reference-> src/data/missing.mat"));
    EXPECT_EQ(result.counts.codeFiles, 4u);
    EXPECT_EQ(result.counts.parsed, 3u);
    EXPECT_EQ(result.counts.syntaxErrors, 1u);
    EXPECT_EQ(result.counts.unresolvedNames, 1u);
    EXPECT_EQ(result.counts.unresolvedCalls, 2u);
}

TEST_F(ScanGraphTest, ProductsPackagesProjectsAndDerivedFiles) {
    ScratchFolder scratch("depattr-scan");
    fs::path const root = scratch.path() / "app";
    fs::path const tools = scratch.path() / "install/tools";
    fs::path const tiles = scratch.path() / "install/tiles";
    fs::path const gone = scratch.path() / "install/gone";
    scratch.write("install/tools/smooth.qx", "function smooth\nend\n");
    scratch.write("install/tiles/+tiles/draw.qx", "function draw\nend\n");
    scratch.write("install/tiles/resources/pkgdef.json",
                  R"({"name": "tiles", "id": "c0ffee00-1234-4abc-8def-0123456789ab", "version": "0.9.0"})");
    scratch.write("install/gone/fit.qx", "function fit\nend\n");
    ToolboxFinder::setInstance(std::make_shared<ToolboxFinder>(
        ToolboxFinder::ProductList{std::make_shared<ProductInfo>(u"Tools", u"TL", 1, true, tools.u16string(),
                                                                 std::vector<std::u16string>{u"tools"}),
                                   std::make_shared<ProductInfo>(u"Tiles", u"TI", 3, true, tiles.u16string(),
                                                                 std::vector<std::u16string>{u"tiles"}),
                                   std::make_shared<ProductInfo>(u"Gone", u"GO", 1, false, gone.u16string(),
                                                                 std::vector<std::u16string>{u"gone", u"gone/v2"})}));

    scratch.write("app/main.qx", "function main\nsmooth()\ntiles.draw()\nfit()\nend\n");
    scratch.write("app/src/a.qx", "function a\nend\n");
    scratch.write("app/build/a.qxc", "compiled");
    scratch.write("app/app.qxproj",
                  R"(<project name="app"><reference project="lib"/><reference project="vendor"/></project>)");
    scratch.write("app/lib/lib.qxproj", R"(<project name="lib"><reference project="app"/></project>)");

    ScanSettings settings;
    settings.folder = root;
    settings.derived = {{"build/*.qxc", "src/*.qx", 0, 0}};
    auto const result = scanProject(settings);
    auto const& graph = *result.graph;

    EXPECT_THAT(edges(graph),
                ElementsAre("project:app.qxproj -reference-> project:lib/lib.qxproj",
                            "project:app.qxproj -reference-> project:?vendor",
                            "project:lib/lib.qxproj -reference-> project:app.qxproj",
                            "main.qx -call-> TL:smooth.qx>smooth", "main.qx -call-> TI:+tiles/draw.qx>tiles/draw",
                            "main.qx -call-> GO:fit.qx>fit", "main.qx -requirement-> product:tools",
                            "main.qx -requirement-> product:tiles", "main.qx -requirement-> package:tiles",
                            "main.qx -requirement-> product:gone", "build/a.qxc -derived-> src/a.qx"));

    auto const package = graph.findNode(u"package:tiles");
    ASSERT_TRUE(package);
    EXPECT_EQ(package->getType(), Type::PACKAGE());
    EXPECT_THAT(package->getLocation(),
                ElementsAre(tiles.u16string(), u"tiles", u"0.9.0", u"c0ffee00-1234-4abc-8def-0123456789ab"));
    EXPECT_EQ(package->getPath(), tiles.u16string());
    auto const product = graph.findNode(u"product:gone");
    ASSERT_TRUE(product);
    // Both locators denote the one product: the first alone, so that a
    // missing product is reported once.
    EXPECT_THAT(product->getLocation(), ElementsAre(u"gone"));
    EXPECT_EQ(text(product->getName()), "Gone");

    auto const derived = graph.findNode(u"build/a.qxc");
    ASSERT_TRUE(derived);
    EXPECT_EQ(derived->getType(), Type::DERIVED());
    EXPECT_TRUE(derived->isFile());
    EXPECT_FALSE(graph.findNode(u"project:?vendor")->isResolved());
    EXPECT_EQ(property(graph, u"project:app.qxproj", u"circularReferences"), R"(["app > lib > app"])");
    EXPECT_EQ(property(graph, u"project:lib/lib.qxproj", u"circularReferences"), R"(["lib > app > lib"])");
}

TEST_F(ScanGraphTest, TheSameFolderGivesTheSameGraphWhateverTheThreads) {
    ScratchFolder scratch("depattr-scan");
    for (int i = 0; i < 60; ++i) {
        auto const name = "f" + std::to_string(i);
        scratch.write("d" + std::to_string(i % 7) + "/" + name + ".qx",
                      "function " + name + "\nf" + std::to_string((i * 7 + 3) % 60) + "()\nmissing" +
                          std::to_string(i % 5) + "()\nend\n");
    }
    std::vector<std::vector<std::string>> shapes;
    for (unsigned threads : {1u, 2u, 4u, 8u}) {
        ScanSettings settings;
        settings.folder = scratch.path();
        settings.threads = threads;
        std::size_t lastDone = 0;
        bool ordered = true;
        settings.progress = [&](std::size_t done, std::size_t total) {
            ordered = ordered && done >= lastDone && total == 60;
            lastDone = done;
        };
        auto const result = scanProject(settings);
        EXPECT_TRUE(ordered);
        EXPECT_EQ(lastDone, 60u);
        std::vector<std::string> shape;
        for (auto const& node : result.graph->getNodes()) {
            shape.push_back(text(node->getID()));
        }
        auto const e = edges(*result.graph);
        shape.insert(shape.end(), e.begin(), e.end());
        shapes.push_back(shape);
    }
    for (auto const& shape : shapes) {
        EXPECT_EQ(shape, shapes.front());
    }
}

}  // namespace

// Uses are grouped by name before they reach their nodes; where two names of a file reach one function (through an
// import), its call sites and edges still come in the order of the code, and one edge per function and type.
TEST_F(ScanGraphTest, TwoNamesOfOneFunctionKeepTheCodesOrder) {
    ScratchFolder scratch("depattr-scan");
    scratch.write("+pkg/f.qx", "function f\nend\n");
    scratch.write("+pkg/Base.qx", "classdef Base\nend\n");
    scratch.write("main.qx", "function main\nimport pkg.*\npkg.f()\nf()\npkg.f()\nf()\nother()\nend\n");
    scratch.write("other.qx", "function other\nend\n");
    scratch.write("Kid.qx", "classdef Kid < pkg.Base\nmethods\nfunction k(obj)\npkg.Base()\nend\nend\nend\n");
    ScanSettings settings;
    settings.folder = scratch.path();
    for (unsigned threads : {1u, 2u}) {
        settings.threads = threads;
        auto const result = scanProject(settings);
        EXPECT_EQ(property(*result.graph, u"+pkg/f.qx>pkg/f", u"callSites"),
                  R"(["main.qx:3:1","main.qx:4:1","main.qx:5:1","main.qx:6:1"])");
        EXPECT_EQ(edges(*result.graph),
                  (std::vector<std::string>{"Kid.qx -inheritance-> +pkg/Base.qx>pkg/Base",
                                            "Kid.qx -call-> +pkg/Base.qx>pkg/Base", "main.qx -call-> +pkg/f.qx>pkg/f",
                                            "main.qx -call-> other.qx>other"}));
        EXPECT_EQ(result.counts.resolvedCalls, 7u);
    }
}

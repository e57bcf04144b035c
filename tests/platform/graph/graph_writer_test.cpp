#include "platform/graph/GraphBuilder.hpp"
#include "platform/graph/GraphFile.hpp"
#include "platform/graph/GraphWriter.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <sstream>

using namespace dependency::graph;
namespace fs = std::filesystem;

namespace {

NodeData data(std::u16string id, Type type, std::u16string path = {}, std::vector<std::u16string> location = {}) {
    NodeData node;
    node.id = std::move(id);
    node.name = node.id;
    node.type = type;
    node.path = std::move(path);
    node.location = std::move(location);
    node.isFile = type == Type::FILE() || type == Type::DERIVED();
    if (node.isFile && node.location.empty() && !node.path.empty()) {
        node.location.push_back(node.path);  // as the loader makes a file node that gives only its path
    }
    return node;
}

std::string written(Graph const& graph, fs::path const& base) {
    std::ostringstream out;
    writeGraph(out, graph, base);
    return out.str();
}

// Every field of every node and every edge, in order, as comparable text.
std::vector<std::u16string> describe(Graph const& graph) {
    std::vector<std::u16string> lines;
    for (auto const& node : graph.getNodes()) {
        std::u16string line =
            node->getID() + u"|" + std::u16string(node->getType().name().begin(), node->getType().name().end());
        line += u"|" + node->getName() + u"|" + node->getPath() + u"|";
        for (auto const& entry : node->getLocation()) {
            line += entry + u";";
        }
        line += node->isFile() ? u"|file" : u"|notfile";
        line += node->isResolved() ? u"|resolved" : u"|unresolved";
        for (auto const& [key, value] : node->getProperties()) {
            line += u"|" + key + u"=" + value;
        }
        lines.push_back(line);
        for (auto const& edge : graph.getDownstreamDependencies(*node)) {
            auto const relationship = edge->getRelationship().name();
            lines.push_back(u"  -> " + edge->getDownstreamNode()->getID() + u" " +
                            std::u16string(relationship.begin(), relationship.end()));
        }
    }
    return lines;
}

}  // namespace

TEST(GraphWriterTest, RoundTripKeepsEveryNodeEdgeAndOrder) {
    depattr_test::ScratchFolder scratch("graph-writer");
    auto const base = scratch.path().u16string();
    GraphBuilder builder;
    builder.addNode(data(u"src/a.qx", Type::FILE(), base + u"/src/a.qx"));  // path below the base
    auto unusual = data(u"caf\u00e9 \"q\" \\ \t\n\x01 \U0001F600", Type::FILE(), u"/elsewhere/\u00e9t\u00e9.qx");
    unusual.name = u"name with\r\ncontrol \x1f and \u2028";
    builder.addNode(std::move(unusual));
    // A file node with a location beside its path, and one with an empty location.
    builder.addNode(data(u"two", Type::FILE(), base + u"/two.qx", {base + u"/other.qx", u"extra"}));
    auto emptyLocation = data(u"emptyLocation", Type::FILE(), base + u"/e.qx");
    emptyLocation.location.clear();
    builder.addNode(std::move(emptyLocation));
    auto fileWithoutPath = data(u"noPath", Type::FILE(), u"", {base + u"/loc.qx"});
    builder.addNode(std::move(fileWithoutPath));
    builder.addNode(data(u"fn", Type::FUNCTION(), base + u"/src/a.qx", {base + u"/src/a.qx", u"pkg/solve"}));
    // A function node read without a path takes its location entry 0, so the
    // round trip starts from one that has it.
    auto missing = data(u"missingFn", Type::FUNCTION(), u"/outside/x.qx", {u"/outside/x.qx", u"gone"});
    missing.resolved = false;
    builder.addNode(std::move(missing));
    builder.addNode(data(u"product:signal", Type::PRODUCT(), u"", {u"signal", u"sig2"}));
    builder.addNode(data(u"package:geo", Type::PACKAGE(), base + u"/pkgs/geo",
                         {base + u"/pkgs/geo", u"geo", u"1.0", u"7a1e5c2d-3b4f-4c6a-9d8e-1f2a3b4c5d6e"}));
    auto project = data(u"project:app", Type::PROJECT(), base + u"/app.qxproj");
    project.properties[u"circularReferences"] = u"[\"app > lib > app\", \"app > \\\"q\\\" > app\"]";
    project.properties[u"syntaxError"] = u"true";
    project.properties[u"callSites"] = u"[\"looks like JSON but is text\"";
    project.properties[u"note"] = u"\u65e5\u672c \"x\"\n";
    builder.addNode(std::move(project));
    auto unresolvedProject = data(u"project:vendor", Type::PROJECT());
    unresolvedProject.resolved = false;
    unresolvedProject.properties[u"circularReferences"] = u"[]";
    builder.addNode(std::move(unresolvedProject));
    auto fileProject = data(u"project:asFile", Type::PROJECT(), u"", {base + u"/p.qxproj"});
    fileProject.isFile = true;  // the loader resolves entry 0 of any file-like node
    builder.addNode(std::move(fileProject));
    auto notAFile = data(u"derived:x", Type::DERIVED(), u"/abs/out/../x.bin", {u"/abs/out/../x.bin"});
    notAFile.isFile = false;
    builder.addNode(std::move(notAFile));
    builder.addNode(data(u"build/a.qxc", Type::DERIVED(), base + u"/build/a.qxc"));
    // Below the base but not in normal form: kept absolute, so it comes back unchanged.
    builder.addNode(data(u"odd", Type::FILE(), base + u"/x/../odd.qx"));
    builder.addNode(data(u"base", Type::FILE(), base));

    builder.addDependency(u"build/a.qxc", u"src/a.qx", Type::DERIVED());
    builder.addDependency(u"src/a.qx", u"fn", Type::CALL());
    builder.addDependency(u"src/a.qx", u"missingFn", Type::CALL());
    builder.addDependency(u"src/a.qx", u"product:signal", Type::REQUIREMENT());
    builder.addDependency(u"fn", u"package:geo", Type::REFERENCE());
    builder.addDependency(u"fn", u"fn", Type::INHERITANCE());
    builder.addDependency(u"project:app", u"project:vendor", Type::REFERENCE());
    builder.addDependency(u"caf\u00e9 \"q\" \\ \t\n\x01 \U0001F600", u"src/a.qx", Type::CALL());
    builder.addDependency(u"src/a.qx", u"two", Type::REFERENCE());
    auto const graph = builder.build();

    auto const file = scratch.path() / "graph.json";
    writeGraphFile(file, *graph);
    auto const loaded = loadGraphFile(file);
    EXPECT_EQ(describe(*loaded), describe(*graph));

    // Paths below the folder are written relative to it; others as they are.
    std::string const text = written(*graph, scratch.path());
    EXPECT_NE(text.find(R"({"id": "src/a.qx", "type": "file", "path": "src/a.qx"})"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("location": ["/outside/x.qx", "gone"])"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("circularReferences": ["app > lib > app", "app > \"q\" > app"])"), std::string::npos);
    EXPECT_EQ(text.find(scratch.path().string() + "/src"), std::string::npos) << text;
    EXPECT_NE(text.find(scratch.path().string() + "/x/../odd.qx"), std::string::npos) << text;
    // Control characters are escaped, non-ASCII text is UTF-8.
    EXPECT_NE(text.find("\"caf\xC3\xA9 \\\"q\\\" \\\\ \\t\\n\\u0001 \xF0\x9F\x98\x80\""), std::string::npos) << text;
    EXPECT_NE(text.find(R"("name with\r\ncontrol \u001f and )"), std::string::npos) << text;

    // Without a base folder every path is written as it is, and the text
    // parsed without one gives the same graph again.
    auto const reparsed = parseGraph(written(*graph, {}), "g.json", {});
    EXPECT_EQ(describe(*reparsed), describe(*graph));
    // Written again, a loaded graph gives the same text.
    EXPECT_EQ(written(*loaded, scratch.path()), text);
}

TEST(GraphWriterTest, WritesTheDocumentedLayout) {
    GraphBuilder builder;
    builder.addNode(data(u"/p/src/a.qx", Type::FILE(), u"/p/src/a.qx"));
    auto function = data(u"solve", Type::FUNCTION(), u"/p/src/a.qx", {u"/p/src/a.qx", u"solve"});
    function.name = u"Solve";
    builder.addNode(std::move(function));
    auto project = data(u"project:app", Type::PROJECT());
    project.resolved = false;
    project.properties[u"circularReferences"] = u"[\"app > app\"]";
    project.properties[u"note"] = u"a\tb";
    builder.addNode(std::move(project));
    builder.addDependency(u"/p/src/a.qx", u"solve", Type::CALL());
    builder.addDependency(u"solve", u"project:app", Type::REFERENCE());
    EXPECT_EQ(written(*builder.build(), "/p"),
              R"({
  "format": "depattr-graph",
  "version": 1,
  "nodes": [
    {"id": "/p/src/a.qx", "type": "file", "path": "src/a.qx"},
    {"id": "solve", "type": "function", "name": "Solve", "path": "src/a.qx", "location": ["src/a.qx", "solve"]},
    {"id": "project:app", "type": "project", "resolved": false, "properties": {"circularReferences": ["app > app"], "note": "a\tb"}}
  ],
  "edges": [
    {"from": "/p/src/a.qx", "to": "solve", "type": "call"},
    {"from": "solve", "to": "project:app", "type": "reference"}
  ]
}
)");
    GraphBuilder empty;
    EXPECT_EQ(written(*empty.build(), {}),
              "{\n  \"format\": \"depattr-graph\",\n  \"version\": 1,\n  \"nodes\": [],\n  \"edges\": []\n}\n");
}

TEST(GraphWriterTest, RefusesWhatTheLoaderWouldRefuse) {
    for (std::u16string const value : {u"app > lib > app", u"[\"a\", 3]", u"[\"a\"] x", u"{\"a\": 1}", u"[\"a\""}) {
        GraphBuilder builder;
        auto project = data(u"project:app", Type::PROJECT());
        project.properties[u"circularReferences"] = value;
        builder.addNode(std::move(project));
        auto const message = depattr_test::whatOf<GraphWriteError>([&] { written(*builder.build(), {}); });
        EXPECT_NE(message.find("\"circularReferences\" of node \"project:app\" is not a JSON array of strings"),
                  std::string::npos)
            << message;
    }
    GraphBuilder builder;
    builder.addNode(u"a", Type::FILE());
    auto const graph = builder.build();
    std::ostringstream failed;
    failed.setstate(std::ios::badbit);
    EXPECT_THROW(writeGraph(failed, *graph, {}), GraphWriteError);
    auto const message =
        depattr_test::whatOf<GraphWriteError>([&] { writeGraphFile("/nonexistent-folder-of-depattr/g.json", *graph); });
    EXPECT_EQ(message, "/nonexistent-folder-of-depattr/g.json: cannot write the graph file");
}

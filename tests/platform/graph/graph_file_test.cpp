#include "platform/graph/GraphFile.hpp"
#include "platform/graph/GraphWriter.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

using namespace dependency::graph;
namespace fs = std::filesystem;

namespace {

std::shared_ptr<Graph const> parse(std::string_view text, std::filesystem::path const& base = "/base") {
    return parseGraph(text, "g.json", base);
}

// Parses text that must fail; returns the error.
GraphFileError parseError(std::string_view text) {
    return depattr_test::thrown<GraphFileError>([&] { parse(text); }).value_or(GraphFileError("", 0, 0, ""));
}

}  // namespace

TEST(GraphFileTest, ReadsEveryNodeFieldAndEdge) {
    auto const graph = parse(R"({
  "format": "depattr-graph", "version": 1,
  "nodes": [
    {"id": "f1", "type": "file", "path": "src/a.qx"},
    {"id": "fn", "type": "function", "name": "solve", "location": ["src/b.qx", "solve"], "path": "src/b.qx"},
    {"id": "p", "type": "product", "location": ["loc:one", "loc:two"], "resolved": false},
    {"id": "pkg", "type": "package", "path": "/abs/pkg", "location": ["a", "b", "c", "0f8fad5b-d9cb-469f-a165-70867728950e"]},
    {"id": "prj", "type": "project", "file": false,
     "properties": {"futureRelease": true, "note": "caf\u00e9", "circularReferences": ["A > B > A", "x"], "obj": {"k": 1}}},
    {"id": "d", "type": "derived", "path": "../out.bin"},
    {"id": "fn2", "type": "function", "location": ["src/c.qx", "g"]},
    {"id": "fn3", "type": "function", "path": "other.qx", "location": ["src/c.qx", "h"]}
  ],
  "edges": [
    {"from": "d", "to": "f1", "type": "derived"},
    {"from": "fn", "to": "p", "type": "requirement"}
  ]
})");
    ASSERT_EQ(graph->nodeCount(), 8u);
    auto const file = graph->findNode(u"f1");
    EXPECT_EQ(file->getType(), Type::FILE());
    EXPECT_TRUE(file->isFile());
    EXPECT_TRUE(file->isResolved());
    EXPECT_EQ(file->getName(), u"f1");
    EXPECT_EQ(file->getPath(), u"/base/src/a.qx");
    EXPECT_EQ(file->getLocation(), (std::vector<std::u16string>{u"/base/src/a.qx"}));

    auto const function = graph->findNode(u"fn");
    EXPECT_FALSE(function->isFile());
    EXPECT_EQ(function->getName(), u"solve");
    EXPECT_EQ(function->getLocation(), (std::vector<std::u16string>{u"/base/src/b.qx", u"solve"}));
    // A function without a path is in the file its first location entry names.
    EXPECT_EQ(graph->findNode(u"fn2")->getPath(), u"/base/src/c.qx");
    EXPECT_EQ(graph->findNode(u"fn3")->getPath(), u"/base/other.qx");

    auto const product = graph->findNode(u"p");
    EXPECT_FALSE(product->isResolved());
    EXPECT_EQ(product->getLocation(), (std::vector<std::u16string>{u"loc:one", u"loc:two"}));

    EXPECT_EQ(graph->findNode(u"pkg")->getPath(), u"/abs/pkg");
    EXPECT_EQ(graph->findNode(u"pkg")->getLocation().at(3), u"0f8fad5b-d9cb-469f-a165-70867728950e");

    auto const project = graph->findNode(u"prj");
    EXPECT_EQ(project->getProperty(u"futureRelease"), u"true");
    EXPECT_EQ(project->getProperty(u"note"), u"caf\u00e9");
    EXPECT_EQ(project->getProperty(u"circularReferences"), u"[\"A > B > A\", \"x\"]");
    EXPECT_EQ(project->getProperty(u"obj"), u"{\"k\": 1}");

    EXPECT_EQ(graph->findNode(u"d")->getPath(), u"/out.bin");
    EXPECT_TRUE(graph->findNode(u"d")->isFile());

    std::size_t edges = 0;
    for (auto const& dependency : graph->getDownstreamDependencies(*graph->findNode(u"d"))) {
        EXPECT_EQ(dependency->getDownstreamNode()->getID(), u"f1");
        EXPECT_EQ(dependency->getRelationship(), Type::DERIVED());
        ++edges;
    }
    EXPECT_EQ(edges, 1u);
    EXPECT_EQ(graph->dependencyCount(), 2u);
}

TEST(GraphFileTest, ErrorsNameFileLineAndColumn) {
    struct Case {
        std::string_view text;
        std::size_t line;
        std::size_t column;
        std::string_view reasonPart;
    };
    Case const cases[] = {
        {"{\"nodes\": [\n  {\"id\": \"a\", \"type\": \"widget\"}\n]}", 2, 23, "unknown node type \"widget\""},
        {"{\"nodes\": [\n  {\"id\": \"a\", \"type\": \"call\"}\n]}", 2, 23, "unknown node type"},  // an edge type
        {"{\"nodes\": [{\"id\": \"a\", \"type\": \"file\"},\n {\"id\": \"a\", "
         "\"type\": \"file\"}]}",
         2, 2, "duplicate node ID \"a\" (first defined at line 1, column 12)"},
        {"{\"nodes\": [{\"id\": \"a\", \"type\": \"file\"}],\n \"edges\": "
         "[{\"from\": \"a\", \"to\": \"b\", \"type\": \"call\"}]}",
         2, 32, "edge end \"b\" is not a node"},
        {"{\"nodes\": [{\"id\": \"a\", \"type\": \"file\"}],\n \"edges\": "
         "[{\"from\": \"a\", \"to\": \"a\", \"type\": \"file\"}]}",
         2, 45, "unknown relationship type"},
        {"{\"nodes\": [{\"id\": \"a\", \"type\": \"file\", \"colour\": 1}]}", 1, 50, "unknown member \"colour\""},
        {"{\"nodes\": [{\"type\": \"file\"}]}", 1, 12, "non-empty \"id\""},
        {"{\"nodes\": [{\"id\": \"a\"}]}", 1, 12, "needs a \"type\""},
        {"{\"nodes\": [{\"id\": 7, \"type\": \"file\"}]}", 1, 19, "\"id\" must be a string"},
        {"{\"nodes\": {}}", 1, 11, "\"nodes\" must be an array"},
        {"{\"nodes\": [{\"id\": \"a\", \"type\": \"file\", \"resolved\": "
         "\"yes\"}]}",
         1, 52, "must be true or false"},
        {"{\"nodes\": [{\"id\": \"a\", \"type\": \"file\", \"properties\": "
         "{\"k\": 3}}]}",
         1, 60, "property \"k\""},
        {"{\"nodes\": [], \"version\": 2}", 1, 26, "unsupported graph-file version 2"},
        {"{\"edges\": []}", 0, 0, "no \"nodes\""},
        {"{\"nodes\": [], \"version\": \"1\"}", 1, 26, "\"version\" must be the number 1"},
        // Text that ends early is reported where it ends; stray text where it
        // starts.
        {"{\"nodes\": [\n  {\"id\": \"a\"", 2, 13, "ends before the graph is complete"},
        {"{\"nodes\": [{\"id\": \"a", 1, 21, "ends inside a string"},
        {"{\"nodes\": []}\n 5", 2, 2, "unexpected text after the graph"},
        {"5", 1, 1, "must hold one JSON object"},
        {"  ", 1, 3, "the file is empty"},
        // A byte-order mark is read past, its three bytes counted as columns
        // as every other byte of the line is; only at the start is it allowed.
        {"\xef\xbb\xbf{\"nodes\": [{\"id\": 7, \"type\": \"file\"}]}", 1, 22, "\"id\" must be a string"},
        {"\xef\xbb\xbf", 1, 4, "the file is empty"},
        {"\xef\xbb\xbf\xef\xbb\xbf{\"nodes\": []}", 1, 4, ""},
        {" \xef\xbb\xbf{\"nodes\": []}", 1, 2, ""},
        // What each node kind needs for the analyzers that read it.
        {"{\"nodes\": [{\"id\": \"f\", \"type\": \"function\", \"location\": "
         "[\"a.qx\"]}]}",
         1, 56, "a function node needs a \"location\""},
        {"{\"nodes\": [{\"id\": \"f\", \"type\": \"function\"}]}", 1, 12, "a function node needs"},
        {"{\"nodes\": [{\"id\": \"p\", \"type\": \"package\", \"location\": "
         "[\"a\", \"b\", \"c\"]}]}",
         1, 55, "four entries"},
        {"{\"nodes\": [{\"id\": \"p\", \"type\": \"package\", \"location\": "
         "[\"a\", \"b\", \"c\", \"0f8fad5b\"]}]}",
         1, 55, "must be a UUID such as"},
        {"{\"nodes\": [{\"id\": \"d\", \"type\": \"derived\"}]}", 1, 12, "a derived node needs a \"path\""},
        {"{\"nodes\": [{\"id\": \"p\", \"type\": \"project\", \"properties\": "
         "{\"circularReferences\": [\"a\", 3]}}]}",
         1, 86, "each element of \"circularReferences\" must be a string"},
        {"{\"nodes\": [{\"id\": \"p\", \"type\": \"project\", \"properties\": "
         "{\"circularReferences\": \"[]\"}}]}",
         1, 80, "must be an array of strings"},
    };
    for (auto const& c : cases) {
        auto const error = parseError(c.text);
        EXPECT_EQ(error.file(), "g.json") << c.text;
        EXPECT_EQ(error.line(), c.line) << c.text << " -> " << error.what();
        EXPECT_EQ(error.column(), c.column) << c.text << " -> " << error.what();
        EXPECT_NE(error.reason().find(c.reasonPart), std::string::npos) << error.what();
        if (c.line > 0) {
            EXPECT_EQ(std::string(error.what()).rfind("g.json:" + std::to_string(c.line) + ":", 0), 0u) << error.what();
        }
    }
}

TEST(GraphFileTest, AByteOrderMarkBeforeTheGraphIsReadPast) {
    auto const graph = parse("\xef\xbb\xbf{\"nodes\": [{\"id\": \"a\", \"type\": \"file\"}]}");
    ASSERT_EQ(graph->nodeCount(), 1u);
    EXPECT_NE(graph->findNode(u"a"), nullptr);

    depattr_test::ScratchFolder const scratch("depattr_bom");
    auto const file = scratch.path() / "graph.json";
    std::ofstream(file) << "\xef\xbb\xbf{\"nodes\": [\n  {\"id\": \"b\", \"type\": \"file\"}\n]}\n";
    NodePositions positions;
    auto const loaded = loadGraphFile(file, {.positions = &positions});
    auto const where = positions.positionOf(*loaded, *loaded->findNode(u"b"));
    ASSERT_TRUE(where);
    EXPECT_EQ(where->line, 2u);
    EXPECT_EQ(where->column, 3u);
}

// A large file is mapped and its memory given back as it is read; it reads
// as the same text parsed from memory does, errors that point back to the
// beginning of the file included, a byte-order mark before it included.
TEST(GraphFileTest, ALargeFileReadsAsItsTextDoes) {
    depattr_test::ScratchFolder const scratch("depattr_large");
    auto const file = scratch.path() / "graph.json";
    std::string nodes = "\xef\xbb\xbf{\"nodes\": [\n";
    for (int i = 0; i < 60000; ++i) {
        nodes += (i ? ",\n" : "") + std::string("  {\"id\": \"node") + std::to_string(i) + "\", \"type\": \"file\"}";
    }
    std::string const edges = "],\n\"edges\": [{\"from\": \"node0\", \"to\": \"node59999\", \"type\": \"call\"}";
    std::string const text = nodes + edges + "]}\n";
    ASSERT_GT(text.size(), smallestMappedGraphFile + (std::size_t{1} << 20));
    depattr_test::writeBytes(file, text);
    NodePositions positions;
    auto const loaded = loadGraphFile(file, {.positions = &positions});
    EXPECT_EQ(loaded->nodeCount(), 60000u);
    EXPECT_EQ(loaded->dependencyCount(), 1u);
    auto const where = positions.positionOf(*loaded, *loaded->findNode(u"node0"));
    ASSERT_TRUE(where);
    EXPECT_EQ(where->line, 2u);
    EXPECT_EQ(where->column, 3u);

    auto const sameError = [&](std::string const& broken) {
        depattr_test::writeBytes(file, broken);
        auto const fromFile = depattr_test::thrown<GraphFileError>([&] { loadGraphFile(file); });
        auto const fromText = depattr_test::thrown<GraphFileError>([&] { parseGraph(broken, file.string(), "/"); });
        ASSERT_TRUE(fromFile && fromText);
        EXPECT_EQ(fromFile->line(), fromText->line());
        EXPECT_EQ(fromFile->column(), fromText->column());
        EXPECT_EQ(fromFile->reason(), fromText->reason());
    };
    sameError(nodes + ",\n{\"id\": \"node0\", \"type\": \"file\"}" + edges + "]}\n");
    sameError(nodes + edges + ", {\"from\": \"node1\", \"to\": \"gone\", \"type\": \"call\"}]}\n");
    sameError(nodes + edges + "]} trailing\n");

    // A file cut short while it is read is reported as such, whatever the
    // reader made of the zeros that stand for what has gone.
    depattr_test::writeBytes(file, text);
    bool cut = false;
    auto const shrank = depattr_test::thrown<GraphFileError>([&] {
        loadGraphFile(file, {.progress = [&](std::size_t, std::size_t) {
                          if (!cut) {
                              fs::resize_file(file, smallestMappedGraphFile);
                              cut = true;
                          }
                      }});
    });
    ASSERT_TRUE(cut);
    ASSERT_TRUE(shrank);
    EXPECT_EQ(shrank->reason(), "cannot read the graph file: it shrank while it was read");
    EXPECT_EQ(shrank->line(), 0u);
}

TEST(GraphFileTest, NodePositionsAndProgressComeFromTheOnePass) {
    depattr_test::ScratchFolder const scratch("depattr_positions");
    auto const& folder = scratch.path();
    auto const file = folder / "graph.json";
    std::string text = "{\"nodes\": [\n";
    for (int i = 0; i < 5000; ++i) {
        text += (i ? ",\n" : "") + std::string(i == 4321 ? "   " : "  ") + "{\"id\": \"n" + std::to_string(i) +
                "\", \"type\": \"file\"" + (i ? "" : ", \"path\": \"x/a.qx\"") + "}";
    }
    std::ofstream(file) << text << "\n]}\n";
    NodePositions positions;
    std::vector<std::size_t> progress;
    auto const graph =
        loadGraphFile(file, {.positions = &positions, .progress = [&](std::size_t done, std::size_t total) {
                                 EXPECT_EQ(total, text.size() + 4);
                                 progress.push_back(done);
                             }});
    EXPECT_EQ(positions.file(), file.string());
    // Paths resolve against the file's folder.
    EXPECT_EQ(graph->findNode(u"n0")->getPath(), (fs::absolute(folder) / "x/a.qx").lexically_normal().u16string());
    auto const where = positions.positionOf(*graph, *graph->findNode(u"n4321"));
    ASSERT_TRUE(where);
    EXPECT_EQ(where->line, 4323u);
    EXPECT_EQ(where->column, 4u);
    auto const other = parse(R"({"nodes": [{"id": "elsewhere", "type": "file"}]})");
    EXPECT_FALSE(positions.positionOf(*graph, *other->findNode(u"elsewhere")));
    ASSERT_FALSE(progress.empty());
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_LT(progress.back(), text.size());

    auto const error = depattr_test::thrown<GraphFileError>([&] { loadGraphFile(folder); });
    ASSERT_TRUE(error);
    EXPECT_NE(std::string(error->what()).find("it is a folder"), std::string::npos) << error->what();
    EXPECT_EQ(error->line(), 0u);
}

TEST(GraphFileTest, EdgesMayComeBeforeTheNodes) {
    auto const graph = parse(
        R"({"edges": [{"from": "a", "to": "b", "type": "call"}, {"from": "a", "to": "a", "type": "reference"}],
                               "nodes": [{"id": "a", "type": "file"}, {"id": "b", "type": "file"}]})");
    std::vector<std::u16string> ends;
    for (auto const& dependency : graph->getDownstreamDependencies(*graph->findNode(u"a"))) {
        ends.push_back(dependency->getDownstreamNode()->getID());
    }
    EXPECT_EQ(ends, (std::vector<std::u16string>{u"b", u"a"}));

    auto const error = parseError(
        "{\"edges\": [{\"from\": \"a\", \"to\": \"zz\", \"type\": \"call\"}],\n"
        "\"nodes\": [{\"id\": \"a\", \"type\": \"file\"}]}");
    EXPECT_EQ(error.line(), 1u);
    EXPECT_EQ(error.column(), 32u);
    EXPECT_NE(error.reason().find("edge end \"zz\""), std::string::npos);
    EXPECT_NE(parseError("{\"nodes\": [], \"nodes\": []}").reason().find("two \"nodes\""), std::string::npos);
}

// Downstream ends are resolved some edges after they are read. Whatever the
// distance, edges keep their file order per node and the first error in the
// file is the one reported, even when a later edge is broken too.
TEST(GraphFileTest, ManyEdgesKeepTheirOrderAndTheFirstBadEdgeIsReported) {
    auto const graphText = [](int nodes, std::string const& extraEdges) {
        std::string text = "{\"nodes\": [";
        for (int i = 0; i < nodes; ++i) {
            text += (i ? ",\n" : "") + std::string("{\"id\": \"node number ") + std::to_string(i) +
                    "\", \"type\": \"file\"}";
        }
        text += "],\n\"edges\": [";
        for (int i = 0; i < nodes; ++i) {
            for (int k = 1; k <= 3; ++k) {
                text += (i || k > 1 ? ",\n" : "") + std::string("{\"from\": \"node number ") + std::to_string(i) +
                        "\", \"to\": \"node number " + std::to_string((i * 7 + k) % nodes) + "\", \"type\": \"call\"}";
            }
        }
        return text + extraEdges + "]}";
    };
    // The larger graph's text and edges are megabytes, held in huge pages where the system offers them.
    for (int const size : {200, 40000}) {
        auto const graph = parse(graphText(size, ""));
        ASSERT_EQ(graph->dependencyCount(), 3u * size);
        for (int i = 0; i < size; ++i) {
            auto const number = std::to_string(i);
            auto const node = graph->findNode(u"node number " + std::u16string(number.begin(), number.end()));
            ASSERT_NE(node, nullptr) << i;
            std::vector<std::u16string> ends;
            for (auto const& dependency : graph->getDownstreamDependencies(*node)) {
                EXPECT_EQ(dependency->getUpstreamNode(), node);
                ends.push_back(dependency->getDownstreamNode()->getID());
            }
            std::vector<std::u16string> expected;
            for (int k = 1; k <= 3; ++k) {
                auto const to = std::to_string((i * 7 + k) % size);
                expected.push_back(u"node number " + std::u16string(to.begin(), to.end()));
            }
            ASSERT_EQ(ends, expected) << i;
        }
    }
    int const nodes = 200;

    // A dangling end, then within a few edges a broken edge and another dangling
    // end.
    std::string const dangling =
        ",\n{\"from\": \"node number 1\", \"to\": "
        "\"nowhere\", \"type\": \"call\"}";
    std::string const fine =
        ",\n{\"from\": \"node number 2\", \"to\": \"node "
        "number 3\", \"type\": \"call\"}";
    std::string const broken =
        ",\n{\"from\": \"node number 2\", \"to\": \"node "
        "number 3\", \"type\": \"file\"}";
    std::string const danglingFrom =
        ",\n{\"from\": \"nobody\", \"to\": \"node "
        "number 3\", \"type\": \"call\"}";
    int const firstExtraLine = nodes + 3 * nodes;  // the line of the last regular edge
    for (std::string const& after : {broken, danglingFrom, dangling, std::string()}) {
        std::string extra = fine + fine + dangling + fine + fine + fine + after;
        auto const error = parseError(graphText(nodes, extra));
        EXPECT_EQ(error.line(), static_cast<std::size_t>(firstExtraLine + 3)) << error.what();
        EXPECT_NE(error.reason().find("edge end \"nowhere\""), std::string::npos) << error.what();
    }
    // A broken edge before any dangling end is the one reported.
    auto const error = parseError(graphText(nodes, fine + broken + fine + dangling));
    EXPECT_EQ(error.line(), static_cast<std::size_t>(firstExtraLine + 2)) << error.what();
    EXPECT_NE(error.reason().find("unknown relationship type"), std::string::npos) << error.what();
}

// A large file is read a slice of its arrays at a time (the second half of
// its edges on another thread), and the same text with its edges first is
// read whole: both give the same graph, each element read once (the progress
// reports of one pass, in order), and the one warning where it is. The IDs
// hold escapes, which the reader unescapes into a buffer each slice reuses,
// and the strings hold brackets and commas.
TEST(GraphFileTest, ReadingInSlicesGivesTheGraphReadingWholeGives) {
    depattr_test::ScratchFolder const scratch("depattr_slices");
    constexpr int count = 30000;
    auto const id = [](int i) {
        auto const number = std::to_string(i);
        return i % 3 == 0 ? "n\\\"" + number : i % 3 == 1 ? "\u00f1" + number : "plain " + number;
    };
    std::string nodes;
    std::string edges;
    for (int i = 0; i < count; ++i) {
        nodes += (i ? ",\n" : "") + std::string("{\"id\": \"") + id(i) +
                 "\", \"type\": \"file\", \"path\": \"src/[x]/f" + std::to_string(i) +
                 ".qx\", \"properties\": {\"note\": \"a ] b }, {\", \"syntaxError\": \"" +
                 (i == 12345 ? "yes" : "true") + "\"}}";
        for (int k = 1; k <= 2; ++k) {
            edges += (i || k > 1 ? ",\n" : "") + std::string("{\"from\": \"") + id(i) + "\", \"to\": \"" +
                     id((i * 7 + k) % count) + "\", \"type\": \"call\"}";
        }
    }
    struct Read {
        std::string written;
        std::vector<std::size_t> progress;
        std::vector<std::string> warnings;
    };
    auto const read = [&](std::string const& name, std::string const& text) {
        auto const file = scratch.path() / name;
        depattr_test::writeBytes(file, text);
        Read result;
        auto const graph =
            loadGraphFile(file, {.progress = [&](std::size_t done, std::size_t) { result.progress.push_back(done); },
                                 .warning =
                                     [&](std::size_t line, std::size_t column, std::string const& message) {
                                         result.warnings.push_back(std::to_string(line) + ":" + std::to_string(column) +
                                                                   " " + message);
                                     }});
        std::ostringstream out;
        writeGraph(out, *graph, scratch.path());
        result.written = out.str();
        EXPECT_EQ(graph->nodeCount(), std::size_t{count});
        EXPECT_EQ(graph->dependencyCount(), std::size_t{2 * count});
        EXPECT_TRUE(std::is_sorted(result.progress.begin(), result.progress.end())) << name;
        return result;
    };
    auto const sliced = read("sliced.json", "{\"format\": \"depattr-graph\", \"version\": 1,\n\"nodes\": [\n" + nodes +
                                                "\n],\n\"edges\": [" + edges + "]}\n");
    auto const whole = read("whole.json", "{\"edges\": [" + edges + "], \"nodes\": [\n" + nodes + "]}");
    EXPECT_EQ(sliced.written, whole.written);
    // One pass each: the whole reading reports every 4,096 elements; the
    // sliced one as often or less (the edges read beside are reported at
    // their end). A second pass would report again from the start.
    EXPECT_EQ(whole.progress.size(), std::size_t{3 * count / 4096});
    EXPECT_LE(sliced.progress.size(), whole.progress.size());
    EXPECT_GE(sliced.progress.size(), std::size_t{count / 4096});
    // Node 12345 is on line 12348 of the sliced file and on line 72346 of the other.
    ASSERT_EQ(sliced.warnings.size(), 1u);
    EXPECT_EQ(sliced.warnings[0].substr(0, 6), "12348:");
    ASSERT_EQ(whole.warnings.size(), 1u);
    EXPECT_EQ(whole.warnings[0].substr(0, 6), "72346:");
    EXPECT_EQ(sliced.warnings[0].substr(sliced.warnings[0].find(' ')),
              whole.warnings[0].substr(whole.warnings[0].find(' ')));
}

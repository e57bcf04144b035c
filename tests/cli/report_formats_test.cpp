#include "cli/FindingSources.hpp"
#include "cli/ProgressMeter.hpp"
#include "cli/Report.hpp"
#include "cli/Texts.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/FindingRecorder.hpp"
#include "support/TestGraphs.hpp"

#include <boost/locale.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <simdjson.h>

#include <sstream>

using namespace depattr::cli;
using namespace dependency::attribute;
using dependency::graph::GraphBuilder;
using dependency::graph::NodeData;
using dependency::graph::Type;
using dependency::services::AnalysisSession;

namespace {

using Findings = std::vector<std::shared_ptr<Attribute>>;
using ::testing::HasSubstr;
using ::testing::Not;

std::shared_ptr<Attribute> finding(std::u16string id, std::u16string name, Severity severity) {
    return std::make_shared<Attribute>(std::make_shared<AttributeIdentity>(id, name, severity),
                                       std::function<void()>{});
}

std::string dotOf(dependency::graph::Graph const& graph, Report const& report) {
    std::ostringstream out;
    writeDot(out, graph, report);
    return out.str();
}

// Two analyzers that share the ID "Missing", as the built-in ones do, plus a
// third whose one attribute object is handed to every node it reports.
struct TrackedAnalysis : ::testing::Test {
    void SetUp() override {
        GraphBuilder builder;
        builder.addNode(
            NodeData{.id = u"src/a.qx", .type = Type::FILE(), .path = u"/work/proj/src/a.qx", .isFile = true});
        builder.addNode(
            NodeData{.id = u"odd \"name\"\\x", .type = Type::FILE(), .path = u"/elsewhere/my file.qx", .isFile = true});
        builder.addNode(NodeData{.id = u"product:p", .type = Type::PRODUCT()});
        builder.addDependency(u"src/a.qx", u"product:p", Type::REQUIREMENT());
        builder.addDependency(u"odd \"name\"\\x", u"src/a.qx", Type::DERIVED());
        graph = builder.build();

        auto const missingFile = finding(u"Missing", u"File not found", Severity::Warning);
        auto const missingFunction = finding(u"Missing", u"Function not found", Severity::Warning);
        auto const present = finding(u"Exists", u"File exists", Severity::Information);
        auto const broken = finding(u"Broken", u"Broken \"badly\"", Severity::Problem);
        auto files = std::make_shared<depattr_test::ScriptedAnalyzer>(
            [=](auto const& node) { return node.getID() == u"src/a.qx" ? Findings{missingFile} : Findings{}; });
        auto functions = std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const& node) {
            return node.getID() == u"src/a.qx"         ? Findings{missingFunction}
                   : node.getType() == Type::PRODUCT() ? Findings{broken}
                                                       : Findings{};
        });
        auto shared = std::make_shared<depattr_test::ScriptedAnalyzer>(
            [=](auto const& node) { return node.isFile() ? Findings{present} : Findings{}; });
        sources = std::make_shared<FindingSources>();
        session.select(std::vector<AnalysisSession::NamedAnalyzer>{
            {"files", files}, {"functions", functions}, {"shared", shared}});
        depattr_test::FindingRecorder recorder(*sources);
        result = session.analyze(graph, recorder);
        report = makeReport(*graph, *result, {.sources = sources.get()});
        report.graphName = "g.json";
    }

    // Parses `json`, which must be valid; the element lasts until the parser's next use.
    simdjson::dom::element parsed(std::string const& json) {
        simdjson::dom::element element;
        if (parser.parse(json).get(element) != simdjson::SUCCESS) {
            throw std::runtime_error("not valid JSON: " + json);
        }
        return element;
    }

    simdjson::dom::element sarif() {
        std::ostringstream out;
        writeSarif(out, report, "9.9.9", "/work/proj");
        return parsed(out.str());
    }

    AnalysisSession session;  // names the analyzers for as long as the findings are looked at
    std::shared_ptr<dependency::graph::Graph const> graph;
    std::shared_ptr<FindingSources> sources;
    std::shared_ptr<GraphAttributes> result;
    Report report;
    simdjson::dom::parser parser;
};

// A report in which one analyzer, "files", finds a missing file on every node.
struct EveryNodeMissing {
    explicit EveryNodeMissing(std::shared_ptr<dependency::graph::Graph const> const& graph) {
        auto const missing = finding(u"Missing", u"File not found", Severity::Warning);
        session.select(std::vector<AnalysisSession::NamedAnalyzer>{
            {"files",
             std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const&) { return Findings{missing}; })}});
        FindingSources sources;
        depattr_test::FindingRecorder recorder(sources);
        report = makeReport(*graph, *session.analyze(graph, recorder), {.sources = &sources});
    }

    AnalysisSession session;  // names the analyzer for as long as the report is read
    Report report;
};

}  // namespace

TEST_F(TrackedAnalysis, EachFindingKnowsItsAnalyzerAndTrackingChangesNoResult) {
    auto const node = graph->findNode(u"src/a.qx");
    auto const attributes = result->getAttributes(node);
    ASSERT_EQ(attributes.size(), 3u);  // list order: files, functions, shared
    EXPECT_EQ(attributes[0]->getName(), u"File not found");
    EXPECT_EQ(attributes[1]->getName(), u"Function not found");
    EXPECT_EQ(sources->analyzerOf(attributes[0]), "files");
    EXPECT_EQ(sources->analyzerOf(attributes[1]), "functions");
    EXPECT_EQ(sources->analyzerOf(attributes[2]), "shared");
    // The one shared object reported on two nodes is the same finding source.
    auto const other = result->getAttributes(graph->findNode(u"odd \"name\"\\x"));
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(other[0], attributes[2]);
    EXPECT_TRUE(sources->analyzerOf(finding(u"Missing", u"File not found", Severity::Warning)).empty());

    ASSERT_EQ(report.nodes.size(), 3u);
    EXPECT_EQ(report.nodes[2].node->getID(), u"src/a.qx");
    EXPECT_EQ(report.nodes[2].findings[1].analyzer, "functions");
    std::ostringstream json;
    writeJson(json, report, "9.9.9");
    auto const document = parsed(json.str());
    EXPECT_EQ(std::int64_t(document["schemaVersion"]), 1);
    auto const entry = document["findings"].at(2);
    EXPECT_EQ(std::string_view(entry["node"]), "src/a.qx");
    EXPECT_EQ(std::string_view(entry["path"]), "/work/proj/src/a.qx");  // no working folder given
    EXPECT_EQ(std::string_view(entry["kind"]), "file");
    EXPECT_EQ(std::string_view(entry["attributes"].at(1)["analyzer"]), "functions");
    EXPECT_EQ(std::string_view(entry["attributes"].at(1)["fingerprint"]).size(), 16u);
    EXPECT_TRUE(document["findings"].at(1)["path"].is_null());  // the product has no path
}

TEST_F(TrackedAnalysis, SarifIsValidJsonWithOneRulePerAnalyzerAndIdAndFileOrLogicalLocations) {
    auto const log = sarif();
    EXPECT_EQ(std::string_view(log["version"]), "2.1.0");
    auto const run = log["runs"].at(0);
    EXPECT_EQ(std::string_view(run["tool"]["driver"]["version"]), "9.9.9");
    EXPECT_EQ(std::string_view(run["originalUriBaseIds"]["SRCROOT"]["uri"]), "file:///work/proj/");

    std::vector<std::string> ruleIds;
    for (auto const rule : run["tool"]["driver"]["rules"].get_array()) {
        ruleIds.emplace_back(std::string_view(rule["id"]));
    }
    // Rules in the order first met: the nodes in ID order, each node's findings in list order.
    EXPECT_EQ(ruleIds,
              (std::vector<std::string>{"shared/Exists", "functions/Broken", "files/Missing", "functions/Missing"}));

    std::vector<std::string> summary;
    for (auto const result : run["results"].get_array()) {
        auto const index = std::size_t(std::uint64_t(result["ruleIndex"]));
        EXPECT_EQ(ruleIds.at(index), std::string_view(result["ruleId"]));
        EXPECT_EQ(std::string_view(result["partialFingerprints"]["depattr/v1"]).size(), 16u);
        auto const location = result["locations"].at(0);
        std::string where(std::string_view(location["logicalLocations"].at(0)["fullyQualifiedName"]));
        simdjson::dom::element artifact;
        if (location["physicalLocation"]["artifactLocation"].get(artifact) == simdjson::SUCCESS) {
            where += " @ " + std::string(std::string_view(artifact["uri"]));
            std::string_view base;
            if (artifact["uriBaseId"].get(base) == simdjson::SUCCESS) {
                where += " in " + std::string(base);
            }
        }
        summary.push_back(std::string(std::string_view(result["level"])) + " " +
                          std::string(std::string_view(result["message"]["text"])) + " | " + where);
    }
    EXPECT_EQ(summary, (std::vector<std::string>{
                           "note File exists | odd \"name\"\\x @ file:///elsewhere/my%20file.qx",
                           "error Broken \"badly\" | product:p",
                           "warning File not found | src/a.qx @ src/a.qx in SRCROOT",
                           "warning Function not found | src/a.qx @ src/a.qx in SRCROOT",
                           "note File exists | src/a.qx @ src/a.qx in SRCROOT",
                       }));

    // Findings hidden by a baseline stay in the log, marked as suppressed.
    report.nodes[0].findings[0].suppressed = true;
    auto const results = sarif()["runs"].at(0)["results"];
    EXPECT_EQ(std::string_view(results.at(0)["suppressions"].at(0)["kind"]), "external");
    EXPECT_EQ(results.at(1)["suppressions"].error(), simdjson::NO_SUCH_FIELD);

    // Every rule points at help; a host-language analyzer's rule takes its
    // class's help text and points at its class file. The run says how it exited.
    report.hostHelp["functions"] = {"/work/proj/rules/My Functions.qx", "Reports broken products.\nSee the guide."};
    for (bool const exitZero : {false, true}) {
        report.exitZero = exitZero;
        auto const helpedRun = sarif()["runs"].at(0);
        EXPECT_EQ(std::int64_t(helpedRun["invocations"].at(0)["exitCode"]), exitZero ? 0 : 1);
        for (auto const rule : helpedRun["tool"]["driver"]["rules"].get_array()) {
            std::string_view const id(rule["id"]);
            std::string_view const uri(rule["helpUri"]);
            std::string_view const full(rule["fullDescription"]["text"]);
            std::string_view const markdown(rule["help"]["markdown"]);
            if (id.starts_with("functions/")) {  // "functions/Broken" and "functions/Missing"
                EXPECT_EQ(uri, "file:///work/proj/rules/My%20Functions.qx");
                EXPECT_EQ(full, "Reports broken products.\nSee the guide.");
                EXPECT_THAT(markdown, HasSubstr("Reports broken products."));
                EXPECT_THAT(markdown, HasSubstr("/work/proj/rules/My Functions.qx"));
            } else {
                // An analyzer of no known kind and no class: its name, and the findings document.
                EXPECT_TRUE(uri.starts_with("file://") || uri.starts_with("http")) << uri;
                EXPECT_TRUE(uri.ends_with("findings.md")) << uri;
                EXPECT_EQ(full, std::string_view(rule["shortDescription"]["text"]));
            }
        }
    }
    report.exitZero = false;

    // An analysis without findings is still a complete log.
    report.nodes.clear();
    EXPECT_EQ(sarif()["runs"].at(0)["results"].get_array().size(), 0u);
}

TEST_F(TrackedAnalysis, DotFillsNodesByGravestFindingAndEscapesNames) {
    auto const dot = dotOf(*graph, report);
    EXPECT_EQ(dot.rfind("digraph \"g.json\" {\n", 0), 0u) << dot;
    // Warning beats Information on src/a.qx; Problem fills the product; the
    // escaped ID keeps its quotes and backslash.
    EXPECT_THAT(dot, HasSubstr("\"src/a.qx\" [shape=box, style=\"filled,rounded\", fillcolor=\"#ffd98a\""));
    EXPECT_THAT(dot, HasSubstr("\"product:p\" [shape=component, style=\"filled,rounded\", fillcolor=\"#f4a3a3\", "
                               "tooltip=\"product \\\"product:p\\\"\\nProblem Broken: Broken \\\"badly\\\"\", "
                               "label=\"product:p\\n[1 finding]\"]"));
    EXPECT_THAT(dot,
                HasSubstr("\"odd \\\"name\\\"\\\\x\" [shape=box, style=\"filled,rounded\", fillcolor=\"#d6eaf8\""));
    // Only edges that are not calls are named.
    EXPECT_THAT(dot, HasSubstr("\"src/a.qx\" -> \"product:p\" [label=\"requirement\"];"));
    EXPECT_THAT(dot, HasSubstr("\"odd \\\"name\\\"\\\\x\" -> \"src/a.qx\" [label=\"derived\"];"));
    // The title counts nodes and findings; the legend shows each fill.
    EXPECT_THAT(dot, HasSubstr("label=\"g.json\\n"));
    for (auto const* fill : {"#f4a3a3", "#ffd98a", "#d6eaf8"}) {
        EXPECT_THAT(dot, HasSubstr(std::string("fillcolor=\"") + fill + "\", label=")) << fill;
    }
    EXPECT_THAT(dot, HasSubstr("subgraph cluster_legend {"));

    // Above the threshold only the product keeps a fill.
    auto const filtered =
        dotOf(*graph, makeReport(*graph, *result, {.minimum = Severity::Problem, .sources = sources.get()}));
    EXPECT_THAT(filtered, HasSubstr("\"src/a.qx\" [shape=box, label=\"src/a.qx\"];\n"));
    EXPECT_THAT(filtered, HasSubstr("fillcolor=\"#f4a3a3\""));
}

// The report writes each node's heading from a pattern split once; it must
// give what the catalog gives for the same arguments, in every language and
// whatever the arguments hold (braces, placeholders of their own, a node ID
// with a lone surrogate after its conversion).
TEST(TextPatternTest, WritesWhatTheCatalogFillsInEveryLanguage) {
    std::vector<std::vector<std::string>> const argumentSets{
        {"/work/a.qx", "file", "a", "a.qx"},
        {"{1}", "{0}{", "}{2}", "{99999}"},
        {"", "", "", ""},
        {"名前", "関数", toUtf8(std::u16string(u"x\xD800y")), "\\x1b"},
    };
    for (char const* locale : {"C", "ja_JP.UTF-8"}) {
        std::locale::global(boost::locale::generator()(locale));
        TextPattern const heading("TextNodeHeading", 4);
        TextPattern const fewer("TextNodeHeading", 2);
        for (auto const& args : argumentSets) {
            std::ostringstream written;
            heading.write(written, {args[0], args[1], args[2], args[3]});
            EXPECT_EQ(written.str(), text("TextNodeHeading", {args[0], args[1], args[2], args[3]})) << locale;
            // Placeholders beyond the pattern's arity stay as the catalog leaves them.
            std::ostringstream partly;
            fewer.write(partly, {args[0], args[1]});
            EXPECT_EQ(partly.str(), text("TextNodeHeading", {args[0], args[1]})) << locale;
        }
    }
    std::locale::global(std::locale::classic());
    std::ostringstream english;
    TextPattern("TextNodeHeading", 4).write(english, {"p", "file", "n", "i"});
    EXPECT_EQ(english.str(), "p  (file \"n\", ID \"i\")");
}

// The picture's layout: functions inside their file's cluster with the file,
// calls unnamed; a graph over 300 nodes reduced to the nodes with findings and
// their neighbours, as its title says.
TEST(DotPicture, GroupsFunctionsInTheirFileAndReducesLargeGraphs) {
    for (int const extra : {200, 400}) {
        GraphBuilder builder;
        builder.addNode(NodeData{.id = u"src/f.qx", .type = Type::FILE(), .path = u"/p/src/f.qx", .isFile = true});
        builder.addNode(NodeData{.id = u"f", .type = Type::FUNCTION(), .path = u"/p/src/f.qx"});
        builder.addNode(NodeData{.id = u"g", .type = Type::FUNCTION(), .path = u"/p/src/f.qx"});
        builder.addNode(NodeData{.id = u"lone", .type = Type::FUNCTION(), .path = u"/p/src/other.qx"});
        builder.addDependency(u"f", u"g", Type::CALL());
        builder.addDependency(u"src/f.qx", u"lone", Type::REFERENCE());
        for (int i = 0; i < extra; ++i) {
            auto const id = depattr_test::wide("n" + std::to_string(i));
            builder.addNode(NodeData{.id = id, .type = Type::FILE(), .isFile = true});
            if (i > 0) {
                builder.addDependency(id, depattr_test::wide("n" + std::to_string(i - 1)), Type::CALL());
            }
        }
        auto const graph = builder.build();
        auto const missing = finding(u"Missing", u"Function not found", Severity::Warning);
        AnalysisSession session;
        session.select(std::vector<AnalysisSession::NamedAnalyzer>{
            {"functions", std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const& node) {
                 return node.getID() == u"g" ? Findings{missing} : Findings{};
             })}});
        FindingSources sources;
        depattr_test::FindingRecorder recorder(sources);
        auto const result = session.analyze(graph, recorder);
        auto report = makeReport(*graph, *result, {.sources = &sources});
        report.graphName = "big.json";
        auto const dot = dotOf(*graph, report);

        // The file and its two functions share one cluster; the other file's
        // function has its own, without a file node.
        auto const cluster = dot.find("label=\"/p/src/f.qx\"");
        ASSERT_NE(cluster, std::string::npos) << dot;
        auto const clusterEnd = dot.find("  }\n", cluster);
        bool const reduced = extra > 300;
        for (auto const* member : {"\"f\" [", "\"g\" [", reduced ? "\"g\" [" : "\"src/f.qx\" ["}) {
            auto const at = dot.find(member);
            EXPECT_TRUE(at > cluster && at < clusterEnd) << member << "\n" << dot;
        }
        EXPECT_THAT(dot, HasSubstr("\"g\" [shape=ellipse, style=\"filled,rounded\""));
        EXPECT_THAT(dot, HasSubstr("  \"f\" -> \"g\";\n"));
        if (!reduced) {
            EXPECT_THAT(dot, HasSubstr("label=\"/p/src/other.qx\""));
            EXPECT_THAT(dot, HasSubstr("\"src/f.qx\" -> \"lone\" [label=\"reference\"];"));
        }

        EXPECT_EQ(dot.find("only the") != std::string::npos, reduced) << dot;
        EXPECT_EQ(dot.find("\"n5\" [") != std::string::npos, !reduced) << dot;
        if (reduced) {
            // g has the finding; f calls it; nothing else touches g.
            EXPECT_THAT(dot, HasSubstr("only the 2 nodes with findings and their neighbours, of 404"));
            EXPECT_THAT(dot, Not(HasSubstr("\"src/f.qx\" [")));
            EXPECT_THAT(dot, Not(HasSubstr("\"lone\"")));
        }
    }
}

TEST(ProgressMeterTest, DrawsOnlyAfterItsDelayNeverPastFullAndErasesItself) {
    GraphBuilder builder;
    for (int i = 0; i < 300; ++i) {
        builder.addNode(depattr_test::wide("n" + std::to_string(i)), Type::FILE());
    }
    auto const graph = builder.build();
    std::vector<std::shared_ptr<dependency::graph::Node>> nodes(graph->getNodes().begin(), graph->getNodes().end());

    std::ostringstream quiet;
    auto const slow = std::make_shared<ProgressMeter>(nodes.size(), quiet, std::chrono::hours(1));
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        slow->advance();
    }
    slow->finish();
    EXPECT_TRUE(quiet.str().empty()) << quiet.str();

    // A graph that yields its nodes twice: the bar stops at full.
    auto twice = nodes;
    twice.insert(twice.end(), nodes.begin(), nodes.end());
    std::ostringstream drawn;
    auto const eager =
        std::make_shared<ProgressMeter>(nodes.size(), drawn, std::chrono::seconds(0), std::chrono::seconds(0));
    for (std::size_t i = 0; i < twice.size(); ++i) {
        eager->advance();
    }
    auto const bars = drawn.str();
    EXPECT_THAT(bars, HasSubstr("\r[" + std::string(40, '#') + "] 100% 300/300 nodes"));
    // Reading the graph is shown by bytes before the nodes are counted.
    std::ostringstream loading;
    ProgressMeter reading(0, loading, std::chrono::seconds(0), std::chrono::seconds(0));
    reading.loading(250, 1000);
    EXPECT_THAT(loading.str(), HasSubstr("]  25% reading the graph"));
    EXPECT_THAT(bars, HasSubstr("  85% 256/300 nodes"));
    EXPECT_THAT(bars, Not(HasSubstr("301/300")));
    eager->finish();
    EXPECT_EQ(drawn.str().substr(bars.size()), "\r\x1b[2K");
    eager->finish();  // a second finish draws nothing more
    EXPECT_EQ(drawn.str().size(), bars.size() + 5);
}

// The texts every format is made of: each escape in its place among plain
// runs (at the start, at the end, side by side), and UTF-16 converted alike
// whether it is ASCII or not.
TEST(ReportTexts, EscapesAndConversionsKeepEveryCharacterInPlace) {
    std::string const raw("\"a\\b\n\r\t\x01\x7f\0z \xc3\xa9\"", 15);
    EXPECT_EQ(jsonString(""), "\"\"");
    EXPECT_EQ(jsonString(raw), "\"\\\"a\\\\b\\n\\r\\t\\u0001\\u007f\\u0000z \xc3\xa9\\\"\"");
    EXPECT_EQ(escapeControls(""), "");
    EXPECT_EQ(escapeControls(raw), "\"a\\\\b\\n\\r\\t\\x01\\x7f\\x00z \xc3\xa9\"");
    EXPECT_EQ(escapeControls("\x1b"), "\\x1b");
    // Without a copy where nothing needs an escape.
    std::string storage;
    std::string const plain = "caf\xc3\xa9 \"quoted\"";
    EXPECT_EQ(escapeControls(plain, storage).data(), plain.data());
    EXPECT_EQ(escapeControls(raw, storage), escapeControls(raw));
    EXPECT_EQ(escapeControls("\\", storage), "\\\\");

    EXPECT_EQ(toUtf8(u""), "");
    EXPECT_EQ(toUtf8(u"/work/src/a.qx"), "/work/src/a.qx");
    EXPECT_EQ(toUtf8(std::u16string(u"a\0\x7f", 3)), std::string("a\0\x7f", 3));
    EXPECT_EQ(toUtf8(u"caf\u00e9 \u65e5\U0001F600"), "caf\xc3\xa9 \xe6\x97\xa5\xf0\x9f\x98\x80");
    // A lone surrogate names no character: it is shown as U+FFFD, and the
    // character after it is kept.
    EXPECT_EQ(toUtf8(std::u16string(u"x\xD800y")), "x\xef\xbf\xbdy");
    EXPECT_EQ(toUtf8(std::u16string(u"\xDC00\xD800")), "\xef\xbf\xbd\xef\xbf\xbd");
}

// A file's location in SARIF: relative to the base folder when it lies below
// it, an absolute URI when it does not, whether its path is normal already
// (decided on the text) or has to be normalised first, and whether the base
// folder is given with a trailing separator or without.
TEST(SarifLocations, FilesBelowBesideAndAtTheBaseFolder) {
    std::vector<std::pair<std::u16string, std::string>> const cases{
        {u"/work/proj/src/a.qx", "src/a.qx in SRCROOT"},
        {u"/work/proj", ". in SRCROOT"},
        {u"/work/projects/b.qx", "file:///work/projects/b.qx"},
        {u"/work/pro", "file:///work/pro"},
        {u"/work/proj/x/../src/c d.qx", "src/c%20d.qx in SRCROOT"},
        {u"/work/proj//src/./e.qx", "src/e.qx in SRCROOT"},
        {u"/work/proj/src/", "src/ in SRCROOT"},
        {u"/elsewhere/../work/f.qx", "file:///work/f.qx"},
        {u"/work/proj/caf\u00e9.qx", "caf%C3%A9.qx in SRCROOT"},
    };
    GraphBuilder builder;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        builder.addNode(NodeData{.id = u"n" + std::u16string(1, char16_t(u'a' + i)),
                                 .type = Type::FILE(),
                                 .path = cases[i].first,
                                 .isFile = true});
    }
    EveryNodeMissing const analysis(builder.build());
    auto const& report = analysis.report;
    for (std::string_view const base : {"/work/proj", "/work/proj/", "/work/./proj"}) {
        std::ostringstream out;
        writeSarif(out, report, "9.9.9", base);
        simdjson::dom::parser parser;
        simdjson::dom::element log;
        ASSERT_EQ(parser.parse(out.str()).get(log), simdjson::SUCCESS) << out.str();
        std::vector<std::string> locations;
        for (auto const entry : log["runs"].at(0)["results"].get_array()) {
            auto const artifact = entry["locations"].at(0)["physicalLocation"]["artifactLocation"];
            std::string where{std::string_view(artifact["uri"])};
            std::string_view baseId;
            if (artifact["uriBaseId"].get(baseId) == simdjson::SUCCESS) {
                where += " in " + std::string(baseId);
            }
            locations.push_back(where);
        }
        std::vector<std::string> expected;
        for (auto const& testCase : cases) {
            expected.push_back(testCase.second);
        }
        EXPECT_EQ(locations, expected) << base;
    }
}

// The text report lists its nodes by where they are, the nodes of one place
// in ID order: places that share a long beginning, that tie in the first
// bytes after it, one that begins another, one with a byte above ASCII, and
// a node without a path (placed by its ID).
TEST(TextReportOrder, NodesByPlaceThenById) {
    std::vector<std::pair<std::u16string, std::u16string>> const nodes{
        {u"n1", u"/proj/src/b.qx"},
        {u"n2", u"/proj/src/a.qx"},
        {u"n3", u"/proj/src/a.qx"},
        {u"n4", u"/proj/src/aaaaaaaaaaaa2.qx"},
        {u"n5", u"/proj/src/aaaaaaaaaaaa1.qx"},
        {u"n6", u"/proj/src/\u00e9.qx"},
        {u"n7", u"/proj/src/a"},
    };
    auto const order = [&](bool withPathless) {
        GraphBuilder builder;
        for (auto const& [id, path] : nodes) {
            builder.addNode(NodeData{.id = id, .type = Type::FILE(), .path = path, .isFile = true});
        }
        if (withPathless) {
            builder.addNode(NodeData{.id = u"n0", .type = Type::PRODUCT()});
        }
        std::ostringstream out;
        writeText(out, EveryNodeMissing(builder.build()).report, false);
        std::vector<std::string> ids;
        std::istringstream lines(out.str());
        for (std::string line; std::getline(lines, line);) {
            if (auto const at = line.find("ID \""); at != std::string::npos) {
                ids.push_back(line.substr(at + 4, line.find('"', at + 4) - at - 4));
            }
        }
        return ids;
    };
    std::vector<std::string> const expected{"n7", "n2", "n3", "n5", "n4", "n1", "n6"};
    EXPECT_EQ(order(false), expected);
    auto withPathless = expected;
    withPathless.push_back("n0");
    EXPECT_EQ(order(true), withPathless);
}

#include "cli/AnalyzerCatalog.hpp"
#include "cli/Report.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <sstream>

using namespace depattr::cli;
using namespace dependency::attribute;
using dependency::graph::GraphBuilder;
using dependency::graph::Type;

TEST(AnalyzerCatalogTest, AllByDefaultAndNamedOnesInTheGivenOrder) {
    EXPECT_EQ(builtInAnalyzers().size(), 8u);
    EXPECT_EQ(createAnalyzers("").size(), 8u);
    EXPECT_EQ(createAnalyzers("all").size(), 8u);
    auto const two = createAnalyzers("invalid-format,missing-project-reference");
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0].name, "invalid-format");
    EXPECT_EQ(two[1].name, "missing-project-reference");
    // Tell them apart by behaviour: an unresolved project is only the second one's concern.
    GraphBuilder builder;
    auto const node = builder.addNode({.id = u"p", .type = Type::PROJECT(), .resolved = false});
    auto const graph = builder.build();
    EXPECT_TRUE(two[0].analyzer->analyze(node, graph).empty());
    EXPECT_EQ(two[1].analyzer->analyze(node, graph).size(), 1u);

    try {
        createAnalyzers("missing-file,,derived-file");
        FAIL() << "an empty name must be rejected";
    } catch (std::invalid_argument const& error) {
        EXPECT_NE(std::string(error.what()).find("unknown analyzer \"\""), std::string::npos);
        EXPECT_NE(std::string(error.what()).find("missing-file"), std::string::npos);
    }
    EXPECT_THROW(createAnalyzers("Missing-File"), std::invalid_argument);
}

namespace {

struct ReportFixture : ::testing::Test {
    std::shared_ptr<Attribute> make(std::u16string id, std::u16string name, Severity severity) {
        return std::make_shared<Attribute>(std::make_shared<AttributeIdentity>(id, name, severity),
                                           std::function<void()>{});
    }
    void SetUp() override {
        GraphBuilder builder;
        builder.addNode(u"zeta", Type::FILE());
        builder.addNode(u"alpha", Type::FUNCTION());
        builder.addNode(u"quiet", Type::FILE());
        graph = builder.build();
        auto const info = make(u"Exists", u"File exists", Severity::Information);
        auto const warning = make(u"Missing", u"Function \"f\"\tnot found", Severity::Warning);
        auto const problem = make(u"Broken", u"caf\u00e9", Severity::Problem);
        auto const analyzer = std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const& node) {
            if (node.getID() == u"zeta") {
                return std::vector{info, problem};
            }
            if (node.getID() == u"alpha") {
                return std::vector{warning};
            }
            return std::vector<std::shared_ptr<Attribute>>{};
        });
        result = analyzeGraph(graph, {analyzer});
    }
    std::shared_ptr<dependency::graph::Graph const> graph;
    std::shared_ptr<GraphAttributes> result;
};

}  // namespace

TEST_F(ReportFixture, FindingsInNodeOrderFilteredByThreshold) {
    auto const all = makeReport(*graph, *result, Severity::Information);
    ASSERT_EQ(all.nodes.size(), 2u);
    EXPECT_EQ(all.nodes[0].node->getID(), u"alpha");  // by ID, not by graph order
    EXPECT_EQ(all.nodes[1].node->getID(), u"zeta");
    EXPECT_EQ(all.count(Severity::Information), 1u);
    EXPECT_EQ(all.count(Severity::Warning), 1u);
    EXPECT_EQ(all.count(Severity::Problem), 1u);

    auto const problems = makeReport(*graph, *result, Severity::Problem);
    ASSERT_EQ(problems.nodes.size(), 1u);
    ASSERT_EQ(problems.nodes[0].findings.size(), 1u);
    EXPECT_EQ(problems.nodes[0].findings[0].attribute->getID(), u"Broken");
}

TEST_F(ReportFixture, JsonEscapesAndCountsAndTextAligns) {
    auto report = makeReport(*graph, *result, Severity::Information);
    report.graphName = "g \"1\".json";
    report.analyzerCount = 1;
    std::ostringstream json;
    writeJson(json, report);
    auto const text = json.str();
    EXPECT_NE(text.find("\"graph\": \"g \\\"1\\\".json\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"name\": \"Function \\\"f\\\"\\tnot found\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"name\": \"caf\xc3\xa9\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"counts\": {\"Problem\": 1, \"Warning\": 1, \"Information\": 1}"), std::string::npos);
    EXPECT_LT(text.find("\"node\": \"alpha\""), text.find("\"node\": \"zeta\""));

    std::ostringstream plain;
    writeText(plain, report, false);
    auto const lines = plain.str();
    EXPECT_NE(lines.find("  Information  Exists   File exists\n"), std::string::npos) << lines;
    EXPECT_NE(lines.find("  Problem      Broken   caf\xc3\xa9\n"), std::string::npos) << lines;
    EXPECT_EQ(lines.find("\x1b["), std::string::npos);  // no colour unless asked
    std::ostringstream coloured;
    writeText(coloured, report, true);
    EXPECT_NE(coloured.str().find("\x1b[1;31mProblem"), std::string::npos);

    report.nodes.clear();
    std::ostringstream empty;
    writeJson(empty, report);
    EXPECT_NE(empty.str().find("\"findings\": []"), std::string::npos);
}

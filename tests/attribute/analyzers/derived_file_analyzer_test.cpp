#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace analyzer_test;
using dependency::attribute::createDerivedFileAnalyzer;
using dependency::attribute::Severity;
using dependency::graph::GraphBuilder;

class DerivedFileAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override { useRepositoryResources(); }

    // A file in the scratch folder whose modification time is `offset` seconds after a fixed moment.
    std::u16string fileAt(std::string const& name, int offset) {
        std::u16string const path = folder_.create(name);
        std::filesystem::last_write_time(folder_.path() / name, base_ + std::chrono::seconds(offset));
        return path;
    }

    Findings analyzeDerived(GraphBuilder& builder) {
        auto const graph = builder.build();
        return createDerivedFileAnalyzer()->analyze(graph->findNode(u"derived"), graph);
    }

    TempFolder folder_{"derived_file"};
    std::filesystem::file_time_type const base_ = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
};

TEST_F(DerivedFileAnalyzerTest, ReportsOncePerNewerPresentDerivedFromSource) {
    GraphBuilder builder;
    builder.addNode(fileData(u"derived", fileAt("derived.out", 100)));
    builder.addNode(fileData(u"newer1", fileAt("newer1.qx", 200)));
    builder.addNode(fileData(u"older", fileAt("older.qx", 50)));
    builder.addNode(fileData(u"equal", fileAt("equal.qx", 100)));
    builder.addNode(fileData(u"newerByReference", fileAt("reference.qx", 300)));
    builder.addNode(fileData(u"newerButAbsent", folder_.pathOf("absent.qx")));
    builder.addNode(fileData(u"newerButUnresolved", fileAt("unresolved.qx", 300),
                             /*resolved=*/false));
    NodeData notAFile = fileData(u"newerButNotAFile", fileAt("notafile.qx", 300));
    notAFile.isFile = false;
    builder.addNode(notAFile);
    builder.addNode(fileData(u"newer2", fileAt("newer2.qx", 101)));
    for (std::u16string const source :
         {u"newer1", u"older", u"equal", u"newerButAbsent", u"newerButUnresolved", u"newerButNotAFile", u"newer2"}) {
        builder.addDependency(u"derived", source, Type::DERIVED());
    }
    builder.addDependency(u"derived", u"newerByReference", Type::REFERENCE());

    Findings const findings = analyzeDerived(builder);
    ASSERT_EQ(findings.size(), 2u);  // newer1 and newer2
    for (auto const& finding : findings) {
        EXPECT_EQ(finding->getID(), u"OutOfDate");
        EXPECT_EQ(finding->getSeverity(), Severity::Warning);
        EXPECT_EQ(finding->getName(), englishText("DerivedFileProblem"));
        EXPECT_FALSE(finding->hasFix());
    }
    EXPECT_NE(findings[0], findings[1]);
    EXPECT_EQ(findings[0]->getIdentity(), findings[1]->getIdentity());
}

TEST_F(DerivedFileAnalyzerTest, ADerivedFileThatIsNotThereOrNotAFileGetsNothing) {
    for (bool const resolved : {true, false}) {
        GraphBuilder builder;
        builder.addNode(
            fileData(u"derived", resolved ? folder_.pathOf("absent.out") : fileAt("present.out", 0), resolved));
        builder.addNode(fileData(u"source", fileAt("source.qx", 500)));
        builder.addDependency(u"derived", u"source", Type::DERIVED());
        EXPECT_TRUE(analyzeDerived(builder).empty());
    }
    GraphBuilder builder;
    NodeData notAFile = fileData(u"derived", fileAt("present.out", 0));
    notAFile.isFile = false;
    builder.addNode(notAFile);
    builder.addNode(fileData(u"source", fileAt("source.qx", 500)));
    builder.addDependency(u"derived", u"source", Type::DERIVED());
    EXPECT_TRUE(analyzeDerived(builder).empty());

    GraphBuilder alone;
    alone.addNode(fileData(u"derived", fileAt("alone.out", 0)));
    EXPECT_TRUE(analyzeDerived(alone).empty());
}

TEST_F(DerivedFileAnalyzerTest, SubSecondDifferencesCount) {
    GraphBuilder builder;
    builder.addNode(fileData(u"derived", fileAt("derived.out", 0)));
    std::u16string const source = fileAt("source.qx", 0);
    std::filesystem::last_write_time(folder_.path() / "source.qx", base_ + std::chrono::milliseconds(1));
    builder.addNode(fileData(u"source", source));
    builder.addDependency(u"derived", u"source", Type::DERIVED());
    EXPECT_EQ(analyzeDerived(builder).size(), 1u);
}

// A graph whose edge lookup fails: such failures are not the analyzer's to hide.
class FailingGraph : public Graph {
public:
    dependency::graph::DependencyRange getDownstreamDependencies(Node const&) const override {
        throw std::runtime_error("edge lookup failed");
    }
};

TEST_F(DerivedFileAnalyzerTest, GraphFailuresPropagateButOnlyForPresentFiles) {
    auto const graph = std::make_shared<FailingGraph const>();
    auto const analyzer = createDerivedFileAnalyzer();
    EXPECT_THROW(analyzer->analyze(node(fileData(u"derived", fileAt("derived.out", 0))), graph), std::runtime_error);
    // The graph is consulted only after the node passed the presence test.
    EXPECT_TRUE(analyzer->analyze(node(fileData(u"absent", folder_.pathOf("absent.out"))), graph).empty());
    EXPECT_TRUE(analyzer->analyze(node(nodeData(u"function", Type::FUNCTION())), graph).empty());
}

}  // namespace

#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"

#include <gtest/gtest.h>

namespace {

using namespace analyzer_test;
using dependency::attribute::createMissingFileAnalyzer;
using dependency::attribute::Severity;
using namespace std::string_literals;

class MissingFileAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override { useRepositoryResources(); }

    Findings analyze(NodeData data) const { return analyzer_->analyze(node(std::move(data)), graph_); }

    std::shared_ptr<dependency::attribute::AttributeAnalyzer> analyzer_ = createMissingFileAnalyzer();
    std::shared_ptr<Graph const> graph_ = emptyGraph();
    TempFolder folder_{"missing_file"};
};

TEST_F(MissingFileAnalyzerTest, OnlyFileNodesAreReported) {
    std::u16string const present = folder_.create("present.qx");
    for (Type const& type : {Type::FUNCTION(), Type::PRODUCT(), Type::PACKAGE(), Type::PROJECT(), Type::DERIVED()}) {
        NodeData data = nodeData(u"n", type);
        data.location = {present};
        EXPECT_TRUE(analyze(data).empty());
    }
}

TEST_F(MissingFileAnalyzerTest, APresentFileIsReportedAsInformation) {
    Findings const findings = analyze(fileData(u"f", folder_.create("present.qx")));
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0]->getID(), u"Exists");
    EXPECT_EQ(findings[0]->getSeverity(), Severity::Information);
    EXPECT_EQ(findings[0]->getName(), englishText("FileExistsAttribute"));
    EXPECT_FALSE(findings[0]->hasFix());
}

TEST_F(MissingFileAnalyzerTest, EveryWayOfNotBeingThereIsReportedAsMissing) {
    std::u16string const present = folder_.create("present.qx");
    NodeData emptyLocation = fileData(u"e", present);
    emptyLocation.location.clear();
    NodeData onlySecondExists = fileData(u"s", folder_.pathOf("absent.qx"));
    onlySecondExists.location.push_back(present);

    std::vector<NodeData> const cases{
        fileData(u"absent", folder_.pathOf("absent.qx")),
        fileData(u"unresolved", present,
                 /*resolved=*/false),  // the path exists, but is not consulted
        fileData(u"rejected",
                 present + u"\0x"s),  // the file system rejects the path
        emptyLocation,
        onlySecondExists,  // only the first location entry counts
    };
    for (auto const& data : cases) {
        Findings const findings = analyze(data);
        ASSERT_EQ(findings.size(), 1u);
        EXPECT_EQ(findings[0]->getID(), u"Missing");
        EXPECT_EQ(findings[0]->getSeverity(), Severity::Warning);
        EXPECT_EQ(findings[0]->getName(), englishText("MissingFileProblem"));
    }
}

TEST_F(MissingFileAnalyzerTest, EveryFindingIsNewAndSharesTheProcessWideIdentity) {
    auto const presentNode = node(fileData(u"p", folder_.create("present.qx")));
    auto const missingNode = node(fileData(u"m", folder_.pathOf("absent.qx")));
    auto const present = analyzer_->analyze(presentNode, graph_).at(0);
    auto const missing = analyzer_->analyze(missingNode, graph_).at(0);
    EXPECT_NE(present.get(), analyzer_->analyze(presentNode, graph_).at(0).get());
    EXPECT_EQ(present->getIdentity(), analyzer_->analyze(presentNode, graph_).at(0)->getIdentity());
    EXPECT_EQ(missing->getIdentity(), createMissingFileAnalyzer()->analyze(missingNode, graph_).at(0)->getIdentity());
    EXPECT_NE(present->getIdentity(), missing->getIdentity());
}

}  // namespace

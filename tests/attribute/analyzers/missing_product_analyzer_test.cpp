#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

using namespace analyzer_test;
using dependency::attribute::createMissingProductAnalyzer;
using dependency::attribute::Severity;
using dependency::graph::GraphBuilder;
using dependency::toolbox::ProductInfo;
using dependency::toolbox::ToolboxFinder;

std::shared_ptr<ProductInfo> product(std::u16string name, std::u16string code, bool installed,
                                     std::vector<std::u16string> locators) {
    std::u16string folder = installed ? u"/opt/" + code : u"";
    return std::make_shared<ProductInfo>(std::move(name), std::move(code), 1, installed, std::move(folder),
                                         std::move(locators));
}

NodeData productNode(std::u16string id, std::vector<std::u16string> locators) {
    NodeData data = nodeData(std::move(id), Type::PRODUCT());
    data.location = std::move(locators);
    return data;
}

std::vector<std::u16string> sortedIds(Findings const& findings) {
    std::vector<std::u16string> result;
    for (auto const& finding : findings) {
        result.push_back(finding->getID());
    }
    std::sort(result.begin(), result.end());
    return result;
}

class MissingProductAnalyzerTest : public ::testing::Test {
protected:
    // The catalogue these tests consult, installed as the process-wide finder.
    void SetUp() override {
        useRepositoryResources();
        ToolboxFinder::setInstance(std::make_shared<ToolboxFinder>(ToolboxFinder::ProductList{
            product(u"Signal Kit", u"SK", false, {u"signal"}),
            product(u"Signal Kit Pro", u"SKP", true, {u"signal", u"signal-pro"}),
            product(u"Optim Kit", u"OK", false, {u"optim"}),
            product(u"Optim Kit Legacy", u"OKL", false, {u"optim", u"optim-legacy"}),
            product(u"Stats Kit", u"ST", false, {u"stats"}),
        }));
    }
    void TearDown() override { ToolboxFinder::setInstance(nullptr); }

    // Analyses a file node that depends on each given node, in order; a node
    // given twice gets a second edge.
    Findings analyzeUserOf(std::vector<NodeData> const& required) const {
        GraphBuilder builder;
        auto const user = builder.addNode(fileData(u"user", u"/work/user.qx"));
        std::set<std::u16string> added;
        for (auto const& data : required) {
            if (added.insert(data.id).second) {
                builder.addNode(data);
            }
            builder.addDependency(u"user", data.id, Type::REQUIREMENT());
        }
        return analyzer_->analyze(user, builder.build());
    }

    std::shared_ptr<dependency::attribute::AttributeAnalyzer> analyzer_ = createMissingProductAnalyzer();
};

TEST_F(MissingProductAnalyzerTest, OnlyProductDependenciesAreLookedUp) {
    NodeData package = nodeData(u"pkg", Type::PACKAGE());
    package.location = {u"stats"};  // a locator of a missing product, but not on a product node
    EXPECT_TRUE(analyzeUserOf({package, fileData(u"f", u"stats")}).empty());
    EXPECT_TRUE(analyzeUserOf({}).empty());
}

TEST_F(MissingProductAnalyzerTest, AMissingProductIsReportedOnceWithItsOwnIdentity) {
    NodeData const stats = productNode(u"product:stats", {u"stats"});
    Findings const findings = analyzeUserOf({stats, stats});
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0]->getID(), u"MissingProductST");
    EXPECT_EQ(findings[0]->getName(), englishText("MissingProductProblem", {std::u16string(u"Stats Kit")}));
    EXPECT_THAT(fl::i18n::to_string(findings[0]->getName()), ::testing::HasSubstr("Stats Kit"));
    EXPECT_EQ(findings[0]->getSeverity(), Severity::Warning);
    EXPECT_FALSE(findings[0]->hasFix());

    // Every finding carries a fresh identity, equal by value to the last one.
    Findings const again = analyzeUserOf({stats});
    ASSERT_EQ(again.size(), 1u);
    EXPECT_NE(again[0]->getIdentity(), findings[0]->getIdentity());
    EXPECT_TRUE(*again[0]->getIdentity() == *findings[0]->getIdentity());
}

TEST_F(MissingProductAnalyzerTest, AnyInstalledCandidateMeetsTheRequirement) {
    // "signal" names two catalogue entries, one installed.
    EXPECT_TRUE(analyzeUserOf({productNode(u"product:signal", {u"signal"})}).empty());
    // The installed one may come from any location entry.
    EXPECT_TRUE(analyzeUserOf({productNode(u"product:mixed", {u"stats", u"signal-pro"})}).empty());
}

TEST_F(MissingProductAnalyzerTest, EveryMissingCandidateIsReportedWithoutDeduplication) {
    Findings const twoEntries = analyzeUserOf({productNode(u"product:optim", {u"optim"})});
    EXPECT_EQ(sortedIds(twoEntries), (std::vector<std::u16string>{u"MissingProductOK", u"MissingProductOKL"}));

    // "optim" and "optim-legacy" both denote the legacy entry: it is a candidate twice.
    Findings const overlapping = analyzeUserOf({productNode(u"product:optim", {u"optim", u"optim-legacy"})});
    EXPECT_EQ(sortedIds(overlapping),
              (std::vector<std::u16string>{u"MissingProductOK", u"MissingProductOKL", u"MissingProductOKL"}));

    Findings const twoProducts =
        analyzeUserOf({productNode(u"product:stats", {u"stats"}), productNode(u"product:optim", {u"optim"})});
    EXPECT_EQ(sortedIds(twoProducts),
              (std::vector<std::u16string>{u"MissingProductOK", u"MissingProductOKL", u"MissingProductST"}));
}

TEST_F(MissingProductAnalyzerTest, ProductsTheCatalogueDoesNotKnowAreNotReported) {
    EXPECT_TRUE(analyzeUserOf({productNode(u"product:unknown", {u"no-such-product"})}).empty());
    EXPECT_TRUE(analyzeUserOf({productNode(u"product:nowhere", {})}).empty());

    ToolboxFinder::setInstance(std::make_shared<ToolboxFinder>(ToolboxFinder::ProductList{}));
    EXPECT_TRUE(analyzeUserOf({productNode(u"product:stats", {u"stats"})}).empty());
}

}  // namespace

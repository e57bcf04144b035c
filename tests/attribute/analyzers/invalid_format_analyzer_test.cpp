#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"

#include <gtest/gtest.h>

namespace {

using namespace analyzer_test;
using dependency::attribute::createInvalidFormatAnalyzer;
using dependency::attribute::Severity;
using dependency::graph::Properties;

class InvalidFormatAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override { useRepositoryResources(); }

    Findings analyze(Properties properties, Type type = Type::FILE()) const {
        return analyzer_->analyze(node(nodeData(u"n", type, std::move(properties))), emptyGraph());
    }

    std::shared_ptr<dependency::attribute::AttributeAnalyzer> analyzer_ = createInvalidFormatAnalyzer();
};

TEST_F(InvalidFormatAnalyzerTest, TheFirstSetFlagInPriorityOrderWins) {
    struct Case {
        Properties properties;
        std::u16string expectedId;  // empty: no finding
    };
    std::vector<Case> const cases{
        {{}, u""},
        {{{u"unrelated", u"true"}}, u""},
        {{{u"futureRelease", u"true"},
          {u"invalidFormat", u"true"},
          {u"syntaxError", u"true"},
          {u"isModelInPackage", u"true"}},
         u"FutureRelease"},
        {{{u"futureRelease", u"true"}, {u"syntaxError", u"true"}}, u"FutureRelease"},
        {{{u"invalidFormat", u"true"}, {u"isModelInPackage", u"true"}}, u"InvalidFormat"},
        {{{u"syntaxError", u"true"}, {u"isModelInPackage", u"true"}}, u"SyntaxError"},
        {{{u"isModelInPackage", u"true"}}, u"ModelInPackage"},
        // Only the exact text "true" sets a flag; a lower flag that is set still counts.
        {{{u"futureRelease", u"TRUE"}, {u"invalidFormat", u"1"}, {u"syntaxError", u"true"}}, u"SyntaxError"},
        {{{u"syntaxError", u"TRUE"}}, u""},
        {{{u"futureRelease", u"false"}, {u"invalidFormat", u"True"}, {u"isModelInPackage", u" true"}}, u""},
        {{{u"futureRelease", u"true "}, {u"isModelInPackage", u""}}, u""},
    };
    for (auto const& [properties, expectedId] : cases) {
        Findings const findings = analyze(properties);
        if (expectedId.empty()) {
            EXPECT_TRUE(findings.empty());
        } else {
            ASSERT_EQ(findings.size(), 1u);
            EXPECT_EQ(findings[0]->getID(), expectedId);
        }
    }
}

TEST_F(InvalidFormatAnalyzerTest, FindingsCarryTheirCatalogNamesAsWarnings) {
    struct Row {
        char16_t const* property;
        char16_t const* id;
        char const* messageKey;
    };
    for (auto const& [property, id, messageKey] :
         {Row{u"futureRelease", u"FutureRelease", "FutureReleaseProblem"},
          Row{u"invalidFormat", u"InvalidFormat", "InvalidFormatProblem"},
          Row{u"syntaxError", u"SyntaxError", "SyntaxErrorProblem"},
          Row{u"isModelInPackage", u"ModelInPackage", "ModelInPackageProblem"}}) {
        Findings const findings = analyze({{property, u"true"}});
        ASSERT_EQ(findings.size(), 1u);
        EXPECT_EQ(findings[0]->getID(), id);
        EXPECT_EQ(findings[0]->getName(), englishText(messageKey));
        EXPECT_EQ(findings[0]->getSeverity(), Severity::Warning);
        EXPECT_FALSE(findings[0]->hasFix());
    }
}

TEST_F(InvalidFormatAnalyzerTest, EveryFlaggedNodeOfAnyKindGetsTheVerySameAttribute) {
    auto const first = analyze({{u"futureRelease", u"true"}}, Type::FILE());
    auto const second = analyze({{u"futureRelease", u"true"}}, Type::PROJECT());
    auto const third = createInvalidFormatAnalyzer()->analyze(
        node(nodeData(u"other", Type::FUNCTION(), {{u"futureRelease", u"true"}})), emptyGraph());
    ASSERT_EQ(first.size(), 1u);
    ASSERT_EQ(second.size(), 1u);
    ASSERT_EQ(third.size(), 1u);
    EXPECT_EQ(first[0], second[0]);
    EXPECT_EQ(first[0], third[0]);
    EXPECT_NE(first[0], analyze({{u"syntaxError", u"true"}}).at(0));
}

}  // namespace

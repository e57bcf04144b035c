#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Messages.hpp"

#include <gtest/gtest.h>

namespace {

using namespace analyzer_test;
using dependency::attribute::createCircularProjectReferenceAnalyzer;
using dependency::attribute::createMissingProjectReferenceAnalyzer;
using dependency::attribute::Severity;

class ProjectReferenceAnalyzersTest : public ::testing::Test {
protected:
    void SetUp() override { useRepositoryResources(); }

    static Findings missing(NodeData data) {
        return createMissingProjectReferenceAnalyzer()->analyze(node(std::move(data)), emptyGraph());
    }
    static Findings circular(Type type, std::u16string const& property) {
        return createCircularProjectReferenceAnalyzer()->analyze(
            node(nodeData(u"p", type, {{u"circularReferences", property}})), emptyGraph());
    }
};

TEST_F(ProjectReferenceAnalyzersTest, AnUnresolvedProjectIsMissing) {
    Findings const findings = missing(nodeData(u"p", Type::PROJECT(), {}, /*resolved=*/false));
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0]->getID(), u"Missing");
    EXPECT_EQ(findings[0]->getName(), englishText("MissingProjectReferenceProblem"));
    EXPECT_EQ(findings[0]->getSeverity(), Severity::Warning);
    EXPECT_FALSE(findings[0]->hasFix());
    // Same ID as a missing file, told apart by the Name.
    EXPECT_NE(findings[0]->getName(), englishText("MissingFileProblem"));

    EXPECT_TRUE(missing(nodeData(u"p", Type::PROJECT())).empty());
    for (Type const& type : {Type::FILE(), Type::FUNCTION(), Type::PACKAGE(), Type::PRODUCT()}) {
        EXPECT_TRUE(missing(nodeData(u"n", type, {}, /*resolved=*/false)).empty());
    }
}

TEST_F(ProjectReferenceAnalyzersTest, EachFindingHasAFreshIdentityEqualByValue) {
    auto const analyzer = createMissingProjectReferenceAnalyzer();
    auto const project = node(nodeData(u"p", Type::PROJECT(), {}, /*resolved=*/false));
    auto const first = analyzer->analyze(project, emptyGraph()).at(0);
    auto const second = analyzer->analyze(project, emptyGraph()).at(0);
    EXPECT_NE(first->getIdentity(), second->getIdentity());
    EXPECT_TRUE(*first->getIdentity() == *second->getIdentity());

    Findings const cycles = circular(Type::PROJECT(), uR"(["A", "A"])");
    ASSERT_EQ(cycles.size(), 2u);  // duplicates are kept
    EXPECT_NE(cycles[0]->getIdentity(), cycles[1]->getIdentity());
    EXPECT_TRUE(*cycles[0]->getIdentity() == *cycles[1]->getIdentity());
}

TEST_F(ProjectReferenceAnalyzersTest, OneCircularFindingPerListedCycleInOrder) {
    Findings const findings = circular(Type::PROJECT(), uR"(["A -> B -> A", "B \u00e9 C"])");
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0]->getID(), u"CircularDependency");
    EXPECT_EQ(findings[0]->getName(), englishText("CircularDependency", {std::u16string(u"A -> B -> A")}));
    EXPECT_EQ(findings[1]->getName(), englishText("CircularDependency", {std::u16string(u"B é C")}));
    EXPECT_EQ(findings[1]->getSeverity(), Severity::Warning);

    EXPECT_TRUE(circular(Type::PROJECT(), u"[]").empty());
    EXPECT_TRUE(
        createCircularProjectReferenceAnalyzer()->analyze(node(nodeData(u"p", Type::PROJECT())), emptyGraph()).empty());
    for (Type const& type : {Type::FILE(), Type::FUNCTION()}) {
        EXPECT_TRUE(circular(type, uR"(["A"])").empty());
    }
}

TEST_F(ProjectReferenceAnalyzersTest, MalformedCycleListsAreIgnoredButNonStringCyclesThrow) {
    for (std::u16string const text : {uR"(["A")", uR"( ["A"])", uR"({"a": "b"})", u"not json", uR"(["A" "B"])",
                                      uR"(["A", ])", u"", uR"(["\ud800"])"}) {
        Findings findings;
        EXPECT_NO_THROW(findings = circular(Type::PROJECT(), text));
        EXPECT_TRUE(findings.empty());
    }
    // Text after a complete array is not looked at.
    EXPECT_EQ(circular(Type::PROJECT(), uR"(["A"] trailing)").size(), 1u);

    for (std::u16string const text :
         {uR"(["A", 1])", uR"([["A"]])", uR"([null])", uR"([{"qztype":"int8","qzdata":[1]}])"}) {
        try {
            circular(Type::PROJECT(), text);
            ADD_FAILURE() << "expected a conversion error";
        } catch (std::runtime_error const& error) {
            EXPECT_EQ(std::string(error.what()).rfind("invalid conversion: ", 0), 0u) << error.what();
            EXPECT_NE(std::string(error.what()).find(" to std::string"), std::string::npos) << error.what();
        }
    }
}

TEST_F(ProjectReferenceAnalyzersTest, NamesFollowTheGlobalLocaleOfEachCall) {
    auto const project = node(nodeData(u"p", Type::PROJECT(), {{u"circularReferences", uR"(["A -> B"])"}}, false));
    {
        JapaneseGlobalLocale const japanese;
        EXPECT_EQ(createMissingProjectReferenceAnalyzer()->analyze(project, emptyGraph()).at(0)->getName(),
                  u"参照先のプロジェクトが見つかりません");
        EXPECT_EQ(createCircularProjectReferenceAnalyzer()->analyze(project, emptyGraph()).at(0)->getName(),
                  u"プロジェクトの循環参照: A -> B");
    }
    EXPECT_EQ(createMissingProjectReferenceAnalyzer()->analyze(project, emptyGraph()).at(0)->getName(),
              englishText("MissingProjectReferenceProblem"));
}

TEST_F(ProjectReferenceAnalyzersTest, CatalogFailuresPropagateOnEveryFinding) {
    TempFolder const noCatalogs("project_no_catalogs");
    ::setenv("DEPATTR_RESOURCES", noCatalogs.path().c_str(), 1);
    fl::i18n::MessageCatalog::clear_cache();
    auto const project = node(nodeData(u"p", Type::PROJECT(), {{u"circularReferences", uR"(["A"])"}}, false));
    EXPECT_THROW(createMissingProjectReferenceAnalyzer()->analyze(project, emptyGraph()), fl::i18n::MessageNotFound);
    EXPECT_THROW(createCircularProjectReferenceAnalyzer()->analyze(project, emptyGraph()), fl::i18n::MessageNotFound);
    // No finding, no lookup.
    EXPECT_TRUE(circular(Type::PROJECT(), u"[]").empty());
    ::setenv("DEPATTR_RESOURCES", DEPATTR_SOURCE_DIR "/resources", 1);
    fl::i18n::MessageCatalog::clear_cache();
    EXPECT_EQ(createMissingProjectReferenceAnalyzer()->analyze(project, emptyGraph()).size(), 1u);
}

TEST_F(ProjectReferenceAnalyzersTest, AnUnknownMessageKeyNamesCatalogAndKey) {
    try {
        dependency::attribute::attributeMessage("NoSuchFinding");
        FAIL() << "expected MessageNotFound";
    } catch (fl::i18n::MessageNotFound const& error) {
        std::string const what = error.what();
        EXPECT_EQ(what.rfind("message 'NoSuchFinding' not found in catalog "
                             "'QORVEX:dependency:attribute' (searched ",
                             0),
                  0u)
            << what;
        // The places searched: the requested language, then English.
        EXPECT_NE(what.find("/en/dependency/attribute.xml"), std::string::npos) << what;
    }
}

}  // namespace

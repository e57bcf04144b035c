// Runs in its own process: nothing may have used the built-in analyzers before.
#include "attribute/analyzers/AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"

#include <gtest/gtest.h>

namespace {

using namespace analyzer_test;
using dependency::attribute::AttributeAnalyzer;

TEST(ProcessWideIdentities, AreMadeAtFirstSuccessfulUseInTheLocaleOfThatMoment) {
    TempFolder const files("first_use");
    TempFolder const noCatalogs("first_use_no_catalogs");
    auto const fileNode = node(fileData(u"f", files.create("present.qx")));
    auto const flaggedNode = node(nodeData(u"n", Type::FUNCTION(), {{u"syntaxError", u"true"}}));
    auto const graph = emptyGraph();
    std::vector<std::shared_ptr<AttributeAnalyzer>> const analyzers{
        dependency::attribute::createMissingFileAnalyzer(),
        dependency::attribute::createDerivedFileAnalyzer(),
        dependency::attribute::createInvalidFormatAnalyzer(),
    };

    // Without catalogs the Names cannot be made: the lookup failure propagates,
    // whatever the node, and leaves nothing half made behind.
    ::setenv("DEPATTR_RESOURCES", noCatalogs.path().c_str(), 1);
    fl::i18n::MessageCatalog::clear_cache();
    for (auto const& analyzer : analyzers) {
        EXPECT_THROW(analyzer->analyze(fileNode, graph), fl::i18n::MessageNotFound);
        EXPECT_THROW(analyzer->analyze(flaggedNode, graph), fl::i18n::MessageNotFound);
    }

    // With catalogs, the next call makes the identities, in the language current then ...
    ::setenv("DEPATTR_RESOURCES", DEPATTR_SOURCE_DIR "/resources", 1);
    fl::i18n::MessageCatalog::clear_cache();
    {
        JapaneseGlobalLocale const japanese;
        EXPECT_EQ(analyzers[0]->analyze(fileNode, graph).at(0)->getName(), u"ファイルが存在します");
        EXPECT_TRUE(analyzers[1]->analyze(flaggedNode, graph).empty());
        EXPECT_EQ(analyzers[2]->analyze(flaggedNode, graph).at(0)->getName(), u"ファイルに構文エラーがあります");
    }
    // ... and keeps them: a later change of locale changes no Name.
    EXPECT_EQ(analyzers[0]->analyze(fileNode, graph).at(0)->getName(), u"ファイルが存在します");
    EXPECT_EQ(analyzers[0]->analyze(node(fileData(u"m", files.pathOf("absent.qx"))), graph).at(0)->getName(),
              u"ファイルが見つかりません");
    EXPECT_EQ(analyzers[2]->analyze(flaggedNode, graph).at(0)->getName(), u"ファイルに構文エラーがあります");
    EXPECT_EQ(dependency::attribute::createInvalidFormatAnalyzer()
                  ->analyze(node(nodeData(u"p", Type::PROJECT(), {{u"futureRelease", u"true"}})), graph)
                  .at(0)
                  ->getName(),
              u"ファイルは新しいリリースで保存されています");
}

}  // namespace

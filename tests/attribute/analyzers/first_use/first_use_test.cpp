// Runs in its own process: nothing may have used the built-in analyzers before.
#include "attribute/analyzers/AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"

#include <gtest/gtest.h>

#include <barrier>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

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

// Many threads make the process-wide identities and attributes at the same
// moment, each through analyzers of its own: every thread gets the same objects.
TEST(ProcessWideIdentities, FirstUseFromManyThreadsAtOnceMakesEachOnce) {
    useRepositoryResources();
    TempFolder const files("first_use_threads");
    auto const present = node(fileData(u"p", files.create("present.qx")));
    auto const absent = node(fileData(u"a", files.pathOf("absent.qx")));
    auto const flagged = node(nodeData(u"n", Type::PROJECT(), {{u"invalidFormat", u"true"}}));
    auto function = nodeData(u"fn", Type::FUNCTION(), {}, /*resolved=*/false);
    function.location = {files.pathOf("absent.qx"), u"fn"};
    auto const unresolvedFunction = node(function);
    // A derived file older than its source.
    dependency::graph::GraphBuilder builder;
    auto const source = files.create("source.qx");
    auto const derivedPath = files.create("derived.bin");
    std::filesystem::last_write_time(
        std::filesystem::path(derivedPath),
        std::filesystem::last_write_time(std::filesystem::path(source)) - std::chrono::hours(1));
    auto const derived = builder.addNode(fileData(u"d", derivedPath));
    builder.addNode(fileData(u"s", source));
    builder.addDependency(u"d", u"s", Type::DERIVED());
    auto const graph = builder.build();

    constexpr int threadCount = 16;
    std::vector<std::vector<void const*>> seen(threadCount);
    std::barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            namespace da = dependency::attribute;
            start.arrive_and_wait();
            auto const identity = [](auto const& findings) -> void const* {
                return findings.size() == 1 ? findings[0]->getIdentity().get() : nullptr;
            };
            da::createMissingPackageDependencyAnalyzer()->analyze(present, graph);
            seen[t] = {
                identity(da::createMissingFileAnalyzer()->analyze(present, graph)),
                identity(da::createMissingFileAnalyzer()->analyze(absent, graph)),
                identity(da::createDerivedFileAnalyzer()->analyze(derived, graph)),
                identity(da::createMissingFunctionAnalyzer()->analyze(unresolvedFunction, graph)),
                da::createInvalidFormatAnalyzer()->analyze(flagged, graph).at(0).get(),  // the attribute itself
            };
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (auto const* object : seen[0]) {
        EXPECT_NE(object, nullptr);
    }
    for (int t = 1; t < threadCount; ++t) {
        EXPECT_EQ(seen[t], seen[0]) << "thread " << t;
    }
}

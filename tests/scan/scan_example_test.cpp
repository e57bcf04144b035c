// examples/project scanned: every built-in analyzer has something real to report from the folder's code.

#include "ScanTestSupport.hpp"
#include "attribute/GraphAttributes.hpp"
#include "attribute/analyzers/Analyzers.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "support/Scratch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace {

namespace fs = std::filesystem;
namespace attribute = dependency::attribute;
using depattr::scan::scanProject;
using depattr::scan::ScanSettings;
using dependency::toolbox::ToolboxFinder;
using testing::IsSupersetOf;

TEST(ScanExampleTest, EveryBuiltInAnalyzerReportsSomethingFromTheExampleFolder) {
    // A copy of the example, so that setting a file's time leaves the source tree alone; the installation
    // beside it comes too, because the example's product descriptors name their folders relative to it.
    depattr_test::ScratchFolder scratch("depattr-example");
    for (auto const* folder : {"project", "install"}) {
        fs::copy(fs::path(DEPATTR_SOURCE_DIR) / "examples" / folder, scratch.path() / folder,
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }
    fs::path const project = scratch.path() / "project";
    ToolboxFinder::setInstallRoot(project / "install");
    // A checkout gives files arbitrary times: the compiled file is made older than its source, as after an edit.
    auto const sourceTime = fs::last_write_time(project / "lib/src/filtered.qx");
    fs::last_write_time(project / "lib/build/filtered.qxc", sourceTime - std::chrono::hours(1));

    ScanSettings settings;
    settings.folder = project;
    auto const result = scanProject(settings);
    ToolboxFinder::setInstance(nullptr);
    std::vector<std::shared_ptr<attribute::AttributeAnalyzer>> const analyzers = {
        attribute::createMissingFileAnalyzer(),
        attribute::createDerivedFileAnalyzer(),
        attribute::createMissingFunctionAnalyzer(),
        attribute::createMissingProductAnalyzer(),
        attribute::createMissingPackageDependencyAnalyzer(),
        attribute::createInvalidFormatAnalyzer(),
        attribute::createMissingProjectReferenceAnalyzer(),
        attribute::createCircularProjectReferenceAnalyzer(),
    };
    ToolboxFinder::setInstallRoot(project / "install");
    auto const findings = attribute::analyzeGraph(result.graph, analyzers);
    ToolboxFinder::setInstance(nullptr);

    std::vector<std::string> found;
    for (auto const& node : result.graph->getNodes()) {
        for (auto const& finding : findings->getAttributes(node)) {
            if (finding->getID() != u"Exists") {
                found.push_back(scan_test::text(node->getID()) + ":" + scan_test::text(finding->getID()));
            }
        }
    }
    EXPECT_THAT(found, IsSupersetOf({
                           "src/data/notes.txt:Missing",             // fileread of a file that is not there
                           "lib/build/filtered.qxc:OutOfDate",       // a stale derived file
                           "unresolved:legacy_filter:Missing",       // a function that exists nowhere
                           "src/renamed.qx>renamed:Missing",         // a file whose function was renamed
                           "src/analyse.qx:MissingProductOK",        // a product that is not installed
                           "src/analyse.qx:Missing",                 // tiles, an undeclared package dependency
                           "src/report.qx:SyntaxError",              // a file with a syntax error
                           "project:?tools:Missing",                 // a missing project reference
                           "project:app.qxproj:CircularDependency",  // app > lib > app
                           "project:lib/lib.qxproj:CircularDependency",
                       }))
        << testing::PrintToString(found);
    EXPECT_TRUE(result.diagnostics.size() == 1)
        << "only the syntax error: " << testing::PrintToString(scan_test::diagnostics(result, project));
}

}  // namespace

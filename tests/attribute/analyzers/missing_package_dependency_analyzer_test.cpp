#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/packages/PackageDescriptor.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"

#include <boost/lexical_cast.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace {

using namespace analyzer_test;
using dependency::attribute::AttributeAnalyzer;
using dependency::attribute::createMissingPackageDependencyAnalyzer;
using dependency::attribute::Severity;
using dependency::graph::GraphBuilder;
using dependency::toolbox::ProductInfo;
using dependency::toolbox::ToolboxFinder;

constexpr char16_t const* matrixId = u"11111111-2222-3333-4444-555555555555";
constexpr char16_t const* plotId = u"22222222-3333-4444-5555-666666666666";
constexpr char16_t const* statsId = u"33333333-4444-5555-6666-777777777777";

struct Use {
    std::u16string name;
    std::u16string folder;  // below the scratch root; "" for a package node without a path
    std::u16string idText;
};

// Products in a scratch folder:
//   app    kind 3, declares matrix_utils and plot
//   app2   kind 3, declares stats only
//   broken kind 3, has no package definition
//   lib    kind 1, holds the packages that the nodes use
//   outside (no product)
class MissingPackageDependencyAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override {
        useRepositoryResources();
        writeDefinition("app", R"([{"name": "matrix_utils", "id": "11111111-2222-3333-4444-555555555555"},
                                   {"name": "plot", "id": "22222222-3333-4444-5555-666666666666"}])");
        writeDefinition("app2", R"([{"name": "stats", "id": "33333333-4444-5555-6666-777777777777"}])");
        std::filesystem::create_directories(root_.path() / "broken");
        std::filesystem::create_directories(root_.path() / "lib");
        ToolboxFinder::setInstance(std::make_shared<ToolboxFinder>(ToolboxFinder::ProductList{
            installed(u"App", 3, "app"),
            installed(u"App Two", 3, "app2"),
            installed(u"Broken", 3, "broken"),
            installed(u"Library", 1, "lib"),
        }));
    }
    void TearDown() override { ToolboxFinder::setInstance(nullptr); }

    std::shared_ptr<ProductInfo> installed(std::u16string name, int kind, std::string const& folder) const {
        return std::make_shared<ProductInfo>(name, name, kind, true, root_.pathOf(folder),
                                             std::vector<std::u16string>{});
    }

    void writeDefinition(std::string const& product, std::string const& dependencies) const {
        std::filesystem::create_directories(root_.path() / product / "resources");
        std::ofstream(root_.path() / product / "resources" / "pkgdef.json")
            << R"({"name": ")" << product << R"(", "id": "99999999-8888-7777-6666-555555555555", "version": "1.0",
                  "dependencies": )"
            << dependencies << "}";
    }

    // Analyses a file node at `userFile` (below the scratch root) that uses each
    // package in order; a package used twice gets a second edge.
    Findings analyzeUser(AttributeAnalyzer const& analyzer, std::string const& userFile,
                         std::vector<Use> const& uses) const {
        GraphBuilder builder;
        auto const user = builder.addNode(fileData(u"user", root_.pathOf(userFile)));
        std::set<std::u16string> added;
        for (auto const& use : uses) {
            std::u16string const id = use.name + u"@" + use.folder + u"#" + use.idText;
            if (added.insert(id).second) {
                NodeData data = nodeData(id, Type::PACKAGE());
                data.name = use.name;
                data.path = use.folder.empty() ? u"" : root_.path().u16string() + u"/" + use.folder + u"/" + use.name;
                data.location = {data.path, use.name, u"1.0", use.idText};
                builder.addNode(std::move(data));
            }
            builder.addDependency(u"user", id, Type::REQUIREMENT());
        }
        return analyzer.analyze(user, builder.build());
    }

    TempFolder root_{"missing_package_dependency"};
};

TEST_F(MissingPackageDependencyAnalyzerTest, UndeclaredPackagesAreReportedOncePerUse) {
    auto const analyzer = createMissingPackageDependencyAnalyzer();
    Findings const findings = analyzeUser(*analyzer, "app/main.qx",
                                          {
                                              {u"matrix_utils", u"lib", matrixId},  // declared
                                              {u"plot", u"lib", plotId},            // declared
                                              {u"stats", u"lib", statsId},          // not declared
                                              {u"stats", u"lib", statsId},          // ... and used twice
                                              {u"matrix_utils", u"lib", statsId},   // declared name, other ID
                                              {u"renamed", u"lib", matrixId},       // declared ID, other name
                                          });
    ASSERT_EQ(findings.size(), 4u);
    for (auto const& finding : findings) {
        EXPECT_EQ(finding->getID(), u"Missing");
        EXPECT_EQ(finding->getName(), englishText("MissingPackageDependencyProblem"));
        EXPECT_EQ(finding->getSeverity(), Severity::Warning);
        EXPECT_FALSE(finding->hasFix());
    }
    // One process-wide identity, shared by every analyzer.
    Findings const other =
        analyzeUser(*createMissingPackageDependencyAnalyzer(), "app/main.qx", {{u"stats", u"lib", statsId}});
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(other[0]->getIdentity(), findings[0]->getIdentity());
}

TEST_F(MissingPackageDependencyAnalyzerTest, PackagesOutsideInstalledProductsAreNotChecked) {
    auto const analyzer = createMissingPackageDependencyAnalyzer();
    // Neither location is ever read: a short location or a bad ID would otherwise fail the call.
    EXPECT_TRUE(analyzeUser(*analyzer, "app/main.qx",
                            {{u"stats", u"outside", u"not-a-uuid"}, {u"stats", u"", statsId}, {u"stats", u"libx", u""}})
                    .empty());
    // ".." leaves the product folder, so the package is not inside it either.
    EXPECT_TRUE(analyzeUser(*analyzer, "app/main.qx", {{u"stats", u"lib/../outside", statsId}}).empty());
}

TEST_F(MissingPackageDependencyAnalyzerTest, DeclaredListIsReadOnceAndServesLaterProducts) {
    auto const analyzer = createMissingPackageDependencyAnalyzer();
    // A node without dependencies still fills the list from its product.
    EXPECT_TRUE(analyzeUser(*analyzer, "app/main.qx", {}).empty());
    // app2 declares stats but not matrix_utils; app's list is kept nonetheless.
    std::vector<Use> const uses = {{u"matrix_utils", u"lib", matrixId}, {u"stats", u"lib", statsId}};
    EXPECT_EQ(analyzeUser(*analyzer, "app2/main.qx", uses).size(), 1u);
    // Even a product without a definition is not read again.
    EXPECT_EQ(analyzeUser(*analyzer, "broken/main.qx", uses).size(), 1u);

    // A fresh analyzer reads app2's list first.
    auto const fresh = createMissingPackageDependencyAnalyzer();
    Findings const fromApp2 = analyzeUser(*fresh, "app2/main.qx", uses);
    EXPECT_EQ(fromApp2.size(), 1u);
}

TEST_F(MissingPackageDependencyAnalyzerTest, WithoutAQualifyingProductEveryUsedPackageIsReported) {
    auto const analyzer = createMissingPackageDependencyAnalyzer();
    std::vector<Use> const uses = {{u"matrix_utils", u"lib", matrixId}, {u"plot", u"lib", plotId}};
    EXPECT_EQ(analyzeUser(*analyzer, "outside/main.qx", uses).size(), 2u);  // in no product
    EXPECT_EQ(analyzeUser(*analyzer, "lib/main.qx", uses).size(), 2u);      // first product not of kind 3
    // The list stayed empty, so the next qualifying node fills it.
    EXPECT_TRUE(analyzeUser(*analyzer, "app/main.qx", uses).empty());
    EXPECT_TRUE(analyzeUser(*analyzer, "lib/main.qx", uses).empty());
}

TEST_F(MissingPackageDependencyAnalyzerTest, BadPackageLocationsFailTheWholeCall) {
    auto const analyzer = createMissingPackageDependencyAnalyzer();
    std::vector<Use> const malformed = {{u"stats", u"lib", statsId}, {u"plot", u"lib", u"22222222-3333-4444-5555"}};
    EXPECT_THROW(analyzeUser(*analyzer, "app/main.qx", malformed), boost::bad_lexical_cast);
    std::vector<Use> const braced = {{u"plot", u"lib", u"{22222222-3333-4444-5555-666666666666}"}};
    EXPECT_THROW(analyzeUser(*analyzer, "app/main.qx", braced), boost::bad_lexical_cast);

    GraphBuilder builder;
    auto const user = builder.addNode(fileData(u"user", root_.pathOf("app/main.qx")));
    NodeData shortLocation = nodeData(u"pkg", Type::PACKAGE());
    shortLocation.path = root_.pathOf("lib/pkg");
    shortLocation.location = {shortLocation.path, u"pkg", u"1.0"};
    builder.addNode(std::move(shortLocation));
    builder.addDependency(u"user", u"pkg", Type::REQUIREMENT());
    try {
        analyzer->analyze(user, builder.build());
        ADD_FAILURE() << "no error";
    } catch (std::out_of_range const& error) {
        EXPECT_THAT(error.what(), ::testing::HasSubstr("3"));
    }
}

TEST_F(MissingPackageDependencyAnalyzerTest, AMissingDefinitionStopsTheCallNamingTheFile) {
    auto const analyzer = createMissingPackageDependencyAnalyzer();
    try {
        analyzeUser(*analyzer, "broken/main.qx", {{u"plot", u"lib", plotId}});
        ADD_FAILURE() << "no error";
    } catch (foundation::packages::PackageDefinitionError const& error) {
        EXPECT_EQ(error.file(), (root_.path() / "broken" / "resources" / "pkgdef.json").string());
    }
}

}  // namespace

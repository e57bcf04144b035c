#include "platform/toolbox/ToolboxFinder.hpp"
#include "support/Scratch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using dependency::toolbox::ProductInfo;
using dependency::toolbox::ToolboxCatalogError;
using dependency::toolbox::ToolboxFinder;

// A scratch installation root whose descriptors go into its products folder.
struct InstallRoot : depattr_test::ScratchFolder {
    InstallRoot() : ScratchFolder("depattr-toolbox") { fs::create_directories(path() / "products"); }
    fs::path write(std::string const& fileName, std::string const& text) const {
        return ScratchFolder::write("products/" + fileName, text);
    }
};

std::string descriptor(std::string const& name, std::string const& code, bool installed, std::string const& folder,
                       std::string const& locators, int kind = 1) {
    return R"({"name": ")" + name + R"(", "baseCode": ")" + code + R"(", "kind": )" + std::to_string(kind) +
           R"(, "installed": )" + (installed ? "true" : "false") + R"(, "versionFolder": ")" + folder +
           R"(", "locators": )" + locators + "}";
}

using Codes = std::vector<std::u16string>;

Codes baseCodes(ToolboxFinder::ProductList const& products) {
    Codes codes;
    for (auto const& product : products) {
        codes.push_back(product->getBaseCode());
    }
    return codes;
}

// Restores the process-wide finder that the tests below replace.
class ProcessWideFinder : public ::testing::Test {
protected:
    ~ProcessWideFinder() override { ToolboxFinder::setInstallRoot({}); }
};

TEST(ToolboxFinderTest, ReadsDescriptorsAndLooksUpLocatorsInFileNameOrderAndNeedsAFolder) {
    InstallRoot root;
    root.write("b.json", descriptor("Signal Kit", "SK", true, "toolbox/signal", R"(["signal", "shared"])", 3));
    root.write("a.json", descriptor("Optim Kit", "OK", false, "/opt/elsewhere/optim/", R"(["optim", "shared"])"));
    root.write("c.json", descriptor("Signal Kit", "SK2", false, "", R"(["signal", "signal"])"));  // twice: one answer
    root.write("notes.txt", "not a descriptor");
    auto const finder = ToolboxFinder::fromInstallRoot(root.path());
    ASSERT_EQ(finder->getProducts().size(), 3u);
    auto const shared = finder->findProductsByLocator(u"shared");
    EXPECT_EQ(baseCodes(shared), (Codes{u"OK", u"SK"}));
    auto const signal = finder->findProductsByLocator(u"signal");
    EXPECT_EQ(baseCodes(signal), (Codes{u"SK", u"SK2"}));
    EXPECT_TRUE(finder->findProductsByLocator(u"Signal").empty());
    EXPECT_TRUE(finder->findProductsByLocator(u"").empty());
    ProductInfo const& kit = *signal[0];
    EXPECT_EQ(kit.getName(), u"Signal Kit");
    EXPECT_EQ(kit.getKind(), 3);
    EXPECT_TRUE(kit.isInstalled());
    EXPECT_EQ(kit.getVerDir(), (fs::absolute(root.path()) / "toolbox" / "signal").u16string());
    EXPECT_EQ(shared[0]->getVerDir(), u"/opt/elsewhere/optim");
    EXPECT_FALSE(shared[0]->isInstalled());
    EXPECT_EQ(signal[1]->getVerDir(), u"");
    // A root that is no folder is an error, and a root without products is empty.
    EXPECT_THROW(ToolboxFinder::fromInstallRoot(root.path() / "missing"), ToolboxCatalogError);
    EXPECT_THROW(ToolboxFinder::fromInstallRoot(root.write("x.json", "{}")), ToolboxCatalogError);
    fs::remove_all(root.path() / "products");
    EXPECT_TRUE(ToolboxFinder::fromInstallRoot(root.path())->getProducts().empty());
}

TEST(ToolboxFinderTest, PathContainmentIsByWholeComponentsAndInstalledOnly) {
    auto product = [](std::u16string code, bool installed, std::u16string folder) {
        return std::make_shared<ProductInfo>(u"P", std::move(code), 1, installed, std::move(folder),
                                             std::vector<std::u16string>{});
    };
    ToolboxFinder const finder({product(u"OUTER", true, u"/a"), product(u"B", true, u"/a/b/"),
                                product(u"GONE", false, u"/a/b"), product(u"INNER", true, u"/a/b/c"),
                                product(u"B_TWIN", true, u"/a/./b")});
    // Paths that are not in normal form answer as their normal form does.
    for (auto const* path : {u"/a/b/c", u"/a/b/c/f.qx", u"/a//b/c/", u"/a/./b/c", u"/a/b/x/../c/.", u"/a/b/c/d/.."}) {
        EXPECT_EQ(baseCodes(finder.findProductsContainingPath(path)), (Codes{u"INNER", u"B", u"B_TWIN", u"OUTER"}));
    }
    EXPECT_EQ(baseCodes(finder.findProductsContainingPath(u"/a/b")), (Codes{u"B", u"B_TWIN", u"OUTER"}));
    // "/a/bcd" is as long as "/a/b/c" but is not it.
    for (auto const* path : {u"/a/bc/f.qx", u"/a/b/../x", u"/a/bcd"}) {
        EXPECT_EQ(baseCodes(finder.findProductsContainingPath(path)), (Codes{u"OUTER"}));
    }
    for (auto const* path : {u"/ab", u"/", u""}) {
        EXPECT_TRUE(finder.findProductsContainingPath(path).empty());
    }
    // Folders that begin differently, of different lengths: a path is told
    // apart by its beginning, and one shorter than every folder lies in none.
    ToolboxFinder const apart(
        {product(u"OPT", true, u"/opt/x"), product(u"LIB", true, u"/usr/lib/y"), product(u"OFF", false, u"/home")});
    for (auto const& [path, codes] : std::vector<std::pair<std::u16string, Codes>>{
             {u"/opt/x/f.qx", {u"OPT"}},
             {u"/opt/x", {u"OPT"}},
             {u"/usr/lib/y", {u"LIB"}},
             {u"/usr/lib/../lib/y/z", {u"LIB"}},
             {u"/usr/lib/yy", {}},
             {u"/home/a", {}},
             {u"/opt", {}},
             {u"/op", {}},
         }) {
        EXPECT_EQ(baseCodes(apart.findProductsContainingPath(path)), codes) << std::string(path.begin(), path.end());
    }
    ToolboxFinder const everything({product(u"ROOT", true, u"/")});
    EXPECT_EQ(everything.findProductsContainingPath(u"/any/where").size(), 1u);
    EXPECT_EQ(everything.findProductsContainingPath(u"/").size(), 1u);
    EXPECT_EQ(everything.findProductsContainingPath(u"relative/to/here.qx").size(), 1u);
    // A path with a NUL character names no file, so no product holds it: not
    // even the one at the root, nor the one its text up to the NUL would name.
    EXPECT_TRUE(everything.findProductsContainingPath(std::u16string(u"/any\0where", 10)).empty());
    EXPECT_TRUE(finder.findProductsContainingPath(std::u16string(u"/a/b/c\0/f.qx", 12)).empty());
    // Also after a part that normalising would change, or after a surrogate.
    EXPECT_TRUE(finder.findProductsContainingPath(std::u16string(u"/a/b/./c/\0f.qx", 14)).empty());
    EXPECT_TRUE(everything.findProductsContainingPath(std::u16string(u"/a\xD800/\0", 5)).empty());
    EXPECT_EQ(everything.findProductsContainingPath(std::u16string(u"/a\xD800/b", 5)).size(), 1u);
}

TEST(ToolboxFinderTest, MalformedDescriptorNamesFileAndPosition) {
    struct Case {
        std::string text;
        std::size_t line;
        std::size_t column;
        std::string reason;
    };
    std::vector<Case> const cases = {
        {"{\"name\": \"A\",\n  \"kind\": \"three\"}", 2, 11, "\"kind\" must be an integer"},
        {"{\"name\": \"A\",\n  \"name\": \"B\"}", 2, 3, "duplicate key \"name\""},
        {"{\"name\": \"A\",\n  \"instaled\": true}", 2, 3, "unknown key \"instaled\""},
        {"{\"name\": \"A\", \"baseCode\": \"A\", \"kind\": 1}", 1, 1, "missing key \"installed\""},
        {"{\"name\": \"A\", \"baseCode\": \"A\", \"kind\": 1, \"installed\": true}", 1, 1, "versionFolder"},
        {"{\"name\": \"A\",\n \"locators\": [\"a\", 3]}", 2, 20, "every entry of \"locators\""},
        {"{\"name\": \"A\", \"baseCode\": \"A\", \"kind\": 1, \"installed\": false}\n{}", 2, 1, "unexpected text"},
        {"{\"name\": \"A\",\n \"baseCode\": \"A\" \"kind\": 1}", 2, 18, "malformed JSON"},
        {"[1, 2]", 1, 1, "must be a JSON object"},
        {"{\"name\": \"never closed}", 1, 24, "a string is not closed"},
        {"", 0, 0, "malformed JSON"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        InstallRoot root;
        root.write("a_good.json", descriptor("Good", "G", true, "g", "[]"));
        fs::path const bad = root.write("b_bad.json", c.text);
        auto const error =
            depattr_test::thrown<ToolboxCatalogError>([&] { ToolboxFinder::fromInstallRoot(root.path()); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->file(), bad.string());
        EXPECT_EQ(error->line(), c.line);
        EXPECT_EQ(error->column(), c.column);
        EXPECT_THAT(error->reason(), ::testing::HasSubstr(c.reason));
        EXPECT_THAT(error->what(), ::testing::StartsWith(bad.string() + ":"));
    }
}

TEST_F(ProcessWideFinder, SettingTheRootReloadsAFailedReloadKeepsTheCatalogueAndTheEnvironmentNamesTheFirst) {
    InstallRoot root;
    root.write("a.json", descriptor("A", "A", true, "a", R"(["a"])"));
    ToolboxFinder::setInstallRoot(root.path());
    auto const first = ToolboxFinder::getInstance();
    EXPECT_EQ(first, ToolboxFinder::getInstance());
    EXPECT_EQ(first->findProductsByLocator(u"a").size(), 1u);
    root.write("b.json", descriptor("B", "B", true, "b", R"(["a"])"));
    ToolboxFinder::setInstallRoot(root.path());
    EXPECT_EQ(ToolboxFinder::getInstance()->findProductsByLocator(u"a").size(), 2u);
    EXPECT_EQ(first->findProductsByLocator(u"a").size(), 1u);  // an old holder keeps its catalogue
    root.write("c.json", "{");
    EXPECT_THROW(ToolboxFinder::setInstallRoot(root.path()), ToolboxCatalogError);
    EXPECT_EQ(ToolboxFinder::getInstance()->findProductsByLocator(u"a").size(), 2u);
    ToolboxFinder::setInstallRoot({});
    EXPECT_TRUE(ToolboxFinder::getInstance()->getProducts().empty());
    // The environment names the root on first use.
    InstallRoot envRoot;
    envRoot.write("a.json", descriptor("A", "A", true, "a", R"(["from-env"])"));
    ::setenv("DEPATTR_INSTALL_ROOT", envRoot.path().c_str(), 1);
    ToolboxFinder::setInstance(nullptr);
    EXPECT_EQ(ToolboxFinder::getInstance()->findProductsByLocator(u"from-env").size(), 1u);
    envRoot.write("b.json", "{\"name\": 1}");
    ToolboxFinder::setInstance(nullptr);
    EXPECT_THROW(ToolboxFinder::getInstance(), ToolboxCatalogError);
    ::setenv("DEPATTR_INSTALL_ROOT", "", 1);
    EXPECT_TRUE(ToolboxFinder::getInstance()->getProducts().empty());  // the failed load was not kept
    ::unsetenv("DEPATTR_INSTALL_ROOT");
}

TEST_F(ProcessWideFinder, ReadersRunWhileTheCatalogueIsReplaced) {
    auto catalogue = [](std::u16string code) {
        return std::make_shared<ToolboxFinder>(ToolboxFinder::ProductList{
            std::make_shared<ProductInfo>(u"P", std::move(code), 1, true, u"/p", std::vector<std::u16string>{u"p"})});
    };
    ToolboxFinder::setInstance(catalogue(u"FIRST"));
    std::atomic<bool> stop{false};
    std::atomic<int> wrongAnswers{0};
    {
        std::vector<std::jthread> readers;  // joined at the end of this block
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                while (!stop.load()) {
                    auto const found = ToolboxFinder::getInstance()->findProductsContainingPath(u"/p/q");
                    wrongAnswers += found.size() != 1 || found[0]->getBaseCode().empty() ? 1 : 0;
                }
            });
        }
        for (int i = 0; i < 200; ++i) {
            ToolboxFinder::setInstance(catalogue(i % 2 == 0 ? u"EVEN" : u"ODD"));
        }
        stop = true;
    }
    EXPECT_EQ(wrongAnswers.load(), 0);
}

// The example installation root is used by the example graph; its README lists what these checks expect.
TEST(ToolboxFinderTest, ExampleInstallationRootReadsAsDocumented) {
    fs::path const root = fs::path(DEPATTR_SOURCE_DIR) / "examples" / "install";
    auto const finder = ToolboxFinder::fromInstallRoot(root);
    ASSERT_EQ(finder->getProducts().size(), 5u);
    auto const optim = finder->findProductsByLocator(u"optim");
    ASSERT_EQ(baseCodes(optim), (Codes{u"OK"}));
    EXPECT_FALSE(optim[0]->isInstalled());
    auto const signal = finder->findProductsByLocator(u"signal");
    ASSERT_EQ(signal.size(), 1u);
    EXPECT_TRUE(signal[0]->isInstalled());
    fs::path const absoluteRoot = fs::absolute(root).lexically_normal();
    auto const inMapping =
        finder->findProductsContainingPath((absoluteRoot / "packages/mapping/mapview.qx").u16string());
    ASSERT_EQ(inMapping.size(), 1u);
    EXPECT_EQ(inMapping[0]->getKind(), 3);
    EXPECT_TRUE(fs::exists(fs::path(inMapping[0]->getVerDir()) / "resources" / "pkgdef.json"));
    for (char const* package : {"packages/geometry", "packages/tiles"}) {
        auto const found = finder->findProductsContainingPath((absoluteRoot / package).u16string());
        ASSERT_EQ(found.size(), 1u) << package;
        EXPECT_TRUE(found[0]->isInstalled());
    }
}

}  // namespace

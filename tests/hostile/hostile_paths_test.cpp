// Hostile places and code files for the analyzers that touch the file system:
// the missing-file analyzer (presence, shared with the derived-file analyzer)
// and the missing-function analyzer (reads and parses code files). Their
// outcome is always the finding their kind defines, never an exception, a
// crash or a wait. docs/reliability.md lists the outcomes.
#include "attribute/analyzers/Analyzers.hpp"
#include "attribute/analyzers/Registry.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace {

namespace fs = std::filesystem;
using dependency::graph::Node;
using dependency::graph::NodeData;
using dependency::graph::Type;
using namespace std::string_literals;

class HostilePaths : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("DEPATTR_RESOURCES", DEPATTR_SOURCE_DIR "/resources", 0);
        fs::remove_all(scratch_);
        fs::create_directories(scratch_);
    }
    void TearDown() override {
        std::error_code ignored;
        for (auto const& entry : fs::recursive_directory_iterator(scratch_, ignored)) {
            fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
        fs::remove_all(scratch_, ignored);
    }

    static std::shared_ptr<Node> fileNode(std::u16string const& path) {
        NodeData data;
        data.id = path;
        data.path = path;
        data.location = {path};
        data.isFile = true;
        return std::make_shared<Node>(std::move(data));
    }

    static std::shared_ptr<Node> functionNode(std::u16string const& path) {
        NodeData data;
        data.id = path + u">f";
        data.type = Type::FUNCTION();
        data.path = path;
        data.location = {path, u"f"};
        return std::make_shared<Node>(std::move(data));
    }

    fs::path scratch_ = fs::temp_directory_path() / ("depattr_hostile_paths_" + std::to_string(::getpid()));
    std::shared_ptr<dependency::graph::Graph const> graph_ = dependency::graph::GraphBuilder().build();
};

TEST_F(HostilePaths, PresenceIsAFindingWhateverThePath) {
    auto const analyzer = dependency::attribute::createMissingFileAnalyzer();
    auto const file = scratch_ / "present.qx";
    depattr_test::writeBytes(file, "x");
    fs::create_symlink("loop", scratch_ / "loop");
    fs::create_symlink("nowhere", scratch_ / "dangling");
    fs::create_directories(scratch_ / "folder");
    ASSERT_EQ(::mkfifo((scratch_ / "pipe").c_str(), 0600), 0);
    fs::path const odd = scratch_ / "sp ace 'q' \"dq\" \\ \t\n-é😀.qx";
    depattr_test::writeBytes(odd, "x");

    struct Case {
        char const* what;
        std::u16string path;
        std::u16string id;
    };
    std::vector<Case> const cases{
        {"odd characters", odd.u16string(), u"Exists"},
        {"a folder (something exists)", (scratch_ / "folder").u16string(), u"Exists"},
        {"a named pipe (something exists; it is not opened)", (scratch_ / "pipe").u16string(), u"Exists"},
        {"a symbolic-link loop", (scratch_ / "loop").u16string(), u"Missing"},
        {"a link to nothing (removed)", (scratch_ / "dangling").u16string(), u"Missing"},
        {"a file used as a folder", (file / "child.qx").u16string(), u"Missing"},
        {"a NUL character", file.u16string() + u"\0x"s, u"Missing"},
        {"a lone surrogate", (scratch_ / "a").u16string() + u"\xD800", u"Missing"},
        {"longer than the system takes", (scratch_ / std::string(5000, 'n')).u16string(), u"Missing"},
        {"empty", u"", u"Missing"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        auto const findings = analyzer->analyze(fileNode(c.path), graph_);
        ASSERT_EQ(findings.size(), 1u);
        EXPECT_EQ(findings[0]->getID(), c.id);
    }
}

// A NUL character in any node's path is a place that cannot exist: every
// built-in analyzer answers for it as for a missing file (or not at all),
// never with an error of the file-system layer, whatever products are installed.
TEST_F(HostilePaths, EveryAnalyzerTakesAPathWithANulCharacter) {
    auto const product = std::make_shared<dependency::toolbox::ProductInfo>(u"P", u"PK", 3, true, scratch_.u16string(),
                                                                            std::vector<std::u16string>{u"pk"});
    dependency::toolbox::ToolboxFinder::setInstance(
        std::make_shared<dependency::toolbox::ToolboxFinder>(dependency::toolbox::ToolboxFinder::ProductList{product}));
    auto const path = (scratch_ / "a").u16string() + u"\0b.qx"s;
    dependency::graph::GraphBuilder builder;
    std::vector<std::u16string> ids;
    for (auto const& type :
         {Type::FILE(), Type::FUNCTION(), Type::PACKAGE(), Type::PRODUCT(), Type::PROJECT(), Type::DERIVED()}) {
        auto const id = u"n"s + static_cast<char16_t>(u'0' + ids.size());
        builder.addNode(NodeData{.id = id,
                                 .type = type,
                                 .path = path,
                                 .location = {path, u"f", u"pk", u"0f8fad5b-d9cb-469f-a165-70867728950e"},
                                 .isFile = type == Type::FILE() || type == Type::DERIVED()});
        ids.push_back(id);
    }
    for (std::size_t i = 1; i < ids.size(); ++i) {
        builder.addDependency(ids[0], ids[i], Type::REFERENCE());
    }
    auto const graph = builder.build();
    for (auto const* entry : dependency::attribute::builtInAnalyzers()) {
        auto const analyzer = entry->create();
        for (auto const& id : ids) {
            SCOPED_TRACE(std::string(entry->name) + " on node " + std::string(id.begin(), id.end()));
            EXPECT_NO_THROW(analyzer->analyze(graph->findNode(id), graph));
        }
    }
    dependency::toolbox::ToolboxFinder::setInstance(nullptr);
}

TEST_F(HostilePaths, InsideAFolderWithoutPermissionAFileIsMissing) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "running as root, which passes folders without search permission";
    }
    auto const folder = scratch_ / "closed";
    fs::create_directories(folder);
    depattr_test::writeBytes(folder / "f.qx", "x");
    fs::permissions(folder, fs::perms::none);
    auto const findings =
        dependency::attribute::createMissingFileAnalyzer()->analyze(fileNode((folder / "f.qx").u16string()), graph_);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0]->getID(), u"Missing");
}

// A code file that cannot be read or parsed leaves its function undefined: the
// missing-function finding, and never an exception, whatever the file is.
TEST_F(HostilePaths, HostileCodeFilesMakeTheMissingFunctionFinding) {
    auto const analyzer = dependency::attribute::createMissingFunctionAnalyzer();
    std::string const valid = "function f()\nend\n";
    struct Case {
        char const* what;
        std::function<void(fs::path const&)> make;
        bool missing;
    };
    std::vector<Case> const cases{
        {"valid", [&](fs::path const& p) { depattr_test::writeBytes(p, valid); }, false},
        {"truncated", [&](fs::path const& p) { depattr_test::writeBytes(p, valid.substr(0, 9)); }, true},
        {"empty", [](fs::path const& p) { depattr_test::writeBytes(p, ""); }, true},
        {"larger than a code file may be",
         [](fs::path const& p) {
             depattr_test::writeBytes(p, "");
             fs::resize_file(p, ca::maxCodeFileBytes + 1);
         },
         true},
        {"deeply nested",
         [](fs::path const& p) {
             depattr_test::writeBytes(p, "function f()\nx = " + std::string(100'000, '(') + "\nend\n");
         },
         true},
        {"invalid UTF-8 in a string",
         [](fs::path const& p) { depattr_test::writeBytes(p, "function f()\nx = 'a\xff';\nend\n"); }, false},
        {"an encoded lone surrogate in a comment",
         [](fs::path const& p) { depattr_test::writeBytes(p, "function f()\n% \xed\xa0\x80\nend\n"); }, false},
        {"a NUL byte", [](fs::path const& p) { depattr_test::writeBytes(p, "function f()\nx = 1;\0\nend\n"s); }, true},
        {"a symbolic-link loop", [](fs::path const& p) { fs::create_symlink(p.filename(), p); }, true},
        {"removed (a link to nothing)", [](fs::path const& p) { fs::create_symlink("gone.qx", p); }, true},
        {"a folder", [](fs::path const& p) { fs::create_directories(p); }, true},
        {"a named pipe", [](fs::path const& p) { ASSERT_EQ(::mkfifo(p.c_str(), 0600), 0); }, true},
    };
    int index = 0;
    for (auto const& c : cases) {
        SCOPED_TRACE(c.what);
        // A new name for every case, so that no cached result answers.
        auto const path = scratch_ / ("sp ace é " + std::to_string(index++) + ".qx");
        c.make(path);
        auto const findings = analyzer->analyze(functionNode(path.u16string()), graph_);
        EXPECT_EQ(findings.size(), c.missing ? 1u : 0u);
    }
}

// The code-analysis library itself names the file it cannot read.
TEST_F(HostilePaths, CodeFilesThatCannotBeReadAreNamed) {
    auto const reader = ca::createSingleFileAnalyzer();
    auto const huge = scratch_ / "huge.qx";
    depattr_test::writeBytes(huge, "");
    fs::resize_file(huge, ca::maxCodeFileBytes + 1);
    ASSERT_EQ(::mkfifo((scratch_ / "pipe.qx").c_str(), 0600), 0);
    fs::create_directories(scratch_ / "folder.qx");
    for (auto const& [file, reason] :
         std::vector<std::pair<fs::path, std::string>>{{huge, "more than the 268435456 bytes a code file may hold"},
                                                       {scratch_ / "pipe.qx", "Invalid argument"},
                                                       {scratch_ / "folder.qx", "Is a directory"},
                                                       {scratch_ / "absent.qx", "No such file or directory"}}) {
        SCOPED_TRACE(file.string());
        try {
            reader->analyze(file.u16string());
            ADD_FAILURE() << "read without an error";
        } catch (ca::FileReadError const& error) {
            EXPECT_NE(std::string(error.what()).find(file.string()), std::string::npos) << error.what();
            EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
        }
    }
}

}  // namespace

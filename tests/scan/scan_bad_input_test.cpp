// Bad input never stops a scan: each problem is one diagnostic naming the file, and the rest is scanned.
// Also: a scanned graph written as a graph file loads back with the same nodes, properties and edges.

#include "ScanTestSupport.hpp"
#include "platform/graph/GraphFile.hpp"
#include "platform/graph/GraphWriter.hpp"
#include "support/Scratch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using depattr::scan::ScanError;
using depattr::scan::scanProject;
using depattr::scan::ScanSettings;
using depattr_test::ScratchFolder;
using scan_test::diagnostics;
using scan_test::edges;
using scan_test::property;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

depattr::scan::ScanResult scan(fs::path const& folder) {
    ScanSettings settings;
    settings.folder = folder;
    return scanProject(settings);
}

TEST(ScanBadInputTest, EachProblemIsOneDiagnosticAndTheScanGoesOn) {
    ScratchFolder scratch("depattr-scan");
    scratch.write("main.qx", "function main\nok()\nend\n");
    scratch.write("ok.qx", "function ok\nend\n");
    scratch.write("binary.qx", std::string("\177ELF\0\0\1\377\376 garbage", 18));
    scratch.write("latin1.qx", "function latin1\n% caf\xe9\nend\n");
    fs::create_symlink(scratch.path() / "absent.qx", scratch.path() / "dangling.qx");
    fs::create_directories(scratch.path() / "loop");
    fs::create_directory_symlink(scratch.path(), scratch.path() / "loop" / "back");
    scratch.write("twice.qx", "function twice\nend\nfunction twice\nend\n");
    scratch.write("x.qx", "function x\nf()\nend\nfunction f\nend\n");
    scratch.write("x.qx>f", "a file named like the function node of x.qx's local function");
    scratch.write("reader.qx", "function reader\nfileread('x.qx>f')\nend\n");
    scratch.write("bad.qxproj", "<project name=\"bad\">\n  <unknown/>\n</project>\n");
    auto const result = scan(scratch.path());
    auto const found = diagnostics(result, scratch.path());

    EXPECT_THAT(found, Contains(HasSubstr("binary.qx:")));
    EXPECT_THAT(found, Contains(StartsWith("dangling.qx:0:0: cannot read the code file: ")));
    EXPECT_THAT(found, Contains(StartsWith("loop/back:0:0: symbolic link to a folder scanned already")));
    EXPECT_THAT(found, Contains(StartsWith("twice.qx:3:10: function twice is defined twice")));
    EXPECT_THAT(found, Contains(StartsWith("bad.qxproj:2:")));
    EXPECT_EQ(property(*result.graph, u"binary.qx", u"syntaxError"), "true");
    EXPECT_NE(property(*result.graph, u"dangling.qx", u"readError"), "<none>");
    // Everything else was scanned.
    auto const calls = edges(*result.graph, "call");
    EXPECT_THAT(calls, Contains("main.qx -call-> ok.qx>ok"));
    EXPECT_EQ(result.counts.unreadable, 1u);
    // A file whose name is a function node's ID: both nodes are there, under different IDs.
    EXPECT_THAT(calls, Contains("x.qx -call-> x.qx>f#"));
    EXPECT_THAT(edges(*result.graph, "reference"), Contains("reader.qx -reference-> x.qx>f"));

    EXPECT_THROW(scan(scratch.path() / "absent"), ScanError);
}

// One bad input per row, each in a tree of its own beside good code: exactly one diagnostic, at the file and place
// given, and the good code is scanned all the same.
TEST(ScanBadInputTest, EachBadInputAloneIsExactlyOneDiagnostic) {
    struct Case {
        std::string expected;  // the start of the one diagnostic, "file:line:column: message"
        std::vector<std::pair<std::string, std::string>> entries;  // path and content, or "->" and a link's target
        char const* locked = nullptr;  // left without permissions (root reads it all the same: the row is skipped)
        std::size_t count = 1;         // diagnostics: one for each bad entry
    };
    std::vector<Case> const cases{
        {"self:0:0: symbolic link that leads back to itself", {{"self", "->self"}}},
        {"ping:0:0: symbolic link that leads back to itself", {{"ping", "->pong"}, {"pong", "->ping"}}, nullptr, 2},
        {"loop.qx:0:0: cannot read the code file: ", {{"loop.qx", "->loop.qx"}}},
        {"a/b/up:0:0: symbolic link to a folder scanned already", {{"a/b/up", "->../.."}}},
        {"bin.qx:1:", {{"bin.qx", std::string("\177ELF\2\1\1\0\0\0\377\376\0\1", 14)}}},
        {"latin.qx:2:8: syntax error: ", {{"latin.qx", "function latin\nx = caf\xe9;\nend\n"}}},  // not UTF-8
        {"bad.qxproj:3:", {{"bad.qxproj", "<project name=\"p\">\n  <path folder=\"a\">\n</project>\n"}}},
        {"two/twin.qx:0:0: function twin is also defined by one/twin.qx, which comes first on the path",
         {{"one/twin.qx", "function twin\nend\n"}, {"two/twin.qx", "function twin\nend\n"}}},
        {"closed.qx:0:0: cannot read the code file: ", {{"closed.qx", "function closed\nend\n"}}, "closed.qx"},
        {"shut:0:0: cannot read the folder: ", {{"shut/inside.qx", "function inside\nend\n"}}, "shut"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.expected);
        if (c.locked && ::geteuid() == 0) {
            continue;
        }
        ScratchFolder scratch("depattr-scan");
        scratch.write("main.qx", "function main\nok()\ntwin()\nend\n");
        scratch.write("ok.qx", "function ok\nend\n");
        for (auto const& [path, content] : c.entries) {
            if (content.starts_with("->")) {
                fs::create_directories((scratch.path() / path).parent_path());
                fs::create_symlink(content.substr(2), scratch.path() / path);
            } else {
                scratch.write(path, content);
            }
        }
        if (c.locked) {
            fs::permissions(scratch.path() / c.locked, fs::perms::none);
        }
        auto const result = scan(scratch.path());
        auto const found = diagnostics(result, scratch.path());
        ASSERT_EQ(found.size(), c.count) << testing::PrintToString(found);
        EXPECT_THAT(found[0], StartsWith(c.expected));
        auto const calls = edges(*result.graph, "call");
        EXPECT_THAT(calls, Contains("main.qx -call-> ok.qx>ok"));
        if (c.expected.starts_with("two/twin.qx")) {
            EXPECT_THAT(calls, Contains("main.qx -call-> one/twin.qx>twin"));  // the first on the path
        }
        if (c.locked) {
            fs::permissions(scratch.path() / c.locked, fs::perms::owner_all);
        }
    }
}

// A 50 MB code file is read whole and parsed up to the parser's bound on the tree it makes (about 20 MB of code):
// one syntax error at the place the bound was reached, and the rest of the folder is scanned.
TEST(ScanBadInputTest, AFiftyMegabyteCodeFileIsOneDiagnostic) {
    ScratchFolder scratch("depattr-scan");
    scratch.write("main.qx", "function main\nok()\nend\n");
    scratch.write("ok.qx", "function ok\nend\n");
    {
        std::ofstream big(scratch.path() / "big.qx", std::ios::binary);
        big << "function big\n";
        std::string const line = "total = total + sqrt(abs(value * 3)) - helper(value, 2);\n";
        for (std::size_t written = 0; written < std::size_t{50} << 20; written += line.size()) {
            big << line;
        }
        big << "end\n";
    }
    ASSERT_GT(fs::file_size(scratch.path() / "big.qx"), std::uintmax_t{50} << 20);
    auto const result = scan(scratch.path());
    auto const found = diagnostics(result, scratch.path());
    ASSERT_EQ(found.size(), 1u) << testing::PrintToString(found);
    EXPECT_THAT(found[0], testing::MatchesRegex("big\\.qx:[1-9][0-9]*:[1-9][0-9]*: syntax error: .*too large.*"));
    EXPECT_EQ(property(*result.graph, u"big.qx", u"syntaxError"), "true");
    EXPECT_THAT(edges(*result.graph, "call"), Contains("main.qx -call-> ok.qx>ok"));
}

// Opens `levels` folders named "d", each inside the one before, below `root`, making each first when `make`, and
// returns the deepest (negative on failure); every call takes a short path, as the whole one is longer than the
// system takes.
int descend(fs::path const& root, int levels, bool make) {
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < levels && fd >= 0; ++i) {
        EXPECT_TRUE(!make || ::mkdirat(fd, "d", 0755) == 0) << i;
        int const next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        fd = next;
    }
    return fd;
}

// Removes what was made below `root`, from the bottom up, each folder through its parent ("..").
void removeNested(fs::path const& root, int levels, std::string const& file) {
    int fd = descend(root, levels, false);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::unlinkat(fd, file.c_str(), 0), 0);
    for (int i = 0; i < levels; ++i) {
        int const parent = ::openat(fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        ASSERT_GE(parent, 0);
        EXPECT_EQ(::unlinkat(parent, "d", AT_REMOVEDIR), 0) << i;
        fd = parent;
    }
    ::close(fd);
}

TEST(ScanBadInputTest, TenThousandNestedFoldersAreScannedToTheBottom) {
    // The deepest path holds 20,000 characters, more than the system takes in one call: folders and the code file
    // there are opened a part of the path at a time, and the walk keeps a stack of its own, not the call stack.
    // Made and removed on a disk, 10,000 folders cost tens of seconds on a loaded machine; in memory a fraction of
    // one. The tree goes to /dev/shm where the system has it.
    fs::path base = fs::temp_directory_path();
    if (std::error_code e; fs::is_directory("/dev/shm", e) && ::access("/dev/shm", W_OK | X_OK) == 0) {
        base = "/dev/shm";
    }
    std::string pattern = (base / "depattr-scan-deep-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    struct Scratch {
        fs::path root;
        ~Scratch() {
            std::error_code ignored;
            fs::remove_all(root, ignored);
        }
        fs::path const& path() const { return root; }
    } const scratch{pattern};
    std::ofstream(scratch.path() / "ok.qx") << "function ok\nend\n";
    int const levels = 10000;
    int const fd = descend(scratch.path(), levels, true);
    ASSERT_GE(fd, 0);
    // Written through the folder's descriptor: the whole path is too long to open.
    std::ofstream(fs::path("/proc/self/fd") / std::to_string(fd) / "deepest.qx")
        << "function deepest\nok()\nmissing_deep()\nend\n";
    ::close(fd);
    auto const result = scan(scratch.path());
    removeNested(scratch.path(), levels, "deepest.qx");

    EXPECT_THAT(diagnostics(result, scratch.path()), testing::IsEmpty());
    std::string deepest;
    for (int i = 0; i < levels; ++i) {
        deepest += "d/";
    }
    deepest += "deepest.qx";
    auto const calls = edges(*result.graph, "call");
    EXPECT_THAT(calls, Contains(deepest + " -call-> ok.qx>ok"));
    EXPECT_THAT(calls, Contains(deepest + " -call-> unresolved:missing_deep"));
    EXPECT_EQ(result.counts.codeFiles, 2u);
    EXPECT_EQ(result.counts.parsed, 2u);
}

TEST(ScanBadInputTest, AWrittenGraphLoadsBackTheSame) {
    ScratchFolder scratch("depattr-scan");
    scratch.write("src/main.qx", "function main\nx = helper(1);\nt = fileread('gone.txt');\nnowhere(x)\nend\n");
    scratch.write("src/helper.qx", "function y = helper(x)\ny = x;\nend\n");
    scratch.write("src/broken.qx", "function broken\nx = (1 + ;\nend\n");
    scratch.write("+pkg/Shape.qx", "classdef Shape\nmethods (Static)\nfunction u = unit()\nu = 1;\nend\nend\nend\n");
    scratch.write("use.qx", "function use\npkg.Shape.unit()\nend\n");
    scratch.write("app.qxproj", R"(<project name="app"><reference project="app"/><reference project="x"/></project>)");
    auto const scanned = scan(scratch.path()).graph;

    auto const file = scratch.path() / "graph.json";
    dependency::graph::writeGraphFile(file, *scanned);
    auto const loaded = dependency::graph::loadGraphFile(file);
    ASSERT_EQ(loaded->nodeCount(), scanned->nodeCount());
    auto const fields = [](auto const& n) {
        return std::tuple(n->getID(), n->getType(), n->getLocation(), n->getPath(), n->isResolved(),
                          n->getProperties());
    };
    auto a = scanned->getNodes().begin();
    for (auto const& node : loaded->getNodes()) {
        EXPECT_EQ(fields(node), fields(*a++));
    }
    EXPECT_EQ(edges(*loaded), edges(*scanned));
    EXPECT_FALSE(edges(*scanned).empty());
}

}  // namespace

// The corpus under tests/data/qx: every valid file parses and yields the definitions its first line names (and,
// when its second line lists node kinds, a tree holding each of them); every broken file reports an error on the
// line its first line names. Files are read through the file analyzer, so the corpus also exercises reading from
// disk.

#include "TreeDump.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

fs::path corpusFolder(char const* kind) {
    return fs::path(DEPATTR_TEST_DATA_DIR) / "qx" / kind;
}

std::vector<fs::path> filesIn(fs::path const& folder) {
    std::vector<fs::path> files;
    for (auto const& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".qx") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// The value after "% <key>:" on the file's first line, or on its second when `second`; nullopt when that line
// is not such a line.
std::optional<std::string> expectationOn(fs::path const& file, std::string const& key, bool second) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    if (second) {
        std::getline(in, line);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    auto const prefix = "% " + key + ":";
    if (line.rfind(prefix, 0) != 0) {
        return std::nullopt;
    }
    auto value = line.substr(prefix.size());
    value.erase(0, value.find_first_not_of(' '));
    return value;
}

std::string expectation(fs::path const& file, std::string const& key) {
    auto value = expectationOn(file, key, false);
    if (!value) {
        ADD_FAILURE() << file << " does not start with '% " << key << ":'";
        return {};
    }
    return *value;
}

void collectKinds(ca::astapi::Node const& node, std::set<std::string>& kinds) {
    std::ostringstream name;
    name << node.kind();
    kinds.insert(name.str());
    for (auto const* child : node.children()) {
        collectKinds(*child, kinds);
    }
}

std::string joined(std::vector<std::string> const& names) {
    std::string text;
    for (auto const& name : names) {
        text += (text.empty() ? "" : " | ") + name;
    }
    return text;
}

TEST(Corpus, ValidFilesParseAndYieldTheirDefinitions) {
    auto const files = filesIn(corpusFolder("valid"));
    ASSERT_GE(files.size(), 10u);
    auto analyzer = ca::createSingleFileAnalyzer();
    for (auto const& file : files) {
        SCOPED_TRACE(file.filename().string());
        auto const result = analyzer->analyze(file.u16string());
        for (auto const& error : result->getErrors()) {
            ADD_FAILURE() << "line " << error.line << ", column " << error.column << ": " << error.message;
        }
        EXPECT_EQ(joined(ca::testing::definitions(result->getRootNode())), expectation(file, "expect-definitions"));
        if (auto const kinds = expectationOn(file, "expect-kinds", true)) {
            std::set<std::string> found;
            collectKinds(result->getRootNode(), found);
            std::istringstream wanted(*kinds);
            for (std::string kind; wanted >> kind;) {
                EXPECT_TRUE(found.contains(kind)) << "no " << kind << " node";
            }
        }
    }
}

TEST(Corpus, ClassFilesNameTheirOwnerAndOtherFilesDoNot) {
    auto analyzer = ca::createSingleFileAnalyzer();
    auto const owner = [&](char const* name) {
        return analyzer->analyze((corpusFolder("valid") / name).u16string())->getOwnerName();
    };
    EXPECT_EQ(owner("class_file.qx"), u"Shape");
    EXPECT_EQ(owner("enumeration_file.qx"), u"Color");
    EXPECT_EQ(owner("function_file.qx"), u"");
    EXPECT_EQ(owner("expressions.qx"), u"");
}

TEST(Corpus, BrokenFilesReportAnErrorOnTheExpectedLine) {
    auto const files = filesIn(corpusFolder("broken"));
    ASSERT_GE(files.size(), 10u);
    auto analyzer = ca::createSingleFileAnalyzer();
    for (auto const& file : files) {
        SCOPED_TRACE(file.filename().string());
        auto const result = analyzer->analyze(file.u16string());
        ASSERT_TRUE(result->hasErrors());
        auto const& error = result->getErrors().front();
        EXPECT_EQ(std::to_string(error.line), expectation(file, "expect-error-line")) << error.message;
        EXPECT_GE(error.column, 1u);
        EXPECT_FALSE(error.message.empty());
        // A file with errors offers no tree to search and no owner.
        EXPECT_EQ(result->getRootNode().kind(), ca::astapi::NodeKind::File);
        EXPECT_TRUE(result->getRootNode().children().empty());
        EXPECT_TRUE(result->getOwnerName().empty());
    }
}

}  // namespace

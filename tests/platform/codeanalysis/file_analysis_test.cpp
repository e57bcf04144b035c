// Analysing files: reading, the errors of unreadable files, and the per-process cache of results.

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;

class FileAnalysisTest : public ::testing::Test {
protected:
    FileAnalysisTest() : folder_(fs::temp_directory_path() / ("depattr_codeanalysis_" + std::to_string(::getpid()))) {
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    ~FileAnalysisTest() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::u16string write(std::string const& name, std::string const& code,
                         fs::file_time_type time = fs::file_time_type::clock::now()) {
        auto const path = folder_ / name;
        std::ofstream(path, std::ios::binary | std::ios::trunc) << code;
        fs::last_write_time(path, time);
        return path.u16string();
    }

    fs::path folder_;
    std::unique_ptr<ca::SingleFileAnalyzer> analyzer_ = ca::createSingleFileAnalyzer();
};

TEST_F(FileAnalysisTest, AnUnreadablePathThrowsAndBrokenCodeIsReadable) {
    // Absent files, folders and pipes are named in tests/hostile; a NUL in the path is refused before any read.
    try {
        analyzer_->analyze(write("real.qx", "x = 1;") + std::u16string(u"\0.qx", 4));
        ADD_FAILURE() << "no exception";
    } catch (ca::FileReadError const& error) {
        EXPECT_NE(std::string(error.what()).find("NUL"), std::string::npos) << error.what();
    }
    // A file whose code is broken is readable: its errors are in the result.
    EXPECT_TRUE(analyzer_->analyze(write("broken.qx", "x = (;"))->hasErrors());
}

TEST_F(FileAnalysisTest, AnUnchangedFileIsParsedOnceAndAChangedOneAgain) {
    auto const start = fs::file_time_type::clock::now() - std::chrono::hours(1);
    auto const path = write("f.qx", "function f\nend\n", start);
    auto const first = analyzer_->analyze(path);
    // Another analyzer shares the cache.
    EXPECT_EQ(ca::createSingleFileAnalyzer()->analyze(path), first);

    // Same size, new content, new time: parsed again.
    write("f.qx", "function g\nend\n", start + std::chrono::seconds(5));
    auto const second = analyzer_->analyze(path);
    EXPECT_NE(second, first);
    EXPECT_EQ(second->getRootNode().children()[0]->child(7)->identifier().getString(), u"g");

    // Same time, different size: parsed again.
    write("f.qx", "function longer\nend\n", start + std::chrono::seconds(5));
    auto const third = analyzer_->analyze(path);
    EXPECT_EQ(third->getRootNode().children()[0]->child(7)->identifier().getString(), u"longer");
    EXPECT_EQ(analyzer_->analyze(path), third);
}

TEST_F(FileAnalysisTest, AReplacedFileWithCopiedSizeAndTimeIsParsedAgain) {
    auto const time = fs::file_time_type::clock::now() - std::chrono::hours(2);
    auto const path = write("r.qx", "function a\nend\n", time);
    auto const first = analyzer_->analyze(path);
    auto const nameIn = [](std::shared_ptr<ca::AnalysisResult const> const& result) {
        return std::u16string(result->getRootNode().children()[0]->child(7)->identifier().getString());
    };

    // A new file of the same size, given the old modification time, renamed over the old one: another inode.
    write("r.qx.new", "function b\nend\n", time);
    fs::rename(folder_ / "r.qx.new", folder_ / "r.qx");
    auto const replaced = analyzer_->analyze(path);
    EXPECT_EQ(nameIn(replaced), u"b");

    // Rewritten in place and the modification time put back: the same inode, but its status changed.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    write("r.qx", "function c\nend\n", time);
    EXPECT_EQ(nameIn(analyzer_->analyze(path)), u"c");
    EXPECT_NE(first, replaced);
}

TEST_F(FileAnalysisTest, TheCacheCapacityCanBeSetAndZeroKeepsNothing) {
    auto const path = write("z.qx", "function z\nend\n");
    auto const saved = ca::resultCacheCapacity();
    ca::setResultCacheCapacity(0);
    EXPECT_EQ(ca::resultCacheCapacity(), 0u);
    auto const first = analyzer_->analyze(path);
    EXPECT_NE(analyzer_->analyze(path), first);
    ca::setResultCacheCapacity(saved);
    auto const kept = analyzer_->analyze(path);
    EXPECT_EQ(analyzer_->analyze(path), kept);
}

TEST_F(FileAnalysisTest, CodeWhoseTreeExceedsTheLimitIsAnErrorOfTheResult) {
    std::string code;
    while (code.size() < 100000) {
        code += "x = [1, 2, 3] + y(4);\n";
    }
    EXPECT_FALSE(ca::analyzeText(code)->hasErrors());
    auto const limited = ca::analyzeText(code, 200000);
    ASSERT_TRUE(limited->hasErrors());
    EXPECT_EQ(limited->getErrors().front().message,
              "the code is too large to analyse: its syntax tree would take more than 200000 bytes");
    EXPECT_TRUE(limited->getRootNode().children().empty());
    EXPECT_LT(limited->memoryBytes(), 200000u);
}

}  // namespace

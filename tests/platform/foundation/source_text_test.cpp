#include "platform/foundation/SourceText.hpp"

#include <gtest/gtest.h>

#include <string_view>

namespace {

using foundation::source::advance;
using foundation::source::FileError;
using foundation::source::positionAt;
using foundation::source::SourcePosition;

TEST(SourceTextTest, OffsetsBecomeLinesAndByteColumns) {
    // "é" and "→" are two and three bytes of UTF-8: columns count bytes.
    std::string_view const text = "ab\r\ncd\n\xC3\xA9x\xE2\x86\x92y\n\nz";
    struct Case {
        std::size_t offset;
        SourcePosition expected;
    };
    Case const cases[] = {
        {0, {1, 1}},     // the first byte
        {2, {1, 3}},     // the '\r' of a CRLF pair is the line's last byte
        {3, {1, 4}},     // ... and so is its '\n'
        {4, {2, 1}},     // just after CRLF
        {7, {3, 1}},     // just after LF
        {9, {3, 3}},     // after a two-byte character
        {13, {3, 7}},    // after a three-byte character
        {15, {4, 1}},    // an empty line
        {16, {5, 1}},    // the last line, without a line break
        {17, {5, 2}},    // the end of the text
        {1000, {5, 2}},  // past the end: the end of the text
    };
    for (auto const& c : cases) {
        EXPECT_EQ(positionAt(text, c.offset), c.expected) << "offset " << c.offset;
    }
    EXPECT_EQ(positionAt("", 0), (SourcePosition{1, 1}));
    EXPECT_EQ(positionAt("", 5), (SourcePosition{1, 1}));
}

TEST(SourceTextTest, ReadingInPiecesGivesThePlaceOfTheWholeText) {
    std::string_view const text = "one\ntwo\r\nthree\nfour";
    for (std::size_t split = 0; split <= text.size(); ++split) {
        for (std::size_t end = split; end <= text.size(); ++end) {
            auto const inPieces = advance(advance({1, 1}, text.substr(0, split)), text.substr(split, end - split));
            EXPECT_EQ(inPieces, positionAt(text, end)) << "split " << split << ", end " << end;
        }
    }
}

TEST(SourceTextTest, ErrorTextNamesTheFileAndThePlaceWhenKnown) {
    FileError const placed("dir/graph.json", 3, 14, "missing key \"id\"");
    EXPECT_STREQ(placed.what(), "dir/graph.json:3:14: missing key \"id\"");
    EXPECT_EQ(placed.file(), "dir/graph.json");
    EXPECT_EQ(placed.line(), 3u);
    EXPECT_EQ(placed.column(), 14u);
    EXPECT_EQ(placed.reason(), "missing key \"id\"");

    FileError const fromPosition("a.toml", positionAt("x = 1\ny", 6), "bad");
    EXPECT_STREQ(fromPosition.what(), "a.toml:2:1: bad");

    FileError const unplaced("pkgdef.json", "cannot be read: no such file");
    EXPECT_STREQ(unplaced.what(), "pkgdef.json: cannot be read: no such file");
    EXPECT_FALSE(unplaced.position().known());
    EXPECT_STREQ(FileError("f", 0, 0, "r").what(), "f: r");

    std::runtime_error const& asStandard = placed;
    EXPECT_STREQ(asStandard.what(), "dir/graph.json:3:14: missing key \"id\"");
}

}  // namespace

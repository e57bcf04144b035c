#include "platform/graph/detail/ArraySlices.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

using dependency::graph::detail::ArraySlice;
using dependency::graph::detail::nextSlice;

namespace {

// A text and the array in it, with the padding the scan may read past its end.
struct Text {
    std::string bytes;
    std::size_t size;
    explicit Text(std::string text) : bytes(std::move(text)), size(bytes.size()) { bytes.append(64, 'x'); }
    char const* begin() const { return bytes.data(); }
    char const* end() const { return bytes.data() + size; }
};

// Cuts the array that opens at the text's first byte into slices of at least `bytes` bytes.
std::optional<std::vector<ArraySlice>> cut(Text const& text, std::size_t bytes) {
    std::vector<ArraySlice> slices;
    for (char const* open = text.begin();;) {
        auto const slice = nextSlice(open, text.end(), bytes);
        if (!slice) {
            return std::nullopt;
        }
        slices.push_back(*slice);
        if (slice->last()) {
            return slices;
        }
        open = slice->close;
    }
}

}  // namespace

// Random arrays whose strings hold brackets, quotes, backslashes and commas
// (escaped where JSON wants it, some escapes straddling the scan's 64-byte
// blocks): every cut falls on a separator the generator wrote, the slices
// count every element once, and each slice but the last is at least as large
// as asked for.
TEST(ArraySlicesTest, CutsFallBetweenElementsWhateverTheStringsHold) {
    std::mt19937 random(20261127);
    std::vector<std::string> const pieces = {"a", "{",    "}",    "[",       "]", ",",  ":",
                                             " ", "\\\"", "\\\\", "\\u005d", "é", "\\n"};
    auto const string = [&] {
        std::string text = "\"";
        for (auto n = random() % 12; n > 0; --n) {
            text += pieces[random() % pieces.size()];
        }
        return text + "\"";
    };
    for (int round = 0; round < 200; ++round) {
        std::string array = "[";
        std::vector<std::size_t> separators;  // where the commas between elements and the final ']' are
        auto const elements = 1 + random() % 40;
        for (std::size_t i = 0; i < elements; ++i) {
            if (i > 0) {
                array += std::string(random() % 3, ' ');
                separators.push_back(array.size());
                array += ",\n";
            }
            array += "{" + string() + ": " + string() + ", \"n\": [[" + string() + "], {\"x\": " + string() + "}]}";
        }
        array += " ";
        separators.push_back(array.size());
        array += "]";
        Text const text(array + ", \"after\": 1}");
        for (std::size_t const bytes : {std::size_t{1}, std::size_t{50}, std::size_t{300}, std::size_t{1} << 20}) {
            auto const slices = cut(text, bytes);
            ASSERT_TRUE(slices) << array;
            std::size_t counted = 0;
            for (std::size_t k = 0; k < slices->size(); ++k) {
                auto const& slice = (*slices)[k];
                auto const close = static_cast<std::size_t>(slice.close - text.begin());
                EXPECT_NE(std::find(separators.begin(), separators.end(), close), separators.end()) << array;
                EXPECT_EQ(slice.open, k == 0 ? text.begin() : (*slices)[k - 1].close);
                EXPECT_GE(slice.elements, 1u);
                if (k + 1 < slices->size()) {
                    EXPECT_GE(static_cast<std::size_t>(slice.close - slice.open), bytes);
                    EXPECT_EQ(*slice.close, ',');
                }
                counted += slice.elements;
            }
            EXPECT_EQ(slices->back().close - text.begin(), static_cast<std::ptrdiff_t>(separators.back()));
            EXPECT_EQ(counted, elements) << array;
        }
    }
}

TEST(ArraySlicesTest, TextsThatAreNoArrayToCutAreRefused) {
    auto const refused = [](std::string const& array) { return !cut(Text(array), 1).has_value(); };
    EXPECT_TRUE(refused(R"([{"a": "]"})"));  // the array never ends
    EXPECT_TRUE(refused(R"([{"a": "never closed}])"));
    EXPECT_TRUE(refused(R"([{"a": 1} {"b": 2}])"));  // no comma after a slice
    EXPECT_TRUE(refused(R"([{"a": 1},])"));          // a slice after a comma with nothing in it
    EXPECT_TRUE(refused(R"([{"a": "\"}])"));         // the quote is escaped: the string goes on
    EXPECT_FALSE(refused(R"([{"a": "\\"}])"));       // the backslash is
    Text const emptyArray("[ \n ]");
    auto const none = cut(emptyArray, 1);
    ASSERT_TRUE(none);
    ASSERT_EQ(none->size(), 1u);
    EXPECT_EQ(none->front().elements, 0u);
    EXPECT_EQ(*none->front().close, ']');
}

#include "scan/detail/NameTable.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

using depattr::scan::detail::NameTable;

using depattr_test::wide;

namespace {}  // namespace

// Each row is a sequence of names added in order with their position as value: the table must keep the first
// position of every name, report fresh exactly once per name, and find nothing it was not given.
TEST(NameTableTest, KeepsTheFirstValueOfEachNameAndFindsOnlyWhatItHolds) {
    struct Row {
        char const* what;
        std::vector<std::string> names;
        std::vector<std::string> absent;
    };
    std::vector<std::string> many;
    for (int i = 0; i < 5000; ++i) {
        many.push_back("name" + std::to_string(i % 1700));  // repeats, and grows the table many times
    }
    std::vector<Row> const rows = {
        {"distinct short names", {"x", "y", "ans", "f1_2"}, {"z", "xx", "an", "ans2"}},
        {"repeats keep the first", {"a", "b", "a", "c", "b", "a"}, {"d"}},
        {"the empty name is a name", {"", "x", ""}, {"y"}},
        {"prefixes and same-length names differ", {"abc", "abd", "ab", "abcd", "bca"}, {"a", "abce", "acb"}},
        {"many names", many, {"name1700", "name", "name01"}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        NameTable table;
        std::vector<std::u16string> texts;
        texts.reserve(row.names.size());
        std::map<std::u16string, std::uint32_t> expected;
        for (std::size_t i = 0; i < row.names.size(); ++i) {
            texts.push_back(wide(row.names[i]));
            auto const [value, fresh] = table.emplace(texts.back(), static_cast<std::uint32_t>(i));
            auto const [it, expectedFresh] = expected.try_emplace(texts.back(), static_cast<std::uint32_t>(i));
            EXPECT_EQ(fresh, expectedFresh) << row.names[i];
            EXPECT_EQ(value, it->second) << row.names[i];
        }
        for (auto const& [name, value] : expected) {
            // Looked up through another copy of the text: the table compares the names, not their addresses.
            std::u16string const copy = name;
            ASSERT_NE(table.find(copy), nullptr);
            EXPECT_EQ(*table.find(copy), value);
            EXPECT_TRUE(table.contains(copy));
        }
        for (auto const& name : row.absent) {
            EXPECT_FALSE(table.contains(wide(name))) << name;
        }
        table.clear();
        for (auto const& [name, value] : expected) {
            EXPECT_FALSE(table.contains(name));
        }
        // Usable again after clearing, with new values.
        auto const [value, fresh] = table.emplace(texts.front(), 99);
        EXPECT_TRUE(fresh);
        EXPECT_EQ(value, 99U);
    }
}

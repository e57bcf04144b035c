#include "platform/host/lang/Language.hpp"
#include "scan/BuiltinNames.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

using depattr::scan::BuiltinNames;

using depattr_test::wide;

namespace {

std::string fileText(std::string const& relative) {
    std::ifstream in(std::filesystem::path(DEPATTR_SOURCE_DIR) / relative, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

TEST(BuiltinNamesTest, ShippedListHoldsEveryBuiltinOfTheInterpreterAndTheLanguageDocument) {
    auto const& shipped = BuiltinNames::shipped();
    auto const interpreter = qlang::builtinNames();
    ASSERT_GT(interpreter.size(), 100U);
    for (auto const& name : interpreter) {
        EXPECT_TRUE(shipped.contains(wide(name))) << name;
    }
    // The functions the language document lists: the first word of every
    // form a list item of "Built-in functions" gives, nargin and nargout, and
    // the library's functions.
    std::string const document = fileText("docs/host-language.md");
    auto const section = document.find("\n## Built-in functions");
    ASSERT_NE(section, std::string::npos);
    std::string const builtins = document.substr(section, document.find("\n## ", section + 1) - section);
    std::regex const form(R"((?:\n- |, )`(?:\[[^`\]]*\] = )?([A-Za-z]\w*)[`(])");
    std::size_t documented = 0;
    for (std::sregex_iterator it(builtins.begin(), builtins.end(), form), end; it != end; ++it, ++documented) {
        EXPECT_TRUE(shipped.contains(wide((*it)[1]))) << (*it)[1];
    }
    EXPECT_GT(documented, 100U);
    for (auto const* name : {"nargin", "nargout", "createAttribute", "analyzeInQorvex", "createMissingFileAnalyzer",
                             "createInvalidFormatAnalyzer"}) {
        EXPECT_TRUE(shipped.contains(wide(name))) << name;
    }
    // Common names of the standard library, and names that are not functions.
    for (auto const* name : {"fopen", "plot", "linspace", "inv", "tic", "assert", "containers.Map", "datetime"}) {
        EXPECT_TRUE(shipped.contains(wide(name))) << name;
    }
    for (auto const* name : {"", "if", "end", "function", "PLOT", "solve", "#"}) {
        EXPECT_FALSE(shipped.contains(wide(name))) << name;
    }
}

TEST(BuiltinNamesTest, ShippedListIsTheResourceFileOneNameALine) {
    std::istringstream lines(fileText("resources/host-builtins.txt"));
    std::regex const name(R"([A-Za-z]\w*(\.[A-Za-z]\w*)*)");
    std::size_t names = 0;
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty() || line.front() == '#') {
            continue;
        }
        EXPECT_TRUE(std::regex_match(line, name)) << "not one name: \"" << line << "\"";
        EXPECT_TRUE(BuiltinNames::shipped().contains(wide(line))) << line;
        ++names;
    }
    // Every name once: the library holds as many names as the file lines.
    EXPECT_EQ(BuiltinNames::shipped().size(), names);
    EXPECT_GT(names, 500U);
}

TEST(BuiltinNamesTest, ParsesCommentsAndBlanksAndAddsExtraNames) {
    auto const parsed = BuiltinNames::parse(
        "# a comment naming notme\n  alpha  # trailing words\n\n\t beta\r\n#\nalpha\n"
        "gamma");
    EXPECT_EQ(parsed.size(), 3U);
    for (auto const* name : {"alpha", "beta", "gamma"}) {
        EXPECT_TRUE(parsed.contains(wide(name))) << name;
    }
    for (auto const* name : {"notme", "trailing", "#", "a", "Alpha", " alpha"}) {
        EXPECT_FALSE(parsed.contains(wide(name))) << name;
    }
    EXPECT_EQ(BuiltinNames::parse("").size(), 0U);

    auto const extended = parsed.withExtra({"myTool", "pkg.helper", "caf\xC3\xA9", "alpha"});
    EXPECT_EQ(extended.size(), 6U);
    EXPECT_TRUE(extended.contains(u"myTool"));
    EXPECT_TRUE(extended.contains(u"pkg.helper"));
    EXPECT_TRUE(extended.contains(u"caf\u00e9"));
    EXPECT_FALSE(parsed.contains(u"myTool"));  // the list extended is unchanged
    auto const shippedPlus = BuiltinNames::shipped().withExtra({"projectSpecific"});
    EXPECT_EQ(shippedPlus.size(), BuiltinNames::shipped().size() + 1);
    EXPECT_TRUE(shippedPlus.contains(u"projectSpecific") && shippedPlus.contains(u"fprintf"));
    EXPECT_FALSE(BuiltinNames::shipped().contains(u"projectSpecific"));
}

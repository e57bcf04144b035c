// Findings as rules: selectors by ID or by analyzer and ID, their checks in
// the configuration file, the count per finding ID, and each analyzer named once.
#include "cli/AnalyzerCatalog.hpp"
#include "cli/CommandLine.hpp"
#include "cli/Config.hpp"
#include "cli/Program.hpp"
#include "cli/Statistics.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

using namespace depattr::cli;
using namespace dependency::attribute;
using depattr_test::ScratchFolder;
using depattr_test::whatOf;
using dependency::graph::GraphBuilder;
using dependency::graph::Type;

TEST(FindingSelectors, AnAnalyzerAndIdNameOnlyThatAnalyzersFindings) {
    struct Case {
        std::string_view selector;
        std::string_view id;
        std::string_view analyzer;
        bool matches;
    };
    for (auto const& c : std::vector<Case>{
             {"Missing", "Missing", "missing-file", true},
             {"Missing", "Missing", "missing-function", true},
             {"missing-function/Missing", "Missing", "missing-function", true},
             {"missing-function/Missing", "Missing", "missing-file", false},
             {"missing-function/Missing", "Missing", "", false},  // an analyzer not known: not named
             {"missing-product/MissingProduct", "MissingProductOK", "missing-product", true},
             {"missing-file/MissingProduct", "MissingProductOK", "missing-file", false},
             {"missing-product/Missing", "MissingProductOK", "missing-product", false},
             {"FunctionNaming/FunctionName", "FunctionName", "FunctionNaming", true},
             {"FunctionNaming/FunctionName", "FunctionName", "OtherClass", false},
             // A trailing '*' selects every ID that begins with the text before it.
             {"Missing*", "Missing", "missing-file", true},
             {"Missing*", "MissingProductOK", "missing-product", true},
             {"Missing*", "OutOfDate", "derived-file", false},
             {"Missing", "MissingProductOK", "missing-product", false},  // without '*' an ID is exact
             {"missing-file/*", "Exists", "missing-file", true},
             {"missing-file/*", "Missing", "missing-function", false},
             {"missing-product/MissingProductO*", "MissingProductOK", "missing-product", true},
             {"missing-product/MissingProductO*", "MissingProductX", "missing-product", false},
             {"*", "CircularDependency", "circular-project-reference", true},
             {"FunctionNaming/Func*", "FunctionName", "FunctionNaming", true},
             {"Func*", "FunctionName", "FunctionNaming", true},
             {"Mis*ing", "Missing", "missing-file", false},  // '*' only at the end
         }) {
        EXPECT_EQ(selectorMatches(c.selector, c.id, c.analyzer), c.matches)
            << c.selector << " on " << c.analyzer << "/" << c.id;
    }

    for (auto const& [selector, known] : std::vector<std::pair<std::string_view, bool>>{
             {"Missing", true},
             {"missing-function/Missing", true},
             {"missing-product/MissingProduct", true},
             {"missing-product/MissingProductOK", true},
             {"missing-product/Missing", false},  // not one of that analyzer's IDs
             {"no-such/Missing", false},
             {"missing-function/", false},
             {"/Missing", false},
             {"", false},
             {"Missing*", true},
             {"Mis*", true},
             {"*", true},
             {"missing-file/*", true},
             {"invalid-format/Syntax*", true},
             {"missing-product/MissingProductO*", true},  // the codes of a prefix kind may begin so
             {"missing-file/Out*", false},                // that analyzer has no such ID
             {"Zzz*", false},
             {"Mis*ing", false},
             {"Missing**", false},
             {"no-such/*", false},
             {"/*", false},
             {"missing-file/a/*", false},
         }) {
        EXPECT_EQ(isKnownFindingSelector(selector), known) << selector;
    }

    // The filter tells the two "Missing" findings apart by their analyzer.
    ProgramOptions options;
    options.ignore = {"missing-function/Missing"};
    options.pathIgnores = {{"vendor/*", {"missing-file/Missing"}, "/p"}};
    FindingFilter const filter(options);
    EXPECT_FALSE(filter.keeps("Missing", "missing-function", "/p/src/a.qx"));
    EXPECT_TRUE(filter.keeps("Missing", "missing-file", "/p/src/a.qx"));
    EXPECT_FALSE(filter.keeps("Missing", "missing-file", "/p/vendor/a.qx"));
    EXPECT_TRUE(filter.keeps("Exists", "missing-file", "/p/vendor/b.qx"));
    options = {};
    options.select = {"missing-file/Missing", "Exists"};
    FindingFilter const select(options);
    EXPECT_TRUE(select.keeps("Missing", "missing-file", ""));
    EXPECT_TRUE(select.keeps("Exists", "missing-file", ""));
    EXPECT_FALSE(select.keeps("Missing", "missing-function", ""));

    // Prefixes in select, ignore and per-path-ignores alike.
    options = {};
    options.select = {"Missing*"};
    options.ignore = {"missing-product/*"};
    options.pathIgnores = {{"vendor/*", {"missing-f*"}, "/p"}};
    FindingFilter const prefixes(options);
    EXPECT_TRUE(prefixes.keeps("Missing", "missing-file", "/p/src/a.qx"));
    EXPECT_FALSE(prefixes.keeps("MissingProductOK", "missing-product", "/p/src/a.qx"));
    EXPECT_FALSE(prefixes.keeps("OutOfDate", "derived-file", "/p/src/a.qx"));
    EXPECT_TRUE(prefixes.keeps("Missing", "missing-file", "/p/vendor/a.qx"));  // "missing-f*" is an ID prefix
}

TEST(FindingSelectors, TheConfigurationTakesThemAndPlacesBadGlobs) {
    ScratchFolder const scratch;
    auto const config = readConfigFile(scratch.write("depattr.toml", R"(select = ["missing-function/Missing", "Exists"]
[per-path-ignores]
"src/[ab]*.qx" = ["missing-file/Missing"]
"lib/[!x]/[[:alpha:]]?" = ["Missing"]
"odd/[]]\\*" = ["Exists"]
"gen/*" = ["invalid-format/*", "Missing*"]
)"));
    EXPECT_EQ(config.select, (std::vector<std::string>{"missing-function/Missing", "Exists"}));
    ASSERT_EQ(config.pathIgnores.size(), 4u);
    auto const generated = std::find_if(config.pathIgnores.begin(), config.pathIgnores.end(),
                                        [](auto const& ignore) { return ignore.glob == "gen/*"; });
    ASSERT_NE(generated, config.pathIgnores.end());
    EXPECT_EQ(generated->ids, (std::vector<std::string>{"invalid-format/*", "Missing*"}));

    struct Case {
        std::string content;
        std::string expected;
    };
    for (auto const& [content, expected] : std::vector<Case>{
             {"ignore = [\"missing-product/Missing\"]\n", "depattr.toml:1:11: unknown finding ID"},
             {"[per-path-ignores]\n\"x\" = [\"nope/Missing\"]\n", "depattr.toml:2:8: unknown finding ID"},
             {"select = [\"Exists\", \"Zzz*\"]\n", "depattr.toml:1:21: unknown finding ID \"Zzz*\""},
             {"[per-path-ignores]\n\"x\" = [\"derived-file/Missing*\"]\n", "depattr.toml:2:8: unknown finding ID"},
             {"[per-path-ignores]\n\"src/[ab\" = [\"Missing\"]\n",
              "depattr.toml:2:1: invalid glob \"src/[ab\": the '[' at character 5 is not closed by ']'"},
             {"[per-path-ignores]\n\"ok/*\" = [\"Missing\"]\n  \"a\\\\\" = [\"Missing\"]\n",
              "depattr.toml:3:3: invalid glob \"a\\\": it ends with a lone '\\'"},
             {"[per-path-ignores]\n\"[[:letter:]]\" = [\"Missing\"]\n",
              "depattr.toml:2:1: invalid glob \"[[:letter:]]\": unknown character class \"[:letter:]\""},
             {"[per-path-ignores]\n\"[[:alpha]\" = [\"Missing\"]\n", "depattr.toml:2:1: invalid glob"},
             {"[per-path-ignores]\n\"\" = [\"Missing\"]\n", "depattr.toml:2:1: invalid glob \"\": it is empty"},
         }) {
        auto const what =
            whatOf<ConfigError>([&, &content = content] { readConfigFile(scratch.write("depattr.toml", content)); });
        EXPECT_NE(what.find(expected), std::string::npos) << content << " -> " << what;
    }
}

TEST(FindingSelectors, TheCommandLineTakesThemAndRunsEachAnalyzerOnce) {
    ScratchFolder const folder;
    CommandLine line;
    line.graph = (folder.path() / "graph.json").string();
    line.given = {"--select", "--analyzers"};
    line.select = {"missing-function/Missing,Exists"};
    line.analyzers = "missing-file,derived-file,missing-file,derived-file,missing-function";
    auto const options = programOptions(line);
    EXPECT_EQ(options.select, (std::vector<std::string>{"missing-function/Missing", "Exists"}));
    EXPECT_EQ(options.analyzers, (std::vector<std::string>{"missing-file", "derived-file", "missing-function"}));

    for (std::string const selector : {"missing-file/OutOfDate", "Zzz*", "missing-file/Out*", "Mis*ing"}) {
        line.select = {selector};
        EXPECT_NE(whatOf<UsageError>([&] { programOptions(line); }).find("unknown finding ID \"" + selector + "\""),
                  std::string::npos)
            << selector;
    }
    line.select = {"Missing*,missing-file/*"};
    EXPECT_EQ(programOptions(line).select, (std::vector<std::string>{"Missing*", "missing-file/*"}));
}

namespace {

Finding findingOf(std::shared_ptr<Attribute> attribute, bool suppressed) {
    Finding finding;
    finding.attribute = std::move(attribute);
    finding.suppressed = suppressed;
    return finding;
}

}  // namespace

TEST(Statistics, CountsPerIdMostFrequentFirstThenByIdAndLeavesBaselineFindingsOut) {
    GraphBuilder builder;
    for (char16_t c = u'a'; c <= u'f'; ++c) {
        builder.addNode(std::u16string(1, c), Type::FILE());
    }
    auto const graph = builder.build();
    auto const make = [](std::u16string id) {
        return std::make_shared<Attribute>(std::make_shared<AttributeIdentity>(id, u"n", Severity::Warning),
                                           std::function<void()>{});
    };
    Report report;
    // "Missing" from two identity objects (two analyzers) counts as one ID.
    auto const missingA = make(u"Missing");
    auto const missingB = make(u"Missing");
    auto const zeta = make(u"Zeta");
    auto const alpha = make(u"Alpha");
    auto const hidden = make(u"Hidden");
    auto const odd = make(u"Odd\x1b");
    std::vector<std::vector<std::shared_ptr<Attribute>>> const perNode{
        {missingA, zeta}, {missingB, alpha}, {missingA, hidden}, {zeta, alpha}, {odd}, {missingB}};
    auto node = graph->getNodes().begin();
    for (auto const& findings : perNode) {
        NodeFindings entry;
        entry.node = *node++;
        for (auto const& attribute : findings) {
            entry.findings.push_back(findingOf(attribute, attribute == hidden));
        }
        report.nodes.push_back(std::move(entry));
    }
    std::ostringstream out;
    writeStatistics(out, report);
    EXPECT_EQ(out.str(), "4  Missing\n2  Alpha\n2  Zeta\n1  Odd\\x1b\n");

    std::vector<std::shared_ptr<Attribute>> many(12, missingA);
    report.nodes[0].findings.clear();
    for (auto const& attribute : many) {
        report.nodes[0].findings.push_back(findingOf(attribute, false));
    }
    std::ostringstream wide;
    writeStatistics(wide, report);
    EXPECT_EQ(wide.str(), "15  Missing\n 2  Alpha\n 1  Odd\\x1b\n 1  Zeta\n");
}

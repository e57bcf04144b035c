// The options of `depattr analyze`: the command line laid over depattr.toml
// laid over the defaults, and the names left for host-language analyzers.
#include "cli/CommandLine.hpp"
#include "cli/Config.hpp"
#include "cli/Program.hpp"
#include "cli/Suggestion.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

using namespace depattr::cli;
using depattr_test::ScratchFolder;
using depattr_test::whatOf;
using dependency::attribute::Severity;

namespace {

// A command line for a graph in `folder`; `given` lists the options set.
CommandLine lineFor(ScratchFolder const& folder, std::set<std::string> given = {}) {
    CommandLine line;
    line.graph = (folder.path() / "graph.json").string();
    line.given = std::move(given);
    return line;
}

}  // namespace

TEST(CommandLineTest, TheCommandLineWinsOverTheConfigurationWhichWinsOverTheDefaults) {
    ScratchFolder folder;
    folder.write("depattr.toml", "analyzers = [\"missing-file\"]\nfail-on = \"problem\"\nignore = [\"Exists\"]\n");
    auto line = lineFor(folder);
    auto options = programOptions(line);
    EXPECT_EQ(options.configFile, folder.path() / "depattr.toml");
    EXPECT_EQ(options.analyzers, std::vector<std::string>{"missing-file"});
    EXPECT_EQ(options.failOn, Severity::Problem);
    EXPECT_EQ(options.minimum, Severity::Information);  // the default
    EXPECT_EQ(options.format, "text");

    line = lineFor(folder, {"--analyzers", "--fail-on", "--ignore"});
    line.analyzers = "all";
    line.failOn = "information";
    line.ignore = {"Missing,OutOfDate"};
    line.format = "sarif";
    options = programOptions(line);
    EXPECT_TRUE(options.analyzers.empty());  // "all"
    EXPECT_EQ(options.failOn, Severity::Information);
    // --ignore adds to the configuration's list; lists may be comma-separated.
    EXPECT_EQ(options.ignore, (std::vector<std::string>{"Exists", "Missing", "OutOfDate"}));
    EXPECT_EQ(options.format, "sarif");

    line.noConfig = true;
    EXPECT_TRUE(programOptions(line).configFile.empty());
    line.config = (folder.path() / "depattr.toml").string();
    EXPECT_EQ(whatOf<UsageError>([&] { programOptions(line); }), "--config and --no-config cannot be given together");
}

TEST(CommandLineTest, BadValuesAreUsageErrorsNamingTheOptionAndTheChoices) {
    ScratchFolder folder;
    struct Case {
        char const* option;
        std::function<void(CommandLine&)> set;
        char const* expected;
    };
    Case const cases[] = {
        {"--format", [](CommandLine& l) { l.format = "xml"; },
         "--format: \"xml\" is not one of text, concise, json, sarif, github, dot"},
        {"--color", [](CommandLine& l) { l.colour = "sometimes"; }, "\"sometimes\""},
        {"--fail-on", [](CommandLine& l) { l.failOn = "fatal"; }, "fatal"},
        {"--select", [](CommandLine& l) { l.select = {"Missing,Mising"}; }, "unknown finding ID \"Mising\""},
        {"--ignore", [](CommandLine& l) { l.ignore = {"FunctionName"}; }, "FunctionName"},
    };
    for (auto const& c : cases) {
        auto line = lineFor(folder, {c.option});
        c.set(line);
        auto const what = whatOf<UsageError>([&] { programOptions(line); });
        EXPECT_NE(what.find(c.expected), std::string::npos) << c.option << ": " << what;
    }
}

TEST(CommandLineTest, WithAnalyzerPathsUnknownNamesWaitForTheHostAnalyzers) {
    ScratchFolder folder;
    auto const analyzers = folder.path() / "analyzers";
    std::filesystem::create_directories(analyzers);
    auto line = lineFor(folder, {"--select", "--analyzer-path"});
    line.select = {"FunctionName"};
    line.analyzerPaths = {analyzers.string()};
    auto options = programOptions(line);
    ASSERT_EQ(options.unresolved.size(), 1u);
    EXPECT_EQ(options.unresolved[0].name, "FunctionName");
    EXPECT_FALSE(options.unresolved[0].isAnalyzer);
    EXPECT_NE(whatOf<UsageError>([&] { std::rethrow_exception(options.unresolved[0].error); }).find("FunctionName"),
              std::string::npos);

    // Names in depattr.toml wait too when the file gives analyzer paths, and
    // keep the file's line and column for their error.
    folder.write("depattr.toml", "analyzer-paths = [\"analyzers\"]\nanalyzers = [\"FunctionNaming\"]\n");
    options = programOptions(lineFor(folder));
    ASSERT_EQ(options.unresolved.size(), 1u);
    EXPECT_TRUE(options.unresolved[0].isAnalyzer);
    EXPECT_NE(whatOf<ConfigError>([&] {
                  std::rethrow_exception(options.unresolved[0].error);
              }).find("depattr.toml:2:14: unknown analyzer \"FunctionNaming\""),
              std::string::npos);

    // Without any analyzer path the file's first error is thrown at once, as it always was.
    folder.write("depattr.toml", "analyzers = [\"FunctionNaming\"]\nmin-severity = 3\n");
    auto const first = whatOf<ConfigError>([&] { programOptions(lineFor(folder)); });
    EXPECT_NE(first.find("depattr.toml:1:14: unknown analyzer \"FunctionNaming\""), std::string::npos) << first;
}

TEST(SuggestionTest, AMisspeltNameGetsTheClosestKnownOneAndOnlyWhenClose) {
    struct Distance {
        std::string_view a;
        std::string_view b;
        std::size_t expected;
    };
    for (auto const& [a, b, expected] : std::vector<Distance>{
             {"", "", 0},
             {"", "abc", 3},
             {"format", "format", 0},
             {"fromat", "format", 1},  // two neighbours swapped: one edit
             {"formta", "format", 1},
             {"fmt", "format", 3},
             {"kitten", "sitting", 3},
             {"ca", "abc", 3},  // no edit counted twice in a swap
         }) {
        EXPECT_EQ(editDistance(a, b), expected) << a << " / " << b;
        EXPECT_EQ(editDistance(b, a), expected) << b << " / " << a;
    }

    std::vector<std::string> const options{"--format", "--fail-on",    "--output",
                                           "--select", "--statistics", "--exit-zero"};
    struct Case {
        std::string_view given;
        std::string_view expected;
    };
    for (auto const& [given, expected] : std::vector<Case>{
             {"--fromat", "--format"},
             {"--formt", "--format"},
             {"--fail-onn", "--fail-on"},
             {"--statistic", "--statistics"},
             {"--exitzero", "--exit-zero"},
             {"--format", ""},  // the name itself is no suggestion
             {"--verbose", ""},
             {"--zzz", ""},
         }) {
        EXPECT_EQ(closestName(given, options), expected) << given;
    }
    // Short names allow one edit only; of two equally close names the first is taken.
    EXPECT_EQ(closestName("anlyze", {"analyze", "analyzers"}), "analyze");
    EXPECT_EQ(closestName("ab", {"xy", "ax", "ay"}), "ax");
    EXPECT_EQ(closestName("ab", {"xy"}), "");
}

// The program's building blocks: the analyzer catalogue, the report model with
// its filter and baseline, the terminal formats, the configuration file and
// fingerprints.
#include "attribute/analyzers/Analyzers.hpp"
#include "cli/AnalyzerCatalog.hpp"
#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "cli/Output.hpp"
#include "cli/Report.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/Scratch.hpp"
#include "support/TestGraphs.hpp"

#include <boost/locale/generator.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

using namespace depattr::cli;
using namespace dependency::attribute;
using dependency::graph::GraphBuilder;
using dependency::graph::NodeData;
using dependency::graph::Type;

namespace {

std::shared_ptr<Attribute> make(std::u16string id, std::u16string name, Severity severity) {
    return std::make_shared<Attribute>(std::make_shared<AttributeIdentity>(id, name, severity),
                                       std::function<void()>{});
}

using depattr_test::ScratchFolder;

}  // namespace

TEST(AnalyzerCatalogTest, NamesOrderAndKindsOfFinding) {
    EXPECT_EQ(builtInAnalyzers().size(), 8u);
    EXPECT_EQ(createAnalyzers("all").size(), 8u);
    auto const two = createAnalyzers("invalid-format,missing-project-reference");
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[1].name, "missing-project-reference");
    // Tell them apart by behaviour: an unresolved project is only the second one's concern.
    GraphBuilder builder;
    auto const node = builder.addNode({.id = u"p", .type = Type::PROJECT(), .resolved = false});
    auto const graph = builder.build();
    EXPECT_TRUE(two[0].analyzer->analyze(node, graph).empty());
    auto const findings = two[1].analyzer->analyze(node, graph);
    ASSERT_EQ(findings.size(), 1u);
    // The catalogue knows the kind of what each analyzer reports, shared IDs apart.
    auto const* kind = kindOf("missing-project-reference", *findings[0]);
    ASSERT_NE(kind, nullptr);
    EXPECT_EQ(kind->name, "MissingProjectReference");
    EXPECT_EQ(kindOf("missing-file", *findings[0])->name, "MissingFile");
    EXPECT_EQ(kindOf("missing-product", *make(u"MissingProductOK", u"x", Severity::Warning))->name, "MissingProduct");
    EXPECT_EQ(kindOf("missing-product", *make(u"Missing", u"x", Severity::Warning)), nullptr);

    EXPECT_NE(depattr_test::whatOf<std::invalid_argument>([] {
                  createAnalyzers("missing-file,,derived-file");
              }).find("unknown analyzer \"\" (known: missing-file"),
              std::string::npos);
    EXPECT_TRUE(isKnownFindingId("MissingProductOK"));
    EXPECT_FALSE(isKnownFindingId("Mising"));
}

namespace {

struct ReportFixture : ::testing::Test {
    void SetUp() override {
        GraphBuilder builder;
        builder.addNode(NodeData{.id = u"zeta", .type = Type::FILE(), .path = u"/work/proj/src/z.qx", .isFile = true});
        builder.addNode(NodeData{
            .id = u"alpha\x1b[2J", .name = u"line\nbreak", .type = Type::FUNCTION(), .path = u"/elsewhere/a.qx"});
        builder.addNode(u"quiet", Type::FILE());
        graph = builder.build();
        auto const info = make(u"Exists", u"File exists", Severity::Information);
        auto const warning = make(u"Missing", u"Function \"f\"\tnot found", Severity::Warning);
        auto const problem = make(u"Broken", u"caf\u00e9", Severity::Problem);
        auto const analyzer = std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const& node) {
            if (node.getID() == u"zeta") {
                return std::vector{info, problem};
            }
            return node.getID() == u"quiet" ? std::vector<std::shared_ptr<Attribute>>{} : std::vector{warning};
        });
        result = analyzeGraph(graph, {analyzer});
    }

    Report report(ReportSettings settings = {}) const {
        settings.workingFolder = "/work/proj";
        return makeReport(*graph, *result, settings);
    }

    std::shared_ptr<dependency::graph::Graph const> graph;
    std::shared_ptr<GraphAttributes> result;
};

}  // namespace

TEST_F(ReportFixture, ThresholdsFilterAndPathsDecideWhatIsReportedAndWhatFails) {
    auto const all = report();
    ASSERT_EQ(all.nodes.size(), 2u);
    EXPECT_EQ(all.nodes[0].node->getID(), u"alpha\x1b[2J");  // by ID, not by graph order
    EXPECT_EQ(all.nodes[0].path, "/elsewhere/a.qx");         // outside the working folder: as given
    EXPECT_EQ(all.nodes[1].where(), "src/z.qx");             // below it: relative
    EXPECT_TRUE(all.fails());                                // a warning reaches the default threshold

    auto const problems = report({.minimum = Severity::Problem});
    ASSERT_EQ(problems.nodes.size(), 1u);
    EXPECT_EQ(problems.count(Severity::Problem), 1u);

    // Information never fails at the default threshold; at "information" it does.
    ProgramOptions options;
    options.select = {"Exists"};
    FindingFilter const onlyExists(options);
    EXPECT_FALSE(report({.filter = &onlyExists}).fails());
    EXPECT_TRUE(report({.failOn = Severity::Information, .filter = &onlyExists}).fails());

    options = {};
    options.ignore = {"Missing"};
    options.pathIgnores = {{"src/*", {"Broken"}, "/work/proj"}};
    FindingFilter const filter(options);
    auto const filtered = report({.filter = &filter});
    ASSERT_EQ(filtered.nodes.size(), 1u);
    ASSERT_EQ(filtered.nodes[0].findings.size(), 1u);
    EXPECT_EQ(filtered.nodes[0].findings[0].attribute->getID(), u"Exists");
}

TEST(ReportPaths, ShownRelativeToTheWorkingFolderOnlyBelowIt) {
    // Normal paths are shortened on their text, others through path
    // normalisation: both must say the same.
    std::vector<std::pair<std::u16string, std::string>> const cases = {
        {u"/work/proj/src/a.qx", "src/a.qx"},      {u"/work/proj", "."},
        {u"/work/projX/a.qx", "/work/projX/a.qx"}, {u"/work/pro", "/work/pro"},
        {u"/work/proj/./src//b.qx", "src/b.qx"},   {u"/work/proj/../other/c.qx", "/work/proj/../other/c.qx"},
        {u"/work/proj/src/../d.qx", "d.qx"},       {u"relative/e.qx", "relative/e.qx"},
    };
    GraphBuilder builder;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        builder.addNode(NodeData{.id = u"n" + std::u16string(1, static_cast<char16_t>(u'a' + i)),
                                 .type = Type::FILE(),
                                 .path = cases[i].first,
                                 .isFile = true});
    }
    auto const graph = builder.build();
    auto const finding = make(u"Missing", u"File is missing", Severity::Warning);
    auto const analyzer = std::make_shared<depattr_test::ScriptedAnalyzer>(
        [=](auto const&) { return std::vector<std::shared_ptr<Attribute>>{finding}; });
    auto const result = analyzeGraph(graph, {analyzer});
    for (auto const* folder : {"/work/proj", "/work/./proj"}) {
        auto const report = makeReport(*graph, *result, {.workingFolder = folder});
        ASSERT_EQ(report.nodes.size(), cases.size());
        for (std::size_t i = 0; i < cases.size(); ++i) {
            EXPECT_EQ(report.nodes[i].path, cases[i].second) << folder << " " << i;
        }
    }
}

TEST_F(ReportFixture, TerminalFormatsEscapeControlCharactersAndAlign) {
    auto value = report();
    value.graphName = "g.json";
    std::ostringstream plain;
    writeText(plain, value, false);
    auto const lines = plain.str();
    EXPECT_EQ(lines.find('\x1b'), std::string::npos) << lines;  // neither colour nor the ID's escape sequence
    EXPECT_NE(lines.find("/elsewhere/a.qx  (function \"line\\nbreak\", ID \"alpha\\x1b[2J\")"), std::string::npos)
        << lines;
    EXPECT_NE(lines.find("  Information  Exists   File exists\n"), std::string::npos) << lines;
    EXPECT_NE(lines.find("  Warning      Missing  Function \"f\"\\tnot found\n"), std::string::npos) << lines;
    EXPECT_NE(lines.find("1 problem, 1 warning, 1 information on 2 of 3 nodes"), std::string::npos) << lines;
    std::ostringstream coloured;
    writeText(coloured, value, true);
    EXPECT_NE(coloured.str().find("\x1b[1;31mProblem"), std::string::npos);

    std::ostringstream concise;
    writeConcise(concise, value);
    EXPECT_EQ(concise.str(),
              "/elsewhere/a.qx: Missing: Function \"f\"\\tnot found\nsrc/z.qx: Exists: File exists\nsrc/z.qx: Broken: "
              "caf\xc3\xa9\n");

    std::ostringstream annotations;
    writeGithub(annotations, value);
    EXPECT_NE(annotations.str().find("::error file=src/z.qx,title=Broken::caf\xc3\xa9 (file \"zeta\", ID \"zeta\")\n"),
              std::string::npos)
        << annotations.str();
}

TEST(ColourTest, AutoFollowsTerminalNoColorAndTerm) {
    struct Case {
        char const* noColour;
        char const* term;
        bool terminal;
        bool expected;
    };
    for (auto const& [noColour, term, terminal, expected] :
         {Case{nullptr, "xterm", true, true}, Case{"", "xterm", true, true}, Case{"1", "xterm", true, false},
          Case{nullptr, "dumb", true, false}, Case{nullptr, "xterm", false, false}}) {
        noColour ? ::setenv("NO_COLOR", noColour, 1) : ::unsetenv("NO_COLOR");
        ::setenv("TERM", term, 1);
        EXPECT_EQ(useColour(ColourChoice::Auto, terminal), expected) << (noColour ? noColour : "unset") << term;
        EXPECT_TRUE(useColour(ColourChoice::Always, false));
        EXPECT_FALSE(useColour(ColourChoice::Never, true));
    }
    ::unsetenv("NO_COLOR");
}

TEST(ConfigTest, EveryKeyIsReadAndEveryMistakeIsPlaced) {
    ScratchFolder const scratch;
    std::filesystem::create_directories(scratch.path() / "sub" / "deeper");
    std::filesystem::create_directories(scratch.path() / "analyzers");
    auto const file = scratch.write("depattr.toml", R"(analyzers = ["missing-file", "derived-file"]
select = ["Missing", "MissingProduct"]
ignore = ["Exists"]
fail-on = "Problem"
min-severity = "warning"
install-root = "sub"
analyzer-paths = ["analyzers"]

[per-path-ignores]
"vendor/*" = ["Missing"]
)");
    EXPECT_EQ(findConfigFile(scratch.path() / "sub" / "deeper"), file);
    auto const config = readConfigFile(file);
    EXPECT_EQ(config.analyzers, (std::vector<std::string>{"missing-file", "derived-file"}));
    EXPECT_EQ(config.failOn, Severity::Problem);
    EXPECT_EQ(config.minimum, Severity::Warning);
    EXPECT_EQ(config.installRoot, (scratch.path() / "sub").lexically_normal());
    ASSERT_EQ(config.analyzerPaths.size(), 1u);
    ASSERT_EQ(config.pathIgnores.size(), 1u);
    EXPECT_EQ(config.pathIgnores[0].glob, "vendor/*");
    EXPECT_TRUE(selectorMatches("MissingProduct", "MissingProductOK"));
    EXPECT_FALSE(selectorMatches("Missing", "MissingProductOK"));

    struct Case {
        std::string content;
        std::string expected;
    };
    for (auto const& [content, expected] : std::vector<Case>{
             {"colour = \"never\"\n", "depattr.toml:1:1: unknown key \"colour\""},
             {"\nselect = [1]\n", "depattr.toml:2:11: \"select\" must be an array of strings"},
             {"ignore = [\"Mising\"]\n", "depattr.toml:1:11: unknown finding ID \"Mising\""},
             {"fail-on = \"fatal\"\n", "depattr.toml:1:11: \"fail-on\" must be"},
             {"analyzers = [\"a\", \"b\"]\n", "depattr.toml:1:14: unknown analyzer \"a\""},
             {"analyzer-paths = [\"gone\"]\n", "depattr.toml:1:19: no such folder"},
             {"[per-path-ignores]\n\"x\" = \"Missing\"\n", "depattr.toml:2:7: \"x\" must be an array of strings"},
             {"select = [\n", "depattr.toml:1:12: "},
         }) {
        auto const what = depattr_test::whatOf<ConfigError>(
            [&, &content = content] { readConfigFile(scratch.write("depattr.toml", content)); });
        EXPECT_NE(what.find(expected), std::string::npos) << content << " -> " << what;
    }
}

TEST(FingerprintTest, TheSameInEveryLanguageAndDifferentForEachPart) {
    auto const english = fingerprintOf(u"n", u"MissingProductOK", "Required product is not installed: Optim Kit");
    EXPECT_EQ(english.size(), 16u);
    EXPECT_NE(english, fingerprintOf(u"m", u"MissingProductOK", "Required product is not installed: Optim Kit"));
    EXPECT_NE(english, fingerprintOf(u"n", u"MissingProductO", "Required product is not installed: Optim Kit"));
    EXPECT_NE(fingerprintOf(u"ab", u"c", ""), fingerprintOf(u"a", u"bc", ""));

    // A Japanese name is translated back to English before it is hashed.
    FindingKind const* kind = kindOf("missing-product", *make(u"MissingProductOK", u"", Severity::Warning));
    std::locale::global(boost::locale::generator()("ja_JP.UTF-8"));
    auto const japanese = englishNameOf(kind, u"必要な製品がインストールされていません: Optim Kit");
    auto const foreign = englishNameOf(kind, u"not a catalog text");
    std::locale::global(std::locale::classic());
    EXPECT_EQ(japanese, "Required product is not installed: Optim Kit");
    EXPECT_EQ(foreign, "not a catalog text");

    // Findings of one node with the same ID and name get fingerprints of their
    // own, whatever differs: severity, a fix, or nothing (then their number).
    GraphBuilder builder;
    builder.addNode(u"a", Type::FILE());
    auto const graph = builder.build();
    auto const warning = make(u"Odd", u"Odd file", Severity::Warning);
    auto const problem = make(u"Odd", u"Odd file", Severity::Problem);
    auto const fixable = std::make_shared<Attribute>(warning->getIdentity(), [] {});
    auto const analyzer = std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const&) {
        return std::vector{warning, problem, fixable, warning};
    });
    auto const result = analyzeGraph(graph, {analyzer});
    auto const all = makeReport(*graph, *result, {});
    ASSERT_EQ(all.nodes.at(0).findings.size(), 4u);
    std::set<std::uint64_t> distinct;
    for (auto const& finding : all.nodes[0].findings) {
        distinct.insert(finding.fingerprint);
    }
    EXPECT_EQ(distinct.size(), 4u);
    auto const shared = fingerprintValueOf(u"a", u"Odd", "Odd file");
    // The gravest keeps the shared fingerprint, so that it stays when a
    // higher threshold drops the others.
    auto const& findings = all.nodes[0].findings;
    auto const gravest = std::find_if(findings.begin(), findings.end(),
                                      [](auto const& f) { return f.attribute->getSeverity() == Severity::Problem; });
    ASSERT_NE(gravest, findings.end());
    EXPECT_EQ(gravest->fingerprint, shared);
    auto const problemsOnly = makeReport(*graph, *result, {.minimum = Severity::Problem});
    ASSERT_EQ(problemsOnly.nodes.at(0).findings.size(), 1u);
    EXPECT_EQ(problemsOnly.nodes[0].findings[0].fingerprint, shared);
    // The same run again gives the same fingerprints.
    auto const again = makeReport(*graph, *result, {});
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(again.nodes[0].findings[i].fingerprint, all.nodes[0].findings[i].fingerprint) << i;
    }

    // A baseline from before, which held the shared fingerprint once per
    // finding, still hides all of them; one written now does too.
    ScratchFolder const scratch;
    std::string entries;
    for (int i = 0; i < 4; ++i) {
        entries += std::string(i == 0 ? "" : ", ") + "{\"fingerprint\": \"" + fingerprintText(shared) + "\"}";
    }
    auto old = Baseline::read(scratch.write("old.json", "{\"depattrBaseline\": 1, \"findings\": [" + entries + "]}"));
    EXPECT_EQ(makeReport(*graph, *result, {.baseline = &old}).hiddenByBaseline, 4u);
    Baseline::write(scratch.path() / "new.json", all);
    auto fresh = Baseline::read(scratch.path() / "new.json");
    EXPECT_EQ(makeReport(*graph, *result, {.baseline = &fresh}).hiddenByBaseline, 4u);
    EXPECT_EQ(fresh.stale(), 0u);
}

TEST(BaselineTest, EachRecordedFindingHidesOneAndBadFilesAreNamed) {
    ScratchFolder const scratch;
    GraphBuilder builder;
    builder.addNode(u"a", Type::FILE());
    auto const graph = builder.build();
    auto const stale = make(u"OutOfDate", u"Derived file is out of date", Severity::Warning);
    auto const twice = std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const&) {
        return std::vector{stale, stale};
    });
    auto const result = analyzeGraph(graph, {twice});
    auto const first = makeReport(*graph, *result, {});
    ASSERT_EQ(first.nodes.at(0).findings.size(), 2u);
    auto const file = scratch.path() / "baseline.json";
    Baseline::write(file, first);

    // A baseline of one of the two findings hides exactly one.
    std::ifstream in(file);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto const second = text.find(",\n    {\"fingerprint\"");
    ASSERT_NE(second, std::string::npos) << text;
    scratch.write("one.json", text.substr(0, second) + "\n  ]\n}\n");
    auto one = Baseline::read(scratch.path() / "one.json");
    auto const report = makeReport(*graph, *result, {.baseline = &one});
    EXPECT_EQ(report.hiddenByBaseline, 1u);
    EXPECT_EQ(report.count(Severity::Warning), 1u);
    EXPECT_TRUE(report.fails());

    for (auto const& [content, expected] : std::vector<std::pair<std::string, std::string>>{
             {"[]", "bad.json: not a baseline"},
             {"{\"depattrBaseline\": 2, \"findings\": []}", "bad.json:1:21: unsupported baseline version"},
             {"{\"depattrBaseline\": 1,\n \"findings\": [{\"node\": \"a\"}]}", "bad.json:2:15: a baseline entry needs"},
         }) {
        auto const what = depattr_test::whatOf<BaselineError>(
            [&, &content = content] { Baseline::read(scratch.write("bad.json", content)); });
        EXPECT_NE(what.find(expected), std::string::npos) << what;
    }
    EXPECT_THROW(Baseline::write(scratch.path() / "no" / "such.json", first), BaselineError);
}

TEST(HostClassHelp, TheCommentBlockThatOpensTheClass) {
    struct Case {
        std::string_view code;
        std::string_view help;
    };
    for (auto const& c : std::vector<Case>{
             {"classdef A < B\n    % First line.\n    %   indented\n    %\n    % Last.\n\n    % not help\nend\n",
              "First line.\n  indented\n\nLast."},
             {"% Before the class.\r\n%More\r\nclassdef (Abstract) A\r\n    properties\r\n", "Before the class.\nMore"},
             {"% header\n\nclassdef A\n  % after wins\nend\n", "after wins"},
             {"classdef A\n    %{\n    block\n    %}\nend\n", ""},
             {"classdef A\n    properties % a trailing comment\n", ""},
             {"function f\n% a function file\n", ""},
             {"classdefinition = 1;\n% no class\n", ""},
             {"", ""},
         }) {
        EXPECT_EQ(classHelpText(c.code), c.help) << c.code;
    }
}

TEST(TextReport, ACleanRunIsOneLineAndFindingsAreGroupedByFileSortedByPath) {
    GraphBuilder builder;
    struct Place {
        std::u16string id;
        std::u16string path;
    };
    // IDs in one order, paths in another; two nodes in one file; one without a path.
    for (auto const& [id, path] : std::vector<Place>{
             {u"a", u"/w/z.qx"}, {u"b", u"/w/a.qx"}, {u"c", u""}, {u"d", u"/w/a.qx"}, {u"e", u"/w/m.qx"}}) {
        builder.addNode(NodeData{.id = id, .type = Type::FILE(), .path = path, .isFile = !path.empty()});
    }
    auto const graph = builder.build();
    auto const finding = make(u"Missing", u"File not found", Severity::Warning);
    auto const result = analyzeGraph(graph, {std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const&) {
                                         return std::vector<std::shared_ptr<Attribute>>{finding};
                                     })});
    auto report = makeReport(*graph, *result, {.workingFolder = "/w"});
    std::ostringstream grouped;
    writeText(grouped, report, false);
    std::vector<std::string> headings;
    std::istringstream lines(grouped.str());
    for (std::string line; std::getline(lines, line);) {
        if (line.find("  (file") != std::string::npos) {
            headings.push_back(line.substr(0, line.find("  (")) + " " + line.substr(line.find("ID \"")));
        }
    }
    EXPECT_EQ(headings, (std::vector<std::string>{"a.qx ID \"b\")", "a.qx ID \"d\")", "c ID \"c\")", "m.qx ID \"e\")",
                                                  "z.qx ID \"a\")"}))
        << grouped.str();

    // Nothing at or above the minimum: the one line says so, in the minimum's word.
    auto const clean = makeReport(*graph, *result, {.minimum = Severity::Problem, .workingFolder = "/w"});
    std::ostringstream quiet;
    writeText(quiet, clean, false);
    EXPECT_EQ(quiet.str(), "No findings at or above Problem on 5 nodes\n");
    // Findings all hidden by the baseline still leave one line, which says how many.
    for (auto& entry : report.nodes) {
        for (auto& each : entry.findings) {
            each.suppressed = true;
        }
    }
    report.hiddenByBaseline = 5;
    report.minimum = Severity::Warning;
    std::ostringstream hidden;
    writeText(hidden, report, false);
    EXPECT_EQ(hidden.str(), "No findings at or above Warning on 5 nodes; 5 findings hidden by the baseline\n");
}

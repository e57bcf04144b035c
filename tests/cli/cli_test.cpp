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
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <tuple>

using namespace depattr::cli;
using namespace dependency::attribute;
using depattr_test::ScratchFolder;
using dependency::graph::GraphBuilder;
using dependency::graph::NodeData;
using dependency::graph::Type;

namespace {

using Findings = std::vector<std::shared_ptr<Attribute>>;
using ::testing::HasSubstr;
using ::testing::Not;

std::shared_ptr<Attribute> make(std::u16string id, std::u16string name, Severity severity) {
    return std::make_shared<Attribute>(std::make_shared<AttributeIdentity>(id, name, severity),
                                       std::function<void()>{});
}

// Analyzes `graph` with one analyzer that reports `findings` on every node.
std::shared_ptr<GraphAttributes> reportEverywhere(std::shared_ptr<dependency::graph::Graph const> const& graph,
                                                  Findings findings) {
    return analyzeGraph(graph,
                        {std::make_shared<depattr_test::ScriptedAnalyzer>([=](auto const&) { return findings; })});
}

std::string textOf(Report const& report, bool colour = false) {
    std::ostringstream out;
    writeText(out, report, colour);
    return out.str();
}

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

    EXPECT_THAT(depattr_test::whatOf<std::invalid_argument>([] { createAnalyzers("missing-file,,derived-file"); }),
                HasSubstr("unknown analyzer \"\" (known: missing-file"));
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
            auto const& id = node.getID();
            return id == u"zeta" ? Findings{info, problem} : id == u"quiet" ? Findings{} : Findings{warning};
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
        auto const id = depattr_test::wide("n" + std::to_string(i));
        builder.addNode(NodeData{.id = id, .type = Type::FILE(), .path = cases[i].first, .isFile = true});
    }
    auto const graph = builder.build();
    auto const result = reportEverywhere(graph, {make(u"Missing", u"File is missing", Severity::Warning)});
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
    auto const lines = textOf(value);
    EXPECT_THAT(lines, Not(HasSubstr("\x1b")));  // neither colour nor the ID's escape sequence
    EXPECT_THAT(lines, HasSubstr("/elsewhere/a.qx  (function \"line\\nbreak\", ID \"alpha\\x1b[2J\")"));
    EXPECT_THAT(lines, HasSubstr("  Information  Exists   File exists\n"));
    EXPECT_THAT(lines, HasSubstr("  Warning      Missing  Function \"f\"\\tnot found\n"));
    EXPECT_THAT(lines, HasSubstr("1 problem, 1 warning, 1 information on 2 of 3 nodes"));
    EXPECT_THAT(textOf(value, true), HasSubstr("\x1b[1;31mProblem"));

    std::ostringstream concise;
    writeConcise(concise, value);
    EXPECT_EQ(concise.str(),
              "/elsewhere/a.qx: Missing: Function \"f\"\\tnot found\nsrc/z.qx: Exists: File exists\nsrc/z.qx: Broken: "
              "caf\xc3\xa9\n");

    std::ostringstream annotations;
    writeGithub(annotations, value);
    EXPECT_THAT(annotations.str(),
                HasSubstr("::error file=src/z.qx,title=Broken::caf\xc3\xa9 (file \"zeta\", ID \"zeta\")\n"));
}

TEST(ColourTest, AutoFollowsTerminalNoColorAndTerm) {
    for (auto const& [noColour, term, terminal, expected] :
         std::vector<std::tuple<char const*, char const*, bool, bool>>{{nullptr, "xterm", true, true},
                                                                       {"", "xterm", true, true},
                                                                       {"1", "xterm", true, false},
                                                                       {nullptr, "dumb", true, false},
                                                                       {nullptr, "xterm", false, false}}) {
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

    for (auto const& [content, expected] : std::vector<std::pair<std::string, std::string>>{
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
        EXPECT_THAT(what, HasSubstr(expected)) << content;
    }
}

TEST(FingerprintTest, TheSameInEveryLanguageAndDifferentForEachPart) {
    auto const english = fingerprintOf(u"n", u"MissingProductOK", "Required product is not installed: Optim Kit");
    EXPECT_EQ(english.size(), 16u);
    // Baselines written by earlier releases hold these: FNV-1a of the UTF-8
    // node ID, finding ID and English name, each followed by a NUL but the last.
    EXPECT_EQ(english, "0bef06453dc00840");
    EXPECT_EQ(fingerprintOf(u"caf\u00e9/\u65e5.qx", u"Missing", "File not found"), "1bf66802a8556506");
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
    auto const fixable = std::make_shared<Attribute>(warning->getIdentity(), [] {});
    auto const result =
        reportEverywhere(graph, {warning, make(u"Odd", u"Odd file", Severity::Problem), fixable, warning});
    auto const fingerprints = [&](ReportSettings const& settings) {
        std::vector<std::uint64_t> each;
        auto const report = makeReport(*graph, *result, settings);
        for (auto const& finding : report.nodes.at(0).findings) {
            each.push_back(finding.fingerprint);
        }
        return each;
    };
    auto const all = makeReport(*graph, *result, {});
    auto const first = fingerprints({});
    ASSERT_EQ(first.size(), 4u);
    EXPECT_EQ(std::set(first.begin(), first.end()).size(), 4u);
    EXPECT_EQ(fingerprints({}), first);  // the same run again gives the same fingerprints
    // The gravest keeps the shared fingerprint, so that it stays when a
    // higher threshold drops the others.
    auto const shared = fingerprintValueOf(u"a", u"Odd", "Odd file");
    auto const& findings = all.nodes.at(0).findings;
    auto const gravest =
        std::ranges::find(findings, Severity::Problem, [](auto const& f) { return f.attribute->getSeverity(); });
    ASSERT_NE(gravest, findings.end());
    EXPECT_EQ(gravest->fingerprint, shared);
    EXPECT_EQ(fingerprints({.minimum = Severity::Problem}), std::vector{shared});

    // A baseline from before, which held the shared fingerprint once per
    // finding, still hides all of them; one written now does too.
    ScratchFolder const scratch;
    auto const entry = "{\"fingerprint\": \"" + fingerprintText(shared) + "\"}";
    auto old = Baseline::read(scratch.write("old.json", "{\"depattrBaseline\": 1, \"findings\": [" + entry + ", " +
                                                            entry + ", " + entry + ", " + entry + "]}"));
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
    auto const result = reportEverywhere(graph, {stale, stale});
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
        EXPECT_THAT(what, HasSubstr(expected));
    }
    EXPECT_THROW(Baseline::write(scratch.path() / "no" / "such.json", first), BaselineError);
}

TEST(HostClassHelp, TheCommentBlockThatOpensTheClass) {
    for (auto const& [code, help] : std::vector<std::pair<std::string_view, std::string_view>>{
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
        EXPECT_EQ(classHelpText(code), help) << code;
    }
}

TEST(TextReport, ACleanRunIsOneLineAndFindingsAreGroupedByFileSortedByPath) {
    GraphBuilder builder;
    // IDs in one order, paths in another; two nodes in one file; one without a path.
    for (auto const& [id, path] : std::vector<std::pair<std::u16string, std::u16string>>{
             {u"a", u"/w/z.qx"}, {u"b", u"/w/a.qx"}, {u"c", u""}, {u"d", u"/w/a.qx"}, {u"e", u"/w/m.qx"}}) {
        builder.addNode(NodeData{.id = id, .type = Type::FILE(), .path = path, .isFile = !path.empty()});
    }
    auto const graph = builder.build();
    auto const result = reportEverywhere(graph, {make(u"Missing", u"File not found", Severity::Warning)});
    auto report = makeReport(*graph, *result, {.workingFolder = "/w"});
    auto const grouped = textOf(report);
    std::vector<std::string> headings;
    std::istringstream lines(grouped);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("  (file") != std::string::npos) {
            headings.push_back(line.substr(0, line.find("  (")) + " " + line.substr(line.find("ID \"")));
        }
    }
    EXPECT_EQ(headings, (std::vector<std::string>{"a.qx ID \"b\")", "a.qx ID \"d\")", "c ID \"c\")", "m.qx ID \"e\")",
                                                  "z.qx ID \"a\")"}))
        << grouped;

    // Nothing at or above the minimum: the one line says so, in the minimum's word.
    EXPECT_EQ(textOf(makeReport(*graph, *result, {.minimum = Severity::Problem, .workingFolder = "/w"})),
              "No findings at or above Problem on 5 nodes\n");
    // Findings all hidden by the baseline still leave one line, which says how many.
    for (auto& entry : report.nodes) {
        entry.findings.at(0).suppressed = true;  // one finding on each node
    }
    report.hiddenByBaseline = 5;
    report.minimum = Severity::Warning;
    EXPECT_EQ(textOf(report), "No findings at or above Warning on 5 nodes; 5 findings hidden by the baseline\n");
}

// Every output format, given the same hostile texts (node IDs, names and
// paths, finding IDs and names, an analyzer name with control characters and
// the characters that workflow commands and DOT give a meaning), prints no raw
// control byte and still shows each text recognisably.
#include "cli/FindingSources.hpp"
#include "cli/Report.hpp"
#include "cli/report/Formats.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/FindingRecorder.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <sstream>

using namespace depattr::cli;
using namespace dependency::attribute;
using dependency::graph::GraphBuilder;
using dependency::graph::NodeData;
using dependency::graph::Type;
using dependency::services::AnalysisSession;

namespace {

// The first byte below 0x20 (or DEL) other than a line break; -1 when there
// is none. No format keeps a tab from outside either.
int firstControlByte(std::string const& text) {
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            continue;
        }
        if (byte < 0x20 || byte == 0x7f) {
            return byte;
        }
    }
    return -1;
}

struct FormatCase {
    std::string_view format;
    // How the format writes ESC: "\x1b" shown as text, or a JSON escape.
    std::string_view escapedEsc;
};

}  // namespace

TEST(TerminalSafety, NoFormatPrintsRawControlBytesFromOutsideTexts) {
    GraphBuilder builder;
    builder.addNode(NodeData{.id = u"evil\x1b[31mfile\a",
                             .name = u"name\x1b]0;title\a,with:colon",
                             .type = Type::FILE(),
                             .path = u"/work/dir\x1b[2J/file\r\n%.qx",
                             .isFile = true});
    builder.addNode(NodeData{.id = u"product:\x1b[5mblink\x7f\t", .name = u"prod\bname", .type = Type::PRODUCT()});
    builder.addDependency(u"evil\x1b[31mfile\a", u"product:\x1b[5mblink\x7f\t", Type::REQUIREMENT());
    auto const graph = builder.build();

    auto const hostile = std::make_shared<Attribute>(
        std::make_shared<AttributeIdentity>(u"Id\x1b[1m%2C", u"Found \x07it\r\nnext line", Severity::Problem),
        std::function<void()>{});
    auto const plain = std::make_shared<Attribute>(
        std::make_shared<AttributeIdentity>(u"Plain", u"A plain finding", Severity::Warning), std::function<void()>{});
    auto analyzer = std::make_shared<depattr_test::ScriptedAnalyzer>(
        [=](auto const& node) { return node.isFile() ? std::vector{hostile} : std::vector{plain}; });
    AnalysisSession session;
    session.select(std::vector<AnalysisSession::NamedAnalyzer>{{"host\x1b[7manalyzer", analyzer}});
    FindingSources sources;
    depattr_test::FindingRecorder recorder(sources);
    auto const result = session.analyze(graph, recorder);
    auto report = makeReport(*graph, *result, {.sources = &sources, .workingFolder = "/work"});
    report.graphName = "graph\x1b[31m.json";
    report.analyzers = session.selected();

    std::vector<FormatCase> const cases{
        {"text", "\\x1b"},  {"concise", "\\x1b"}, {"github", "\\x1b"},
        {"dot", "\\\\x1b"}, {"json", "\\u001b"},  {"sarif", "\\u001b"},
    };
    // Pictures are Graphviz's drawing of the DOT text, whose labels hold no
    // control byte; SVG is text and is checked when Graphviz is here.
    std::vector<std::string_view> const drawnFromDot{"svg", "png"};
    ASSERT_EQ(cases.size() + drawnFromDot.size(), reportFormats().size()) << "a new format needs its case here";
    if (graphvizProgram()) {
        std::ostringstream svg;
        findReportFormat("svg")->write(
            svg,
            ReportContext{
                .report = report, .graph = *graph, .toolVersion = "9.9.9", .colour = false, .workingFolder = "/work"});
        EXPECT_EQ(firstControlByte(svg.str()), -1) << svg.str();
        EXPECT_NE(svg.str().find("<svg"), std::string::npos) << svg.str();
    }
    for (auto const& testCase : cases) {
        auto const* format = findReportFormat(testCase.format);
        ASSERT_NE(format, nullptr) << testCase.format;
        std::ostringstream out;
        format->write(
            out,
            ReportContext{
                .report = report, .graph = *graph, .toolVersion = "9.9.9", .colour = false, .workingFolder = "/work"});
        auto const written = out.str();
        EXPECT_EQ(firstControlByte(written), -1) << testCase.format << ":\n" << written;
        // The texts are still there, with their controls written as escapes.
        EXPECT_NE(written.find("Found "), std::string::npos) << testCase.format << ":\n" << written;
        EXPECT_NE(written.find(std::string(testCase.escapedEsc) + "[1m"), std::string::npos) << testCase.format << ":\n"
                                                                                             << written;
        if (testCase.format != "dot") {
            EXPECT_NE(written.find("analyzer"), std::string::npos) << testCase.format << ":\n" << written;
        }
    }

    // The workflow commands keep their structure: one line per finding, the
    // percent sign, comma and colon of the properties escaped as the CI
    // service reads them, the message's line break as %0A.
    std::ostringstream github;
    findReportFormat("github")->write(
        github,
        ReportContext{
            .report = report, .graph = *graph, .toolVersion = "9.9.9", .colour = false, .workingFolder = "/work"});
    auto const annotations = github.str();
    EXPECT_NE(annotations.find("::error file=dir\\x1b[2J/file%0D%0A%25.qx,title=Id\\x1b[1m%252C "
                               "(host\\x1b[7manalyzer)::Found \\x07it%0D%0Anext line (file \"name\\x1b]0;"
                               "title\\x07,with:colon\", ID \"evil\\x1b[31mfile\\x07\")\n"),
              std::string::npos)
        << annotations;
    EXPECT_EQ(std::count(annotations.begin(), annotations.end(), '\n'), 2) << annotations;

    // DOT keeps the quoting intact: every statement line closes its quotes.
    std::ostringstream dot;
    findReportFormat("dot")->write(
        dot, ReportContext{
                 .report = report, .graph = *graph, .toolVersion = "9.9.9", .colour = false, .workingFolder = "/work"});
    EXPECT_NE(dot.str().find("\"product:\\\\x1b[5mblink\\\\x7f\\\\t\" [shape=component"), std::string::npos)
        << dot.str();
    std::istringstream lines(dot.str());
    for (std::string line; std::getline(lines, line);) {
        std::size_t quotes = 0;
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line[i] == '\\') {
                ++i;
            } else if (line[i] == '"') {
                ++quotes;
            }
        }
        EXPECT_EQ(quotes % 2, 0u) << line;
    }
}

// The text report: findings grouped by node, columns aligned, severities
// coloured on a terminal.
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Severity;

namespace {

std::string_view colourOf(Severity severity) {
    switch (severity) {
    case Severity::Problem:
        return "\x1b[1;31m";
    case Severity::Warning:
        return "\x1b[33m";
    case Severity::Information:
        break;
    }
    return "\x1b[36m";
}

std::string summaryLine(Report const& report) {
    std::string line = text("SummaryFound", {counted("CountProblem", report.count(Severity::Problem)),
                                             counted("CountWarning", report.count(Severity::Warning)),
                                             counted("CountInformation", report.count(Severity::Information)),
                                             static_cast<long>(report.reportedNodes()),
                                             counted("CountNode", report.nodeCount), severityWord(report.minimum)});
    if (report.hiddenByBaseline > 0) {
        line += "; " + counted("CountHiddenByBaseline", report.hiddenByBaseline);
    }
    return line;
}

}  // namespace

void writeText(std::ostream& out, Report const& report, bool colour) {
    out << text("TextHeading",
                {escapeControls(report.graphName), counted("CountNode", report.nodeCount),
                 counted("CountEdge", report.dependencyCount), counted("CountAnalyzer", report.analyzers.size())})
        << '\n';
    std::size_t severityWidth = 0;
    std::size_t idWidth = 0;
    for (auto const severity : {Severity::Information, Severity::Warning, Severity::Problem}) {
        severityWidth = std::max(severityWidth, displayWidth(severityWord(severity)));
    }
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            idWidth = std::max(idWidth, displayWidth(escapeControls(toUtf8(finding.attribute->getID()))));
        }
    }
    for (auto const& entry : report.nodes) {
        if (std::none_of(entry.findings.begin(), entry.findings.end(), [](auto const& f) { return !f.suppressed; })) {
            continue;
        }
        auto const& node = *entry.node;
        out << '\n'
            << text("TextNodeHeading", {escapeControls(entry.where()), kindWord(node.getType()),
                                        escapeControls(displayNameOf(node)), escapeControls(toUtf8(node.getID()))})
            << '\n';
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            auto const& attribute = *finding.attribute;
            auto const severity = attribute.getSeverity();
            out << "  " << (colour ? colourOf(severity) : "") << padded(severityWord(severity), severityWidth)
                << (colour ? "\x1b[0m" : "") << "  " << padded(escapeControls(toUtf8(attribute.getID())), idWidth)
                << "  " << escapeControls(toUtf8(attribute.getName()));
            if (!finding.analyzer.empty()) {
                out << "  [" << finding.analyzer << "]";
            }
            out << '\n';
        }
    }
    out << '\n' << summaryLine(report) << '\n';
}

void writeTextReport(std::ostream& out, ReportContext const& context) {
    writeText(out, context.report, context.colour);
}

}  // namespace depattr::cli

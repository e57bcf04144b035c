// The text report: findings grouped by file (the node's path, else its ID),
// sorted by it, columns aligned, severities coloured on a terminal. A run with
// nothing to report is one line.
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <deque>
#include <unordered_map>

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

std::string summaryLine(Report const& report, Report::Tally const& tally) {
    std::string line =
        tally.nodes == 0 ? text("SummaryClean", {severityWord(report.minimum), counted("CountNode", report.nodeCount)})
                         : text("SummaryFound", {counted("CountProblem", tally.of(Severity::Problem)),
                                                 counted("CountWarning", tally.of(Severity::Warning)),
                                                 counted("CountInformation", tally.of(Severity::Information)),
                                                 static_cast<long>(tally.nodes), counted("CountNode", report.nodeCount),
                                                 severityWord(report.minimum)});
    if (report.hiddenByBaseline > 0) {
        line += "; " + counted("CountHiddenByBaseline", report.hiddenByBaseline);
    }
    return line;
}

}  // namespace

void writeText(std::ostream& out, Report const& report, bool colour) {
    std::size_t severityWidth = 0;
    std::size_t idWidth = 0;
    for (auto const severity : {Severity::Information, Severity::Warning, Severity::Problem}) {
        severityWidth = std::max(severityWidth, displayWidth(severityWord(severity)));
    }
    // Each distinct finding ID and name is converted and escaped once (their
    // texts are identified by where the identity keeps them), and each
    // severity and kind word is looked up once.
    std::unordered_map<std::u16string const*, std::string> shownTexts;
    auto const shown = [&](std::u16string const& text) -> std::string const& {
        auto [it, added] = shownTexts.try_emplace(&text);
        if (added) {
            it->second = escapeControls(toUtf8(text));
        }
        return it->second;
    };
    std::unordered_map<std::u16string const*, std::string> paddedIds;
    std::array<std::string, 3> paddedSeverities;
    for (auto const severity : {Severity::Information, Severity::Warning, Severity::Problem}) {
        paddedSeverities.at(static_cast<std::size_t>(severity)) = padded(severityWord(severity), severityWidth);
    }
    auto const appendSeverity = [&](std::string& out, Severity severity) {
        if (auto const index = static_cast<std::size_t>(severity); index < paddedSeverities.size()) {
            out += paddedSeverities[index];
        } else {
            out += padded(severityWord(severity), severityWidth);
        }
    };
    std::unordered_map<int, std::string> kindWords;
    TextPattern const heading("TextNodeHeading", 4);
    // Grouped by where they are: the nodes (listed by ID) sorted by path, the
    // nodes of one file kept in ID order.
    // A node with a path is placed by a view of it; only the others have
    // their ID converted, once, into `converted`.
    // One pass over the findings, each a place of its own in memory, counts
    // the summary, measures the IDs (hidden findings' too) and picks the
    // entries to show.
    std::vector<std::pair<std::string_view, NodeFindings const*>> byPlace;
    std::deque<std::string> converted;
    byPlace.reserve(report.nodes.size());
    Report::Tally tally;
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            idWidth = std::max(idWidth, displayWidth(shown(finding.identity().getID())));
        }
        if (tally.add(entry)) {
            byPlace.emplace_back(entry.path.empty() ? std::string_view(converted.emplace_back(entry.where()))
                                                    : std::string_view(entry.path),
                                 &entry);
        }
    }
    if (tally.nodes == 0) {
        out << summaryLine(report, tally) << '\n';
        return;
    }
    out << text("TextHeading",
                {escapeControls(report.graphName), counted("CountNode", report.nodeCount),
                 counted("CountEdge", report.dependencyCount), counted("CountAnalyzer", report.analyzers.size())})
        << '\n';
    std::stable_sort(byPlace.begin(), byPlace.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
    // The entries lie in ID order and are visited in path order, each at a
    // place of its own in memory: an entry is asked for some entries ahead,
    // and its node, first finding and place's text when it has come in.
    constexpr std::size_t ahead = 8;
    // The entries are written into one buffer, handed to the stream in large pieces.
    std::string block;
    // Each node's texts, made in the same memory node after node.
    std::string idText;
    std::string nameText;
    std::string escapedWhere;
    std::string escapedName;
    std::string escapedId;
    std::string escapedAnalyzer;
    constexpr std::size_t flushSize = 1 << 20;
    for (std::size_t i = 0; i < byPlace.size(); ++i) {
        if (i + 2 * ahead < byPlace.size()) {
            __builtin_prefetch(byPlace[i + 2 * ahead].second);
        }
        if (i + ahead < byPlace.size()) {
            NodeFindings const* const later = byPlace[i + ahead].second;
            prefetchNode(later->node.get());
            __builtin_prefetch(later->findings.data());
            __builtin_prefetch(byPlace[i + ahead].first.data());
        }
        auto const [where, shownEntry] = byPlace[i];
        auto const& entry = *shownEntry;
        auto const& node = *entry.node;
        auto [kind, newKind] = kindWords.try_emplace(static_cast<int>(node.getType().kind()));
        if (newKind) {
            kind->second = kindWord(node.getType());
        }
        block += '\n';
        toUtf8(node.getID(), idText);
        if (auto const name = node.getName(); name.empty()) {
            nameText = idText;
        } else {
            toUtf8(name, nameText);
        }
        heading.append(block, {escapeControls(where, escapedWhere), kind->second, escapeControls(nameText, escapedName),
                               escapeControls(idText, escapedId)});
        block += '\n';
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            auto const& identity = finding.identity();
            auto const severity = identity.getSeverity();
            auto [id, newId] = paddedIds.try_emplace(&identity.getID());
            if (newId) {
                id->second = padded(shown(identity.getID()), idWidth);
            }
            block += "  ";
            if (colour) {
                block += colourOf(severity);
            }
            appendSeverity(block, severity);
            if (colour) {
                block += "\x1b[0m";
            }
            block += "  ";
            block += id->second;
            block += "  ";
            block += shown(identity.getName());
            if (!finding.analyzer.empty()) {
                block += "  [";
                block += escapeControls(finding.analyzer, escapedAnalyzer);
                block += "]";
            }
            block += '\n';
        }
        for (auto const& place : entry.places) {
            block += "    ";
            block += escapeControls(placeLine(place));
            block += '\n';
        }
        if (block.size() >= flushSize) {
            out << block;
            block.clear();
        }
    }
    out << block << '\n' << summaryLine(report, tally) << '\n';
}

void writeTextReport(std::ostream& out, ReportContext const& context) {
    writeText(out, context.report, context.colour);
}

}  // namespace depattr::cli

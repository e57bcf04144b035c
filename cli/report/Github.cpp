// Workflow annotations of a CI service: one command per finding.
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Severity;

namespace {

// Workflow commands end at a line break and split at '::'; their data and
// properties are percent-escaped as the CI service expects. Other control
// characters (ESC, BEL, tab...) are written as escapes such as \x1b, so that
// neither the log viewer nor a terminal showing the raw log acts on them.
std::string workflowData(std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string out;
    out.reserve(text.size());
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '%') {
            out += "%25";
        } else if (c == '\r') {
            out += "%0D";
        } else if (c == '\n') {
            out += "%0A";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < 0x20 || byte == 0x7f) {
            out += "\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xf];
        } else {
            out += c;
        }
    }
    return out;
}

std::string workflowProperty(std::string_view text) {
    std::string out;
    for (char const c : workflowData(text)) {
        if (c == ':') {
            out += "%3A";
        } else if (c == ',') {
            out += "%2C";
        } else {
            out += c;
        }
    }
    return out;
}

std::string_view workflowLevel(Severity severity) {
    switch (severity) {
    case Severity::Problem:
        return "error";
    case Severity::Warning:
        return "warning";
    case Severity::Information:
        break;
    }
    return "notice";
}

}  // namespace

void writeGithub(std::ostream& out, Report const& report) {
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            auto const& attribute = *finding.attribute;
            std::string title = toUtf8(attribute.getID());
            if (!finding.analyzer.empty()) {
                title += " (" + std::string(finding.analyzer) + ")";
            }
            auto const message =
                workflowData(text("GithubMessage", {toUtf8(attribute.getName()), kindWord(entry.node->getType()),
                                                    displayNameOf(*entry.node), toUtf8(entry.node->getID())}));
            // One annotation per place in the code (each call site), else one on the node's file.
            auto const annotate = [&](std::string_view file, std::size_t line, std::size_t column) {
                out << "::" << workflowLevel(attribute.getSeverity()) << " ";
                if (!file.empty()) {
                    out << "file=" << workflowProperty(file) << ",";
                }
                if (line > 0) {
                    out << "line=" << line << ",col=" << column << ",";
                }
                out << "title=" << workflowProperty(title) << "::" << message << '\n';
            };
            if (entry.places.empty()) {
                annotate(entry.path, 0, 0);
            }
            for (auto const& place : entry.places) {
                annotate(place.file, place.line, place.column);
            }
        }
    }
}

void writeGithubReport(std::ostream& out, ReportContext const& context) {
    writeGithub(out, context.report);
}

}  // namespace depattr::cli

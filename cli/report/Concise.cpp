// The concise report: one line per finding.
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Severity;

void writeConcise(std::ostream& out, Report const& report) {
    for (auto const& entry : report.nodes) {
        // One line per place in the code the node's findings concern (every
        // call site of a missing function), else one at the node.
        std::vector<std::string> wheres;
        for (auto const& place : entry.places) {
            wheres.push_back(escapeControls(placeText(place)));
        }
        if (wheres.empty()) {
            wheres.push_back(escapeControls(entry.where()));
        }
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            for (auto const& where : wheres) {
                out << where << ": " << escapeControls(toUtf8(finding.attribute->getID())) << ": "
                    << escapeControls(toUtf8(finding.attribute->getName()));
                if (!finding.analyzer.empty()) {
                    out << " [" << escapeControls(finding.analyzer) << "]";
                }
                out << '\n';
            }
        }
    }
}

void writeConciseReport(std::ostream& out, ReportContext const& context) {
    writeConcise(out, context.report);
}

}  // namespace depattr::cli

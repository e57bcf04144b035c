// The concise report: one line per finding.
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Severity;

void writeConcise(std::ostream& out, Report const& report) {
    for (auto const& entry : report.nodes) {
        auto const where = escapeControls(entry.where());
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            out << where << ": " << escapeControls(toUtf8(finding.attribute->getID())) << ": "
                << escapeControls(toUtf8(finding.attribute->getName()));
            if (!finding.analyzer.empty()) {
                out << " [" << escapeControls(finding.analyzer) << "]";
            }
            out << '\n';
        }
    }
}

void writeConciseReport(std::ostream& out, ReportContext const& context) {
    writeConcise(out, context.report);
}

}  // namespace depattr::cli

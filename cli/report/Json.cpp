// The JSON report, laid out in docs/json-report.md.
#include "cli/report/Formats.hpp"

#include "cli/Baseline.hpp"
#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Severity;

void writeJson(std::ostream& out, Report const& report, std::string_view toolVersion) {
    out << "{\n  \"schemaVersion\": 1,\n  \"tool\": {\"name\": \"depattr\", \"version\": " << jsonString(toolVersion)
        << "},\n  \"graph\": " << jsonString(report.graphName) << ",\n";
    out << fmt::format("  \"nodes\": {},\n  \"edges\": {},\n  \"analyzers\": [", report.nodeCount,
                       report.dependencyCount);
    for (std::size_t i = 0; i < report.analyzers.size(); ++i) {
        out << (i ? ", " : "") << jsonString(report.analyzers[i]);
    }
    out << "],\n  \"minimumSeverity\": " << jsonString(toString(report.minimum))
        << ",\n  \"failOn\": " << jsonString(toString(report.failOn))
        << ",\n  \"failed\": " << (report.fails() ? "true" : "false") << ",\n";
    out << fmt::format("  \"counts\": {{\"Problem\": {}, \"Warning\": {}, \"Information\": {}}},\n",
                       report.count(Severity::Problem), report.count(Severity::Warning),
                       report.count(Severity::Information));
    out << "  \"hiddenByBaseline\": " << report.hiddenByBaseline << ",\n";
    out << "  \"findings\": [";
    bool firstNode = true;
    for (auto const& entry : report.nodes) {
        if (std::none_of(entry.findings.begin(), entry.findings.end(), [](auto const& f) { return !f.suppressed; })) {
            continue;
        }
        out << (firstNode ? "\n" : ",\n");
        firstNode = false;
        auto const& node = *entry.node;
        out << "    {\"node\": " << jsonString(toUtf8(node.getID()));
        out << ", \"path\": " << (entry.path.empty() ? "null" : jsonString(entry.path));
        out << ", \"kind\": " << jsonString(node.getType().name()) << ", \"name\": " << jsonString(displayNameOf(node))
            << ", \"attributes\": [";
        bool firstAttribute = true;
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            auto const& attribute = *finding.attribute;
            out << (firstAttribute ? "\n" : ",\n");
            firstAttribute = false;
            out << "      {\"id\": " << jsonString(toUtf8(attribute.getID()))
                << ", \"name\": " << jsonString(toUtf8(attribute.getName()))
                << ", \"severity\": " << jsonString(toString(attribute.getSeverity()))
                << ", \"analyzer\": " << (finding.analyzer.empty() ? "null" : jsonString(finding.analyzer))
                << ", \"fingerprint\": " << jsonString(fingerprintText(finding.fingerprint))
                << ", \"hasFix\": " << (attribute.hasFix() ? "true" : "false") << "}";
        }
        out << "\n    ]";
        if (!entry.places.empty()) {
            out << ", \"places\": [";
            for (std::size_t i = 0; i < entry.places.size(); ++i) {
                auto const& place = entry.places[i];
                out << (i ? ", " : "") << "{\"role\": " << jsonString(placeRoleName(place.role))
                    << ", \"file\": " << jsonString(place.file) << ", \"line\": " << place.line
                    << ", \"column\": " << place.column;
                if (!place.detail.empty()) {
                    out << ", \"detail\": " << jsonString(place.detail);
                }
                out << "}";
            }
            out << "]";
        }
        out << "}";
    }
    out << (firstNode ? "]\n}\n" : "\n  ]\n}\n");
}

void writeJsonReport(std::ostream& out, ReportContext const& context) {
    writeJson(out, context.report, context.toolVersion);
}

}  // namespace depattr::cli

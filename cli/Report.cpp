#include "cli/Report.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace depattr::cli {

using dependency::attribute::Severity;
using dependency::graph::Node;

std::string toUtf8(std::u16string const& text) {
    return boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
}

std::size_t Report::count(Severity severity) const {
    std::size_t total = 0;
    for (auto const& entry : nodes) {
        total += static_cast<std::size_t>(std::count_if(entry.findings.begin(), entry.findings.end(), [&](auto const& f) {
            return f.attribute->getSeverity() == severity;
        }));
    }
    return total;
}

Report makeReport(dependency::graph::Graph const& graph, dependency::attribute::GraphAttributes const& result,
                  Severity minimum, FindingSources const* sources) {
    Report report;
    report.nodeCount = graph.nodeCount();
    report.dependencyCount = graph.dependencyCount();
    report.minimum = minimum;
    std::vector<std::shared_ptr<Node>> nodes;
    for (auto const& node : graph.getNodes()) {
        nodes.push_back(node);
    }
    std::sort(nodes.begin(), nodes.end(), [](auto const& a, auto const& b) { return *a < *b; });
    for (auto const& node : nodes) {
        auto const attributes = result.getAttributes(node, minimum);
        if (attributes.empty()) {
            continue;
        }
        NodeFindings entry{node, {}};
        for (auto const& attribute : attributes) {
            entry.findings.push_back({attribute, sources ? std::string(sources->analyzerOf(attribute)) : std::string()});
        }
        report.nodes.push_back(std::move(entry));
    }
    return report;
}

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

std::string lowerName(Severity severity) {
    std::string name(toString(severity));
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

}  // namespace

std::string jsonString(std::string_view text) {
    std::string out = "\"";
    for (char const c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
            } else {
                out += c;
            }
        }
    }
    return out + "\"";
}

void writeText(std::ostream& out, Report const& report, bool colour) {
    out << fmt::format("{}: {} nodes, {} edges, {} analyzers\n", report.graphName, report.nodeCount,
                       report.dependencyCount, report.analyzerCount);
    std::size_t idWidth = 0;
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            idWidth = std::max(idWidth, toUtf8(finding.attribute->getID()).size());
        }
    }
    for (auto const& entry : report.nodes) {
        out << fmt::format("\n{}  ({})\n", toUtf8(entry.node->getID()), entry.node->getType().name());
        for (auto const& finding : entry.findings) {
            auto const& attribute = finding.attribute;
            auto const severity = attribute->getSeverity();
            auto const label = fmt::format("{:<11}", toString(severity));
            out << "  " << (colour ? colourOf(severity) : "") << label << (colour ? "\x1b[0m" : "") << "  "
                << fmt::format("{:<{}}", toUtf8(attribute->getID()), idWidth) << "  " << toUtf8(attribute->getName())
                << '\n';
        }
    }
    out << fmt::format("\n{} problems, {} warnings, {} information on {} of {} nodes (at or above {})\n",
                       report.count(Severity::Problem), report.count(Severity::Warning),
                       report.count(Severity::Information), report.nodes.size(), report.nodeCount,
                       lowerName(report.minimum));
}

void writeJson(std::ostream& out, Report const& report) {
    out << "{\n  \"graph\": " << jsonString(report.graphName) << ",\n";
    out << fmt::format("  \"nodes\": {},\n  \"edges\": {},\n  \"analyzers\": {},\n", report.nodeCount,
                       report.dependencyCount, report.analyzerCount);
    out << "  \"minimumSeverity\": " << jsonString(toString(report.minimum)) << ",\n";
    out << fmt::format("  \"counts\": {{\"Problem\": {}, \"Warning\": {}, \"Information\": {}}},\n",
                       report.count(Severity::Problem), report.count(Severity::Warning),
                       report.count(Severity::Information));
    out << "  \"findings\": [";
    bool firstNode = true;
    for (auto const& entry : report.nodes) {
        out << (firstNode ? "\n" : ",\n");
        firstNode = false;
        out << "    {\"node\": " << jsonString(toUtf8(entry.node->getID()))
            << ", \"type\": " << jsonString(entry.node->getType().name()) << ", \"attributes\": [";
        bool firstAttribute = true;
        for (auto const& finding : entry.findings) {
            auto const& attribute = finding.attribute;
            out << (firstAttribute ? "\n" : ",\n");
            firstAttribute = false;
            out << "      {\"id\": " << jsonString(toUtf8(attribute->getID()))
                << ", \"name\": " << jsonString(toUtf8(attribute->getName()))
                << ", \"severity\": " << jsonString(toString(attribute->getSeverity()))
                << ", \"hasFix\": " << (attribute->hasFix() ? "true" : "false");
            if (!finding.analyzer.empty()) {
                out << ", \"analyzer\": " << jsonString(finding.analyzer);
            }
            out << "}";
        }
        out << "\n    ]}";
    }
    out << (report.nodes.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace depattr::cli

// The Graphviz report: the whole graph, each node shaped by its kind and, when
// it has findings at or above the threshold, filled by the gravest of them,
// with its kind, name, path and findings as its tooltip.
#include "cli/report/Formats.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

namespace depattr::cli {

namespace {

using dependency::attribute::Severity;
using dependency::graph::Node;
using dependency::graph::Type;

// A double-quoted DOT string; backslashes are escaped so that none of the
// text is taken for a label escape such as \n or \l. A line break becomes the
// label's \n, and every other control character is shown as an escape such
// as \x1b (its backslash escaped in turn), so that no raw control byte reaches
// the file or a terminal showing it.
std::string dotString(std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string out = "\"";
    out.reserve(text.size() + 2);
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\\\r";
        } else if (c == '\t') {
            out += "\\\\t";
        } else if (byte < 0x20 || byte == 0x7f) {
            out += "\\\\x";
            out += hex[byte >> 4];
            out += hex[byte & 0xf];
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string_view shapeOf(Type const& type) {
    if (type == Type::FUNCTION()) {
        return "ellipse";
    }
    if (type == Type::PRODUCT() || type == Type::PACKAGE()) {
        return "component";
    }
    if (type == Type::PROJECT()) {
        return "box3d";
    }
    if (type == Type::DERIVED()) {
        return "note";
    }
    return "box";
}

std::string_view fillOf(Severity severity) {
    switch (severity) {
    case Severity::Problem:
        return "#f4a3a3";
    case Severity::Warning:
        return "#ffd98a";
    case Severity::Information:
        break;
    }
    return "#d6eaf8";
}

std::string nodeStatement(Node const& node, NodeFindings const* entry) {
    auto const id = toUtf8(node.getID());
    std::string statement = fmt::format("  {} [shape={}", dotString(id), shapeOf(node.getType()));
    bool const reported = entry != nullptr && std::any_of(entry->findings.begin(), entry->findings.end(),
                                                          [](auto const& finding) { return !finding.suppressed; });
    if (reported) {
        Severity gravest = Severity::Information;
        // Where the node is, then what was found.
        std::string tooltip = fmt::format("{} \"{}\"", node.getType().name(), displayNameOf(node));
        if (!entry->path.empty()) {
            tooltip += "\n" + entry->path;
        }
        for (auto const& finding : entry->findings) {
            if (finding.suppressed) {
                continue;
            }
            auto const& attribute = *finding.attribute;
            gravest = std::max(gravest, attribute.getSeverity());
            tooltip += fmt::format("\n{} {}: {}", toString(attribute.getSeverity()), toUtf8(attribute.getID()),
                                   toUtf8(attribute.getName()));
        }
        statement += fmt::format(", style=\"filled,rounded\", fillcolor={}, tooltip={}", dotString(fillOf(gravest)),
                                 dotString(tooltip));
    }
    return statement + "];\n";
}

}  // namespace

void writeDot(std::ostream& out, dependency::graph::Graph const& graph, Report const& report) {
    std::unordered_map<Node const*, NodeFindings const*> findingsByNode;
    for (auto const& entry : report.nodes) {
        findingsByNode.emplace(entry.node.get(), &entry);
    }
    out << "digraph " << dotString(report.graphName) << " {\n"
        << "  graph [rankdir=LR, fontname=\"Helvetica\"];\n"
        << "  node [fontname=\"Helvetica\", fontsize=10];\n"
        << "  edge [fontname=\"Helvetica\", fontsize=8, color=\"#555555\"];\n";
    for (auto const& node : graph.getNodes()) {
        auto const found = findingsByNode.find(node.get());
        out << nodeStatement(*node, found == findingsByNode.end() ? nullptr : found->second);
    }
    for (auto const& node : graph.getNodes()) {
        for (auto const& edge : graph.getDownstreamDependencies(*node)) {
            out << fmt::format("  {} -> {} [label={}];\n", dotString(toUtf8(node->getID())),
                               dotString(toUtf8(edge->getDownstreamNode()->getID())),
                               dotString(edge->getRelationship().name()));
        }
    }
    out << "}\n";
}

void writeDotReport(std::ostream& out, ReportContext const& context) {
    writeDot(out, context.graph, context.report);
}

}  // namespace depattr::cli

// The Graphviz report: the graph (or, for a large one, the nodes with findings
// and their neighbours), each node labelled by its display name and shaped by
// its kind and, when it has findings at or above the threshold, filled by the
// gravest of them with their count as a badge and its kind, name, path and
// findings as its tooltip; functions inside their file, and a legend.
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

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

// The findings of a node that the report shows (not hidden by a baseline).
std::vector<Finding const*> shownFindings(NodeFindings const* entry) {
    std::vector<Finding const*> shown;
    if (entry != nullptr) {
        for (auto const& finding : entry->findings) {
            if (!finding.suppressed) {
                shown.push_back(&finding);
            }
        }
    }
    return shown;
}

// A node: its display name as the label, its kind as the shape; with
// findings, filled by the gravest, a badge with their count under the name,
// and where it is and what was found as the tooltip.
std::string nodeStatement(Node const& node, NodeFindings const* entry) {
    auto const id = toUtf8(node.getID());
    std::string statement = fmt::format("  {} [shape={}", dotString(id), shapeOf(node.getType()));
    auto const shown = shownFindings(entry);
    std::string label = displayNameOf(node);
    if (!shown.empty()) {
        Severity gravest = Severity::Information;
        // Where the node is, then what was found.
        std::string tooltip = fmt::format("{} \"{}\"", node.getType().name(), displayNameOf(node));
        if (!entry->path.empty()) {
            tooltip.append("\n").append(entry->path);
        }
        for (auto const* finding : shown) {
            auto const& attribute = *finding->attribute;
            gravest = std::max(gravest, attribute.getSeverity());
            tooltip += fmt::format("\n{} {}: {}", toString(attribute.getSeverity()), toUtf8(attribute.getID()),
                                   toUtf8(attribute.getName()));
        }
        statement += fmt::format(", style=\"filled,rounded\", fillcolor={}, tooltip={}", dotString(fillOf(gravest)),
                                 dotString(tooltip));
        label += "\n[" + counted("CountFinding", shown.size()) + "]";
    }
    return statement + fmt::format(", label={}];\n", dotString(label));
}

// A graph too large to read as a picture shows only the nodes with findings
// and their neighbours.
constexpr std::size_t largestWholePicture = 300;

// What a legend shows: the fill of each severity, and a plain node.
void writeLegend(std::ostream& out) {
    out << "  subgraph cluster_legend {\n"
        << "    label=" << dotString(text("DotLegend")) << "; style=dashed; color=\"#999999\"; fontsize=10;\n";
    std::string previous;
    for (auto const severity : {Severity::Problem, Severity::Warning, Severity::Information}) {
        auto const name = "depattr-legend:" + std::string(toString(severity));
        out << "    " << dotString(name)
            << " [shape=box, style=\"filled,rounded\", fillcolor=" << dotString(fillOf(severity))
            << ", label=" << dotString(severityWord(severity)) << "];\n";
        if (!previous.empty()) {
            out << "    " << dotString(previous) << " -> " << dotString(name) << " [style=invis];\n";
        }
        previous = name;
    }
    out << "    \"legend:none\" [shape=box, label=" << dotString(text("DotLegendNone")) << "];\n"
        << "    " << dotString(previous) << " -> \"legend:none\" [style=invis];\n"
        << "  }\n";
}

}  // namespace

void writeDot(std::ostream& out, dependency::graph::Graph const& graph, Report const& report) {
    std::unordered_map<Node const*, NodeFindings const*> findingsByNode;
    for (auto const& entry : report.nodes) {
        if (!shownFindings(&entry).empty()) {
            findingsByNode.emplace(entry.node.get(), &entry);
        }
    }
    std::vector<std::shared_ptr<Node>> nodes;
    for (auto const& node : graph.getNodes()) {
        nodes.push_back(node);
    }
    // A large graph: the nodes with findings and whatever they touch.
    bool const reduced = nodes.size() > largestWholePicture;
    std::unordered_set<Node const*> drawn;
    if (reduced) {
        for (auto const& node : nodes) {
            bool const reported = findingsByNode.contains(node.get());
            for (auto const& edge : graph.getDownstreamDependencies(*node)) {
                auto const* to = edge->getDownstreamNode().get();
                if (reported || findingsByNode.contains(to)) {
                    drawn.insert(node.get());
                    drawn.insert(to);
                }
            }
            if (reported) {
                drawn.insert(node.get());
            }
        }
        std::erase_if(nodes, [&](auto const& node) { return !drawn.contains(node.get()); });
    }

    std::size_t findingCount = 0;
    for (auto const& [node, entry] : findingsByNode) {
        findingCount += shownFindings(entry).size();
    }
    std::string title =
        report.graphName + "\n" + counted("CountNode", report.nodeCount) + ", " + counted("CountFinding", findingCount);
    if (reduced) {
        title += "\n" + text("DotReduced", {static_cast<long>(nodes.size()), static_cast<long>(report.nodeCount)});
    }
    out << "digraph " << dotString(report.graphName) << " {\n"
        << "  graph [rankdir=LR, fontname=\"Helvetica\", nodesep=0.3, ranksep=0.7, labelloc=t, fontsize=14, label="
        << dotString(title) << "];\n"
        << "  node [fontname=\"Helvetica\", fontsize=10];\n"
        << "  edge [fontname=\"Helvetica\", fontsize=8, color=\"#555555\"];\n";

    // Function nodes are drawn inside their file's cluster, with the file
    // node itself when the graph has one of that path.
    std::error_code error;
    auto const here = std::filesystem::current_path(error);
    auto const pathOf = [&](Node const& node) {
        std::filesystem::path const path = toUtf8(node.getPath());
        auto const relative = path.lexically_relative(here);
        return !error && !relative.empty() && *relative.begin() != ".." ? relative.generic_string()
                                                                        : path.generic_string();
    };
    std::map<std::string, std::vector<Node const*>> clusters;
    for (auto const& node : nodes) {
        if (node->getType() == Type::FUNCTION() && !node->getPath().empty()) {
            clusters[pathOf(*node)].push_back(node.get());
        }
    }
    std::unordered_map<Node const*, std::string const*> clusterOf;
    for (auto const& [path, members] : clusters) {
        for (auto const* member : members) {
            clusterOf.emplace(member, &path);
        }
    }
    for (auto const& node : nodes) {
        if (node->getType() != Type::FUNCTION() && !node->getPath().empty()) {
            if (auto const found = clusters.find(pathOf(*node)); found != clusters.end()) {
                found->second.insert(found->second.begin(), node.get());
                clusterOf.emplace(node.get(), &found->first);
            }
        }
    }
    auto const findingsOf = [&](Node const& node) {
        auto const found = findingsByNode.find(&node);
        return found == findingsByNode.end() ? nullptr : found->second;
    };
    std::size_t number = 0;
    for (auto const& [path, members] : clusters) {
        out << "  subgraph cluster_" << number++ << " {\n"
            << "    label=" << dotString(path) << "; style=rounded; color=\"#aaaaaa\"; fontsize=9;\n";
        for (auto const* member : members) {
            out << "  " << nodeStatement(*member, findingsOf(*member));
        }
        out << "  }\n";
    }
    for (auto const& node : nodes) {
        if (!clusterOf.contains(node.get())) {
            out << nodeStatement(*node, findingsOf(*node));
        }
    }
    for (auto const& node : nodes) {
        for (auto const& edge : graph.getDownstreamDependencies(*node)) {
            auto const& to = edge->getDownstreamNode();
            if (reduced && !drawn.contains(to.get())) {
                continue;
            }
            // Calls are most edges: only the other kinds are named.
            auto const kind = edge->getRelationship().name();
            out << "  " << dotString(toUtf8(node->getID())) << " -> " << dotString(toUtf8(to->getID()));
            if (kind != "call") {
                out << " [label=" << dotString(kind) << "]";
            }
            out << ";\n";
        }
    }
    writeLegend(out);
    out << "}\n";
}

void writeDotReport(std::ostream& out, ReportContext const& context) {
    writeDot(out, context.graph, context.report);
}

std::optional<std::filesystem::path> graphvizProgram() {
    char const* const path = std::getenv("PATH");
    std::string_view rest = path == nullptr ? "" : path;
    while (!rest.empty()) {
        auto const colon = rest.find(':');
        std::filesystem::path const folder(rest.substr(0, colon));
        rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        auto const candidate = (folder.empty() ? std::filesystem::path(".") : folder) / "dot";
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error) && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return std::nullopt;
}

namespace {

// A text as one word for the shell.
std::string shellWord(std::string const& text) {
    std::string word = "'";
    for (char const c : text) {
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return word + "'";
}

// The picture drawn by Graphviz from the DOT report, in `format` (svg, png).
void writeRendered(std::ostream& out, ReportContext const& context, char const* format) {
    auto const program = graphvizProgram();
    if (!program) {
        throw std::runtime_error(text("ErrorNoGraphviz", {std::string(format)}));
    }
    std::ostringstream dot;
    writeDot(dot, context.graph, context.report);
    // The DOT text goes through a temporary file, so that the picture can be
    // read from the program's output while nothing waits on its input.
    auto pattern = (std::filesystem::temp_directory_path() / "depattr-XXXXXX.dot").string();
    int const descriptor = ::mkstemps(pattern.data(), 4);
    if (descriptor < 0) {
        throw std::runtime_error(text("ErrorGraphvizFailed", {std::string("cannot make a temporary file")}));
    }
    ::close(descriptor);
    struct Remove {
        std::string file;
        ~Remove() { std::remove(file.c_str()); }
    } const remove{pattern};
    {
        std::ofstream file(pattern, std::ios::binary);
        file << dot.str();
        if (!file.flush()) {
            throw std::runtime_error(text("ErrorGraphvizFailed", {std::string("cannot write a temporary file")}));
        }
    }
    auto const command = shellWord(program->string()) + " -T" + format + " " + shellWord(pattern) + " 2>&1";
    FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error(text("ErrorGraphvizFailed", {std::string("cannot start ") + program->string()}));
    }
    std::string picture;
    std::array<char, 65536> buffer{};
    while (auto const count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        picture.append(buffer.data(), count);
    }
    int const status = ::pclose(pipe);
    if (status != 0) {
        // Its own words are what it printed, kept short; the message is
        // freed of control bytes where it is shown.
        auto said = picture.substr(0, 400);
        while (!said.empty() && std::isspace(static_cast<unsigned char>(said.back())) != 0) {
            said.pop_back();
        }
        throw std::runtime_error(text("ErrorGraphvizFailed", {said}));
    }
    out.write(picture.data(), static_cast<std::streamsize>(picture.size()));
}

}  // namespace

void writeSvgReport(std::ostream& out, ReportContext const& context) {
    writeRendered(out, context, "svg");
}

void writePngReport(std::ostream& out, ReportContext const& context) {
    writeRendered(out, context, "png");
}

}  // namespace depattr::cli

#include "cli/Report.hpp"

#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "cli/Texts.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <unordered_map>

namespace depattr::cli {

using dependency::attribute::Severity;
using dependency::graph::Node;

std::string toUtf8(std::u16string const& text) {
    return boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
}

std::string displayNameOf(Node const& node) {
    auto const name = node.getName();
    return toUtf8(name.empty() ? node.getID() : name);
}

std::string NodeFindings::where() const {
    return path.empty() ? toUtf8(node->getID()) : path;
}

std::size_t Report::count(Severity severity) const {
    std::size_t total = 0;
    for (auto const& entry : nodes) {
        total +=
            static_cast<std::size_t>(std::count_if(entry.findings.begin(), entry.findings.end(), [&](auto const& f) {
                return !f.suppressed && f.attribute->getSeverity() == severity;
            }));
    }
    return total;
}

std::size_t Report::reportedNodes() const {
    return static_cast<std::size_t>(std::count_if(nodes.begin(), nodes.end(), [](auto const& entry) {
        return std::any_of(entry.findings.begin(), entry.findings.end(), [](auto const& f) { return !f.suppressed; });
    }));
}

bool Report::fails() const {
    for (auto const& entry : nodes) {
        for (auto const& finding : entry.findings) {
            if (!finding.suppressed && finding.attribute->getSeverity() >= failOn) {
                return true;
            }
        }
    }
    return false;
}

namespace {

// Whether an absolute path has no empty, "." or ".." component and no
// separator at the end: normalising it changes nothing.
bool isNormalAbsolute(std::string_view path) {
    if (path.size() < 2 || path.front() != '/' || path.back() == '/') {
        return false;
    }
    for (std::size_t start = 1; start <= path.size();) {
        std::size_t end = path.find('/', start);
        end = end == std::string_view::npos ? path.size() : end;
        auto const component = path.substr(start, end - start);
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        start = end + 1;
    }
    return true;
}

std::string displayPath(std::u16string const& path, std::filesystem::path const& workingFolder,
                        std::string const& normalWorkingFolder) {
    if (path.empty()) {
        return {};
    }
    std::string text = toUtf8(path);
    // The usual case, a normal absolute path and working folder, is decided on
    // the text: below the folder it is the rest of the path, else the path.
    if (!normalWorkingFolder.empty() && isNormalAbsolute(text)) {
        if (text.size() > normalWorkingFolder.size() && text.starts_with(normalWorkingFolder) &&
            text[normalWorkingFolder.size()] == '/') {
            return text.substr(normalWorkingFolder.size() + 1);
        }
        return text == normalWorkingFolder ? "." : text;
    }
    std::filesystem::path const file(std::move(text));
    if (!workingFolder.empty() && file.is_absolute()) {
        auto const relative = file.lexically_normal().lexically_relative(workingFolder);
        if (!relative.empty() && *relative.begin() != "..") {
            return relative.generic_string();
        }
    }
    return file.generic_string();
}

}  // namespace

Report makeReport(dependency::graph::Graph const& graph, dependency::attribute::GraphAttributes const& result,
                  ReportSettings const& settings) {
    Report report;
    report.nodeCount = graph.nodeCount();
    report.dependencyCount = graph.dependencyCount();
    report.minimum = settings.minimum;
    report.failOn = settings.failOn;
    auto const workingFolder =
        settings.workingFolder.empty() ? std::filesystem::path() : settings.workingFolder.lexically_normal();
    std::string const normalWorkingFolder =
        isNormalAbsolute(workingFolder.generic_string()) ? workingFolder.generic_string() : std::string();
    // The English name of a finding is made once per identity object (whose
    // ID text stands for it here) and kind, not once per finding.
    struct EnglishName {
        FindingKind const* kind = nullptr;
        std::string text;
        bool made = false;
    };
    std::unordered_map<std::u16string const*, EnglishName> englishNames;
    auto const englishName = [&](Finding const& finding) -> std::string const& {
        auto& name = englishNames[&finding.attribute->getID()];
        if (!name.made || name.kind != finding.kind) {
            name = {finding.kind, englishNameOf(finding.kind, finding.attribute->getName()), true};
        }
        return name.text;
    };
    for (auto const& node : graph.nodesInIdOrder()) {
        auto const attributes = result.getAttributes(node, settings.minimum);
        if (attributes.empty()) {
            continue;
        }
        NodeFindings entry{node, displayPath(node->getPath(), workingFolder, normalWorkingFolder), {}};
        std::filesystem::path const nodePath(toUtf8(node->getPath()));
        for (auto const& attribute : attributes) {
            if (settings.filter != nullptr && !settings.filter->keeps(toUtf8(attribute->getID()), nodePath)) {
                continue;
            }
            Finding finding{attribute, {}, nullptr, {}, false};
            if (settings.sources != nullptr) {
                finding.analyzer = settings.sources->analyzerOf(attribute);
                finding.kind = kindOf(finding.analyzer, *attribute);
            }
            finding.fingerprint = fingerprintValueOf(node->getID(), attribute->getID(), englishName(finding));
            if (settings.baseline != nullptr && settings.baseline->take(fingerprintText(finding.fingerprint))) {
                finding.suppressed = true;
                ++report.hiddenByBaseline;
            }
            entry.findings.push_back(std::move(finding));
        }
        if (!entry.findings.empty()) {
            report.nodes.push_back(std::move(entry));
        }
    }
    return report;
}

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
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
                out += fmt::format("\\u{:04x}", static_cast<unsigned>(static_cast<unsigned char>(c)));
            } else {
                out += c;
            }
        }
    }
    return out + "\"";
}

std::string escapeControls(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\\') {
            out += "\\\\";
        } else if (byte < 0x20 || byte == 0x7f) {
            out += fmt::format("\\x{:02x}", byte);
        } else {
            out += c;
        }
    }
    return out;
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

// Display width of UTF-8 text in terminal columns: East Asian wide characters take two.
std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < text.size();) {
        auto const byte = static_cast<unsigned char>(text[i]);
        std::size_t const length = byte < 0x80 ? 1 : byte < 0xe0 ? 2 : byte < 0xf0 ? 3 : 4;
        width += length >= 3 ? 2 : 1;
        i += length;
    }
    return width;
}

std::string padded(std::string const& text, std::size_t width) {
    auto const shown = displayWidth(text);
    return shown >= width ? text : text + std::string(width - shown, ' ');
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
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            idWidth = std::max(idWidth, displayWidth(shown(finding.attribute->getID())));
        }
    }
    std::unordered_map<std::u16string const*, std::string> paddedIds;
    std::array<std::string, 3> paddedSeverities;
    for (auto const severity : {Severity::Information, Severity::Warning, Severity::Problem}) {
        paddedSeverities.at(static_cast<std::size_t>(severity)) = padded(severityWord(severity), severityWidth);
    }
    auto const severityText = [&](Severity severity) {
        auto const index = static_cast<std::size_t>(severity);
        return index < paddedSeverities.size() ? paddedSeverities[index]
                                               : padded(severityWord(severity), severityWidth);
    };
    std::unordered_map<int, std::string> kindWords;
    for (auto const& entry : report.nodes) {
        if (std::none_of(entry.findings.begin(), entry.findings.end(), [](auto const& f) { return !f.suppressed; })) {
            continue;
        }
        auto const& node = *entry.node;
        auto [kind, newKind] = kindWords.try_emplace(static_cast<int>(node.getType().kind()));
        if (newKind) {
            kind->second = kindWord(node.getType());
        }
        out << '\n'
            << text("TextNodeHeading", {escapeControls(entry.where()), kind->second,
                                        escapeControls(displayNameOf(node)), escapeControls(toUtf8(node.getID()))})
            << '\n';
        for (auto const& finding : entry.findings) {
            if (finding.suppressed) {
                continue;
            }
            auto const& attribute = *finding.attribute;
            auto const severity = attribute.getSeverity();
            auto [id, newId] = paddedIds.try_emplace(&attribute.getID());
            if (newId) {
                id->second = padded(shown(attribute.getID()), idWidth);
            }
            out << "  " << (colour ? colourOf(severity) : "") << severityText(severity) << (colour ? "\x1b[0m" : "")
                << "  " << id->second << "  " << shown(attribute.getName());
            if (!finding.analyzer.empty()) {
                out << "  [" << finding.analyzer << "]";
            }
            out << '\n';
        }
    }
    out << '\n' << summaryLine(report) << '\n';
}

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
                out << " [" << finding.analyzer << "]";
            }
            out << '\n';
        }
    }
}

namespace {

// Workflow commands end at a line break and split at '::'; their data and
// properties are percent-escaped as the CI service expects.
std::string workflowData(std::string_view text) {
    std::string out;
    for (char const c : text) {
        if (c == '%') {
            out += "%25";
        } else if (c == '\r') {
            out += "%0D";
        } else if (c == '\n') {
            out += "%0A";
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
            out << "::" << workflowLevel(attribute.getSeverity()) << " ";
            if (!entry.path.empty()) {
                out << "file=" << workflowProperty(entry.path) << ",";
            }
            out << "title=" << workflowProperty(title) << "::"
                << workflowData(text("GithubMessage", {toUtf8(attribute.getName()), kindWord(entry.node->getType()),
                                                       displayNameOf(*entry.node), toUtf8(entry.node->getID())}))
                << '\n';
        }
    }
}

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
        out << "\n    ]}";
    }
    out << (firstNode ? "]\n}\n" : "\n  ]\n}\n");
}

void writeAnalyzerList(std::ostream& out, bool json) {
    if (json) {
        out << "{\n  \"schemaVersion\": 1,\n  \"analyzers\": [";
        bool firstAnalyzer = true;
        for (auto const& entry : builtInAnalyzers()) {
            out << (firstAnalyzer ? "\n" : ",\n") << "    {\"name\": " << jsonString(entry.name)
                << ", \"description\": " << jsonString(text(std::string(entry.descriptionKey).c_str()))
                << ", \"findings\": [";
            firstAnalyzer = false;
            bool firstKind = true;
            for (auto const& kind : entry.findings) {
                out << (firstKind ? "" : ", ") << "{\"id\": " << jsonString(kind.id)
                    << ", \"idIsPrefix\": " << (kind.idIsPrefix ? "true" : "false")
                    << ", \"name\": " << jsonString(kind.name)
                    << ", \"severity\": " << jsonString(toString(kind.severity))
                    << ", \"description\": " << jsonString(text((std::string(kind.name) + "Short").c_str())) << "}";
                firstKind = false;
            }
            out << "]}";
        }
        out << "\n  ]\n}\n";
        return;
    }
    for (auto const& entry : builtInAnalyzers()) {
        out << entry.name << "  " << text(std::string(entry.descriptionKey).c_str()) << '\n';
        for (auto const& kind : entry.findings) {
            std::string const id = std::string(kind.id) + (kind.idIsPrefix ? "<code>" : "");
            out << "    " << padded(id, 20) << padded(severityWord(kind.severity), 12)
                << text((std::string(kind.name) + "Short").c_str()) << '\n';
        }
    }
}

}  // namespace depattr::cli

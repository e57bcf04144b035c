// The SARIF 2.1.0 report: one run whose rules are the kinds of finding met and
// whose results are the findings, located by file where the node has one and
// always by the node's ID as a logical location.
#include "cli/Report.hpp"

#include <fmt/format.h>

#include <map>

namespace depattr::cli {

namespace {

using dependency::attribute::Severity;
using dependency::graph::Node;
using dependency::graph::Type;

constexpr std::string_view baseUriId = "SRCROOT";

std::string_view levelOf(Severity severity) {
    switch (severity) {
    case Severity::Problem:
        return "error";
    case Severity::Warning:
        return "warning";
    case Severity::Information:
        break;
    }
    return "note";
}

std::string_view logicalKindOf(Node const& node) {
    auto const type = node.getType();
    if (type == Type::FUNCTION()) {
        return "function";
    }
    if (type == Type::PACKAGE()) {
        return "package";
    }
    if (type == Type::PRODUCT() || type == Type::PROJECT()) {
        return "module";
    }
    return "resource";
}

// Percent-encodes everything but the unreserved characters and '/'.
std::string uriPath(std::string_view path) {
    std::string out;
    for (char const c : path) {
        auto const byte = static_cast<unsigned char>(c);
        bool const plain = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
                           c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
        out += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return out;
}

std::string folderUri(std::filesystem::path const& folder) {
    auto text = folder.generic_string();
    if (text.empty() || text.back() != '/') {
        text += '/';
    }
    return "file://" + uriPath(text);
}

// The artifact location of a node's file: relative to the base folder when
// the file lies under it, else an absolute file URI. Empty for a node without a path.
std::string artifactLocation(Node const& node, std::filesystem::path const& baseFolder) {
    if (node.getPath().empty()) {
        return {};
    }
    auto const file = std::filesystem::absolute(std::filesystem::path(toUtf8(node.getPath()))).lexically_normal();
    auto const relative = file.lexically_relative(baseFolder);
    if (!relative.empty() && *relative.begin() != "..") {
        return fmt::format("{{\"uri\": {}, \"uriBaseId\": {}}}", jsonString(uriPath(relative.generic_string())),
                           jsonString(baseUriId));
    }
    return fmt::format("{{\"uri\": {}}}", jsonString("file://" + uriPath(file.generic_string())));
}

// One rule per analyzer and ID: "Missing" alone would merge the findings of four analyzers.
std::string ruleIdOf(Finding const& finding) {
    auto const id = toUtf8(finding.attribute->getID());
    return finding.analyzer.empty() ? id : finding.analyzer + "/" + id;
}

struct Rule {
    std::size_t index;
    std::string description;
    Severity severity;
};

}  // namespace

void writeSarif(std::ostream& out, Report const& report, std::string_view toolVersion,
                std::filesystem::path const& baseFolder) {
    auto const base = std::filesystem::absolute(baseFolder).lexically_normal();
    std::map<std::string, Rule> rules;
    std::vector<std::string const*> ruleOrder;
    std::string results;
    for (auto const& entry : report.nodes) {
        auto const artifact = artifactLocation(*entry.node, base);
        auto const logical = fmt::format("{{\"fullyQualifiedName\": {}, \"kind\": {}}}",
                                         jsonString(toUtf8(entry.node->getID())),
                                         jsonString(logicalKindOf(*entry.node)));
        for (auto const& finding : entry.findings) {
            auto const& attribute = *finding.attribute;
            auto const name = toUtf8(attribute.getName());
            auto [rule, added] = rules.try_emplace(ruleIdOf(finding), Rule{rules.size(), name, attribute.getSeverity()});
            if (added) {
                ruleOrder.push_back(&rule->first);
            }
            results += results.empty() ? "\n" : ",\n";
            results += fmt::format(
                "        {{\"ruleId\": {}, \"ruleIndex\": {}, \"level\": {}, \"message\": {{\"text\": {}}}, "
                "\"locations\": [{{{}\"logicalLocations\": [{}]}}]}}",
                jsonString(rule->first), rule->second.index, jsonString(levelOf(attribute.getSeverity())),
                jsonString(name), artifact.empty() ? "" : "\"physicalLocation\": {\"artifactLocation\": " + artifact + "}, ",
                logical);
        }
    }

    out << "{\n  \"$schema\": \"https://json.schemastore.org/sarif-2.1.0.json\",\n  \"version\": \"2.1.0\",\n"
        << "  \"runs\": [\n    {\n      \"tool\": {\"driver\": {\"name\": \"depattr\", \"version\": "
        << jsonString(toolVersion) << ", \"rules\": [";
    for (std::size_t i = 0; i < ruleOrder.size(); ++i) {
        auto const& rule = rules.at(*ruleOrder[i]);
        out << (i == 0 ? "\n" : ",\n")
            << fmt::format("        {{\"id\": {}, \"shortDescription\": {{\"text\": {}}}, "
                           "\"defaultConfiguration\": {{\"level\": {}}}}}",
                           jsonString(*ruleOrder[i]), jsonString(rule.description),
                           jsonString(levelOf(rule.severity)));
    }
    out << (ruleOrder.empty() ? "]}},\n" : "\n      ]}},\n");
    out << "      \"originalUriBaseIds\": {" << jsonString(baseUriId) << ": {\"uri\": " << jsonString(folderUri(base))
        << "}},\n";
    out << "      \"results\": [" << results << (results.empty() ? "]\n" : "\n      ]\n") << "    }\n  ]\n}\n";
}

}  // namespace depattr::cli

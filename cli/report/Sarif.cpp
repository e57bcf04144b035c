// The SARIF 2.1.0 report: one run whose rules are the kinds of finding met and
// whose results are the findings, located by file where the node has one and
// always by the node's ID as a logical location.
#include "cli/Baseline.hpp"
#include "cli/report/Formats.hpp"

#include "cli/Texts.hpp"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <array>
#include <charconv>
#include <map>
#include <unordered_map>

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
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(path.size());
    for (char const c : path) {
        auto const byte = static_cast<unsigned char>(c);
        bool const plain = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                           (byte >= '0' && byte <= '9') || c == '-' || c == '.' || c == '_' || c == '~' || c == '/';
        if (plain) {
            out += c;
        } else {
            out += '%';
            out += hex[byte >> 4];
            out += hex[byte & 0xf];
        }
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

// The base folder of the report's file locations, absolute and normal;
// `text` is its text when a path's place below it can be decided on the text.
struct BaseFolder {
    std::filesystem::path path;
    std::string text;  // empty unless the path is a normal absolute one
};

// The artifact location of a node's file: relative to the base folder when
// the file lies under it, else an absolute file URI. Empty for a node without a path.
std::string artifactLocation(std::string const& path, BaseFolder const& base) {
    if (path.empty()) {
        return {};
    }
    std::string relative;
    std::string file;
    if (!base.text.empty() && isNormalAbsolute(path)) {
        // The usual case, a normal absolute path, is decided on the text.
        if (path == base.text) {
            relative = ".";
        } else if (path.size() > base.text.size() && path.starts_with(base.text) && path[base.text.size()] == '/') {
            relative = path.substr(base.text.size() + 1);
        } else {
            file = path;
        }
    } else {
        auto const normal = std::filesystem::absolute(path).lexically_normal();
        auto const below = normal.lexically_relative(base.path);
        if (!below.empty() && *below.begin() != "..") {
            relative = below.generic_string();
        } else {
            file = normal.generic_string();
        }
    }
    // A percent-encoded path holds nothing that JSON escapes: it is quoted as it stands.
    if (file.empty()) {
        return "{\"uri\": \"" + uriPath(relative) + "\", \"uriBaseId\": " + jsonString(baseUriId) + "}";
    }
    return "{\"uri\": \"file://" + uriPath(file) + "\"}";
}

// One rule per analyzer and kind of finding: "Missing" alone would merge the
// findings of four analyzers, and a missing product's ID carries the product.
std::string ruleIdOf(Finding const& finding) {
    std::string const id = finding.kind != nullptr ? std::string(finding.kind->id) : toUtf8(finding.attribute->getID());
    return finding.analyzer.empty() ? id : std::string(finding.analyzer) + "/" + id;
}

std::string message(std::string_view text) {
    return "{\"text\": " + jsonString(text) + "}";
}

// Where the documentation of the findings lies: the build gives the folder
// of findings.md (installed with the program, unless the packager points at
// where it is published).
#ifndef DEPATTR_DOCS_URL
#define DEPATTR_DOCS_URL "file:///usr/local/share/doc/depattr/"
#endif

// The rule's descriptions: generic texts of the kind from the program's
// catalog, never one finding's text, and its section of docs/findings.md; a
// host-language analyzer's rule takes its class's help text and points at its
// class file; an unknown kind only has its name.
std::string ruleObject(std::string const& id, Finding const& finding, Report const& report) {
    auto const level = jsonString(levelOf(finding.attribute->getSeverity()));
    if (finding.kind == nullptr) {
        auto const name = toUtf8(finding.attribute->getName());
        auto const findingId = toUtf8(finding.attribute->getID());
        auto const host = report.hostHelp.find(finding.analyzer);
        std::string full = name;
        std::string markdown = "**" + name + "**";
        std::string helpUri = std::string(DEPATTR_DOCS_URL) + "findings.md";
        if (host != report.hostHelp.end()) {
            if (!host->second.text.empty()) {
                full = host->second.text;
                markdown += "\n\n" + host->second.text;
            }
            helpUri = "file://" + uriPath(host->second.file.generic_string());
            markdown += "\n\n" + text("SarifHostRuleSource",
                                      {std::string(finding.analyzer), host->second.file.generic_string()});
        }
        return fmt::format(
            "{{\"id\": {}, \"name\": {}, \"shortDescription\": {}, \"fullDescription\": {}, \"help\": "
            "{{\"text\": {}, \"markdown\": {}}}, \"helpUri\": {}, \"defaultConfiguration\": {{\"level\": {}}}, "
            "\"properties\": {{\"analyzer\": {}, \"findingId\": {}}}}}",
            jsonString(id), jsonString(findingId), message(name), message(full), jsonString(full), jsonString(markdown),
            jsonString(helpUri), level, jsonString(finding.analyzer), jsonString(findingId));
    }
    auto const& kind = *finding.kind;
    std::string const stem(kind.name);
    auto const shortText = text((stem + "Short").c_str());
    auto const fullText = text((stem + "Full").c_str());
    auto const fixText = text((stem + "Fix").c_str());
    std::string const markdown = "**" + shortText + "**\n\n" + fullText + "\n\n**" + text("SarifHowToFix") + "** " +
                                 fixText + "\n\n" + text("SarifSeeDocs", {"docs/findings.md#" + stem});
    return fmt::format(
        "{{\"id\": {}, \"name\": {}, \"shortDescription\": {}, \"fullDescription\": {}, \"help\": {{\"text\": "
        "{}, \"markdown\": {}}}, \"helpUri\": {}, \"defaultConfiguration\": {{\"level\": {}}}, \"properties\": "
        "{{\"analyzer\": {}, \"findingId\": {}}}}}",
        jsonString(id), jsonString(kind.name), message(shortText), message(fullText),
        jsonString(fullText + " " + fixText), jsonString(markdown),
        jsonString(std::string(DEPATTR_DOCS_URL) + "findings.md#" + stem), level, jsonString(finding.analyzer),
        jsonString(kind.id));
}

}  // namespace

void writeSarif(std::ostream& out, Report const& report, std::string_view toolVersion,
                std::filesystem::path const& baseFolder) {
    BaseFolder base{std::filesystem::absolute(baseFolder).lexically_normal(), {}};
    if (auto text = base.path.generic_string(); isNormalAbsolute(text)) {
        base.text = std::move(text);
    }
    // The rules come first, as readers expect; the results are then written
    // as they are made, so that a large report is never held in memory twice.
    // A result's rule ID (as JSON) and index are made once per analyzer and
    // kind of finding; a kind, an identity's ID text and an analyzer's name
    // each stand for their text, as they live as long as the report.
    struct RuleKey {
        FindingKind const* kind;
        std::u16string const* id;  // the finding's ID, when it has no kind
        char const* analyzer;
        std::size_t analyzerSize;
        bool operator==(RuleKey const&) const = default;
    };
    struct RuleKeyHash {
        std::size_t operator()(RuleKey const& key) const noexcept {
            std::size_t hash = std::hash<void const*>()(key.kind);
            for (auto const part : {std::hash<void const*>()(key.id), std::hash<void const*>()(key.analyzer),
                                    std::hash<std::size_t>()(key.analyzerSize)}) {
                hash = hash * 31 + part;
            }
            return hash;
        }
    };
    struct RuleOfResult {
        std::string id;  // as a JSON string
        std::size_t index = 0;
    };
    std::map<std::string, std::size_t> ruleIndex;
    std::unordered_map<RuleKey, RuleOfResult, RuleKeyHash> ruleOfKey;
    std::vector<std::string> rules;
    auto const ruleOf = [&](Finding const& finding) -> RuleOfResult const& {
        RuleKey const key{finding.kind, finding.kind != nullptr ? nullptr : &finding.identity().getID(),
                          finding.analyzer.data(), finding.analyzer.size()};
        auto [known, added] = ruleOfKey.try_emplace(key);
        if (added) {
            auto const id = ruleIdOf(finding);
            auto const [rule, newRule] = ruleIndex.try_emplace(id, rules.size());
            if (newRule) {
                rules.push_back(ruleObject(id, finding, report));
            }
            known->second = {jsonString(id), rule->second};
        }
        return known->second;
    };
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            ruleOf(finding);
        }
    }
    out << "{\n  \"$schema\": \"https://json.schemastore.org/sarif-2.1.0.json\",\n  \"version\": \"2.1.0\",\n"
        << "  \"runs\": [\n    {\n      \"tool\": {\"driver\": {\"name\": \"depattr\", \"version\": "
        << jsonString(toolVersion) << ", \"rules\": [";
    for (std::size_t i = 0; i < rules.size(); ++i) {
        out << (i == 0 ? "\n" : ",\n") << "        " << rules[i];
    }
    out << (rules.empty() ? "]}},\n" : "\n      ]}},\n");
    // The run's exit status: 1 when a reported finding reaches the fail
    // threshold, unless --exit-zero made it 0.
    out << "      \"invocations\": [{\"executionSuccessful\": true, \"exitCode\": "
        << (report.fails() && !report.exitZero ? 1 : 0) << "}],\n";
    out << "      \"originalUriBaseIds\": {" << jsonString(baseUriId)
        << ": {\"uri\": " << jsonString(folderUri(base.path)) << "}},\n";
    out << "      \"results\": [";
    // A finding's message, by the text its identity keeps.
    std::unordered_map<std::u16string const*, std::string> messages;
    auto const messageOf = [&](std::u16string const& name) -> std::string const& {
        auto [known, added] = messages.try_emplace(&name);
        if (added) {
            known->second = message(toUtf8(name));
        }
        return known->second;
    };
    bool firstResult = true;
    // The results are gathered in one buffer and handed to the stream in large pieces.
    std::string results;
    constexpr std::size_t flushSize = 1 << 20;
    for (auto const& entry : report.nodes) {
        // The first place (the definition or error, else the first call) is the
        // finding's location, with its region; the others are related ones.
        std::string physical;
        std::string related;
        if (entry.places.empty()) {
            if (auto const artifact = artifactLocation(toUtf8(entry.node->getPath()), base); !artifact.empty()) {
                physical = "\"physicalLocation\": {\"artifactLocation\": " + artifact + "}, ";
            }
        }
        for (std::size_t i = 0; i < entry.places.size(); ++i) {
            auto const& place = entry.places[i];
            auto const location = fmt::format(
                "\"physicalLocation\": {{\"artifactLocation\": {}, \"region\": "
                "{{\"startLine\": {}, \"startColumn\": {}}}}}",
                artifactLocation(place.file, base), place.line, std::max<std::size_t>(place.column, 1));
            if (i == 0) {
                physical = location + ", ";
            } else {
                related += fmt::format("{}{{\"id\": {}, {}, \"message\": {}}}", related.empty() ? "" : ", ", i,
                                       location, message(placeLine(place)));
            }
        }
        if (!related.empty()) {
            related = "\"relatedLocations\": [" + related + "], ";
        }
        auto const logical =
            fmt::format(FMT_COMPILE("{{\"name\": {}, \"fullyQualifiedName\": {}, \"kind\": {}}}"),
                        jsonString(displayNameOf(*entry.node)), jsonString(toUtf8(entry.node->getID())),
                        jsonString(logicalKindOf(*entry.node)));
        auto const nodeKind = jsonString(entry.node->getType().name());
        for (auto const& finding : entry.findings) {
            auto const& identity = finding.identity();
            auto const& rule = ruleOf(finding);
            results += firstResult ? "\n" : ",\n";
            firstResult = false;
            // Appended piece by piece: a formatted write would zero and copy the
            // buffer's growth once more for every finding.
            std::array<char, 24> index{};
            auto const indexEnd = std::to_chars(index.data(), index.data() + index.size(), rule.index).ptr;
            results += "        {\"ruleId\": ";
            results += rule.id;
            results += ", \"ruleIndex\": ";
            results.append(index.data(), indexEnd);
            results += ", \"level\": \"";
            results += levelOf(identity.getSeverity());
            results += "\", \"message\": ";
            results += messageOf(identity.getName());
            results += ", \"locations\": [{";
            results += physical;
            results += "\"logicalLocations\": [";
            results += logical;
            results += "]}], ";
            results += related;
            results += "\"partialFingerprints\": {\"depattr/v1\": \"";
            results += fingerprintText(finding.fingerprint);
            results += "\"}, \"properties\": {\"nodeKind\": ";
            results += nodeKind;
            results += "}";
            if (finding.suppressed) {
                results +=
                    ", \"suppressions\": [{\"kind\": \"external\", \"status\": \"accepted\", "
                    "\"justification\": " +
                    jsonString(text("SarifBaselineJustification")) + "}]";
            }
            results += "}";
        }
        if (results.size() >= flushSize) {
            out << results;
            results.clear();
        }
    }
    out << results;
    out << (firstResult ? "]\n" : "\n      ]\n") << "    }\n  ]\n}\n";
}

void writeSarifReport(std::ostream& out, ReportContext const& context) {
    writeSarif(out, context.report, context.toolVersion, context.workingFolder);
}

}  // namespace depattr::cli

#include "cli/Report.hpp"

#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "cli/Texts.hpp"
#include "platform/foundation/Utf.hpp"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <map>
#include <optional>
#include <unordered_map>

namespace depattr::cli {

using dependency::attribute::Severity;
using dependency::graph::Node;

std::string toUtf8(std::u16string const& text) {
    std::string out;
    toUtf8(text, out);
    return out;
}

void toUtf8(std::u16string const& text, std::string& out) {
    // Nearly every ID, name and path is ASCII: such a text is narrowed into
    // `out`'s memory as it stands, and only the others go through the
    // platform's converter, which writes a lone surrogate as U+FFFD and keeps
    // what follows it.
    out.resize(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] >= 0x80) {
            out = foundation::utf::to_string(text);
            return;
        }
        out[i] = static_cast<char>(text[i]);
    }
}

std::string displayNameOf(Node const& node) {
    auto const name = node.getName();
    return toUtf8(name.empty() ? node.getID() : name);
}

std::string NodeFindings::where() const {
    return path.empty() ? toUtf8(node->getID()) : std::string(path);
}

std::string_view Report::keep(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    auto* const kept = static_cast<char*>(texts_->allocate(text.size(), 1));
    std::copy(text.begin(), text.end(), kept);
    return {kept, text.size()};
}

std::size_t Report::count(Severity severity) const {
    return tally().of(severity);
}

std::size_t Report::reportedNodes() const {
    return tally().nodes;
}

bool Report::Tally::add(Finding const& finding) {
    if (finding.suppressed) {
        return false;
    }
    if (auto const index = static_cast<std::size_t>(finding.identity().getSeverity()); index < findings.size()) {
        ++findings[index];
    }
    return true;
}

bool Report::Tally::add(NodeFindings const& entry) {
    bool reported = false;
    for (auto const& finding : entry.findings) {
        reported = add(finding) || reported;
    }
    nodes += reported ? 1 : 0;
    return reported;
}

Report::Tally Report::tally() const {
    Tally tally;
    for (auto const& entry : nodes) {
        tally.add(entry);
    }
    return tally;
}

bool Report::fails() const {
    for (auto const& entry : nodes) {
        for (auto const& finding : entry.findings) {
            if (!finding.suppressed && finding.identity().getSeverity() >= failOn) {
                return true;
            }
        }
    }
    return false;
}

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

namespace {

// The path as reports show it: relative to the working folder when it lies
// below it, else as it stands. The text is made in `scratch`, whose memory
// serves node after node, and the view returned lasts until its next use.
std::string_view displayPath(std::u16string const& path, std::filesystem::path const& workingFolder,
                             std::string const& normalWorkingFolder, std::string& scratch) {
    if (path.empty()) {
        return {};
    }
    toUtf8(path, scratch);
    std::string_view const text = scratch;
    // The usual case, a normal absolute path and working folder, is decided on
    // the text: below the folder it is the rest of the path, else the path.
    if (!normalWorkingFolder.empty() && isNormalAbsolute(text)) {
        if (text.size() > normalWorkingFolder.size() && text.starts_with(normalWorkingFolder) &&
            text[normalWorkingFolder.size()] == '/') {
            return text.substr(normalWorkingFolder.size() + 1);
        }
        return text == normalWorkingFolder ? std::string_view(".") : text;
    }
    std::filesystem::path const file(scratch);
    if (!workingFolder.empty() && file.is_absolute()) {
        auto const relative = file.lexically_normal().lexically_relative(workingFolder);
        if (!relative.empty() && *relative.begin() != "..") {
            scratch = relative.generic_string();
            return scratch;
        }
    }
    scratch = file.generic_string();
    return scratch;
}

// "line:column" of a property; nothing when it is not that.
std::optional<std::pair<std::size_t, std::size_t>> lineAndColumn(std::string_view text) {
    auto const colon = text.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    std::size_t line = 0;
    std::size_t column = 0;
    auto const number = [](std::string_view digits, std::size_t& value) {
        auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return error == std::errc() && end == digits.data() + digits.size() && !digits.empty();
    };
    if (!number(text.substr(0, colon), line) || !number(text.substr(colon + 1), column) || line == 0) {
        return std::nullopt;
    }
    return std::pair{line, column};
}

// The places a node's properties record. Malformed entries are left out:
// the properties come from outside when the graph is a file.
std::vector<CodePlace> placesOf(dependency::graph::Node const& node, std::string_view shownPath,
                                std::filesystem::path const& placesFolder,
                                std::function<std::string(std::u16string const&)> const& shown) {
    std::vector<CodePlace> places;
    auto const& properties = node.getProperties();
    if (properties.empty()) {
        return places;
    }
    auto const property = [&](std::u16string_view key) -> std::optional<std::string> {
        auto const found = properties.find(key);
        return found == properties.end() ? std::nullopt : std::optional<std::string>(toUtf8(found->second));
    };
    if (auto const at = property(u"definedAt")) {
        if (auto const where = lineAndColumn(*at)) {
            places.push_back({CodePlace::Role::Definition, std::string(shownPath), where->first, where->second, {}});
        }
    }
    if (auto const at = property(u"syntaxErrorAt")) {
        if (auto const where = lineAndColumn(*at)) {
            places.push_back({CodePlace::Role::SyntaxError, std::string(shownPath), where->first, where->second,
                              property(u"syntaxErrorMessage").value_or("")});
        }
    }
    for (auto const& [key, role] :
         {std::pair{u"callSites", CodePlace::Role::Call}, std::pair{u"referencedAt", CodePlace::Role::Reference}}) {
        auto const list = property(key);
        if (!list) {
            continue;
        }
        try {
            simdjson::dom::parser parser;
            simdjson::dom::array sites;
            if (parser.parse(*list).get_array().get(sites) != simdjson::SUCCESS) {
                continue;
            }
            for (auto const site : sites) {
                std::string_view text;
                if (site.get_string().get(text) != simdjson::SUCCESS) {
                    continue;
                }
                // "file:line:column": the file may hold colons itself.
                auto const last = text.rfind(':');
                auto const middle = last == std::string_view::npos ? last : text.rfind(':', last - 1);
                if (middle == std::string_view::npos || middle == 0) {
                    continue;
                }
                auto const where = lineAndColumn(text.substr(middle + 1));
                if (!where) {
                    continue;
                }
                std::filesystem::path file(std::string(text.substr(0, middle)));
                if (file.is_relative() && !placesFolder.empty()) {
                    file = placesFolder / file;
                }
                places.push_back({role,
                                  shown(foundation::utf::to_ustring(file.lexically_normal().generic_string())),
                                  where->first,
                                  where->second,
                                  {}});
            }
        } catch (std::exception const&) {
            // A list that is not JSON names no place.
        }
    }
    return places;
}

// The graph's own suppressions: the node property "depattr-ignore", a JSON
// array of finding selectors (["Missing", "missing-file/Exists"]) or one
// selector, or several separated by commas.
std::vector<std::string> inlineIgnores(dependency::graph::Node const& node) {
    auto const value = node.getProperty(u"depattr-ignore");
    if (!value) {
        return {};
    }
    auto const text = toUtf8(*value);
    std::vector<std::string> selectors;
    simdjson::dom::parser parser;
    simdjson::dom::array list;
    if (parser.parse(text).get_array().get(list) == simdjson::SUCCESS) {
        for (auto const element : list) {
            std::string_view selector;
            if (element.get_string().get(selector) == simdjson::SUCCESS && !selector.empty()) {
                selectors.emplace_back(selector);
            }
        }
        return selectors;
    }
    std::string_view rest = text;
    while (!rest.empty()) {
        auto const comma = rest.find(',');
        auto item = rest.substr(0, comma);
        while (!item.empty() && item.front() == ' ') {
            item.remove_prefix(1);
        }
        while (!item.empty() && item.back() == ' ') {
            item.remove_suffix(1);
        }
        if (!item.empty()) {
            selectors.emplace_back(item);
        }
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    }
    return selectors;
}

}  // namespace

std::string placeText(CodePlace const& place) {
    if (place.line == 0) {
        return place.file;
    }
    return place.file + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

std::string_view placeRoleName(CodePlace::Role role) {
    switch (role) {
    case CodePlace::Role::Definition:
        return "definition";
    case CodePlace::Role::Call:
        return "call";
    case CodePlace::Role::Reference:
        return "reference";
    case CodePlace::Role::SyntaxError:
        break;
    }
    return "syntaxError";
}

std::string placeLine(CodePlace const& place) {
    switch (place.role) {
    case CodePlace::Role::Definition:
        return text("PlaceDefinition", {placeText(place)});
    case CodePlace::Role::Call:
        return text("PlaceCall", {placeText(place)});
    case CodePlace::Role::Reference:
        return text("PlaceReference", {placeText(place)});
    case CodePlace::Role::SyntaxError:
        break;
    }
    return text("PlaceSyntaxError", {placeText(place), place.detail});
}

std::vector<std::uint64_t> distinguishFingerprints(std::vector<Finding>& findings) {
    std::vector<std::uint64_t> shared;
    shared.reserve(findings.size());
    for (auto const& finding : findings) {
        shared.push_back(finding.fingerprint);
    }
    // Nearly every node has one finding per fingerprint: nothing to do.
    auto sorted = shared;
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end()) {
        return shared;
    }
    auto const detailsOf = [](Finding const& finding) {
        return std::string(dependency::attribute::toString(finding.attribute->getSeverity())) +
               (finding.attribute->hasFix() ? "+fix" : "");
    };
    // The shared fingerprint stays with the first finding of the gravest
    // severity among those that share it: a higher --min-severity drops the
    // others first, so the one that keeps it does not change.
    std::unordered_map<std::uint64_t, std::size_t> keepers;
    for (std::size_t i = 0; i < findings.size(); ++i) {
        auto const [keeper, first] = keepers.try_emplace(shared[i], i);
        if (!first && findings[i].attribute->getSeverity() > findings[keeper->second].attribute->getSeverity()) {
            keeper->second = i;
        }
    }
    // The others: the shared fingerprint with their details (severity,
    // whether a fix is offered) and their number among those of equal
    // details, the keeper counted first wherever it stands.
    std::map<std::pair<std::uint64_t, std::string>, std::size_t> counts;
    for (auto const& [fingerprint, keeper] : keepers) {
        counts[{fingerprint, detailsOf(findings[keeper])}] = 1;
    }
    for (std::size_t i = 0; i < findings.size(); ++i) {
        if (keepers.at(shared[i]) == i) {
            continue;
        }
        auto details = detailsOf(findings[i]);
        auto const ordinal = counts[{shared[i], details}]++;
        findings[i].fingerprint = fingerprintValueOf(shared[i], details, ordinal);
    }
    return shared;
}

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
    // The nodes in ID order: through the graph's own order of its stored
    // nodes where it has one (a million node pointers are not copied), else
    // a sorted copy of what it yields.
    std::vector<std::uint32_t> const* const idOrder = graph.yieldsStoredNodes() ? &graph.positionsInIdOrder() : nullptr;
    std::vector<std::shared_ptr<dependency::graph::Node>> const sorted =
        idOrder != nullptr ? std::vector<std::shared_ptr<dependency::graph::Node>>() : graph.nodesInIdOrder();
    std::size_t const nodeCount = idOrder != nullptr ? idOrder->size() : sorted.size();
    auto const nodeAt = [&](std::size_t n) -> std::shared_ptr<dependency::graph::Node> const& {
        return idOrder != nullptr ? graph.nodeAt((*idOrder)[n]) : sorted[n];
    };
    // A filter without rules keeps every finding: it is not asked.
    FindingFilter const* const filter =
        settings.filter != nullptr && !settings.filter->keepsEverything() ? settings.filter : nullptr;
    std::string scratch;  // each path's text, while it is shown
    // The nodes lie in the order they were added and are visited in ID
    // order: each is asked for some nodes ahead.
    constexpr std::size_t ahead = 8;
    for (std::size_t n = 0; n < nodeCount; ++n) {
        if (n + ahead < nodeCount) {
            prefetchNode(nodeAt(n + ahead).get());
        }
        auto const& node = nodeAt(n);
        auto const attributes = result.getAttributes(node, settings.minimum);
        if (attributes.empty()) {
            continue;
        }
        NodeFindings entry{node, {}, {}, {}};
        // The path and the IDs as text only for the rules that read them.
        std::filesystem::path const nodePath(filter != nullptr ? toUtf8(node->getPath()) : std::string());
        auto const ignoredHere = inlineIgnores(*node);
        bool const selecting = filter != nullptr || !ignoredHere.empty();
        for (auto const& attribute : attributes) {
            Finding finding{attribute, {}, nullptr, {}, false, attribute->getIdentity().get()};
            if (settings.sources != nullptr) {
                finding.analyzer = settings.sources->analyzerOf(attribute);
            }
            if (selecting) {
                auto const id = toUtf8(attribute->getID());
                if (filter != nullptr && !filter->keeps(id, finding.analyzer, nodePath)) {
                    continue;
                }
                if (std::any_of(ignoredHere.begin(), ignoredHere.end(), [&](auto const& selector) {
                        return selectorMatches(selector, id, finding.analyzer);
                    })) {
                    continue;
                }
            }
            if (settings.sources != nullptr) {
                finding.kind = kindOf(finding.analyzer, *attribute);
            }
            finding.fingerprint = fingerprintValueOf(node->getID(), attribute->getID(), englishName(finding));
            entry.findings.push_back(std::move(finding));
        }
        // Findings of one node with the same ID and name share that
        // fingerprint: each but one gets one of its own from its details.
        std::vector<std::uint64_t> const shared = distinguishFingerprints(entry.findings);
        for (std::size_t i = 0; i < entry.findings.size(); ++i) {
            auto& finding = entry.findings[i];
            // A baseline written before fingerprints were told apart holds
            // the shared one for each of them.
            if (settings.baseline != nullptr &&
                (settings.baseline->take(fingerprintText(finding.fingerprint)) ||
                 (shared[i] != finding.fingerprint && settings.baseline->take(fingerprintText(shared[i]))))) {
                finding.suppressed = true;
                ++report.hiddenByBaseline;
            }
        }
        if (!entry.findings.empty()) {
            entry.path = report.keep(displayPath(node->getPath(), workingFolder, normalWorkingFolder, scratch));
            entry.places = placesOf(*node, entry.path, settings.placesFolder, [&](std::u16string const& path) {
                return std::string(displayPath(path, workingFolder, normalWorkingFolder, scratch));
            });
            report.nodes.push_back(std::move(entry));
        }
    }
    return report;
}

std::string classHelpText(std::string_view code) {
    std::vector<std::string_view> lines;
    while (!code.empty()) {
        auto const end = code.find('\n');
        auto line = code.substr(0, end);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        lines.push_back(line);
        code = end == std::string_view::npos ? std::string_view() : code.substr(end + 1);
    }
    auto const trimmed = [](std::string_view line) {
        auto const start = line.find_first_not_of(" \t");
        return start == std::string_view::npos ? std::string_view() : line.substr(start);
    };
    // A line comment; a block comment's "%{" opens no help.
    auto const isComment = [&](std::string_view line) {
        auto const text = trimmed(line);
        return text.starts_with('%') && !text.starts_with("%{") && !text.starts_with("%}");
    };
    auto const classLine = std::find_if(lines.begin(), lines.end(), [&](auto line) {
        auto const text = trimmed(line);
        return text.starts_with("classdef") &&
               (text.size() == 8 || text[8] == ' ' || text[8] == '\t' || text[8] == '(');
    });
    if (classLine == lines.end()) {
        return {};
    }
    auto first = std::next(classLine);
    auto last = first;
    while (last != lines.end() && isComment(*last)) {
        ++last;
    }
    if (first == last) {
        last = classLine;
        first = last;
        while (first != lines.begin() && isComment(*std::prev(first))) {
            --first;
        }
    }
    std::string help;
    for (auto line = first; line != last; ++line) {
        auto text = trimmed(*line).substr(1);
        if (text.starts_with(' ')) {
            text.remove_prefix(1);
        }
        while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
            text.remove_suffix(1);
        }
        if (!help.empty()) {
            help += '\n';
        }
        help += text;
    }
    return help;
}

std::string jsonString(std::string_view text) {
    auto const plain = [](char c) {
        auto const byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte != 0x7f && c != '"' && c != '\\';
    };
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    foundation::printable::appendEscaped(out, text, plain, [](std::string& escaped, char c) {
        switch (c) {
        case '"':
            escaped += "\\\"";
            break;
        case '\\':
            escaped += "\\\\";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        case '\t':
            escaped += "\\t";
            break;
        default:
            escaped += fmt::format("\\u{:04x}", static_cast<unsigned>(static_cast<unsigned char>(c)));
        }
    });
    out += '"';
    return out;
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

void writeAnalyzerList(std::ostream& out, bool json) {
    if (json) {
        out << "{\n  \"schemaVersion\": 1,\n  \"analyzers\": [";
        bool firstAnalyzer = true;
        for (auto const* entry : builtInAnalyzers()) {
            out << (firstAnalyzer ? "\n" : ",\n") << "    {\"name\": " << jsonString(entry->name)
                << ", \"description\": " << jsonString(text(std::string(entry->descriptionKey).c_str()))
                << ", \"findings\": [";
            firstAnalyzer = false;
            bool firstKind = true;
            for (auto const& kind : entry->findings) {
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
    // The columns are as wide as their widest entry, so that no ID runs
    // into its severity whatever the IDs and the locale's words.
    auto const shownId = [](auto const& kind) { return std::string(kind.id) + (kind.idIsPrefix ? "<code>" : ""); };
    std::size_t idWidth = 0;
    std::size_t severityWidth = 0;
    for (auto const* entry : builtInAnalyzers()) {
        for (auto const& kind : entry->findings) {
            idWidth = std::max(idWidth, displayWidth(shownId(kind)));
            severityWidth = std::max(severityWidth, displayWidth(severityWord(kind.severity)));
        }
    }
    for (auto const* entry : builtInAnalyzers()) {
        out << entry->name << "  " << text(std::string(entry->descriptionKey).c_str()) << '\n';
        for (auto const& kind : entry->findings) {
            out << "    " << padded(shownId(kind), idWidth + 2)
                << padded(severityWord(kind.severity), severityWidth + 2)
                << text((std::string(kind.name) + "Short").c_str()) << '\n';
        }
    }
}

}  // namespace depattr::cli

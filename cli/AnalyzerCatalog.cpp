#include "cli/AnalyzerCatalog.hpp"

#include "platform/fl/MessageCatalog.hpp"

#include <algorithm>
#include <stdexcept>

namespace depattr::cli {

namespace da = dependency::attribute;

namespace {

std::string knownAnalyzerNames() {
    std::string known;
    for (auto const* entry : builtInAnalyzers()) {
        known += (known.empty() ? "" : ", ") + std::string(entry->name);
    }
    return known;
}

}  // namespace

AnalyzerEntry const* findAnalyzer(std::string_view name) {
    return da::findBuiltInAnalyzer(name);
}

std::vector<NamedAnalyzer> createAnalyzers(std::vector<std::string> const& names) {
    std::vector<NamedAnalyzer> analyzers;
    if (names.empty()) {
        for (auto const* entry : builtInAnalyzers()) {
            analyzers.push_back({entry->name, entry->create()});
        }
        return analyzers;
    }
    for (auto const& name : names) {
        auto const* entry = findAnalyzer(name);
        if (entry == nullptr) {
            throw std::invalid_argument("unknown analyzer \"" + name + "\" (known: " + knownAnalyzerNames() + ")");
        }
        analyzers.push_back({entry->name, entry->create()});
    }
    return analyzers;
}

std::vector<NamedAnalyzer> createAnalyzers(std::string_view names) {
    std::vector<std::string> list;
    if (!names.empty() && names != "all") {
        while (true) {
            auto const comma = names.find(',');
            list.emplace_back(names.substr(0, comma));
            if (comma == std::string_view::npos) {
                break;
            }
            names = names.substr(comma + 1);
        }
    }
    return createAnalyzers(list);
}

FindingKind const* kindOf(std::string_view analyzer, da::Attribute const& finding) {
    auto const* entry = findAnalyzer(analyzer);
    if (entry == nullptr) {
        return nullptr;
    }
    for (auto const& kind : entry->findings) {
        if (kind.matches(std::u16string_view(finding.getID()))) {
            return &kind;
        }
    }
    return nullptr;
}

bool isKnownFindingId(std::string_view id) {
    for (auto const* entry : builtInAnalyzers()) {
        for (auto const& kind : entry->findings) {
            if (kind.matches(id)) {
                return true;
            }
        }
    }
    return false;
}

FindingSelector splitSelector(std::string_view selector) {
    // Analyzer names hold no '/', and a finding ID is a name of the host
    // language: the first '/' parts the two.
    FindingSelector parts{{}, selector};
    if (auto const slash = selector.find('/'); slash != std::string_view::npos) {
        parts = {selector.substr(0, slash), selector.substr(slash + 1)};
    }
    if (parts.id.ends_with('*')) {
        parts.id.remove_suffix(1);
        parts.isPrefix = true;
    }
    return parts;
}

bool selectorIdMatches(FindingSelector const& selector, std::string_view id) {
    return selector.isPrefix ? id.starts_with(selector.id) : id == selector.id;
}

namespace {

// Whether a kind of finding has an ID that the selector's ID part selects.
bool selectsKind(FindingSelector const& selector, FindingKind const& kind) {
    if (!selector.isPrefix) {
        return kind.matches(selector.id);
    }
    // "MissingProductO*" may select "MissingProductOK": a kind whose IDs go on
    // with more text has an ID with any start that begins with its own.
    return kind.id.starts_with(selector.id) || (kind.idIsPrefix && selector.id.starts_with(kind.id));
}

}  // namespace

bool isKnownFindingSelector(std::string_view selector) {
    auto const parts = splitSelector(selector);
    // An ID with a '*' inside it, or a second '/', names nothing.
    if (parts.id.find('*') != std::string_view::npos || parts.id.find('/') != std::string_view::npos ||
        (parts.id.empty() && !parts.isPrefix)) {
        return false;
    }
    if (parts.analyzer.empty()) {
        if (selector.find('/') != std::string_view::npos) {
            return false;  // "/Missing"
        }
        auto const all = builtInAnalyzers();
        return std::any_of(all.begin(), all.end(), [&](auto const* entry) {
            return std::any_of(entry->findings.begin(), entry->findings.end(),
                               [&](auto const& kind) { return selectsKind(parts, kind); });
        });
    }
    auto const* entry = findAnalyzer(parts.analyzer);
    return entry != nullptr && std::any_of(entry->findings.begin(), entry->findings.end(),
                                           [&](auto const& kind) { return selectsKind(parts, kind); });
}

std::string knownFindingIds() {
    std::vector<std::string_view> ids;
    for (auto const* entry : builtInAnalyzers()) {
        for (auto const& kind : entry->findings) {
            if (std::find(ids.begin(), ids.end(), kind.id) == ids.end()) {
                ids.push_back(kind.id);
            }
        }
    }
    std::string text;
    for (auto const id : ids) {
        text += (text.empty() ? "" : ", ") + std::string(id);
    }
    return text;
}

}  // namespace depattr::cli

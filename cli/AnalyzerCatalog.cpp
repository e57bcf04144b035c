#include "cli/AnalyzerCatalog.hpp"

#include "attribute/analyzers/Analyzers.hpp"
#include "platform/fl/MessageCatalog.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace depattr::cli {

namespace da = dependency::attribute;
using da::Severity;

namespace {

constexpr std::array<FindingKind, 2> missingFileKinds{{
    {"Exists", false, "FileExists", "FileExistsAttribute", Severity::Information},
    {"Missing", false, "MissingFile", "MissingFileProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 1> derivedFileKinds{{
    {"OutOfDate", false, "DerivedFileOutOfDate", "DerivedFileProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 1> missingFunctionKinds{{
    {"Missing", false, "MissingFunction", "MissingFunctionProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 1> missingProductKinds{{
    {"MissingProduct", true, "MissingProduct", "MissingProductProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 1> missingPackageDependencyKinds{{
    {"Missing", false, "MissingPackageDependency", "MissingPackageDependencyProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 4> invalidFormatKinds{{
    {"FutureRelease", false, "FutureRelease", "FutureReleaseProblem", Severity::Warning},
    {"InvalidFormat", false, "InvalidFormat", "InvalidFormatProblem", Severity::Warning},
    {"SyntaxError", false, "SyntaxError", "SyntaxErrorProblem", Severity::Warning},
    {"ModelInPackage", false, "ModelInPackage", "ModelInPackageProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 1> missingProjectReferenceKinds{{
    {"Missing", false, "MissingProjectReference", "MissingProjectReferenceProblem", Severity::Warning},
}};
constexpr std::array<FindingKind, 1> circularProjectReferenceKinds{{
    {"CircularDependency", false, "CircularProjectReference", "CircularDependency", Severity::Warning},
}};

bool matches(FindingKind const& kind, std::u16string const& id) {
    if (kind.idIsPrefix) {
        return id.size() >= kind.id.size() && std::equal(kind.id.begin(), kind.id.end(), id.begin());
    }
    return id.size() == kind.id.size() && std::equal(kind.id.begin(), kind.id.end(), id.begin());
}

}  // namespace

std::vector<AnalyzerEntry> const& builtInAnalyzers() {
    static std::vector<AnalyzerEntry> const entries = {
        {"missing-file", "AnalyzerMissingFile", &da::createMissingFileAnalyzer, missingFileKinds},
        {"derived-file", "AnalyzerDerivedFile", &da::createDerivedFileAnalyzer, derivedFileKinds},
        {"missing-function", "AnalyzerMissingFunction", &da::createMissingFunctionAnalyzer, missingFunctionKinds},
        {"missing-product", "AnalyzerMissingProduct", &da::createMissingProductAnalyzer, missingProductKinds},
        {"missing-package-dependency", "AnalyzerMissingPackageDependency", &da::createMissingPackageDependencyAnalyzer,
         missingPackageDependencyKinds},
        {"invalid-format", "AnalyzerInvalidFormat", &da::createInvalidFormatAnalyzer, invalidFormatKinds},
        {"missing-project-reference", "AnalyzerMissingProjectReference", &da::createMissingProjectReferenceAnalyzer,
         missingProjectReferenceKinds},
        {"circular-project-reference", "AnalyzerCircularProjectReference", &da::createCircularProjectReferenceAnalyzer,
         circularProjectReferenceKinds},
    };
    return entries;
}

AnalyzerEntry const* findAnalyzer(std::string_view name) {
    auto const& entries = builtInAnalyzers();
    auto const it = std::find_if(entries.begin(), entries.end(), [&](auto const& e) { return e.name == name; });
    return it == entries.end() ? nullptr : &*it;
}

std::vector<NamedAnalyzer> createAnalyzers(std::vector<std::string> const& names) {
    std::vector<NamedAnalyzer> analyzers;
    if (names.empty()) {
        for (auto const& entry : builtInAnalyzers()) {
            analyzers.push_back({entry.name, entry.create()});
        }
        return analyzers;
    }
    for (auto const& name : names) {
        auto const* entry = findAnalyzer(name);
        if (entry == nullptr) {
            std::string known;
            for (auto const& e : builtInAnalyzers()) {
                known += (known.empty() ? "" : ", ") + std::string(e.name);
            }
            throw std::invalid_argument("unknown analyzer \"" + name + "\" (known: " + known + ")");
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
        if (matches(kind, finding.getID())) {
            return &kind;
        }
    }
    return nullptr;
}

bool isKnownFindingId(std::string_view id) {
    for (auto const& entry : builtInAnalyzers()) {
        for (auto const& kind : entry.findings) {
            if (kind.idIsPrefix ? id.starts_with(kind.id) : id == kind.id) {
                return true;
            }
        }
    }
    return false;
}

std::string knownFindingIds() {
    std::vector<std::string_view> ids;
    for (auto const& entry : builtInAnalyzers()) {
        for (auto const& kind : entry.findings) {
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

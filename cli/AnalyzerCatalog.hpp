#pragma once
// The built-in analyzers by their command-line names, and the kinds of
// finding each of them reports.

#include "attribute/Attribute.hpp"
#include "attribute/AttributeAnalyzer.hpp"
#include "attribute/analyzers/Registry.hpp"

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

// One kind of finding, as its analyzer describes it. Its texts live in the
// program's catalog under the keys `name` + "Short", "Full" and "Fix"; its
// section in docs/findings.md is headed by `name`.
using FindingKind = dependency::attribute::FindingDescription;
using AnalyzerEntry = dependency::attribute::AnalyzerDescription;

// An analyzer made from the catalogue, with the name it was chosen by.
struct NamedAnalyzer {
    std::string_view name;  // lives as long as the catalogue entry or host analyzer it names
    std::shared_ptr<dependency::attribute::AttributeAnalyzer> analyzer;
};

// Every built-in analyzer, in the order they run by default (the registry's list).
using dependency::attribute::builtInAnalyzers;

// The entry of an analyzer name, or null.
AnalyzerEntry const* findAnalyzer(std::string_view name);

// New analyzers for the names given, in that order (empty: every one). Throws
// std::invalid_argument naming an unknown name and the known ones.
std::vector<NamedAnalyzer> createAnalyzers(std::vector<std::string> const& names);
// The same for a comma-separated list ("all" or empty: every one).
std::vector<NamedAnalyzer> createAnalyzers(std::string_view names);

// The kind of a finding reported by the named analyzer; null when unknown.
FindingKind const* kindOf(std::string_view analyzer, dependency::attribute::Attribute const& finding);

// Whether `id` is the ID of some built-in kind of finding (a prefix ID also
// counts with nothing after it: "MissingProduct").
bool isKnownFindingId(std::string_view id);

// A finding selector as --select, --ignore, per-path-ignores and the node
// property depattr-ignore take it: a finding ID ("Missing"), or an analyzer's
// name and one of its IDs ("missing-function/Missing"), the form rules have in
// SARIF. Either ID may end with '*' to stand for every ID that begins with the
// text before it: "Missing*" (Missing, MissingProduct<code>, ...),
// "missing-file/*" (every finding of that analyzer), "*" (every finding).
struct FindingSelector {
    std::string_view analyzer;  // empty: any analyzer
    std::string_view id;        // without the '*' of a prefix
    bool isPrefix = false;      // `id` is the start of the IDs selected
};
FindingSelector splitSelector(std::string_view selector);

// Whether a selector's ID part selects the finding ID `id`: the same ID, or a
// prefix of it. Kinds whose IDs go on with more text ("MissingProduct" +
// code) are matched by the analyzer catalogue, not here.
bool selectorIdMatches(FindingSelector const& selector, std::string_view id);

// Whether `selector` names a kind of finding of the built-in analyzers: a
// known ID, or a built-in analyzer's name with one of its IDs; for a prefix,
// at least one such ID begins with it.
bool isKnownFindingSelector(std::string_view selector);

// Every known finding ID, once each, for messages.
std::string knownFindingIds();

}  // namespace depattr::cli

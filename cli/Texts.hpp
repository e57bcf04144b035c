#pragma once
// The program's own texts (headings, severity and kind words, summaries,
// progress, errors, help), from the catalog "depattr:cli" in the language of
// the global locale, English where a text or the language is missing.

#include "attribute/Severity.hpp"
#include "platform/foundation/BaseMsgID.hpp"
#include "platform/graph/Graph.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace depattr::cli {

inline constexpr char const* programCatalog = "depattr:cli";

// The text of `key`, placeholders {0}, {1}... filled from `args`, as UTF-8.
std::string text(char const* key, std::vector<resource_core::MessageArgument> args = {});

// "1 node", "3 nodes": the text of `key` + "One" for one, of `key` + "Many"
// otherwise, with the count as {0}.
std::string counted(char const* key, std::size_t count);

// "Warning", "警告"; and "information", "warning", "problem" as options spell them.
std::string severityWord(dependency::attribute::Severity severity);
std::string_view severityOption(dependency::attribute::Severity severity);
// "file", "ファイル" for a node kind.
std::string kindWord(dependency::graph::Type type);

}  // namespace depattr::cli

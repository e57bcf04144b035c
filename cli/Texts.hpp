#pragma once
// The program's own texts (headings, severity and kind words, summaries,
// progress, errors, help), from the catalog "depattr:cli" in the language of
// the global locale, English where a text or the language is missing.

#include "attribute/Severity.hpp"
#include "platform/foundation/BaseMsgID.hpp"
#include "platform/graph/Graph.hpp"

#include <cstddef>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace depattr::cli {

inline constexpr char const* programCatalog = "depattr:cli";

// The text of `key`, placeholders {0}, {1}... filled from `args`, as UTF-8.
std::string text(char const* key, std::vector<resource_core::MessageArgument> args = {});

// A text written many times with different arguments (the report's heading
// of every node): looked up once, in the language `text` would use, and kept
// as its literal pieces and placeholders, so that writing it converts nothing.
// `write` gives what `text(key, args)` gives for the same string arguments.
class TextPattern {
public:
    TextPattern(char const* key, std::size_t arity);
    void write(std::ostream& out, std::initializer_list<std::string_view> args) const;
    // The same text added to the end of `out`.
    void append(std::string& out, std::initializer_list<std::string_view> args) const;

private:
    struct Piece {
        std::string literal;
        std::size_t argument;  // the placeholder after the literal; `arity_` for none
    };
    std::size_t arity_;
    std::vector<Piece> pieces_;
};

// "1 node", "3 nodes": the text of `key` + "One" for one, of `key` + "Many"
// otherwise, with the count as {0}.
std::string counted(char const* key, std::size_t count);

// "Warning", "警告"; and "information", "warning", "problem" as options spell them.
std::string severityWord(dependency::attribute::Severity severity);
std::string_view severityOption(dependency::attribute::Severity severity);
// "file", "ファイル" for a node kind.
std::string kindWord(dependency::graph::Type type);

}  // namespace depattr::cli

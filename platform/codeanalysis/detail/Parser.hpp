#pragma once

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ca::detail {

struct ParseOutcome {
    std::unique_ptr<astapi::SyntaxTree> tree;
    std::vector<SyntaxError> errors;
    std::u16string ownerName;
};

// Parses UTF-8 code. Syntax errors end the parse and are returned (the tree is then an empty File); only
// allocation failure throws.
ParseOutcome parse(std::string_view code);

// UTF-8 to UTF-16; malformed sequences become U+FFFD.
void appendUtf16(std::string_view utf8, std::u16string& out);

}  // namespace ca::detail

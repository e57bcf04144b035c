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

// Parses UTF-8 code. Syntax errors end the parse and are returned (the tree is then an empty File), and so does a
// tree that would take more than treeByteLimit bytes; only allocation failure throws.
ParseOutcome parse(std::string_view code, std::size_t treeByteLimit);

// The parser reserves this many bytes of tree per byte of code up front: somewhat less than code without comments
// takes (about ten), so that commented code does not leave much of the reservation unused.
inline constexpr std::size_t expectedTreeBytesPerCodeByte = 4;

}  // namespace ca::detail

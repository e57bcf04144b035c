// Feeds arbitrary bytes to the host-language parser. Besides crashes, hangs and sanitizer reports, it checks the
// invariants the tree's users rely on: kinds within the numbering (never the reserved 0), leaves without children,
// no missing children in lists, and an empty tree whenever errors are reported.

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

using ca::astapi::Node;
using ca::astapi::NodeKind;

bool mustBeLeaf(NodeKind kind) {
    switch (static_cast<int>(kind)) {
    case 2:
    case 7:
    case 10:
    case 16:
    case 19:
    case 20:
    case 21:
    case 26:
    case 27:
    case 33:
    case 37:
    case 39:
    case 48:
    case 58:
    case 64:
    case 68:
        return true;
    default:
        return false;
    }
}

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void checkTree(Node const& root) {
    std::vector<Node const*> pending{&root};
    while (!pending.empty()) {
        auto const* node = pending.back();
        pending.pop_back();
        auto const code = static_cast<int>(node->kind());
        check(code >= 1 && code <= ca::astapi::lastNodeKind);
        check(node->line() >= 1 && node->column() >= 1);
        if (mustBeLeaf(node->kind())) {
            check(node->children().empty());
        }
        if (node->kind() == NodeKind::InputArgument) {
            check((node->child(0) != nullptr) != (node->child(1) != nullptr));
        }
        if (node->kind() == NodeKind::FunctionDefinition || node->kind() == NodeKind::MethodDefinition) {
            check(node->child(7) != nullptr && node->child(7)->kind() == NodeKind::Identifier);
        }
        if (node->kind() == NodeKind::ClassDefinition) {
            check(node->child(8) != nullptr && node->child(8)->kind() == NodeKind::Identifier);
        }
        if (node->kind() == NodeKind::SuperclassCall) {
            auto const* superclass = node->child(1);
            check(node->child(0) != nullptr && node->child(0)->kind() == NodeKind::Identifier &&
                  !node->child(0)->identifier().getString().empty());
            check(superclass != nullptr &&
                  (superclass->kind() == NodeKind::Identifier || superclass->kind() == NodeKind::DottedName));
        }
        for (auto const* child : node->children()) {
            check(child != nullptr);
            pending.push_back(child);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    auto const result = ca::analyzeText(std::string_view(reinterpret_cast<char const*>(data), size));
    auto const& root = result->getRootNode();
    check(root.kind() == NodeKind::File);
    if (result->hasErrors()) {
        check(root.children().empty() && result->getOwnerName().empty());
        for (auto const& error : result->getErrors()) {
            check(error.line >= 1 && error.column >= 1 && !error.message.empty());
        }
    } else {
        checkTree(root);
    }
    return 0;
}

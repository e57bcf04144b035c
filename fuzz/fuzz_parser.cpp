// Feeds arbitrary bytes to the host-language parser. Besides crashes, hangs and sanitizer reports, it checks the
// invariants the tree's users rely on: kinds within the numbering (never the reserved 0), every node laid out as the
// kind table says (leaves without children), no missing children in lists, and an empty tree whenever errors are
// reported.

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

using ca::astapi::Node;
using ca::astapi::NodeKind;
namespace slot = ca::astapi::slot;

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
        if (ca::astapi::isLeaf(node->kind())) {
            check(node->children().empty());
        }
        check(node->hasLayoutOfItsKind());
        if (node->kind() == NodeKind::InputArgument) {
            check((node->child(slot::InputArgument::identifier) != nullptr) !=
                  (node->child(slot::InputArgument::ignored) != nullptr));
        }
        if (node->kind() == NodeKind::FunctionDefinition || node->kind() == NodeKind::MethodDefinition) {
            auto const* name = node->child(slot::FunctionDefinition::name);
            check(name != nullptr && name->kind() == NodeKind::Identifier);
        }
        if (node->kind() == NodeKind::ClassDefinition) {
            auto const* name = node->child(slot::ClassDefinition::name);
            check(name != nullptr && name->kind() == NodeKind::Identifier);
        }
        if (node->kind() == NodeKind::SuperclassCall) {
            auto const* member = node->child(slot::SuperclassCall::member);
            auto const* superclass = node->child(slot::SuperclassCall::superclass);
            check(member != nullptr && member->kind() == NodeKind::Identifier &&
                  !member->identifier().getString().empty());
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

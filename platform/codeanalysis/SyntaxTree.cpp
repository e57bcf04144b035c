#include "platform/codeanalysis/SyntaxTree.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ostream>
#include <stdexcept>
#include <string_view>

namespace ca::astapi {

namespace {

constexpr std::array<std::string_view, lastNodeKind + 1> kindNames = {
    "Invalid",          "File",              "Identifier",         "ExpressionStatement", "Assignment",
    "MultipleAssignment", "IfStatement",     "Ignored",            "IfClause",            "ElseClause",
    "Number",           "ForStatement",      "ParforStatement",    "WhileStatement",      "SwitchStatement",
    "ClassDefinition",  "CharacterString",   "CaseClause",         "OtherwiseClause",     "String",
    "Colon",            "End",               "TryStatement",       "GlobalStatement",     "PersistentStatement",
    "CommandStatement", "Break",             "Continue",           "BinaryOperation",     "UnaryOperation",
    "PostfixOperation", "Range",             "Matrix",             "Return",              "Row",
    "FunctionDefinition", "Cell",            "CommandArgument",    "ParenIndex",          "DottedName",
    "BraceIndex",       "InputArgument",     "FieldAccess",        "DynamicField",        "MethodDefinition",
    "AnonymousFunction", "FunctionHandle",   "Parenthesized",      "EmptyStatement",      "PropertiesBlock",
    "Property",         "MethodsBlock",      "MethodSignature",    "EventsBlock",         "Event",
    "EnumerationBlock", "EnumerationMember", "ArgumentsBlock",     "MetaclassQuery",      "ArgumentDeclaration",
    "Attribute",        "Dimensions",        "Comparison",         "CatchClause",         "ImaginaryNumber",
    "ElseifClause",     "ShortCircuit",
};

constexpr unsigned maxSlots = 32;

}  // namespace

std::ostream& operator<<(std::ostream& out, NodeKind kind)
{
    auto const code = static_cast<unsigned>(kind);
    if (code < kindNames.size()) {
        return out << kindNames[code];
    }
    return out << code;
}

Node const* Node::child(unsigned slot) const noexcept
{
    if (slot >= slotCount_ || (singleSlotMask_ & (1u << slot)) == 0 || slotValues_[slot] == absent) {
        return nullptr;
    }
    return items_[slotValues_[slot]];
}

std::span<Node const* const> Node::list(unsigned first, unsigned last) const noexcept
{
    if (last != first + 1 || last >= slotCount_ || (singleSlotMask_ & (3u << first)) != 0) {
        return {};
    }
    return {items_ + slotValues_[first], items_ + slotValues_[last]};
}

SyntaxTree::SyntaxTree() = default;
SyntaxTree::SyntaxTree(std::size_t expectedBytes) : arena_(std::max<std::size_t>(expectedBytes, 1024)) {}
SyntaxTree::~SyntaxTree() = default;

std::u16string_view SyntaxTree::store(std::u16string_view text)
{
    if (text.empty()) {
        return {};
    }
    auto* copy = static_cast<char16_t*>(arena_.allocate(text.size() * sizeof(char16_t), alignof(char16_t)));
    text.copy(copy, text.size());
    return {copy, text.size()};
}

Node const& SyntaxTree::make(NodeFields const& fields, std::span<Slot const> slots)
{
    unsigned slotCount = 0;
    std::size_t subtreeCount = 0;
    std::size_t referenceCount = 0;
    for (auto const& slot : slots) {
        if (auto const* single = std::get_if<Single>(&slot)) {
            slotCount += 1;
            subtreeCount += single->node != nullptr ? 1 : 0;
        } else if (auto const* list = std::get_if<List>(&slot)) {
            slotCount += 2;
            subtreeCount += list->nodes.size();
        } else {
            slotCount += 2;
            referenceCount += std::get<Reference>(slot).nodes.size();
        }
    }
    if (slotCount > maxSlots) {
        throw std::invalid_argument("a syntax tree node has at most 32 child slots");
    }

    // One allocation: the node, then its child pointers, then its slot values (leaves need only the node).
    auto const itemCount = subtreeCount + referenceCount;
    static_assert(sizeof(Node) % alignof(Node const*) == 0 && alignof(Node) >= alignof(Node const*));
    auto const bytes = sizeof(Node) + itemCount * sizeof(Node const*) + slotCount * sizeof(std::uint32_t);
    auto* memory = static_cast<std::byte*>(arena_.allocate(bytes, alignof(Node)));
    auto* node = new (memory) Node();
    auto** items = reinterpret_cast<Node const**>(memory + sizeof(Node));
    auto* values = reinterpret_cast<std::uint32_t*>(memory + sizeof(Node) + itemCount * sizeof(Node const*));

    // Sub-tree children first, in slot order, so that children() is one contiguous range; references after them.
    std::uint32_t nextSubtree = 0;
    auto nextReference = static_cast<std::uint32_t>(subtreeCount);
    unsigned slotIndex = 0;
    std::uint32_t singleMask = 0;
    for (auto const& slot : slots) {
        if (auto const* single = std::get_if<Single>(&slot)) {
            singleMask |= 1u << slotIndex;
            if (single->node != nullptr) {
                items[nextSubtree] = single->node;
                values[slotIndex] = nextSubtree++;
            } else {
                values[slotIndex] = Node::absent;
            }
            slotIndex += 1;
            continue;
        }
        bool const isList = std::holds_alternative<List>(slot);
        auto const nodes = isList ? std::get<List>(slot).nodes : std::get<Reference>(slot).nodes;
        auto& cursor = isList ? nextSubtree : nextReference;
        values[slotIndex] = cursor;
        for (auto const* child : nodes) {
            items[cursor++] = child;
        }
        values[slotIndex + 1] = cursor;
        slotIndex += 2;
    }

    node->kind_ = fields.kind;
    node->op_ = fields.op;
    node->logicalValue_ = fields.logicalValue;
    node->slotCount_ = static_cast<std::uint8_t>(slotCount);
    node->singleSlotMask_ = singleMask;
    node->line_ = fields.line;
    node->column_ = fields.column;
    node->subtreeCount_ = static_cast<std::uint32_t>(subtreeCount);
    node->slotValues_ = values;
    node->items_ = items;
    auto const text = store(fields.text);
    node->text_ = StringId(text.data(), static_cast<std::uint32_t>(text.size()));
    return *node;
}

}  // namespace ca::astapi

#pragma once
// Syntax trees of host-language (.qx) code: node kinds, nodes with numbered child slots, and the tree that owns
// them. The kind numbering and the slot layout of every kind come from one table, SyntaxKinds.def; they are
// documented in docs/syntax-tree.md.

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string_view>
#include <variant>

namespace ca::astapi {

// Tag naming this code-analysis library in the lf::astapi customisation points.
struct CA {};

// The kinds, numbered as SyntaxKinds.def numbers them (0 is reserved; the parser never produces it).
enum class NodeKind : std::uint8_t {
#define SYNTAX_KIND(code, Kind, ...) Kind = code,
#define SYNTAX_SINGLE(slot, name)
#define SYNTAX_LIST(slot, name)
#define SYNTAX_RESERVED(slot)
#define SYNTAX_REFERENCE(slot, name)
#include "platform/codeanalysis/SyntaxKinds.def"
};

// A single child slot of some kind, by number (see Node::child).
struct SingleSlot {
    unsigned number;
    friend constexpr bool operator==(SingleSlot, SingleSlot) = default;
};
// A list held by two consecutive slots, first and first + 1 (see Node::list).
struct ListSlot {
    unsigned first;
    friend constexpr bool operator==(ListSlot, ListSlot) = default;
};

// The named child slots of every kind: slot::FunctionDefinition::name is the SingleSlot holding a function's name,
// slot::FunctionDefinition::body the ListSlot holding its statements.
namespace slot {
#define SYNTAX_KIND(code, Kind, leafOrNode, ...) \
    struct Kind {                                \
        __VA_ARGS__                              \
    };
#define SYNTAX_SINGLE(slot, name) static constexpr SingleSlot name{slot};
#define SYNTAX_LIST(slot, name) static constexpr ListSlot name{slot};
#define SYNTAX_RESERVED(slot)
#define SYNTAX_REFERENCE(slot, name) static constexpr ListSlot name{slot};
#include "platform/codeanalysis/SyntaxKinds.def"
}  // namespace slot

// The kind table itself, for code that works over every kind (names, the leaf test, layout checks, documentation).
enum class SlotShape : std::uint8_t { Single, List, Reserved, Reference };
struct SlotDescription {
    unsigned first = 0;  // slot number; a list also takes first + 1
    SlotShape shape = SlotShape::Single;
    std::string_view name;  // empty for a reserved slot
};
struct KindDescription {
    NodeKind kind;
    std::string_view name;
    bool leaf;
    std::span<SlotDescription const> slots;  // in slot order
};

namespace kind_table_detail {
// One array per kind, behind a placeholder so that kinds without slots have an array too.
#define SYNTAX_KIND(code, Kind, leafOrNode, ...) inline constexpr SlotDescription Kind[] = {{}, __VA_ARGS__};
#define SYNTAX_SINGLE(slot, name) SlotDescription{slot, SlotShape::Single, #name},
#define SYNTAX_LIST(slot, name) SlotDescription{slot, SlotShape::List, #name},
#define SYNTAX_RESERVED(slot) SlotDescription{slot, SlotShape::Reserved, {}},
#define SYNTAX_REFERENCE(slot, name) SlotDescription{slot, SlotShape::Reference, #name},
#include "platform/codeanalysis/SyntaxKinds.def"
inline constexpr bool leaf = true;
inline constexpr bool node = false;
}  // namespace kind_table_detail

// Every kind, indexed by its number.
inline constexpr KindDescription kindTable[] = {
#define SYNTAX_KIND(code, Kind, leafOrNode, ...)                          \
    KindDescription{NodeKind::Kind, #Kind, kind_table_detail::leafOrNode, \
                    std::span<SlotDescription const>(kind_table_detail::Kind).subspan(1)},
#define SYNTAX_SINGLE(slot, name)
#define SYNTAX_LIST(slot, name)
#define SYNTAX_RESERVED(slot)
#define SYNTAX_REFERENCE(slot, name)
#include "platform/codeanalysis/SyntaxKinds.def"
};

inline constexpr int lastNodeKind = static_cast<int>(std::size(kindTable)) - 1;

// The description of a kind inside the numbering (1 to lastNodeKind, and 0).
constexpr KindDescription const& describe(NodeKind kind) noexcept {
    return kindTable[static_cast<std::size_t>(kind)];
}

// Leaf kinds never have children; every other kind may.
constexpr bool isLeaf(NodeKind kind) noexcept {
    return static_cast<int>(kind) <= lastNodeKind && describe(kind).leaf;
}

namespace kind_table_detail {
// Rows are in numbering order with no gaps, leaves have no slots, and each slot starts where the one before ends.
constexpr bool wellFormed() {
    for (std::size_t code = 0; code < std::size(kindTable); ++code) {
        auto const& row = kindTable[code];
        if (static_cast<std::size_t>(row.kind) != code || (row.leaf && !row.slots.empty())) {
            return false;
        }
        unsigned next = 0;
        for (auto const& slot : row.slots) {
            if (slot.first != next) {
                return false;
            }
            next += slot.shape == SlotShape::List || slot.shape == SlotShape::Reference ? 2 : 1;
        }
        if (next > 32) {
            return false;
        }
    }
    return true;
}
static_assert(wellFormed(), "SyntaxKinds.def: kinds out of order, or slot numbers that do not follow each other");

// Code that handles a method like a function, or an argument declaration like a property, relies on these.
static_assert(slot::MethodDefinition::outputs == slot::FunctionDefinition::outputs &&
              slot::MethodDefinition::name == slot::FunctionDefinition::name &&
              slot::MethodDefinition::inputs == slot::FunctionDefinition::inputs &&
              slot::MethodDefinition::body == slot::FunctionDefinition::body &&
              slot::MethodDefinition::nestedFunctions == slot::FunctionDefinition::nestedFunctions);
static_assert(slot::ArgumentDeclaration::name == slot::Property::name &&
              slot::ArgumentDeclaration::size == slot::Property::size &&
              slot::ArgumentDeclaration::className == slot::Property::className &&
              slot::ArgumentDeclaration::validators == slot::Property::validators &&
              slot::ArgumentDeclaration::defaultValue == slot::Property::defaultValue);
static_assert(slot::MethodsBlock::attributes == slot::PropertiesBlock::attributes &&
              slot::EventsBlock::attributes == slot::PropertiesBlock::attributes &&
              slot::EnumerationBlock::attributes == slot::PropertiesBlock::attributes &&
              slot::ArgumentsBlock::attributes == slot::PropertiesBlock::attributes);
}  // namespace kind_table_detail

// The kind's name ("FunctionDefinition"), or its number for a value outside the numbering.
std::ostream& operator<<(std::ostream& out, NodeKind kind);

// The operator of a BinaryOperation, UnaryOperation, PostfixOperation, Comparison or ShortCircuit node.
enum class Operator : std::uint8_t {
    None,
    Plus,
    Minus,
    Times,
    RightDivide,
    LeftDivide,
    Power,
    ElementTimes,
    ElementRightDivide,
    ElementLeftDivide,
    ElementPower,
    ElementAnd,
    ElementOr,
    Equal,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    AndAnd,
    OrOr,
    Not,
    UnaryPlus,
    UnaryMinus,
    Transpose,
    DotTranspose,
};

// The text of a name or literal node: identifiers, dotted names, numbers, strings (decoded), command arguments.
class StringId {
public:
    constexpr StringId() noexcept = default;
    constexpr StringId(char16_t const* data, std::uint32_t size) noexcept : data_(data), size_(size) {}
    std::u16string_view getString() const noexcept { return {data_, size_}; }

private:
    char16_t const* data_ = nullptr;
    std::uint32_t size_ = 0;
};

class SyntaxTree;

// One node. Children live in numbered slots: a single slot holds one child or nothing; a list is described by two
// consecutive slots a and a+1 ("list a-b") and holds any number of children in source order.
//
// A node is a 24-byte header in its tree's storage, followed by its text (text kinds only), its child pointers and
// one number per slot; the accessors find them from the header.
class alignas(8) Node {
public:
    NodeKind kind() const noexcept { return kind_; }
    std::uint32_t line() const noexcept { return line_; }      // 1-based
    std::uint32_t column() const noexcept { return column_; }  // 1-based, in bytes of the line
    Operator op() const noexcept { return op_; }

    // Child in single slot `slot`; nullptr when the slot is empty or is not a single slot of this node.
    Node const* child(unsigned slot) const noexcept {
        if (slot >= slotCount_ || (singleSlotMask_ & (1u << slot)) == 0) {
            return nullptr;
        }
        auto const value = slotValues()[slot];
        return value == absent ? nullptr : items()[value];
    }
    Node const* child(SingleSlot slot) const noexcept { return child(slot.number); }
    // Children of the list held by slots first and last (last == first + 1); empty when there is no such list.
    std::span<Node const* const> list(unsigned first, unsigned last) const noexcept {
        if (last != first + 1 || last >= slotCount_ || (singleSlotMask_ & (3u << first)) != 0) {
            return {};
        }
        auto const* values = slotValues();
        return {items() + values[first], items() + values[last]};
    }
    std::span<Node const* const> list(ListSlot slot) const noexcept { return list(slot.first, slot.first + 1); }
    // Every child that is part of this node's sub-tree, in slot order (a list's children in source order).
    std::span<Node const* const> children() const noexcept { return {items(), subtreeCount_}; }

    // Text of Identifier, DottedName, MetaclassQuery, Number, ImaginaryNumber, CharacterString, String,
    // CommandArgument and ShellEscape nodes; empty for other kinds.
    StringId const& identifier() const noexcept {
        return (flags_ & textFlag) != 0 ? *reinterpret_cast<StringId const*>(trailer()) : noText;
    }

    // Attribute nodes only: the logical value a flag attribute holds (see lf::astapi::NodeCustomization).
    bool logicalValue() const noexcept { return (flags_ & logicalValueFlag) != 0; }

    // Whether the node's slots are those the kind table gives its kind: the same single and list slots, in order.
    bool hasLayoutOfItsKind() const noexcept;

private:
    friend class SyntaxTree;
    Node() = default;

    static constexpr std::uint32_t absent = 0xFFFFFFFFu;
    static constexpr StringId noText{};
    static constexpr std::uint8_t logicalValueFlag = 1;
    static constexpr std::uint8_t textFlag = 2;

    std::byte const* trailer() const noexcept { return reinterpret_cast<std::byte const*>(this) + sizeof(Node); }
    Node const* const* items() const noexcept {
        return reinterpret_cast<Node const* const*>(trailer() + ((flags_ & textFlag) != 0 ? sizeof(StringId) : 0));
    }
    // Single slot: index into items() or absent; list bound: offset into items().
    std::uint32_t const* slotValues() const noexcept {
        return reinterpret_cast<std::uint32_t const*>(items() + itemCount_);
    }

    NodeKind kind_ = NodeKind::Invalid;
    Operator op_ = Operator::None;
    std::uint8_t flags_ = 0;
    std::uint8_t slotCount_ = 0;
    std::uint32_t singleSlotMask_ = 0;  // bit s set: slot s is a single slot
    std::uint32_t line_ = 0;
    std::uint32_t column_ = 0;
    std::uint32_t subtreeCount_ = 0;
    std::uint32_t itemCount_ = 0;  // sub-tree children, then referenced nodes
};

// What goes into one slot when a node is made: nothing, one child, or a list.
struct Single {
    Node const* node = nullptr;
};
struct List {
    std::span<Node const* const> nodes;
};
// A list whose children belong to another node's sub-tree (the method attributes of a MethodDefinition): reachable
// through list(), but not part of children().
struct Reference {
    std::span<Node const* const> nodes;
};
using Slot = std::variant<Single, List, Reference>;

// The slots of a node of one kind, filled by name: every slot starts empty, and make() takes them in the kind's
// slot order.
class NamedSlots {
public:
    explicit NamedSlots(NodeKind kind) noexcept : layout_(describe(kind).slots) {
        for (std::size_t i = 0; i < layout_.size(); ++i) {
            auto const shape = layout_[i].shape;
            slots_[i] = shape == SlotShape::List        ? Slot{List{}}
                        : shape == SlotShape::Reference ? Slot{Reference{}}
                                                        : Slot{Single{}};
        }
    }
    NamedSlots& set(SingleSlot slot, Node const* child) noexcept {
        slots_[indexOf(slot.number)] = Single{child};
        return *this;
    }
    NamedSlots& set(ListSlot slot, std::span<Node const* const> children) noexcept {
        auto const index = indexOf(slot.first);
        if (layout_[index].shape == SlotShape::Reference) {
            slots_[index] = Reference{children};
        } else {
            slots_[index] = List{children};
        }
        return *this;
    }
    std::span<Slot const> slots() const noexcept { return {slots_.data(), layout_.size()}; }

private:
    std::size_t indexOf(unsigned number) const noexcept {
        std::size_t index = 0;
        while (index + 1 < layout_.size() && layout_[index].first != number) {
            ++index;
        }
        return index;
    }
    std::span<SlotDescription const> layout_;
    std::array<Slot, 32> slots_{};
};

struct NodeFields {
    NodeKind kind = NodeKind::Invalid;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    Operator op = Operator::None;
    bool logicalValue = false;
    std::u16string_view text;
};

// Raised by SyntaxTree when its storage would grow past the byte limit it was made with.
class TreeTooLarge : public std::length_error {
public:
    using std::length_error::length_error;
};

// Owns the nodes of one tree (arena storage). The parser builds trees with it; tests can build any tree by hand,
// including kinds the parser never produces.
class SyntaxTree {
public:
    SyntaxTree();
    // Reserves about expectedBytes of node storage up front; storage beyond byteLimit throws TreeTooLarge.
    explicit SyntaxTree(std::size_t expectedBytes, std::size_t byteLimit = SIZE_MAX);
    SyntaxTree(SyntaxTree const&) = delete;
    SyntaxTree& operator=(SyntaxTree const&) = delete;
    ~SyntaxTree();

    // Slots are numbered in order: a Single takes one slot number, a List or Reference takes two. At most 32 slots.
    Node const& make(NodeFields const& fields, std::span<Slot const> slots);
    Node const& make(NodeFields const& fields, NamedSlots const& slots) { return make(fields, slots.slots()); }
    Node const& make(NodeFields const& fields, std::initializer_list<Slot> slots = {}) {
        return make(fields, std::span<Slot const>(slots.begin(), slots.size()));
    }
    // A node without children whose text is given as UTF-8 (malformed sequences become U+FFFD); fields.text is
    // not used.
    Node const& makeLeaf(NodeFields const& fields, std::string_view utf8Text);

    // Copies text into the tree (for text built up outside it).
    std::u16string_view store(std::u16string_view text);

    Node const* root() const noexcept { return root_; }
    void setRoot(Node const& root) noexcept { root_ = &root; }

    // Bytes of storage the tree holds (nodes, texts and the unused rest of its storage blocks).
    std::size_t memoryBytes() const noexcept { return heldBytes_; }

private:
    // Node storage: blocks taken from the heap, filled front to back, released together.
    struct Block {
        Block* previous;
    };
    void* allocate(std::size_t bytes, std::size_t alignment) {
        auto const address = (reinterpret_cast<std::uintptr_t>(cursor_) + alignment - 1) & ~(alignment - 1);
        auto const end = reinterpret_cast<std::uintptr_t>(end_);
        if (address <= end && bytes <= end - address) {
            cursor_ = reinterpret_cast<std::byte*>(address) + bytes;
            return reinterpret_cast<std::byte*>(address);
        }
        return allocateInNewBlock(bytes, alignment);
    }
    void* allocateInNewBlock(std::size_t bytes, std::size_t alignment);

    std::byte* cursor_ = nullptr;
    std::byte* end_ = nullptr;
    Block* lastBlock_ = nullptr;
    std::size_t nextBlockBytes_;
    std::size_t heldBytes_ = 0;
    std::size_t byteLimit_;
    Node const* root_ = nullptr;
};

}  // namespace ca::astapi

#pragma once
// Syntax trees of host-language (.qx) code: node kinds, nodes with numbered child slots, and the tree that owns
// them. The kind numbering and the slot layout of every kind are documented in docs/syntax-tree.md.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <span>
#include <stdexcept>
#include <string_view>
#include <variant>

namespace ca::astapi {

// Tag naming this code-analysis library in the lf::astapi customisation points.
struct CA {};

enum class NodeKind : std::uint8_t {
    Invalid = 0,  // reserved; the parser never produces it
    File = 1,
    Identifier = 2,
    ExpressionStatement = 3,
    Assignment = 4,
    MultipleAssignment = 5,
    IfStatement = 6,
    Ignored = 7,
    IfClause = 8,
    ElseClause = 9,
    Number = 10,
    ForStatement = 11,
    ParforStatement = 12,
    WhileStatement = 13,
    SwitchStatement = 14,
    ClassDefinition = 15,
    CharacterString = 16,
    CaseClause = 17,
    OtherwiseClause = 18,
    String = 19,
    Colon = 20,
    End = 21,
    TryStatement = 22,
    GlobalStatement = 23,
    PersistentStatement = 24,
    CommandStatement = 25,
    Break = 26,
    Continue = 27,
    BinaryOperation = 28,
    UnaryOperation = 29,
    PostfixOperation = 30,
    Range = 31,
    Matrix = 32,
    Return = 33,
    Row = 34,
    FunctionDefinition = 35,
    Cell = 36,
    CommandArgument = 37,
    ParenIndex = 38,
    DottedName = 39,
    BraceIndex = 40,
    InputArgument = 41,
    FieldAccess = 42,
    DynamicField = 43,
    MethodDefinition = 44,
    AnonymousFunction = 45,
    FunctionHandle = 46,
    Parenthesized = 47,
    EmptyStatement = 48,
    PropertiesBlock = 49,
    Property = 50,
    MethodsBlock = 51,
    MethodSignature = 52,
    EventsBlock = 53,
    Event = 54,
    EnumerationBlock = 55,
    EnumerationMember = 56,
    ArgumentsBlock = 57,
    MetaclassQuery = 58,
    ArgumentDeclaration = 59,
    Attribute = 60,
    Dimensions = 61,
    Comparison = 62,
    CatchClause = 63,
    ImaginaryNumber = 64,
    ElseifClause = 65,
    ShortCircuit = 66,
    SuperclassCall = 67,
    ShellEscape = 68,
    SpmdStatement = 69,
};

inline constexpr int lastNodeKind = 69;

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
    Node const* child(unsigned slot) const noexcept;
    // Children of the list held by slots first and last (last == first + 1); empty when there is no such list.
    std::span<Node const* const> list(unsigned first, unsigned last) const noexcept;
    // Every child that is part of this node's sub-tree, in slot order (a list's children in source order).
    std::span<Node const* const> children() const noexcept { return {items(), subtreeCount_}; }

    // Text of Identifier, DottedName, MetaclassQuery, Number, ImaginaryNumber, CharacterString, String,
    // CommandArgument and ShellEscape nodes; empty for other kinds.
    StringId const& identifier() const noexcept;

    // Attribute nodes only: the logical value a flag attribute holds (see lf::astapi::NodeCustomization).
    bool logicalValue() const noexcept { return (flags_ & logicalValueFlag) != 0; }

private:
    friend class SyntaxTree;
    Node() = default;

    static constexpr std::uint32_t absent = 0xFFFFFFFFu;
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

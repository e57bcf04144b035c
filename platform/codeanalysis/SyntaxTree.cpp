#include "platform/codeanalysis/SyntaxTree.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string_view>

namespace ca::astapi {

namespace {

constexpr unsigned maxSlots = 32;

}  // namespace

std::ostream& operator<<(std::ostream& out, NodeKind kind) {
    auto const code = static_cast<unsigned>(kind);
    if (code < std::size(kindTable)) {
        return out << kindTable[code].name;
    }
    return out << code;
}

bool Node::hasLayoutOfItsKind() const noexcept {
    if (static_cast<int>(kind_) > lastNodeKind) {
        return false;
    }
    unsigned slotCount = 0;
    std::uint32_t singleMask = 0;
    for (auto const& slot : describe(kind_).slots) {
        bool const single = slot.shape == SlotShape::Single || slot.shape == SlotShape::Reserved;
        singleMask |= single ? 1u << slot.first : 0u;
        slotCount = slot.first + (single ? 1 : 2);
    }
    return slotCount == slotCount_ && singleMask == singleSlotMask_;
}

// The first block holds what the parser expects the whole tree to take; later ones grow with the tree, so that
// the unused end of the last block stays a fraction of the whole.
constexpr std::size_t smallestBlock = std::size_t{4} << 10;
constexpr std::size_t largestGrowthBlock = std::size_t{4} << 20;

SyntaxTree::SyntaxTree() : SyntaxTree(smallestBlock) {}

SyntaxTree::SyntaxTree(std::size_t expectedBytes, std::size_t byteLimit)
    : nextBlockBytes_(std::max(expectedBytes, smallestBlock)), byteLimit_(byteLimit) {}

SyntaxTree::~SyntaxTree() {
    while (lastBlock_ != nullptr) {
        auto* previous = lastBlock_->previous;
        ::operator delete(static_cast<void*>(lastBlock_));
        lastBlock_ = previous;
    }
}

void* SyntaxTree::allocateInNewBlock(std::size_t bytes, std::size_t alignment) {
    auto const blockBytes = std::max(nextBlockBytes_, sizeof(Block) + bytes + alignment);
    if (blockBytes > byteLimit_ - std::min(heldBytes_, byteLimit_)) {
        throw TreeTooLarge("the syntax tree would exceed its size limit");
    }
    auto* block = static_cast<Block*>(::operator new(blockBytes));
    block->previous = lastBlock_;
    lastBlock_ = block;
    heldBytes_ += blockBytes;
    cursor_ = reinterpret_cast<std::byte*>(block) + sizeof(Block);
    end_ = reinterpret_cast<std::byte*>(block) + blockBytes;
    nextBlockBytes_ = std::clamp(heldBytes_ / 4, smallestBlock, largestGrowthBlock);
    return allocate(bytes, alignment);
}

std::u16string_view SyntaxTree::store(std::u16string_view text) {
    if (text.empty()) {
        return {};
    }
    auto* copy = static_cast<char16_t*>(allocate(text.size() * sizeof(char16_t), alignof(char16_t)));
    text.copy(copy, text.size());
    return {copy, text.size()};
}

namespace {

// UTF-8 to UTF-16 into out, which has room for utf8.size() code units; returns the number written. Malformed
// sequences become U+FFFD.
std::size_t utf8ToUtf16(std::string_view utf8, char16_t* out) noexcept {
    std::size_t i = 0;
    std::size_t written = 0;
    auto const size = utf8.size();
    while (i < size) {
        auto const lead = static_cast<unsigned char>(utf8[i]);
        if (lead < 0x80) {
            out[written++] = static_cast<char16_t>(lead);
            ++i;
            continue;
        }
        unsigned length = lead >= 0xF0 && lead < 0xF5   ? 4
                          : lead >= 0xE0 && lead < 0xF0 ? 3
                          : lead >= 0xC2 && lead < 0xE0 ? 2
                                                        : 0;
        char32_t code = length == 4 ? lead & 0x07u : length == 3 ? lead & 0x0Fu : lead & 0x1Fu;
        bool valid = length != 0 && i + length <= size;
        for (unsigned k = 1; valid && k < length; ++k) {
            auto const next = static_cast<unsigned char>(utf8[i + k]);
            valid = (next & 0xC0u) == 0x80u;
            code = (code << 6) | (next & 0x3Fu);
        }
        if (valid && ((length == 3 && (code < 0x800 || (code >= 0xD800 && code < 0xE000))) ||
                      (length == 4 && (code < 0x10000 || code > 0x10FFFF)))) {
            valid = false;
        }
        if (!valid) {
            out[written++] = u'\uFFFD';
            ++i;
            continue;
        }
        // A four-byte sequence becomes a surrogate pair: never more code units than bytes.
        if (code >= 0x10000) {
            code -= 0x10000;
            out[written++] = static_cast<char16_t>(0xD800 + (code >> 10));
            out[written++] = static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        } else {
            out[written++] = static_cast<char16_t>(code);
        }
        i += length;
    }
    return written;
}

struct Layout {
    unsigned slotCount = 0;
    std::size_t subtreeCount = 0;
    std::size_t referenceCount = 0;
};

Layout layoutOf(std::span<Slot const> slots) {
    Layout layout;
    for (auto const& slot : slots) {
        if (auto const* single = std::get_if<Single>(&slot)) {
            layout.slotCount += 1;
            layout.subtreeCount += single->node != nullptr ? 1 : 0;
        } else if (auto const* list = std::get_if<List>(&slot)) {
            layout.slotCount += 2;
            layout.subtreeCount += list->nodes.size();
        } else {
            layout.slotCount += 2;
            layout.referenceCount += std::get<Reference>(slot).nodes.size();
        }
    }
    if (layout.slotCount > maxSlots) {
        throw std::invalid_argument("a syntax tree node has at most 32 child slots");
    }
    return layout;
}

}  // namespace

Node const& SyntaxTree::makeLeaf(NodeFields const& fields, std::string_view utf8Text) {
    // The text goes right behind the node; UTF-16 never needs more code units than UTF-8 has bytes.
    static_assert(sizeof(Node) % alignof(StringId) == 0 && alignof(Node) >= alignof(StringId));
    bool const hasText = !utf8Text.empty();
    auto const bytes = sizeof(Node) + (hasText ? sizeof(StringId) + utf8Text.size() * sizeof(char16_t) : 0);
    auto* memory = static_cast<std::byte*>(allocate(bytes, alignof(Node)));
    auto* node = new (memory) Node();
    node->kind_ = fields.kind;
    node->op_ = fields.op;
    node->flags_ = fields.logicalValue ? Node::logicalValueFlag : 0;
    node->line_ = fields.line;
    node->column_ = fields.column;
    if (hasText) {
        auto* text = reinterpret_cast<char16_t*>(memory + sizeof(Node) + sizeof(StringId));
        auto const length = utf8ToUtf16(utf8Text, text);
        new (memory + sizeof(Node)) StringId(text, static_cast<std::uint32_t>(length));
        node->flags_ |= Node::textFlag;
    }
    return *node;
}

Node const& SyntaxTree::make(NodeFields const& fields, std::span<Slot const> slots) {
    auto const layout = layoutOf(slots);
    auto const text = store(fields.text);
    bool const hasText = !text.empty();

    // One allocation: the node, its text reference, then its child pointers, then its slot values.
    auto const itemCount = layout.subtreeCount + layout.referenceCount;
    static_assert(sizeof(Node) % alignof(Node const*) == 0 && alignof(Node) >= alignof(Node const*));
    static_assert(sizeof(StringId) % alignof(Node const*) == 0);
    auto const bytes = sizeof(Node) + (hasText ? sizeof(StringId) : 0) + itemCount * sizeof(Node const*) +
                       layout.slotCount * sizeof(std::uint32_t);
    auto* memory = static_cast<std::byte*>(allocate(bytes, alignof(Node)));
    auto* node = new (memory) Node();
    node->kind_ = fields.kind;
    node->op_ = fields.op;
    node->flags_ =
        static_cast<std::uint8_t>((fields.logicalValue ? Node::logicalValueFlag : 0) | (hasText ? Node::textFlag : 0));
    node->slotCount_ = static_cast<std::uint8_t>(layout.slotCount);
    node->line_ = fields.line;
    node->column_ = fields.column;
    node->subtreeCount_ = static_cast<std::uint32_t>(layout.subtreeCount);
    node->itemCount_ = static_cast<std::uint32_t>(itemCount);
    if (hasText) {
        new (memory + sizeof(Node)) StringId(text.data(), static_cast<std::uint32_t>(text.size()));
    }
    auto** items = const_cast<Node const**>(node->items());
    auto* values = const_cast<std::uint32_t*>(node->slotValues());

    // Sub-tree children first, in slot order, so that children() is one contiguous range; references after them.
    std::uint32_t nextSubtree = 0;
    auto nextReference = static_cast<std::uint32_t>(layout.subtreeCount);
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
    node->singleSlotMask_ = singleMask;
    return *node;
}

}  // namespace ca::astapi

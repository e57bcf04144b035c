#include "platform/graph/detail/NodeIndex.hpp"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>
#include <stdexcept>

namespace dependency::graph::detail {

namespace {

constexpr std::size_t minimumSlots = 16;
// Positions are stored in the lower half of a slot, plus one.
constexpr std::size_t maximumKeys = std::numeric_limits<std::uint32_t>::max() - 1;

std::size_t slotsFor(std::size_t keys) {
    if (keys > maximumKeys) {
        throw std::length_error("a graph can hold at most 4294967294 nodes");
    }
    return std::max(minimumSlots, std::bit_ceil(keys * 2));
}

}  // namespace

std::uint64_t NodeIndex::hashOf(std::u16string_view key) noexcept {
    return std::hash<std::u16string_view>{}(key);
}

void NodeIndex::reserve(std::size_t count) {
    if (std::size_t const wanted = slotsFor(count); wanted > slots_.size()) {
        grow(wanted);
    }
    keys_.reserve(count);
}

void NodeIndex::grow(std::size_t capacity) {
    std::vector<std::uint64_t> slots(capacity, empty);
    std::size_t const mask = capacity - 1;
    for (std::size_t position = 0; position < keys_.size(); ++position) {
        std::uint64_t const hash = hashOf(keys_[position]);
        std::size_t at = hash & mask;
        while (slots[at] != empty) {
            at = (at + 1) & mask;
        }
        slots[at] = slot(hash, position);
    }
    slots_ = std::move(slots);
}

std::optional<std::size_t> NodeIndex::insert(std::u16string_view key) {
    if ((keys_.size() + 1) * 2 > slots_.size()) {
        grow(slotsFor(keys_.size() + 1));
    }
    std::uint64_t const hash = hashOf(key);
    std::size_t const mask = slots_.size() - 1;
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
        std::uint64_t const stored = slots_[at];
        if (stored == empty) {
            slots_[at] = slot(hash, keys_.size());
            keys_.push_back(key);
            return std::nullopt;
        }
        if ((stored ^ hash) >> 32 == 0) {
            std::size_t const position = (stored & 0xFFFF'FFFFULL) - 1;
            if (keys_[position] == key) {
                return position;
            }
        }
    }
}

std::optional<std::size_t> NodeIndex::find(std::u16string_view key, std::uint64_t hash) const {
    if (slots_.empty()) {
        return std::nullopt;
    }
    std::size_t const mask = slots_.size() - 1;
    // The table is never more than half full, so the probe meets an empty slot.
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
        std::uint64_t const stored = slots_[at];
        if (stored == empty) {
            return std::nullopt;
        }
        if ((stored ^ hash) >> 32 == 0) {
            std::size_t const position = (stored & 0xFFFF'FFFFULL) - 1;
            if (keys_[position] == key) {
                return position;
            }
        }
    }
}

std::optional<std::size_t> NodeIndex::candidate(std::uint64_t hash) const noexcept {
    if (slots_.empty()) {
        return std::nullopt;
    }
    std::uint64_t const stored = slots_[hash & (slots_.size() - 1)];
    if (stored == empty || (stored ^ hash) >> 32 != 0) {
        return std::nullopt;
    }
    return (stored & 0xFFFF'FFFFULL) - 1;
}

void NodeIndex::prefetchSlot(std::uint64_t hash) const noexcept {
    if (!slots_.empty()) {
        __builtin_prefetch(&slots_[hash & (slots_.size() - 1)]);
    }
}

void NodeIndex::prefetchKeyView(std::uint64_t hash) const noexcept {
    if (auto const position = candidate(hash)) {
        __builtin_prefetch(&keys_[*position]);
    }
}

void NodeIndex::prefetchKeyChars(std::uint64_t hash) const noexcept {
    if (auto const position = candidate(hash)) {
        __builtin_prefetch(keys_[*position].data());
    }
}

void NodeIndex::clear() noexcept {
    slots_.clear();
    keys_.clear();
}

}  // namespace dependency::graph::detail

#include "platform/graph/detail/NodeIndex.hpp"

#include "platform/graph/Graph.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <limits>
#include <new>
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

namespace {

// FNV-1a over code units, then a final mix so that both the low bits (the
// slot) and the high bits (the tag) depend on every unit. IDs are short.
template <class Unit>
std::uint64_t hashUnits(Unit const* units, std::size_t count) noexcept {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (std::size_t i = 0; i < count; ++i) {
        hash = (hash ^ static_cast<std::uint16_t>(units[i])) * 0x100000001b3ULL;
    }
    hash ^= hash >> 32;
    hash *= 0xd6e8feb86659fd93ULL;
    return hash ^ (hash >> 32);
}

}  // namespace

std::uint64_t NodeIndex::hashOf(std::u16string_view key) noexcept {
    return hashUnits(key.data(), key.size());
}

std::uint64_t NodeIndex::hashOfAscii(std::string_view key) noexcept {
    return hashUnits(reinterpret_cast<unsigned char const*>(key.data()), key.size());
}

void NodeIndex::reserve(std::size_t count) {
    if (std::size_t const wanted = slotsFor(count); wanted > slots_.size()) {
        grow(wanted);
    }
    keys_.reserve(count);
}

void NodeIndex::grow(std::size_t capacity) {
    decltype(slots_) slots(capacity, empty);
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

std::optional<std::size_t> NodeIndex::insert(std::u16string_view key, std::uint64_t hash) {
    if ((keys_.size() + 1) * 2 > slots_.size()) {
        grow(slotsFor(keys_.size() + 1));
    }
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
    return probe(hash, [&](std::u16string_view stored) { return stored == key; });
}

std::optional<std::size_t> NodeIndex::findAscii(std::string_view key, std::uint64_t hash) const {
    return probe(hash, [&](std::u16string_view stored) {
        if (stored.size() != key.size()) {
            return false;
        }
        for (std::size_t i = 0; i < key.size(); ++i) {
            if (stored[i] != static_cast<unsigned char>(key[i])) {
                return false;
            }
        }
        return true;
    });
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

namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;

}  // namespace

template <class T>
T* LargeArrayAllocator<T>::allocate(std::size_t count) {
    std::size_t const bytes = count * sizeof(T);
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
        throw std::bad_array_new_length();
    }
    if (bytes < 2 * hugePage) {
        return static_cast<T*>(::operator new(bytes));
    }
    void* memory = std::aligned_alloc(hugePage, (bytes + hugePage - 1) / hugePage * hugePage);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ::madvise(memory, bytes, MADV_HUGEPAGE);  // a hint: without huge pages the array works the same
    return static_cast<T*>(memory);
}

template <class T>
void LargeArrayAllocator<T>::deallocate(T* pointer, std::size_t count) noexcept {
    if (count * sizeof(T) < 2 * hugePage) {
        ::operator delete(pointer);
    } else {
        std::free(pointer);
    }
}

// The node blocks, the file's text and the edge store are large arrays too.
template struct LargeArrayAllocator<char>;
template struct LargeArrayAllocator<Dependency>;
template struct LargeArrayAllocator<std::uint64_t>;
template struct LargeArrayAllocator<std::u16string_view>;

}  // namespace dependency::graph::detail

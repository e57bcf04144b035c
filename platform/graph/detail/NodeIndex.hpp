#pragma once
// The graph's index from node ID to node position: an open-addressing hash
// table in two flat arrays. Loading a large graph looks up both ends of every
// edge, so a lookup should touch as little memory as possible: one slot (a
// hash tag and a position) and, when the tag matches, the ID itself. A
// node-based hash map costs several dependent cache misses per lookup instead.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace dependency::graph::detail {

// Memory for the index's arrays. A large graph's index is tens of megabytes
// read at random places; large arrays are asked for in huge pages where the
// system offers them, so that a lookup costs a cache miss and not also a miss
// of the address translation cache.
template <class T>
struct LargeArrayAllocator {
    using value_type = T;
    LargeArrayAllocator() = default;
    template <class U>
    LargeArrayAllocator(LargeArrayAllocator<U> const&) noexcept {}
    T* allocate(std::size_t count);
    void deallocate(T* pointer, std::size_t count) noexcept;
    friend bool operator==(LargeArrayAllocator const&, LargeArrayAllocator const&) noexcept { return true; }
};

class NodeIndex {
public:
    // Makes room for this many keys in all without growing again.
    void reserve(std::size_t count);

    // Gives `key` the next position (the number of keys so far) and returns
    // nothing, or, when the key is present already, returns its position and
    // changes nothing. The key's characters must stay where they are while
    // the index holds them.
    std::optional<std::size_t> insert(std::u16string_view key) { return insert(key, hashOf(key)); }
    // The same with the key's hash already computed (and its slot perhaps prefetched).
    std::optional<std::size_t> insert(std::u16string_view key, std::uint64_t hash);

    // The position of `key`, or nothing.
    std::optional<std::size_t> find(std::u16string_view key) const { return find(key, hashOf(key)); }
    // The same with the key's hash already computed.
    std::optional<std::size_t> find(std::u16string_view key, std::uint64_t hash) const;
    // The same for a key given as ASCII bytes (each byte one code unit), as a
    // loader finds it in its text; `hash` is hashOfAscii(key).
    std::optional<std::size_t> findAscii(std::string_view key, std::uint64_t hash) const;

    // A caller with many lookups to make (a loader resolving edge ends) can
    // overlap their memory accesses: hash a key, then start loading its slot,
    // then the candidate key's view, then its characters, each some lookups
    // ahead of the find that needs it. These only hint the processor.
    static std::uint64_t hashOf(std::u16string_view key) noexcept;
    // hashOf of the key whose code units are these ASCII bytes.
    static std::uint64_t hashOfAscii(std::string_view key) noexcept;
    void prefetchSlot(std::uint64_t hash) const noexcept;
    void prefetchKeyView(std::uint64_t hash) const noexcept;
    void prefetchKeyChars(std::uint64_t hash) const noexcept;

    std::size_t size() const noexcept { return keys_.size(); }
    void clear() noexcept;

private:
    static constexpr std::uint64_t empty = 0;
    // A slot holds the upper half of the key's hash and its position plus one.
    static std::uint64_t slot(std::uint64_t hash, std::size_t position) noexcept {
        return (hash & 0xFFFF'FFFF'0000'0000ULL) | (static_cast<std::uint64_t>(position) + 1);
    }
    void grow(std::size_t capacity);
    // The position of the key with this hash that `sameKey` accepts, probing
    // from its home slot; the table is never more than half full, so the
    // probe meets an empty slot.
    template <class SameKey>
    std::optional<std::size_t> probe(std::uint64_t hash, SameKey const& sameKey) const {
        if (slots_.empty()) {
            return std::nullopt;
        }
        std::size_t const mask = slots_.size() - 1;
        for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
            std::uint64_t const stored = slots_[at];
            if (stored == empty) {
                return std::nullopt;
            }
            if ((stored ^ hash) >> 32 == 0) {
                std::size_t const position = (stored & 0xFFFF'FFFFULL) - 1;
                if (sameKey(keys_[position])) {
                    return position;
                }
            }
        }
    }
    // The position in the first slot a key with this hash would probe, when
    // that slot holds a key with the same tag.
    std::optional<std::size_t> candidate(std::uint64_t hash) const noexcept;

    std::vector<std::uint64_t, LargeArrayAllocator<std::uint64_t>> slots_;  // a power of two in size, at most half full
    std::vector<std::u16string_view, LargeArrayAllocator<std::u16string_view>> keys_;  // by position
};

}  // namespace dependency::graph::detail

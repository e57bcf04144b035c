#pragma once
// A table from names to small numbers, with open addressing. The scanner keeps a function's variables and a
// file's distinct names in it: such names are few and short, so a cheap hash over the code units and one flat
// array cost much less than a node-based hash table. The names are views: their text must outlive the table.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace depattr::scan::detail {

class NameTable {
public:
    NameTable() : slots_(32) {}

    // The number kept for name, and true when the name was not there before (value is then kept for it).
    std::pair<std::uint32_t, bool> emplace(std::u16string_view name, std::uint32_t value) {
        if (name.empty()) {
            if (!hasEmpty_) {
                hasEmpty_ = true;
                emptyValue_ = value;
                return {value, true};
            }
            return {emptyValue_, false};
        }
        if ((count_ + 1) * 2 > slots_.size()) {
            grow();
        }
        auto& slot = slotOf(name);
        if (slot.name.data() == nullptr) {
            slot = {name, value};
            ++count_;
            return {value, true};
        }
        return {slot.value, false};
    }
    void insert(std::u16string_view name) { emplace(name, 0); }

    // The number kept for name, or nullptr.
    std::uint32_t const* find(std::u16string_view name) const noexcept {
        if (name.empty()) {
            return hasEmpty_ ? &emptyValue_ : nullptr;
        }
        auto const& slot = const_cast<NameTable*>(this)->slotOf(name);
        return slot.name.data() == nullptr ? nullptr : &slot.value;
    }
    bool contains(std::u16string_view name) const noexcept { return find(name) != nullptr; }

    void clear() {
        if (slots_.size() > 1024) {
            slots_.assign(32, Slot{});  // one large file must not make every later clear slow
        } else if (count_ != 0) {
            for (auto& slot : slots_) {
                slot = {};
            }
        }
        count_ = 0;
        hasEmpty_ = false;
    }

private:
    struct Slot {
        std::u16string_view name;  // null data: a free slot
        std::uint32_t value = 0;
    };

    static std::size_t hash(std::u16string_view name) noexcept {
        std::uint64_t h = 0xcbf29ce484222325ull;
        for (char16_t const c : name) {
            h = (h ^ c) * 0x100000001b3ull;
        }
        return static_cast<std::size_t>(h ^ (h >> 29));
    }
    // The slot that holds name, or the free slot where it goes.
    Slot& slotOf(std::u16string_view name) noexcept {
        auto const mask = slots_.size() - 1;
        for (auto i = hash(name) & mask;; i = (i + 1) & mask) {
            auto& slot = slots_[i];
            if (slot.name.data() == nullptr || slot.name == name) {
                return slot;
            }
        }
    }
    void grow() {
        std::vector<Slot> old(slots_.size() * 2);
        old.swap(slots_);
        for (auto const& slot : old) {
            if (slot.name.data() != nullptr) {
                slotOf(slot.name) = slot;
            }
        }
    }

    std::vector<Slot> slots_;  // a power of two in size, never more than half full
    std::size_t count_ = 0;
    bool hasEmpty_ = false;
    std::uint32_t emptyValue_ = 0;
};

}  // namespace depattr::scan::detail

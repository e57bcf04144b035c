#include "attribute/GraphAttributes.hpp"

#include "platform/fl/FileSystem.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>

namespace dependency::attribute {

using dependency::graph::Graph;
using dependency::graph::Node;

namespace {

struct IdentityValueLess {
    bool operator()(std::shared_ptr<AttributeIdentity> const& a,
                    std::shared_ptr<AttributeIdentity> const& b) const noexcept {
        return *a < *b;
    }
};

using AttributeList = std::vector<std::shared_ptr<Attribute>>;

struct Entry {
    std::shared_ptr<Node> node;
    AttributeList list;
};

// The node objects of the entries, by address, for a graph that computes its
// nodes: a query with one of the objects the walk met is answered without
// comparing IDs. Open addressing in one flat array.
class EntryByAddress {
public:
    void build(std::vector<Entry> const& entries) {
        // At most three quarters full: a million findings' nodes take 16 MB
        // of slots instead of 32, and a probe still ends within a few slots
        // of one cache line or two.
        std::size_t capacity = 16;
        while (capacity * 3 < entries.size() * 4) {
            capacity *= 2;
        }
        slots_.assign(capacity, Slot{});
        shift_ = 64 - static_cast<unsigned>(std::countr_zero(capacity));
        for (std::size_t i = 0; i < entries.size(); ++i) {
            std::size_t slot = slotOf(entries[i].node.get());
            while (slots_[slot].node != nullptr) {
                slot = (slot + 1) & (slots_.size() - 1);
            }
            slots_[slot] = {entries[i].node.get(), static_cast<std::uint32_t>(i)};
        }
    }

    std::optional<std::size_t> find(Node const* node) const noexcept {
        if (slots_.empty()) {
            return std::nullopt;
        }
        for (std::size_t slot = slotOf(node);; slot = (slot + 1) & (slots_.size() - 1)) {
            if (slots_[slot].node == node) {
                return slots_[slot].entry;
            }
            if (slots_[slot].node == nullptr) {
                return std::nullopt;
            }
        }
    }

private:
    struct Slot {
        Node const* node = nullptr;
        std::uint32_t entry = 0;
    };
    std::size_t slotOf(Node const* node) const noexcept {
        return static_cast<std::size_t>((reinterpret_cast<std::uintptr_t>(node) * 0x9E3779B97F4A7C15ull) >> shift_);
    }
    std::vector<Slot> slots_;
    unsigned shift_ = 64;
};

// The ordered map from node to findings, kept as an array sorted by node
// (operator<, the graph library's node order) with one entry per equivalent
// node. It is filled once, in walk order, and then put in order in one step:
// by the graph's own ID order where the walk is over the graph's stored nodes,
// else by comparing nodes, the first visit of a node winning.
class GraphAttributesImpl final : public GraphAttributes {
public:
    void add(std::shared_ptr<Node> const& node, AttributeList&& list) { entries_.push_back({node, std::move(list)}); }
    // Room for this many entries, so that a large result is not moved as it grows.
    void reserve(std::size_t entries) { entries_.reserve(entries); }

    // `positions`, when given, holds each added entry's position in the
    // graph's stored nodes, and the graph yields each of them once.
    void order(std::shared_ptr<Graph const> const& graph, std::vector<std::uint32_t> const* positions) {
        if (positions != nullptr) {
            auto const& idOrder = graph->positionsInIdOrder();
            std::vector<std::uint32_t> entryAt(idOrder.size(), none);
            for (std::size_t i = 0; i < positions->size(); ++i) {
                entryAt[(*positions)[i]] = static_cast<std::uint32_t>(i);
            }
            // Each entry's place in ID order; the entries are then moved there
            // by following the cycles of that permutation, without a second
            // array of them.
            std::vector<std::uint32_t> target(entries_.size());
            std::uint32_t rank = 0;
            for (auto const position : idOrder) {
                if (auto& entry = entryAt[position]; entry != none) {
                    target[entry] = rank;
                    entry = rank++;
                }
            }
            for (std::size_t i = 0; i < target.size(); ++i) {
                while (target[i] != i) {
                    std::uint32_t const to = target[i];
                    std::swap(entries_[i], entries_[to]);
                    std::swap(target[i], target[to]);
                }
            }
            // A stored node's entry is then found by its place in the graph:
            // four bytes per node of the graph, against sixteen per slot of
            // an index of node addresses.
            graph_ = graph;
            entryAtPlace_ = std::move(entryAt);
        } else {
            std::stable_sort(entries_.begin(), entries_.end(),
                             [](Entry const& a, Entry const& b) { return *a.node < *b.node; });
            // First-wins: of equivalent nodes the first visit stays.
            auto const last = std::unique(entries_.begin(), entries_.end(),
                                          [](Entry const& a, Entry const& b) { return !(*a.node < *b.node); });
            entries_.erase(last, entries_.end());
            entries_.shrink_to_fit();
            byAddress_.build(entries_);
        }
    }

    AttributeList getAttributes(std::shared_ptr<Node> const& node) const override {
        auto const* entry = find(node);
        return entry == nullptr ? AttributeList{} : entry->list;
    }

    AttributeList getAttributes(std::shared_ptr<Node> const& node, Severity const& minimumSeverity) const override {
        auto const* entry = find(node);
        if (entry == nullptr) {
            return {};
        }
        if (minimumSeverity == Severity::Information) {
            return entry->list;
        }
        auto const threshold = static_cast<std::int32_t>(minimumSeverity);
        AttributeList result;
        for (auto const& attribute : entry->list) {
            if (static_cast<std::int32_t>(attribute->getSeverity()) >= threshold) {
                result.push_back(attribute);
            }
        }
        return result;
    }

    std::vector<std::shared_ptr<Node>> getNodesWith(AttributeIdentity const& identity) const override {
        std::vector<std::shared_ptr<Node>> result;
        for (auto const& [node, list] : entries_) {
            for (auto const& attribute : list) {
                if (*attribute->getIdentity() == identity) {
                    result.push_back(node);
                    break;
                }
            }
        }
        return result;
    }

    std::vector<std::shared_ptr<AttributeIdentity>> getAllProblemIdentities() const override {
        std::set<std::shared_ptr<AttributeIdentity>, IdentityValueLess> identities;
        for (auto const& [node, list] : entries_) {
            for (auto const& attribute : list) {
                if (attribute->getSeverity() != Severity::Information) {
                    identities.insert(attribute->getIdentity());
                }
            }
        }
        return {identities.begin(), identities.end()};
    }

private:
    Entry const* find(std::shared_ptr<Node> const& node) const {
        if (!node) {
            return nullptr;
        }
        if (graph_ != nullptr) {
            if (auto const place = graph_->placeOf(*node)) {
                auto const at = entryAtPlace_[*place];
                return at == none ? nullptr : &entries_[at];
            }
        } else if (auto const at = byAddress_.find(node.get())) {
            return &entries_[*at];
        }
        // Another object for a stored node: found by value.
        auto const it = std::lower_bound(entries_.begin(), entries_.end(), *node,
                                         [](Entry const& entry, Node const& sought) { return *entry.node < sought; });
        return it != entries_.end() && !(*node < *it->node) ? &*it : nullptr;
    }

    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    std::vector<Entry> entries_;  // ascending by node
    // Where the walk was over the graph's stored nodes: the graph, and the
    // entry of each of its places (none for a node without findings).
    std::shared_ptr<Graph const> graph_;
    std::vector<std::uint32_t> entryAtPlace_;
    // Else: the entries' node objects by address.
    EntryByAddress byAddress_;
};

}  // namespace

GraphAttributes::GraphAttributes() : Shareable("dependencies.internal.attribute.GraphAttributes") {}

GraphAttributes::~GraphAttributes() = default;

std::shared_ptr<GraphAttributes> analyzeGraph(std::shared_ptr<Graph const> const& graph,
                                              std::vector<std::shared_ptr<AttributeAnalyzer>> const& analyzers) {
    auto result = std::make_shared<GraphAttributesImpl>();
    // The analyzers ask the system about each file once in this walk, however
    // many of the graph's nodes name it.
    fl::filesystem::SharedStatus const sharedStatus;
    // A graph that yields its stored nodes yields them in position order,
    // each once: an entry's position is then the count of nodes before it.
    bool const stored = graph->yieldsStoredNodes();
    std::vector<std::uint32_t> positions;
    if (stored) {
        // At most one entry per stored node: the room is asked for once, and
        // only the part that entries fill takes memory.
        result->reserve(graph->nodeCount());
        positions.reserve(graph->nodeCount());
    }
    std::uint32_t position = 0;
    for (auto const& node : graph->getNodes()) {
        AttributeList list;
        for (auto const& analyzer : analyzers) {
            auto found = analyzer->analyze(node, graph);
            if (list.empty()) {
                list = std::move(found);
            } else {
                list.insert(list.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
            }
        }
        if (!list.empty()) {
            result->add(node, std::move(list));
            if (stored) {
                positions.push_back(position);
            }
        }
        ++position;
    }
    result->order(graph, stored ? &positions : nullptr);
    return result;
}

}  // namespace dependency::attribute

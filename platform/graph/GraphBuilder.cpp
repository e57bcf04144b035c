#include "platform/graph/GraphBuilder.hpp"

#include "platform/graph/detail/GraphStore.hpp"

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace dependency::graph {

std::shared_ptr<Node> GraphBuilder::addNode(NodeData data) {
    std::uint64_t const hash = detail::NodeIndex::hashOf(data.id);
    return addNode(std::move(data), hash);
}

// The blocks grow from 4,096 nodes to 8 MiB of them (asked for in
// huge pages where the system offers them: a million nodes in small pages
// are tens of thousands of page faults), so that a small graph stays small.
class GraphBuilder::NodeArena {
public:
    NodeArena() = default;
    NodeArena(NodeArena const&) = delete;
    NodeArena& operator=(NodeArena const&) = delete;
    ~NodeArena() {
        for (std::size_t block = 0; block < blocks_.size(); ++block) {
            std::size_t const count = block + 1 == blocks_.size() ? used_ : blocks_[block].capacity;
            for (std::size_t i = 0; i < count; ++i) {
                at(block, i)->~Node();
            }
            detail::LargeArrayAllocator<char>().deallocate(blocks_[block].bytes,
                                                           blocks_[block].capacity * sizeof(Node));
        }
    }

    Node* add(NodeData&& data) {
        if (blocks_.empty() || used_ == blocks_.back().capacity) {
            std::size_t const capacity =
                blocks_.empty() ? firstBlockNodes : std::min(blocks_.back().capacity * 2, largestBlockNodes);
            blocks_.reserve(blocks_.size() + 1);
            blocks_.push_back({detail::LargeArrayAllocator<char>().allocate(capacity * sizeof(Node)), capacity});
            used_ = 0;
        }
        Node* const node = new (blocks_.back().bytes + used_ * sizeof(Node)) Node(std::move(data));
        ++used_;
        return node;
    }

    // Takes back the node added last (one whose ID turned out to be taken).
    void removeLast() noexcept {
        --used_;
        at(blocks_.size() - 1, used_)->~Node();
    }

private:
    static constexpr std::size_t firstBlockNodes = 4096;
    // As many nodes as fill 8 MiB, four huge pages: a block in huge pages
    // takes whole pages, so one that filled a page only in part would waste
    // the rest of it.
    static constexpr std::size_t largestBlockNodes = (std::size_t{8} << 20) / sizeof(Node);
    static_assert(alignof(Node) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    struct Block {
        char* bytes;
        std::size_t capacity;  // in nodes
    };
    Node* at(std::size_t block, std::size_t index) const noexcept {
        return std::launder(reinterpret_cast<Node*>(blocks_[block].bytes + index * sizeof(Node)));
    }
    std::vector<Block> blocks_;
    std::size_t used_ = 0;  // nodes in the last block
};

std::shared_ptr<Node> GraphBuilder::addNode(NodeData data, std::uint64_t idHash) {
    if (!arena_) {
        arena_ = std::make_shared<NodeArena>();
    }
    Node* const added = arena_->add(std::move(data));
    // The key views the ID inside the node, which never changes or moves.
    if (auto const existing = index_.insert(added->getID(), idHash)) {
        arena_->removeLast();
        throw DuplicateNodeError(*existing);
    }
    added->builtPosition_ = static_cast<std::uint32_t>(nodes_.size());
    nodes_.emplace_back(arena_, added);
    nodeTypes_.push_back(added->getType());
    return nodes_.back();
}

void GraphBuilder::reserve(std::size_t nodes) {
    nodes_.reserve(nodes);
    nodeTypes_.reserve(nodes);
    index_.reserve(nodes);
}

void GraphBuilder::reserveDependencies(std::size_t dependencies) {
    edges_.reserve(dependencies);
}

std::shared_ptr<Node> GraphBuilder::addNode(std::u16string id, Type type) {
    NodeData data;
    data.name = id;
    data.id = std::move(id);
    data.type = type;
    data.isFile = type == Type::FILE() || type == Type::DERIVED();
    return addNode(std::move(data));
}

std::optional<std::size_t> GraphBuilder::indexOf(std::u16string_view id) const {
    return index_.find(id);
}

void GraphBuilder::addDependency(std::u16string const& upstreamId, std::u16string const& downstreamId,
                                 Type relationship) {
    auto const upstream = indexOf(upstreamId);
    auto const downstream = indexOf(downstreamId);
    if (!upstream || !downstream) {
        throw std::invalid_argument("a dependency names a node that was not added");
    }
    addDependency(*upstream, *downstream, relationship);
}

void GraphBuilder::addDependency(std::size_t upstreamIndex, std::size_t downstreamIndex, Type relationship) {
    if (upstreamIndex >= nodes_.size() || downstreamIndex >= nodes_.size()) {
        throw std::out_of_range("a dependency names a node index past the last node");
    }
    // Node positions fit 32 bits: the index refuses more nodes than that.
    edges_.push_back(
        Edge{static_cast<std::uint32_t>(upstreamIndex), static_cast<std::uint32_t>(downstreamIndex), relationship});
}

std::shared_ptr<Graph const> GraphBuilder::build() {
    if (edges_.size() >= std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("a graph can hold at most 4294967294 dependencies");
    }
    auto store = std::make_shared<detail::GraphStore>();
    store->nodes = std::move(nodes_);
    std::size_t const nodeCount = store->nodes.size();

    // Each node's edges are grouped, in the order they were added: a counting
    // sort by upstream node, skipped when the edges came grouped already.
    std::vector<std::uint32_t> firstDependency(nodeCount + 1, 0);
    bool grouped = true;
    for (std::size_t i = 0; i < edges_.size(); ++i) {
        ++firstDependency[edges_[i].upstream + 1];
        grouped = grouped && (i == 0 || edges_[i - 1].upstream <= edges_[i].upstream);
    }
    for (std::size_t i = 1; i <= nodeCount; ++i) {
        firstDependency[i] += firstDependency[i - 1];
    }
    std::vector<std::uint32_t> order;
    if (!grouped) {
        order.resize(edges_.size());
        std::vector<std::uint32_t> next(firstDependency.begin(), firstDependency.end() - 1);
        for (std::size_t i = 0; i < edges_.size(); ++i) {
            order[next[edges_[i].upstream]++] = static_cast<std::uint32_t>(i);
        }
    }

    // The edges live in the store, side by side, and refer to their nodes'
    // entries in its node table: making one allocates nothing and touches
    // neither node (the downstream node's type comes from the builder's own
    // list of types). Every edge handed out shares ownership of the store.
    auto const& nodes = store->nodes;
    store->dependencies.reserve(edges_.size());
    for (std::size_t k = 0; k < edges_.size(); ++k) {
        Edge const& edge = edges_[grouped ? k : order[k]];
        store->dependencies.push_back(
            Dependency(&nodes[edge.upstream], &nodes[edge.downstream], edge.relationship, nodeTypes_[edge.downstream]));
    }
    std::vector<Type>().swap(nodeTypes_);
    edges_.clear();
    edges_.shrink_to_fit();
    std::vector<std::uint32_t>().swap(order);
    std::vector<std::shared_ptr<Dependency>> dependencies;
    dependencies.reserve(store->dependencies.size());
    for (auto& dependency : store->dependencies) {
        dependencies.emplace_back(store, &dependency);
    }

    std::shared_ptr<Graph const> graph(
        new Graph(std::move(store), std::move(dependencies), std::move(firstDependency), std::move(index_)));
    nodes_.clear();
    arena_.reset();
    index_.clear();
    edges_.clear();
    edges_.shrink_to_fit();
    return graph;
}

}  // namespace dependency::graph

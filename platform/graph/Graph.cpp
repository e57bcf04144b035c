#include "platform/graph/Graph.hpp"

#include "platform/graph/detail/GraphStore.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace dependency::graph {

namespace {

constexpr std::array<std::string_view, 10> kTypeNames = {
    "file", "function", "package", "product", "project", "derived", "call", "inheritance", "reference", "requirement",
};

}  // namespace

// clang-format off
Type const& Type::FILE()        { static constexpr Type t(Kind::FILE);        return t; }
Type const& Type::FUNCTION()    { static constexpr Type t(Kind::FUNCTION);    return t; }
Type const& Type::PACKAGE()     { static constexpr Type t(Kind::PACKAGE);     return t; }
Type const& Type::PRODUCT()     { static constexpr Type t(Kind::PRODUCT);     return t; }
Type const& Type::PROJECT()     { static constexpr Type t(Kind::PROJECT);     return t; }
Type const& Type::DERIVED()     { static constexpr Type t(Kind::DERIVED);     return t; }
Type const& Type::CALL()        { static constexpr Type t(Kind::CALL);        return t; }
Type const& Type::INHERITANCE() { static constexpr Type t(Kind::INHERITANCE); return t; }
Type const& Type::REFERENCE()   { static constexpr Type t(Kind::REFERENCE);   return t; }
Type const& Type::REQUIREMENT() { static constexpr Type t(Kind::REQUIREMENT); return t; }
// clang-format on

std::string_view Type::name() const noexcept {
    return kTypeNames[static_cast<std::size_t>(kind_)];
}

std::optional<Type> Type::fromName(std::string_view name) noexcept {
    auto const it = std::find(kTypeNames.begin(), kTypeNames.end(), name);
    if (it == kTypeNames.end()) {
        return std::nullopt;
    }
    return Type(static_cast<Kind>(it - kTypeNames.begin()));
}

std::vector<Type> const& Type::all() {
    static std::vector<Type> const types = [] {
        std::vector<Type> result;
        for (std::size_t i = 0; i < kTypeNames.size(); ++i) {
            result.emplace_back(static_cast<Kind>(i));
        }
        return result;
    }();
    return types;
}

Node::Node(NodeData data)
    : id_(std::move(data.id)),
      type_(data.type),
      isFile_(data.isFile),
      resolved_(data.resolved),
      nameIsId_(data.name == id_),
      hasLocation_(!data.location.empty()) {
    if (!nameIsId_ && !data.name.empty()) {
        if (data.name.size() > std::numeric_limits<std::uint32_t>::max()) {
            throw std::length_error("a node's name is longer than 4,294,967,295 UTF-16 code units");
        }
        nameLength_ = static_cast<std::uint32_t>(data.name.size());
        name_ = std::make_unique_for_overwrite<char16_t[]>(data.name.size());
        std::copy(data.name.begin(), data.name.end(), name_.get());
    }
    bool const pathBesideLocation = hasLocation_ && !data.pathIsFirstLocation && data.path != data.location.front();
    if (!data.properties.empty() || pathBesideLocation) {
        rare_ = std::make_unique<Rare const>(
            Rare{std::move(data.properties),
                 pathBesideLocation ? std::optional<std::u16string>(std::move(data.path)) : std::nullopt});
    }
    // The union's member is made last: nothing after it can throw, so once it
    // exists the constructor completes, and the destructor is what ends it.
    if (hasLocation_) {
        new (&location_) std::vector<std::u16string>(std::move(data.location));
    } else {
        new (&path_) std::u16string(std::move(data.path));
    }
}

Node::~Node() {
    if (hasLocation_) {
        location_.~vector();
    } else {
        path_.~basic_string();
    }
}

std::vector<std::u16string> const& Node::noLocation() noexcept {
    static std::vector<std::u16string> const none;
    return none;
}

Properties const& Node::getProperties() const noexcept {
    static Properties const none;
    return rare_ ? rare_->properties : none;
}

std::optional<std::u16string> Node::getProperty(std::u16string const& key) const {
    if (!rare_) {
        return std::nullopt;
    }
    auto const it = rare_->properties.find(key);
    if (it == rare_->properties.end()) {
        return std::nullopt;
    }
    return it->second;
}

// std::u16string compares char16_t values, which are unsigned: code-unit order.
bool operator<(Node const& a, Node const& b) noexcept {
    return a.getID() < b.getID();
}

bool operator==(Node const& a, Node const& b) noexcept {
    return a.getID() == b.getID();
}

Dependency::Dependency(std::shared_ptr<Node> upstream, std::shared_ptr<Node> downstream, Type relationship)
    : upstream_(nullptr),
      downstream_(nullptr),
      relationship_(relationship),
      downstreamType_(downstream ? downstream->getType() : Type::FILE()) {
    if (!upstream || !downstream) {
        throw std::invalid_argument("a dependency needs both of its nodes");
    }
    upstream_ = new std::shared_ptr<Node>[2] { std::move(upstream), std::move(downstream) };
    downstream_ = upstream_ + 1;
    owned_ = true;
}

Dependency::Dependency(std::shared_ptr<Node> const* upstream, std::shared_ptr<Node> const* downstream,
                       Type relationship, Type downstreamType) noexcept
    : upstream_(upstream), downstream_(downstream), relationship_(relationship), downstreamType_(downstreamType) {}

Dependency::~Dependency() {
    if (owned_) {
        delete[] upstream_;
    }
}

Dependency::Dependency(Dependency&& other) noexcept
    : upstream_(other.upstream_),
      downstream_(other.downstream_),
      relationship_(other.relationship_),
      downstreamType_(other.downstreamType_),
      owned_(std::exchange(other.owned_, false)) {}

Graph::Graph() : store_(std::make_shared<detail::GraphStore const>()), firstDependency_{0} {}

Graph::Graph(std::vector<std::shared_ptr<Node>> nodes, std::vector<std::shared_ptr<Dependency>> dependencies) {
    auto store = std::make_shared<detail::GraphStore>();
    store->nodes = std::move(nodes);
    indexById_.reserve(store->nodes.size());
    for (auto const& node : store->nodes) {
        if (!node) {
            throw std::invalid_argument("a graph cannot hold a null node");
        }
        if (indexById_.insert(node->getID())) {
            throw std::invalid_argument("a graph cannot hold two nodes with one ID");
        }
    }
    if (dependencies.size() >= std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("a graph can hold at most 4294967294 dependencies");
    }
    // Grouped by upstream node, each group in the given order.
    std::vector<std::uint32_t> upstreamOf(dependencies.size());
    firstDependency_.assign(store->nodes.size() + 1, 0);
    for (std::size_t i = 0; i < dependencies.size(); ++i) {
        auto const upstream = indexById_.find(dependencies[i]->getUpstreamNode()->getID());
        if (!upstream || !indexById_.find(dependencies[i]->getDownstreamNode()->getID())) {
            throw std::invalid_argument("a dependency must join two nodes of its graph");
        }
        upstreamOf[i] = static_cast<std::uint32_t>(*upstream);
        ++firstDependency_[*upstream + 1];
    }
    for (std::size_t i = 1; i < firstDependency_.size(); ++i) {
        firstDependency_[i] += firstDependency_[i - 1];
    }
    dependencies_.resize(dependencies.size());
    std::vector<std::uint32_t> next(firstDependency_.begin(), firstDependency_.end() - 1);
    for (std::size_t i = 0; i < dependencies.size(); ++i) {
        dependencies_[next[upstreamOf[i]]++] = std::move(dependencies[i]);
    }
    store_ = std::move(store);
}

Graph::Graph(std::shared_ptr<detail::GraphStore const> store, std::vector<std::shared_ptr<Dependency>> dependencies,
             std::vector<std::uint32_t> firstDependency, detail::NodeIndex index)
    : store_(std::move(store)),
      dependencies_(std::move(dependencies)),
      firstDependency_(std::move(firstDependency)),
      indexById_(std::move(index)) {}

Graph::~Graph() = default;

std::size_t Graph::nodeCount() const noexcept {
    return store_->nodes.size();
}

NodeRange Graph::getNodes() const {
    return NodeRange(store_->nodes);
}

std::optional<std::size_t> Graph::placeOf(Node const& node) const noexcept {
    auto const& nodes = store_->nodes;
    if (node.builtPosition_ < nodes.size() && nodes[node.builtPosition_].get() == &node) {
        return node.builtPosition_;
    }
    return std::nullopt;
}

std::shared_ptr<Node> const& Graph::nodeAt(std::size_t place) const noexcept {
    return store_->nodes[place];
}

std::optional<std::size_t> Graph::positionOf(Node const& node) const {
    if (auto const place = placeOf(node)) {
        return place;
    }
    return indexById_.find(node.getID());
}

DependencyRange Graph::getDownstreamDependencies(Node const& node) const {
    auto const position = positionOf(node);
    if (!position) {
        return {};
    }
    auto const begin = dependencies_.begin();
    return DependencyRange(
        boost::make_iterator_range(begin + firstDependency_[*position], begin + firstDependency_[*position + 1]));
}

namespace {

// Orders node positions by ID (code-unit order) without comparing strings
// whole: the IDs are sorted by a 64-bit key of four code units at a time, and
// only runs of IDs that agree in those units are sorted again by the next
// four. IDs that end within the units of a run come first, shorter before
// longer (a string is less than any longer string it begins). Runs are kept on
// an explicit stack, so no ID is too long for it.
std::vector<std::uint32_t> sortPositionsById(std::vector<std::shared_ptr<Node>> const& nodes) {
    constexpr std::size_t unitsPerKey = 4;
    std::vector<std::uint32_t> order(nodes.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = static_cast<std::uint32_t>(i);
    }
    struct Keyed {
        std::uint64_t key;
        std::uint32_t position;
    };
    struct Run {
        std::size_t begin;
        std::size_t end;
        std::size_t depth;  // code units already known to agree
    };
    auto const keyOf = [&](std::uint32_t position, std::size_t depth) {
        std::u16string const& id = nodes[position]->getID();
        std::uint64_t key = 0;
        for (std::size_t k = 0; k < unitsPerKey; ++k) {
            std::size_t const at = depth + k;
            key = (key << 16) | (at < id.size() ? id[at] : 0u);
        }
        return key;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(order.size());  // the first run is every node
    std::vector<Run> runs{{0, order.size(), 0}};
    while (!runs.empty()) {
        Run const run = runs.back();
        runs.pop_back();
        keyed.clear();
        for (std::size_t i = run.begin; i < run.end; ++i) {
            keyed.push_back({keyOf(order[i], run.depth), order[i]});
        }
        std::sort(keyed.begin(), keyed.end(), [](Keyed const& a, Keyed const& b) { return a.key < b.key; });
        for (std::size_t i = 0; i < keyed.size(); ++i) {
            order[run.begin + i] = keyed[i].position;
        }
        std::size_t const next = run.depth + unitsPerKey;
        for (std::size_t i = 0; i < keyed.size();) {
            std::size_t j = i + 1;
            while (j < keyed.size() && keyed[j].key == keyed[i].key) {
                ++j;
            }
            if (j - i > 1) {
                auto const first = order.begin() + static_cast<std::ptrdiff_t>(run.begin + i);
                auto const last = order.begin() + static_cast<std::ptrdiff_t>(run.begin + j);
                auto const ended = [&](std::uint32_t position) { return nodes[position]->getID().size() <= next; };
                auto const middle = std::stable_partition(first, last, ended);
                std::stable_sort(first, middle, [&](std::uint32_t a, std::uint32_t b) {
                    return nodes[a]->getID().size() < nodes[b]->getID().size();
                });
                if (last - middle > 1) {
                    runs.push_back({static_cast<std::size_t>(middle - order.begin()),
                                    static_cast<std::size_t>(last - order.begin()), next});
                }
            }
            i = j;
        }
    }
    return order;
}

}  // namespace

bool Graph::yieldsStoredNodes() const noexcept {
    return typeid(*this) == typeid(Graph);
}

std::vector<std::uint32_t> const& Graph::positionsInIdOrder() const {
    std::call_once(idOrderMade_, [this] { idOrder_ = sortPositionsById(store_->nodes); });
    return idOrder_;
}

std::vector<std::shared_ptr<Node>> Graph::nodesInIdOrder() const {
    std::vector<std::shared_ptr<Node>> nodes;
    if (yieldsStoredNodes()) {
        auto const& order = positionsInIdOrder();
        nodes.reserve(order.size());
        for (auto const position : order) {
            nodes.push_back(store_->nodes[position]);
        }
        return nodes;
    }
    for (auto const& node : getNodes()) {
        nodes.push_back(node);
    }
    std::stable_sort(nodes.begin(), nodes.end(), [](auto const& a, auto const& b) { return *a < *b; });
    return nodes;
}

std::shared_ptr<Node> Graph::findNode(std::u16string_view id) const {
    auto const position = indexById_.find(id);
    return position ? store_->nodes[*position] : nullptr;
}

}  // namespace dependency::graph

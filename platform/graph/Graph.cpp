#include "platform/graph/Graph.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

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

Node::Node(NodeData data) : data_(std::move(data)) {}

std::optional<std::u16string> Node::getProperty(std::u16string const& key) const {
    auto const it = data_.properties.find(key);
    if (it == data_.properties.end()) {
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
    : upstream_(std::move(upstream)), downstream_(std::move(downstream)), relationship_(relationship) {
    if (!upstream_ || !downstream_) {
        throw std::invalid_argument("a dependency needs both of its nodes");
    }
}

Graph::Graph() = default;

Graph::Graph(std::vector<std::shared_ptr<Node>> nodes, std::vector<std::shared_ptr<Dependency>> dependencies)
    : nodes_(std::move(nodes)), downstream_(nodes_.size()), dependencyCount_(dependencies.size()) {
    indexById_.reserve(nodes_.size());
    for (auto const& node : nodes_) {
        if (!node) {
            throw std::invalid_argument("a graph cannot hold a null node");
        }
        if (indexById_.insert(node->getID())) {
            throw std::invalid_argument("a graph cannot hold two nodes with one ID");
        }
    }
    for (auto& dependency : dependencies) {
        auto const upstream = indexById_.find(dependency->getUpstreamNode()->getID());
        if (!upstream || !indexById_.find(dependency->getDownstreamNode()->getID())) {
            throw std::invalid_argument("a dependency must join two nodes of its graph");
        }
        downstream_[*upstream].push_back(std::move(dependency));
    }
}

Graph::Graph(std::vector<std::shared_ptr<Node>> nodes, Adjacency downstream, detail::NodeIndex index,
             std::size_t dependencyCount)
    : nodes_(std::move(nodes)),
      downstream_(std::move(downstream)),
      indexById_(std::move(index)),
      dependencyCount_(dependencyCount) {}

Graph::~Graph() = default;

NodeRange Graph::getNodes() const {
    return NodeRange(nodes_);
}

DependencyRange Graph::getDownstreamDependencies(Node const& node) const {
    auto const position = indexById_.find(node.getID());
    if (!position) {
        return {};
    }
    return DependencyRange(downstream_[*position]);
}

std::shared_ptr<Node> Graph::findNode(std::u16string_view id) const {
    auto const position = indexById_.find(id);
    return position ? nodes_[*position] : nullptr;
}

}  // namespace dependency::graph

#pragma once
// The dependency-graph model: node and relationship kinds, nodes, typed edges
// and the read-only graph that analyzers walk.

#include "platform/graph/detail/NodeIndex.hpp"

#include <boost/range/any_range.hpp>

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dependency::graph {

// A node kind or a relationship kind. A thin wrapper of an enumeration so that
// values copy and compare cheaply; the named kinds are reached through the
// static functions, which return references to constants.
class Type {
public:
    enum class Kind : std::uint8_t {
        // node kinds
        FILE,
        FUNCTION,
        PACKAGE,
        PRODUCT,
        PROJECT,
        // relationship kinds; DERIVED also names a derived-file node
        DERIVED,
        CALL,
        INHERITANCE,
        REFERENCE,
        REQUIREMENT,
    };

    constexpr explicit Type(Kind kind) noexcept : kind_(kind) {}

    static Type const& FILE();
    static Type const& FUNCTION();
    static Type const& PACKAGE();
    static Type const& PRODUCT();
    static Type const& PROJECT();
    static Type const& DERIVED();
    static Type const& CALL();
    static Type const& INHERITANCE();
    static Type const& REFERENCE();
    static Type const& REQUIREMENT();

    constexpr Kind kind() const noexcept { return kind_; }

    // Lower-case name as written in graph files ("file", "derived", ...).
    std::string_view name() const noexcept;
    // The kind whose name() is `name`, or nothing.
    static std::optional<Type> fromName(std::string_view name) noexcept;
    // Every kind, in enumeration order.
    static std::vector<Type> const& all();

    friend constexpr bool operator==(Type const& a, Type const& b) noexcept { return a.kind_ == b.kind_; }

private:
    Kind kind_;
};

using Properties = std::map<std::u16string, std::u16string, std::less<>>;

// Everything a node is made of; the graph builder and the loader fill one in.
struct NodeData {
    std::u16string id{};
    std::u16string name{};
    Type type = Type::FILE();
    std::u16string path{};
    std::vector<std::u16string> location{};
    bool isFile = false;
    bool resolved = true;
    Properties properties{};
    // When set, the path is the first location entry, and `path` is not read.
    bool pathIsFirstLocation = false;
};

// One node of the graph. Immutable; held through std::shared_ptr<Node>.
// Nodes are identified by their ID: ordering and equality compare IDs only,
// so two node objects made separately for the same ID are equivalent.
//
// A large graph holds millions of nodes, so a node keeps what it is given
// without repeating it: a name equal to the ID and a path equal to the first
// location entry are kept once, and a node without properties holds none.
class Node {
public:
    explicit Node(NodeData data);
    ~Node();
    Node(Node const&) = delete;
    Node& operator=(Node const&) = delete;

    std::u16string const& getID() const noexcept { return id_; }
    std::u16string getName() const {
        return nameIsId_ ? id_ : std::u16string(std::u16string_view(name_.get(), nameLength_));
    }
    std::u16string const& getPath() const noexcept {
        if (!hasLocation_) {
            return path_;
        }
        return rare_ != nullptr && rare_->path ? *rare_->path : location_.front();
    }
    std::vector<std::u16string> const& getLocation() const noexcept { return hasLocation_ ? location_ : noLocation(); }
    Type getType() const noexcept { return type_; }
    bool isFile() const noexcept { return isFile_; }
    bool isResolved() const noexcept { return resolved_; }
    std::optional<std::u16string> getProperty(std::u16string const& key) const;
    Properties const& getProperties() const noexcept;

private:
    friend class Graph;
    friend class GraphBuilder;
    // What few nodes have: properties, and a path beside a location whose
    // first entry it is not.
    struct Rare {
        Properties properties;
        std::optional<std::u16string> path;
    };
    static std::vector<std::u16string> const& noLocation() noexcept;

    std::u16string id_;
    // A node has a path, or a location whose first entry is its path (or
    // both, the path then kept with the rare parts): one place holds either.
    union {
        std::u16string path_;                   // without a location
        std::vector<std::u16string> location_;  // when it has one
    };
    std::unique_ptr<Rare const> rare_;  // null when the node has neither
    // The name's code units, when it is not the ID: a pointer, not a string
    // object, because most nodes' name is their ID.
    std::unique_ptr<char16_t[]> name_;
    Type type_;
    bool isFile_;
    bool resolved_;
    bool nameIsId_;
    bool hasLocation_;
    std::uint32_t nameLength_ = 0;
    // Where the builder that made the node put it, so that its graph finds
    // the node's edges without looking its ID up; a graph checks that the
    // node is really the one at that place before it trusts it.
    std::uint32_t builtPosition_ = std::numeric_limits<std::uint32_t>::max();
};

// Ordering by ID compared as unsigned UTF-16 code units; equality by ID.
bool operator<(Node const& a, Node const& b) noexcept;
bool operator==(Node const& a, Node const& b) noexcept;

namespace detail {
struct GraphStore;
}

// A typed edge: the upstream node depends on the downstream node.
class Dependency {
public:
    Dependency(std::shared_ptr<Node> upstream, std::shared_ptr<Node> downstream, Type relationship);
    ~Dependency();

    Dependency(Dependency&&) noexcept;
    Dependency& operator=(Dependency&&) = delete;

    std::shared_ptr<Node> getUpstreamNode() const { return *upstream_; }
    std::shared_ptr<Node> getDownstreamNode() const { return *downstream_; }
    Type getRelationship() const noexcept { return relationship_; }
    // The downstream node's type, kept in the edge: an analyzer that follows
    // only the edges to nodes of one type tells them apart without reaching
    // each node, which lies at a place of its own in memory.
    Type getDownstreamType() const noexcept { return downstreamType_; }

private:
    friend class GraphBuilder;
    // An edge of a built graph refers to its nodes' entries in the graph's
    // node table, which lives as long as any of the graph's edges.
    Dependency(std::shared_ptr<Node> const* upstream, std::shared_ptr<Node> const* downstream, Type relationship,
               Type downstreamType) noexcept;

    std::shared_ptr<Node> const* upstream_;
    std::shared_ptr<Node> const* downstream_;  // upstream_ + 1 when owned
    Type relationship_;
    Type downstreamType_;
    bool owned_ = false;  // both nodes held in an array of this edge's own (an edge made on its own)
};

using NodeRange = boost::any_range<std::shared_ptr<Node> const, boost::forward_traversal_tag,
                                   std::shared_ptr<Node> const&, std::ptrdiff_t>;
using DependencyRange = boost::any_range<std::shared_ptr<Dependency> const, boost::forward_traversal_tag,
                                         std::shared_ptr<Dependency> const&, std::ptrdiff_t>;

// A read-only dependency graph. Nodes are kept in insertion order; a node's
// downstream dependencies in the order they were added. Made by GraphBuilder
// (or the graph-file loader). The two range operations are virtual so that a
// graph can also be a view computed on demand.
class Graph {
public:
    Graph(std::vector<std::shared_ptr<Node>> nodes, std::vector<std::shared_ptr<Dependency>> dependencies);
    virtual ~Graph();

    Graph(Graph const&) = delete;
    Graph& operator=(Graph const&) = delete;

    // Every node once, in insertion order. Valid while the graph lives.
    virtual NodeRange getNodes() const;
    // The edges leaving `node` (looked up by ID); empty for an unknown node.
    virtual DependencyRange getDownstreamDependencies(Node const& node) const;

    std::size_t nodeCount() const noexcept;
    // Where this very node object lies among the stored nodes (0 to
    // nodeCount() - 1), or nothing for a node object the graph does not hold,
    // even one with the ID of a node it does. Constant time, no lookup.
    std::optional<std::size_t> placeOf(Node const& node) const noexcept;
    // The stored node at `place` (0 to nodeCount() - 1; placeOf's answer).
    std::shared_ptr<Node> const& nodeAt(std::size_t place) const noexcept;
    std::size_t dependencyCount() const noexcept { return dependencies_.size(); }
    // The node with this ID, or null.
    std::shared_ptr<Node> findNode(std::u16string_view id) const;

    // Whether getNodes() yields the graph's stored nodes, each once, in the
    // order they were added (true unless a derived graph computes its range).
    bool yieldsStoredNodes() const noexcept;
    // The positions (in getNodes() order) of the stored nodes, ordered by
    // node (operator<, that is by ID). Computed on first use, once, and safe
    // to ask for from several threads.
    std::vector<std::uint32_t> const& positionsInIdOrder() const;
    // The nodes getNodes() yields, ordered by node (operator<): from the ID
    // order above where the graph yields its stored nodes, else by sorting.
    std::vector<std::shared_ptr<Node>> nodesInIdOrder() const;

protected:
    Graph();

private:
    friend class GraphBuilder;
    // The place of `node` among the stored nodes, if it is one of them.
    std::optional<std::size_t> positionOf(Node const& node) const;
    // Takes over what a builder has made: the store with the nodes (and the
    // edges it made), the edges grouped by upstream node, where each node's
    // group begins, and the ID index, whose keys view the node IDs.
    Graph(std::shared_ptr<detail::GraphStore const> store, std::vector<std::shared_ptr<Dependency>> dependencies,
          std::vector<std::uint32_t> firstDependency, detail::NodeIndex index);

    std::shared_ptr<detail::GraphStore const> store_;
    // Every edge, grouped by upstream node in node order; the edges of node i
    // are [firstDependency_[i], firstDependency_[i + 1]).
    std::vector<std::shared_ptr<Dependency>> dependencies_;
    std::vector<std::uint32_t> firstDependency_;
    detail::NodeIndex indexById_;  // node positions by ID
    mutable std::once_flag idOrderMade_;
    mutable std::vector<std::uint32_t> idOrder_;
};

}  // namespace dependency::graph

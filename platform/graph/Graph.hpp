#pragma once
// The dependency-graph model: node and relationship kinds, nodes, typed edges
// and the read-only graph that analyzers walk.

#include "platform/graph/detail/NodeIndex.hpp"

#include <boost/range/any_range.hpp>

#include <cstdint>
#include <map>
#include <memory>
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
};

// One node of the graph. Immutable; held through std::shared_ptr<Node>.
// Nodes are identified by their ID: ordering and equality compare IDs only,
// so two node objects made separately for the same ID are equivalent.
class Node {
public:
    explicit Node(NodeData data);

    std::u16string const& getID() const noexcept { return data_.id; }
    std::u16string getName() const { return data_.name; }
    std::u16string const& getPath() const noexcept { return data_.path; }
    std::vector<std::u16string> const& getLocation() const noexcept { return data_.location; }
    Type getType() const noexcept { return data_.type; }
    bool isFile() const noexcept { return data_.isFile; }
    bool isResolved() const noexcept { return data_.resolved; }
    std::optional<std::u16string> getProperty(std::u16string const& key) const;
    Properties const& getProperties() const noexcept { return data_.properties; }

private:
    NodeData data_;
};

// Ordering by ID compared as unsigned UTF-16 code units; equality by ID.
bool operator<(Node const& a, Node const& b) noexcept;
bool operator==(Node const& a, Node const& b) noexcept;

// A typed edge: the upstream node depends on the downstream node.
class Dependency {
public:
    Dependency(std::shared_ptr<Node> upstream, std::shared_ptr<Node> downstream, Type relationship);

    std::shared_ptr<Node> getUpstreamNode() const { return upstream_; }
    std::shared_ptr<Node> getDownstreamNode() const { return downstream_; }
    Type getRelationship() const noexcept { return relationship_; }

private:
    std::shared_ptr<Node> upstream_;
    std::shared_ptr<Node> downstream_;
    Type relationship_;
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

    std::size_t nodeCount() const noexcept { return nodes_.size(); }
    std::size_t dependencyCount() const noexcept { return dependencyCount_; }
    // The node with this ID, or null.
    std::shared_ptr<Node> findNode(std::u16string_view id) const;

protected:
    Graph();

private:
    friend class GraphBuilder;
    using Adjacency = std::vector<std::vector<std::shared_ptr<Dependency>>>;
    // Takes over what a builder has already indexed; index keys view the node IDs.
    Graph(std::vector<std::shared_ptr<Node>> nodes, Adjacency downstream, detail::NodeIndex index,
          std::size_t dependencyCount);

    std::vector<std::shared_ptr<Node>> nodes_;
    Adjacency downstream_;          // parallel to nodes_
    detail::NodeIndex indexById_;  // node positions by ID
    std::size_t dependencyCount_ = 0;
};

}  // namespace dependency::graph

#pragma once
// The host classes that the platform itself provides:
//  - "qorvex.mixin.Heterogeneous": the empty marker superclass of classes whose
//    objects may share one heterogeneous array;
//  - "dependencies.internal.graph.Graph", "dependencies.internal.graph.Node" and
//    "dependencies.internal.graph.Dependency": bindings through which code in
//    the host language reads a dependency graph;
//  - "dependencies.internal.attribute.Registry": the host-language registry of
//    analyzers, whose constant property Instance holds the registry object and
//    whose property AttributeAnalyzers lists the registered analyzer objects.
// They are registered on the first class lookup; docs/host-runtime.md lists
// their properties and methods.

#include "platform/graph/Graph.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "services/HostClassNames.hpp"

#include <memory>

namespace dependency::services {

inline constexpr char const* GraphClassName = "dependencies.internal.graph.Graph";
inline constexpr char const* NodeClassName = "dependencies.internal.graph.Node";
inline constexpr char const* DependencyClassName = "dependencies.internal.graph.Dependency";

// Host objects that share ownership of the native graph or node. Both publish
// the native object to the binding registry.
qcos::COSInterfacePtr toGraphObject(std::shared_ptr<ImmutableGraph> const& graph);
qcos::COSInterfacePtr toNodeObject(std::shared_ptr<dependency::graph::Node> const& node);

// A graph object that keeps one host object per node for as long as it
// lives: its getNodes(), the UpstreamNode and DownstreamNode of its
// dependencies and nodeObjectIn(graphObject, node) give the same object for
// the same node, so host code can compare them (==, isequal) and keep them in
// visited sets. The analysis makes one per graph and analyzer.
qcos::COSInterfacePtr toNodeCachingGraphObject(std::shared_ptr<dependency::graph::Graph const> graph);
// The node's object from the graph object's cache (made on first use); a new
// object when the graph object keeps none.
qcos::COSInterfacePtr nodeObjectIn(qcos::COSInterface const& graphObject,
                                   std::shared_ptr<dependency::graph::Node> const& node);

// The node objects that a graph object made by toNodeCachingGraphObject keeps,
// for a caller that asks for nodes of one graph object again and again (an
// analysis, node after node): objectOf gives what nodeObjectIn gives, without
// looking the graph object up in the binding registry each time.
class NodeObjects {
public:
    virtual ~NodeObjects();
    virtual qcos::COSInterfacePtr objectOf(std::shared_ptr<dependency::graph::Node> const& node) = 0;
};
// Null when the graph object keeps no node objects.
std::shared_ptr<NodeObjects> nodeObjectsOf(qcos::COSInterface const& graphObject);

// What a native object stands for: the graph of a graph wrapper, the node or
// dependency of a node or dependency object's holder, else the object itself.
// Host objects whose natives stand for the same thing are the same object to
// host code (==, isequal), even when they were made apart.
void const* nativeIdentity(Shareable const& native) noexcept;

// The native objects behind host objects (the same objects, not copies).
// Objects of other classes are a qcos::HostError.
std::shared_ptr<ImmutableGraph> fromGraphObject(qcos::COSInterface const& object);
std::shared_ptr<dependency::graph::Node> fromNodeObject(qcos::COSInterface const& object);

// The same for element 0 of a host array: the graph as a shared, immutable
// Graph, and the node.
std::shared_ptr<dependency::graph::Graph const> fromScalarGraphQxArray(qxArray const& array);
std::shared_ptr<dependency::graph::Node> fromScalarNodeQxArray(qxArray const& array);

// A 1-by-N heterogeneous row of node objects in vector order (1-by-0 when empty).
qxArrayPtr toNodeVectorQxArray(std::vector<std::shared_ptr<dependency::graph::Node>> const& nodes);

}  // namespace dependency::services

namespace qcos::registry {

inline constexpr char const* RegistryClassName = "dependencies.internal.attribute.Registry";
inline constexpr char const* AnalyzerClassName = dependency::services::AttributeAnalyzerClassName;

// Appends an analyzer object (of class AttributeAnalyzer or a subclass) to
// Registry.Instance.AttributeAnalyzers.
void addAttributeAnalyzer(COSInterfacePtr analyzer);
// Empties Registry.Instance.AttributeAnalyzers (back to 1-by-0).
void clearAttributeAnalyzers();

}  // namespace qcos::registry

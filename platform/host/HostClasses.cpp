#include "platform/host/HostClasses.hpp"

#include "platform/host/detail/Runtime.hpp"

#include <fmt/format.h>

#include <cmath>
#include <mutex>
#include <unordered_map>

namespace dependency::services {

namespace {

using dependency::graph::Dependency;
using dependency::graph::Node;

// Node and Dependency are plain graph types; the binding registry holds
// Shareables, so each host object of these classes owns a small holder.
template <class T>
class Holder : public Shareable {
public:
    Holder(std::string const& hostClassName, std::shared_ptr<T> held)
        : Shareable(hostClassName), held_(std::move(held)) {}
    std::shared_ptr<T> const& held() const noexcept { return held_; }

private:
    std::shared_ptr<T> held_;
};

template <class T>
qcos::COSInterfacePtr toHeldObject(char const* className, std::shared_ptr<T> const& held) {
    if (!held) {
        throw qcos::HostError("qcos:binding:nullObject",
                              fmt::format("Cannot make a '{}' object of nothing.", className));
    }
    auto holder = std::make_shared<Holder<T>>(className, held);
    qcos::factory::basic::BindingRegistry::announce(holder, qcos::internal::makeInterned(className));
    return qcos::factory::full::acquireReference(holder);
}

// A graph that hands out one host object per node for as long as it lives:
// getNodes(), the nodes of its dependencies and nodeObjectIn give the object
// made the first time, so host code may compare nodes by object and keep them
// in sets. Node objects do not refer back to the graph object, so the cache
// makes no cycle; it goes with the graph object.
class NodeObjectCache final : public ImmutableGraph, public NodeObjects {
public:
    using ImmutableGraph::ImmutableGraph;

    qcos::COSInterfacePtr objectOf(std::shared_ptr<Node> const& node) override {
        std::lock_guard lock(mutex_);
        auto& slot = slotOf(*node);
        if (!slot) {
            slot = toHeldObject(NodeClassName, node);
        }
        return slot;
    }

private:
    // A node the graph holds has a slot at its place, found without a lookup
    // (an analysis asks for every node in turn); any other node object, one of
    // another graph say, is kept by its address.
    qcos::COSInterfacePtr& slotOf(Node const& node) {
        auto const& graph = *getGraph();
        if (auto const place = graph.placeOf(node)) {
            if (byPlace_.empty()) {
                byPlace_.resize(graph.nodeCount());
            }
            return byPlace_[*place];
        }
        return others_[&node];
    }

    std::mutex mutex_;
    std::vector<qcos::COSInterfacePtr> byPlace_;
    std::unordered_map<Node const*, qcos::COSInterfacePtr> others_;
};

// A dependency's host object remembers the graph object it came from, whose
// node objects its UpstreamNode and DownstreamNode are.
class DependencyHolder final : public Holder<Dependency> {
public:
    DependencyHolder(std::shared_ptr<Dependency> dependency, std::shared_ptr<NodeObjectCache> graph)
        : Holder<Dependency>(DependencyClassName, std::move(dependency)), graph_(std::move(graph)) {}

    qcos::COSInterfacePtr nodeObject(std::shared_ptr<Node> const& node) const {
        return graph_ ? graph_->objectOf(node) : toHeldObject(NodeClassName, node);
    }

private:
    std::shared_ptr<NodeObjectCache> graph_;
};

qcos::COSInterface const& self(std::span<qxArray const* const> inputs) {
    return *qcos::cosiGetArrayElement(*inputs[0], 0);
}

std::shared_ptr<DependencyHolder> dependencyHolder(qcos::COSInterface const& object) {
    return qcos::factory::impl::validateSelfPointer<DependencyHolder>(object);
}

std::shared_ptr<Dependency> fromDependencyObject(qcos::COSInterface const& object) {
    return dependencyHolder(object)->held();
}

qxArrayPtr text(std::u16string_view value) {
    return qxArray::createString(value);
}

std::vector<qxArrayPtr> one(qxArrayPtr value) {
    std::vector<qxArrayPtr> outputs;
    outputs.push_back(std::move(value));
    return outputs;
}

template <class T, class MakeObject>
qxArrayPtr objectRow(char const* className, std::vector<std::shared_ptr<T>> const& values, MakeObject makeObject) {
    auto row = qcos::omCreateQCOSMatrix(1, values.size(), className);
    for (std::size_t i = 0; i < values.size(); ++i) {
        qcos::omSetArrayElement(*row, i, makeObject(values[i]));
    }
    qcos::omSetClassOfHeterogeneousArray(*row, className);
    return row;
}

std::shared_ptr<NodeObjectCache> nodeCacheOf(std::shared_ptr<ImmutableGraph> const& graph) {
    return std::dynamic_pointer_cast<NodeObjectCache>(graph);
}

std::shared_ptr<qcos::COSClassInfo> makeNodeClass() {
    auto info = std::make_shared<qcos::QcosFactoryClassInfo>(NodeClassName);
    // Checked like fromNodeObject; the getters read the node while the object
    // they are called on holds it, so no shared pointer to it is copied.
    auto node = [](qcos::COSInterface const& object) -> Node const* {
        return qcos::factory::impl::validateSelf<Holder<Node>>(object).held().get();
    };
    info->addProperty(
        qcos::QcosProperty::withGetter("ID", "char", [=](auto const& o) { return text(node(o)->getID()); }));
    info->addProperty(
        qcos::QcosProperty::withGetter("Name", "char", [=](auto const& o) { return text(node(o)->getName()); }));
    info->addProperty(qcos::QcosProperty::withGetter("Type", "char", [=](auto const& o) {
        auto const name = node(o)->getType().name();
        return text(std::u16string(name.begin(), name.end()));
    }));
    info->addProperty(
        qcos::QcosProperty::withGetter("Path", "char", [=](auto const& o) { return text(node(o)->getPath()); }));
    info->addProperty(qcos::QcosProperty::withGetter(
        "IsFile", "logical scalar", [=](auto const& o) { return matrix::to_qorvex(node(o)->isFile()); }));
    info->addProperty(qcos::QcosProperty::withGetter(
        "IsResolved", "logical scalar", [=](auto const& o) { return matrix::to_qorvex(node(o)->isResolved()); }));
    info->addProperty(qcos::QcosProperty::withGetter("LocationCount", "double scalar", [=](auto const& o) {
        return matrix::to_qorvex(static_cast<double>(node(o)->getLocation().size()));
    }));

    qcos::QcosMethod getLocation("getLocation");
    getLocation.addSignature(
        qcos::createSignatureImpl({"char"}, {NodeClassName, "double scalar"}),
        [=](std::span<qxArray const* const> inputs, int) {
            auto const& location = node(self(inputs))->getLocation();
            double const position = inputs[1]->getDouble(0);
            if (!(position >= 1 && position <= static_cast<double>(location.size())) ||
                position != std::floor(position)) {
                throw qcos::HostError(
                    "graph:node:locationIndex",
                    fmt::format("Location entry {} does not exist; the node has {}.", position, location.size()));
            }
            return one(text(location[static_cast<std::size_t>(position) - 1]));
        });
    info->addMethod(std::move(getLocation));

    qcos::QcosMethod getProperty("getProperty");
    getProperty.addSignature(qcos::createSignatureImpl({"any"}, {NodeClassName, "QcosFactoryString scalar"}),
                             [=](std::span<qxArray const* const> inputs, int) {
                                 auto value = node(self(inputs))->getProperty(inputs[1]->getString());
                                 return one(value ? text(*value) : qxArray::createEmpty());
                             });
    info->addMethod(std::move(getProperty));

    qcos::QcosMethod hasProperty("hasProperty");
    hasProperty.addSignature(qcos::createSignatureImpl({"logical scalar"}, {NodeClassName, "QcosFactoryString scalar"}),
                             [=](std::span<qxArray const* const> inputs, int) {
                                 auto const value = node(self(inputs))->getProperty(inputs[1]->getString());
                                 return one(matrix::to_qorvex(value.has_value()));
                             });
    info->addMethod(std::move(hasProperty));
    return info;
}

std::shared_ptr<qcos::COSClassInfo> makeDependencyClass() {
    auto info = std::make_shared<qcos::QcosFactoryClassInfo>(DependencyClassName);
    info->addProperty(qcos::QcosProperty::withGetter("UpstreamNode", NodeClassName, [](auto const& o) {
        auto const holder = dependencyHolder(o);
        return qcos::omCreateQCOSScalar(holder->nodeObject(holder->held()->getUpstreamNode()));
    }));
    info->addProperty(qcos::QcosProperty::withGetter("DownstreamNode", NodeClassName, [](auto const& o) {
        auto const holder = dependencyHolder(o);
        return qcos::omCreateQCOSScalar(holder->nodeObject(holder->held()->getDownstreamNode()));
    }));
    info->addProperty(qcos::QcosProperty::withGetter("Relationship", "char", [](auto const& o) {
        auto const name = fromDependencyObject(o)->getRelationship().name();
        return text(std::u16string(name.begin(), name.end()));
    }));
    return info;
}

std::shared_ptr<qcos::COSClassInfo> makeGraphClass() {
    auto info = std::make_shared<qcos::QcosFactoryClassInfo>(GraphClassName);
    info->addProperty(qcos::QcosProperty::withGetter("NodeCount", "double scalar", [](auto const& o) {
        return matrix::to_qorvex(static_cast<double>(fromGraphObject(o)->getGraph()->nodeCount()));
    }));

    std::string const nodeVector = std::string(NodeClassName) + " vector";
    qcos::QcosMethod getNodes("getNodes");
    getNodes.addSignature(
        qcos::createSignatureImpl({nodeVector}, {GraphClassName}), [](std::span<qxArray const* const> inputs, int) {
            auto const wrapper = fromGraphObject(self(inputs));
            auto const graph = wrapper->getGraph();
            std::vector<std::shared_ptr<Node>> nodes(graph->getNodes().begin(), graph->getNodes().end());
            if (auto const cache = nodeCacheOf(wrapper)) {
                return one(objectRow(NodeClassName, nodes, [&](auto const& node) { return cache->objectOf(node); }));
            }
            return one(toNodeVectorQxArray(nodes));
        });
    info->addMethod(std::move(getNodes));

    qcos::QcosMethod getDownstream("getDownstreamDependencies");
    getDownstream.addSignature(
        qcos::createSignatureImpl({std::string(DependencyClassName) + " vector"}, {GraphClassName, NodeClassName}),
        [](std::span<qxArray const* const> inputs, int) {
            auto const wrapper = fromGraphObject(self(inputs));
            auto const graph = wrapper->getGraph();
            auto const node = fromScalarNodeQxArray(*inputs[1]);
            auto const range = graph->getDownstreamDependencies(*node);
            std::vector<std::shared_ptr<Dependency>> dependencies(range.begin(), range.end());
            auto const cache = nodeCacheOf(wrapper);
            return one(objectRow(DependencyClassName, dependencies, [&](auto const& dependency) {
                auto holder = std::make_shared<DependencyHolder>(dependency, cache);
                qcos::factory::basic::BindingRegistry::announce(holder,
                                                                qcos::internal::makeInterned(DependencyClassName));
                return qcos::factory::full::acquireReference(holder);
            }));
        });
    info->addMethod(std::move(getDownstream));
    return info;
}

std::shared_ptr<qcos::COSClassInfo> makeRegistryClass() {
    auto info = std::make_shared<qcos::COSClassInfo>(qcos::registry::RegistryClassName);
    auto analyzers = qcos::omCreateQCOSMatrix(1, 0, qcos::registry::AnalyzerClassName);
    analyzers->setObjectClass(qcos::registry::AnalyzerClassName, true);
    info->addProperty(qcos::QcosProperty::stored("AttributeAnalyzers", std::move(analyzers)));
    // The one registry object; made from the descriptor itself because class
    // lookups are not available while the platform registers its classes.
    auto instance = qcos::detail::makeScriptObject(*info);
    info->addProperty(qcos::QcosProperty::constant("Instance", qcos::omCreateQCOSScalar(instance)));
    return info;
}

}  // namespace

qcos::COSInterfacePtr toGraphObject(std::shared_ptr<ImmutableGraph> const& graph) {
    if (!graph) {
        throw qcos::HostError("qcos:binding:nullObject", "Cannot make a graph object of nothing.");
    }
    qcos::factory::basic::BindingRegistry::announce(graph, qcos::internal::makeInterned(GraphClassName));
    return qcos::factory::full::acquireReference(graph);
}

qcos::COSInterfacePtr toNodeObject(std::shared_ptr<Node> const& node) {
    return toHeldObject(NodeClassName, node);
}

qcos::COSInterfacePtr toNodeCachingGraphObject(std::shared_ptr<dependency::graph::Graph const> graph) {
    if (!graph) {
        throw qcos::HostError("qcos:binding:nullObject", "Cannot make a graph object of nothing.");
    }
    return toGraphObject(std::make_shared<NodeObjectCache>(std::move(graph)));
}

void const* nativeIdentity(Shareable const& native) noexcept {
    if (auto const* graph = dynamic_cast<ImmutableGraph const*>(&native)) {
        return graph->getGraph().get();
    }
    if (auto const* node = dynamic_cast<Holder<Node> const*>(&native)) {
        return node->held().get();
    }
    if (auto const* dependency = dynamic_cast<Holder<Dependency> const*>(&native)) {
        return dependency->held().get();
    }
    return &native;
}

NodeObjects::~NodeObjects() = default;

std::shared_ptr<NodeObjects> nodeObjectsOf(qcos::COSInterface const& graphObject) {
    return nodeCacheOf(fromGraphObject(graphObject));
}

qcos::COSInterfacePtr nodeObjectIn(qcos::COSInterface const& graphObject, std::shared_ptr<Node> const& node) {
    if (!node) {
        throw qcos::HostError("qcos:binding:nullObject", "Cannot make a node object of nothing.");
    }
    if (auto const cache = nodeCacheOf(fromGraphObject(graphObject))) {
        return cache->objectOf(node);
    }
    return toNodeObject(node);
}

std::shared_ptr<ImmutableGraph> fromGraphObject(qcos::COSInterface const& object) {
    return qcos::factory::impl::validateSelfPointer<ImmutableGraph>(object);
}

std::shared_ptr<Node> fromNodeObject(qcos::COSInterface const& object) {
    return qcos::factory::impl::validateSelfPointer<Holder<Node>>(object)->held();
}

std::shared_ptr<dependency::graph::Graph const> fromScalarGraphQxArray(qxArray const& array) {
    return fromGraphObject(*qcos::cosiGetArrayElement(array, 0))->getGraph();
}

std::shared_ptr<Node> fromScalarNodeQxArray(qxArray const& array) {
    return fromNodeObject(*qcos::cosiGetArrayElement(array, 0));
}

qxArrayPtr toNodeVectorQxArray(std::vector<std::shared_ptr<Node>> const& nodes) {
    return objectRow(NodeClassName, nodes, [](auto const& node) { return toHeldObject(NodeClassName, node); });
}

}  // namespace dependency::services

namespace qcos {

void detail::registerPlatformClasses() {
    // The marker superclass of classes whose objects may share one
    // heterogeneous array; it declares nothing.
    detail::insertClass(std::make_shared<COSClassInfo>("qorvex.mixin.Heterogeneous"), true);
    // The root of handle classes: objects of classes derived from it are
    // references, shared on assignment, while objects of other script classes
    // are values, copied before they are changed. It declares nothing.
    detail::insertClass(std::make_shared<COSClassInfo>("handle"), true);
    detail::insertClass(dependency::services::makeGraphClass(), true);
    detail::insertClass(dependency::services::makeNodeClass(), true);
    detail::insertClass(dependency::services::makeDependencyClass(), true);
    detail::insertClass(dependency::services::makeRegistryClass(), true);
}

namespace registry {

namespace {

// Serialises read-modify-write updates of the registry's analyzer list.
std::mutex& registryUpdateMutex() {
    static std::mutex mutex;
    return mutex;
}

COSInterfacePtr registryInstance() {
    auto const instance = omGetConstantProperty(RegistryClassName, "Instance");
    return omGetArrayElement(*instance, 0);
}

}  // namespace

void addAttributeAnalyzer(COSInterfacePtr analyzer) {
    std::lock_guard lock(registryUpdateMutex());
    auto instance = registryInstance();
    auto const current = omGetProperty(*instance, "AttributeAnalyzers");
    auto const count = current->getNumberOfElements();
    auto updated = omCreateQCOSMatrix(1, count + 1, AnalyzerClassName);
    for (std::size_t i = 0; i < count; ++i) {
        omSetArrayElement(*updated, i, current->getObject(i));
    }
    omSetArrayElement(*updated, count, std::move(analyzer));
    omSetClassOfHeterogeneousArray(*updated, AnalyzerClassName);
    omSetProperty(*instance, "AttributeAnalyzers", std::move(updated));
}

void clearAttributeAnalyzers() {
    std::lock_guard lock(registryUpdateMutex());
    auto instance = registryInstance();
    auto empty = omCreateQCOSMatrix(1, 0, AnalyzerClassName);
    omSetClassOfHeterogeneousArray(*empty, AnalyzerClassName);
    omSetProperty(*instance, "AttributeAnalyzers", std::move(empty));
}

}  // namespace registry
}  // namespace qcos

#include "services/QorvexAnalyzer.hpp"

#include "platform/host/HostClasses.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostExecution.hpp"
#include "services/HostObjects.hpp"

namespace dependency::attribute {

using AttributeList = std::vector<std::shared_ptr<Attribute>>;

namespace {

// Made once: every call names them.
std::string const& attributeClassName() {
    static std::string const name(services::AttributeClassName);
    return name;
}

std::string const& label() {
    static std::string const text("QorvexAnalyzer");
    return text;
}

}  // namespace

QorvexAnalyzer::QorvexAnalyzer(qcos::COSInterfacePtr const& analyzerObject)
    : analyzerObject_(analyzerObject), graphObjects_(std::make_shared<GraphObjects>()) {}

QorvexAnalyzer::~QorvexAnalyzer() = default;

AttributeList QorvexAnalyzer::analyze(std::shared_ptr<dependency::graph::Node> const& node,
                                      std::shared_ptr<dependency::graph::Graph const> const& graph) const {
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    // The closure owns its own references, so the objects outlive the caller's copies.
    std::function<AttributeList()> closure = [object = analyzerObject_, graphs = graphObjects_, node,
                                              graph]() -> AttributeList {
        auto const analyzer = qcos::omCreateQCOSScalar(object);
        qcos::COSInterfacePtr graphObjectRef;
        std::shared_ptr<services::NodeObjects> nodeObjects;
        {
            // One graph object per graph for the analyzer's life, so that host
            // code sees the same graph and node objects on every call.
            std::lock_guard lock(graphs->mutex);
            if (graphs->graph != graph || !graphs->object) {
                graphs->object = services::toNodeCachingGraphObject(graph);
                graphs->nodes = services::nodeObjectsOf(*graphs->object);
                graphs->graph = graph;
            }
            graphObjectRef = graphs->object;
            nodeObjects = graphs->nodes;
        }
        auto const graphObject = qcos::omCreateQCOSScalar(graphObjectRef);
        auto const nodeObject = qcos::omCreateQCOSScalar(nodeObjects ? nodeObjects->objectOf(node)
                                                                     : services::nodeObjectIn(*graphObjectRef, node));
        qxArray const* inputs[] = {analyzer.get(), nodeObject.get(), graphObject.get()};
        qxArrayPtr output;
        if (!qcos::omCallMethod(qcos::COSGetPublicClient(), "analyze", 1, &output, 3, inputs)) {
            computils::qcos::throwErrorCallingQorvexException("AttributeAnalyzer.analyze");
        }
        computils::qcos::validateType(*output, services::AttributeClassName);
        return services::detail::fromHostArray<Attribute>(*output, attributeClassName());
    };
    return services::detail::runOnCommandThread(vm, std::move(closure), label());
}

}  // namespace dependency::attribute

#include "services/QorvexAnalyzer.hpp"

#include "platform/host/HostClasses.hpp"
#include "platform/services/ImmutableGraph.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostExecution.hpp"
#include "services/HostObjects.hpp"

namespace dependency::attribute {

using AttributeList = std::vector<std::shared_ptr<Attribute>>;

QorvexAnalyzer::QorvexAnalyzer(qcos::COSInterfacePtr const& analyzerObject) : analyzerObject_(analyzerObject) {}

QorvexAnalyzer::~QorvexAnalyzer() = default;

AttributeList QorvexAnalyzer::analyze(std::shared_ptr<dependency::graph::Node> const& node,
                                      std::shared_ptr<dependency::graph::Graph const> const& graph) const {
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    // The closure owns its own references, so the objects outlive the caller's copies.
    std::function<AttributeList()> closure = [object = analyzerObject_, node, graph]() -> AttributeList {
        auto const analyzer = qcos::omCreateQCOSScalar(object);
        auto const graphObject =
            qcos::omCreateQCOSScalar(services::toGraphObject(std::make_shared<services::ImmutableGraph>(graph)));
        auto const nodeObject = qcos::omCreateQCOSScalar(services::toNodeObject(node));
        qxArray const* inputs[] = {analyzer.get(), nodeObject.get(), graphObject.get()};
        qxArrayPtr output;
        if (!qcos::omCallMethod(qcos::COSGetPublicClient(), "analyze", 1, &output, 3, inputs)) {
            computils::qcos::throwErrorCallingQorvexException("AttributeAnalyzer.analyze");
        }
        computils::qcos::validateType(*output, services::AttributeClassName);
        return services::detail::fromHostArray<Attribute>(*output, services::AttributeClassName);
    };
    return services::detail::runOnCommandThread(vm, std::move(closure), "QorvexAnalyzer");
}

}  // namespace dependency::attribute

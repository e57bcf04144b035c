#include "services/AttributeAnalyzerQCOS.hpp"

#include "attribute/AttributeAnalyzer.hpp"
#include "platform/host/HostClasses.hpp"
#include "services/HostClassNames.hpp"
#include "services/HostObjects.hpp"

namespace dependency::services {

AttributeAnalyzerQCOS::AttributeAnalyzerQCOS() : QcosFactoryClassInfo(AttributeAnalyzerClassName) {
    addSuperclass(HeterogeneousClassName);

    qcos::QcosMethod analyze("analyze");
    analyze.addSignature(
        qcos::createSignatureImpl({std::string(AttributeClassName) + " vector"},
                                  {AttributeAnalyzerClassName, NodeClassName, GraphClassName}),
        [](std::span<qxArray const* const> inputs, int) {
            auto const graph = fromGraphObject(*qcos::cosiGetArrayElement(*inputs[2], 0))->getGraph();
            auto const node = fromScalarNodeQxArray(*inputs[1]);
            auto const analyzer = detail::nativeOf<attribute::AttributeAnalyzer>(*inputs[0]);
            return detail::single(detail::toHostRow(analyzer->analyze(node, graph), AttributeClassName));
        });
    addMethod(std::move(analyze));
}

}  // namespace dependency::services

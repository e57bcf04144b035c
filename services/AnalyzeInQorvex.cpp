#include "services/AnalyzeInQorvex.hpp"

#include "attribute/GraphAttributes.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/Vm.hpp"
#include "services/AnalyzerRegistry.hpp"
#include "services/HostClassNames.hpp"

namespace dependency::services {

extern "C" void analyzeInQorvex(int nlhs, qxArray* plhs[], int nrhs, qxArray const* prhs[]) {
    matrix::detail::checkArgumentCounts(nlhs, 1, nrhs, 1, 2);
    auto const graph = fromScalarGraphQxArray(*prhs[0]);
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto const analyzers =
        nrhs == 1 ? attribute::getRegisteredAnalyzers(vm) : attribute::fromAttributeAnalyzerQxArray(*prhs[1], vm);
    auto const result = attribute::analyzeGraph(graph, analyzers);

    qcos::factory::basic::BindingRegistry::announce(result, qcos::internal::makeInterned(GraphAttributesClassName));
    auto const object = qcos::factory::full::acquireReference(result);
    plhs[0] = matrix::to_qorvex(object).release();
}

}  // namespace dependency::services

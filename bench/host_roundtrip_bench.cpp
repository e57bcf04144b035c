// Cost of handing work to a host VM's command thread and waiting for it: the
// round trip that every script-defined analyzer makes once per node.

#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "platform/services/NullStreamBuffer.hpp"

#include <benchmark/benchmark.h>

namespace {

cmddistributor::RunOptions nullOptions() {
    auto const sink = dependency::services::createNullStreamBuffer();
    return cmddistributor::RunOptions(sink, sink, {}, {});
}

template <class R>
R roundTrip(qvm::QVM& vm, cmddistributor::RunOptions const& options, std::function<R()> work) {
    auto iip = std::make_shared<cmddistributor::PackagedTaskIIP<R>>(std::move(work), "bench");
    auto request = std::make_shared<cmddistributor::Request<R>>(qvm::detail::createID(), std::move(iip));
    // Waited on through a task reference, as a script analyzer waits.
    qvm::detail::CmdDistributorTaskReference<R> task(vm.getCmdDistributor()->enqueueWithFuture(request, options));
    return task.get();
}

void BM_EmptyRequestRoundTrip(benchmark::State& state) {
    auto const vm = qvm::QVM::create();
    auto const options = nullOptions();
    for (auto _ : state) {
        benchmark::DoNotOptimize(roundTrip<int>(*vm, options, [] { return 1; }));
    }
}
BENCHMARK(BM_EmptyRequestRoundTrip);

// What a script analyzer's call does per node: wrap node and graph as host
// objects, dispatch "analyze" to the script class, check the result's class.
void BM_ScriptAnalyzeRoundTrip(benchmark::State& state) {
    static bool const defined = [] {
        qcos::ScriptClassBuilder("bench.host.NoFindings")
            .superclass("dependencies.internal.attribute.AttributeAnalyzer")
            .method("analyze",
                    [](auto, int) {
                        std::vector<qxArrayPtr> out;
                        out.push_back(qcos::omCreateQCOSMatrix(1, 0, "bench.host.Finding"));
                        return out;
                    })
            .define();
        return true;
    }();
    (void)defined;
    dependency::graph::GraphBuilder builder;
    auto node = builder.addNode(u"/work/file.qx", dependency::graph::Type::FILE());
    auto const graph = builder.build();
    auto const analyzer = qcos::omCreateObject("bench.host.NoFindings");
    auto const vm = qvm::QVM::create();
    auto const options = nullOptions();
    for (auto _ : state) {
        auto count = roundTrip<std::size_t>(*vm, options, [&] {
            auto const self = qcos::omCreateQCOSScalar(analyzer);
            auto const nodeArray = qcos::omCreateQCOSScalar(dependency::services::toNodeObject(node));
            auto const graphArray = qcos::omCreateQCOSScalar(
                dependency::services::toGraphObject(std::make_shared<dependency::services::ImmutableGraph>(graph)));
            qxArray const* inputs[] = {self.get(), nodeArray.get(), graphArray.get()};
            qxArrayPtr outputs[1];
            if (!qcos::omCallMethod(qcos::COSGetPublicClient(), "analyze", 1, outputs, 3, inputs)) {
                computils::qcos::throwErrorCallingQorvexException("bench");
            }
            computils::qcos::validateType(*outputs[0], "bench.host.Finding");
            return outputs[0]->getNumberOfElements();
        });
        benchmark::DoNotOptimize(count);
    }
}
BENCHMARK(BM_ScriptAnalyzeRoundTrip);

}  // namespace

BENCHMARK_MAIN();

// Cost of handing work to a host VM's command thread and waiting for it: the
// round trip that every script-defined analyzer makes once per node (the whole
// per-node cost of such an analyzer is in script_analyzer_bench.cpp).

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
    qvm::detail::CmdDistributorTaskReference<R> task(vm.getCmdDistributor()->enqueueWithFuture(request, options),
                                                     request->getIIP());
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

}  // namespace

BENCHMARK_MAIN();

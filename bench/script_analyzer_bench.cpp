// Per-node cost of an analyzer written in the host language, run by
// analyzeGraph through QorvexAnalyzer (a round trip to the VM's command
// thread, node and graph wrapped as host objects, "analyze" dispatched to the
// script class, its result checked and converted), against a native analyzer
// that does nothing, in the same run.
//
//   bench_script_analyzer --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
//       --benchmark_report_aggregates_only=true

#include "attribute/GraphAttributes.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/Qcos.hpp"
#include "services/Initialize.hpp"
#include "services/QorvexAnalyzer.hpp"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using dependency::attribute::Attribute;
using dependency::attribute::AttributeAnalyzer;

constexpr int NodeCount = 10'000;

std::shared_ptr<dependency::graph::Graph const> const& fileGraph() {
    static auto const graph = [] {
        dependency::graph::GraphBuilder builder;
        for (int i = 0; i < NodeCount; ++i) {
            auto const digits = std::to_string(i);
            builder.addNode(u"f" + std::u16string(digits.begin(), digits.end()), dependency::graph::Type::FILE());
        }
        return builder.build();
    }();
    return graph;
}

class NothingFound final : public AttributeAnalyzer {
public:
    std::vector<std::shared_ptr<Attribute>> analyze(
        std::shared_ptr<dependency::graph::Node> const&,
        std::shared_ptr<dependency::graph::Graph const> const&) const override {
        return {};
    }
};

std::shared_ptr<AttributeAnalyzer> scriptAnalyzer() {
    static bool const defined = [] {
        QLInitialize_depattr();
        qcos::ScriptClassBuilder("bench.analyzers.NothingFound")
            .superclass("dependencies.internal.attribute.AttributeAnalyzer")
            .method("analyze",
                    [](auto, int) {
                        std::vector<qxArrayPtr> out;
                        out.push_back(qcos::omCreateQCOSMatrix(1, 0, "dependencies.internal.attribute.Attribute"));
                        return out;
                    })
            .define();
        return true;
    }();
    (void)defined;
    return std::make_shared<dependency::attribute::QorvexAnalyzer>(
        qcos::omCreateObject("bench.analyzers.NothingFound"));
}

void run(benchmark::State& state, std::shared_ptr<AttributeAnalyzer> const& analyzer) {
    auto const& graph = fileGraph();
    for (auto _ : state) {
        benchmark::DoNotOptimize(dependency::attribute::analyzeGraph(graph, {analyzer}));
    }
    state.counters["per_node"] = benchmark::Counter(static_cast<double>(state.iterations()) * NodeCount,
                                                    benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_NativeAnalyzerPerNode(benchmark::State& state) {
    run(state, std::make_shared<NothingFound>());
}
BENCHMARK(BM_NativeAnalyzerPerNode)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ScriptAnalyzerPerNode(benchmark::State& state) {
    run(state, scriptAnalyzer());
}
BENCHMARK(BM_ScriptAnalyzerPerNode)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

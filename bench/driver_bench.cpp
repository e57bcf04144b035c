// analyzeGraph over generated graphs: a do-nothing analyzer measures the
// driver's own cost per node; one that reports on every tenth node adds the
// cost of storing results.
#include "attribute/GraphAttributes.hpp"
#include "platform/graph/GraphBuilder.hpp"

#include <benchmark/benchmark.h>

#include <string>

using namespace dependency::attribute;
using dependency::graph::Graph;
using dependency::graph::GraphBuilder;
using dependency::graph::Node;
using dependency::graph::Type;

namespace {

std::shared_ptr<Graph const> generatedGraph(std::int64_t nodes) {
    GraphBuilder builder;
    for (std::int64_t i = 0; i < nodes; ++i) {
        auto const id = std::to_string(i);
        builder.addNode(u"node" + std::u16string(id.begin(), id.end()), Type::FILE());
    }
    return builder.build();
}

class NothingFound final : public AttributeAnalyzer {
public:
    std::vector<std::shared_ptr<Attribute>> analyze(std::shared_ptr<Node> const&,
                                                    std::shared_ptr<Graph const> const&) const override {
        return {};
    }
};

class EveryTenth final : public AttributeAnalyzer {
public:
    std::vector<std::shared_ptr<Attribute>> analyze(std::shared_ptr<Node> const&,
                                                    std::shared_ptr<Graph const> const&) const override {
        if (++count_ % 10 != 0) {
            return {};
        }
        return {finding_};
    }

private:
    mutable std::uint64_t count_ = 0;
    std::shared_ptr<Attribute> finding_ = std::make_shared<Attribute>(
        std::make_shared<AttributeIdentity>(u"Bench", u"Benchmark finding", Severity::Warning),
        std::function<void()>{});
};

template <class Analyzer>
void analyzeGeneratedGraph(benchmark::State& state) {
    auto const graph = generatedGraph(state.range(0));
    std::vector<std::shared_ptr<AttributeAnalyzer>> const analyzers{std::make_shared<Analyzer>()};
    for (auto _ : state) {
        auto result = analyzeGraph(graph, analyzers);
        benchmark::DoNotOptimize(result);
    }
    // items_per_second counts nodes: 1e9 / items_per_second is the cost per node in ns.
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(analyzeGeneratedGraph<NothingFound>)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(analyzeGeneratedGraph<EveryTenth>)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

// An analyzer that checks one node property (is the node resolved?), written
// three ways and run over the same 10^5-node graph in the same run:
//  - in the host language: a class file run by the interpreter;
//  - in C++ behind the script-class builder: the same host-side road (a host
//    object whose "analyze" is called through the class-object system by a
//    QorvexAnalyzer), with the method written in C++;
//  - as a native C++ AttributeAnalyzer, called by the driver directly.
// Every analysis runs on the VM's command thread, where host code calls
// analyzeInQorvex, so no request crosses threads per node.
//
// BM_HostLanguageVersus* run the two analyzers they compare alternately, each
// iteration one analysis of each, and report the median ratio of their times.

#include "attribute/Attribute.hpp"
#include "attribute/AttributeIdentity.hpp"
#include "attribute/GraphAttributes.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "platform/host/lang/Language.hpp"
#include "platform/services/NullStreamBuffer.hpp"
#include "services/AnalyzerRegistry.hpp"

#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

namespace {

using dependency::attribute::Attribute;
using dependency::attribute::AttributeAnalyzer;
using dependency::attribute::AttributeIdentity;
using dependency::attribute::Severity;
using dependency::graph::Graph;
using dependency::graph::Node;
using Analyzers = std::vector<std::shared_ptr<AttributeAnalyzer>>;

constexpr std::size_t nodeCount = 100000;

char const* const hostAnalyzer = R"(classdef BenchUnresolved < dependencies.internal.attribute.AttributeAnalyzer
    properties (Constant)
        Identity = dependencies.internal.attribute.AttributeIdentity('Unresolved', 'Unresolved node', ...
            dependencies.internal.attribute.Severity.Warning)
    end
    methods
        function attributes = analyze(obj, node, ~)
            if node.IsResolved
                attributes = dependencies.internal.attribute.Attribute.empty(1, 0);
            else
                attributes = createAttribute(obj.Identity);
            end
        end
    end
end
)";

// Every tenth node unresolved.
std::shared_ptr<Graph const> makeGraph() {
    dependency::graph::GraphBuilder builder;
    builder.reserve(nodeCount);
    for (std::size_t i = 0; i < nodeCount; ++i) {
        dependency::graph::NodeData data;
        data.id = u"node" + std::u16string(std::to_string(i).begin(), std::to_string(i).end());
        data.resolved = i % 10 != 0;
        builder.addNode(std::move(data));
    }
    return builder.build();
}

std::shared_ptr<AttributeIdentity> identity() {
    static auto const shared =
        std::make_shared<AttributeIdentity>(u"Unresolved", u"Unresolved node", Severity::Warning);
    return shared;
}

class NativeUnresolved final : public AttributeAnalyzer {
public:
    std::vector<std::shared_ptr<Attribute>> analyze(std::shared_ptr<Node> const& node,
                                                    std::shared_ptr<Graph const> const&) const override {
        if (node->isResolved()) {
            return {};
        }
        return {std::make_shared<Attribute>(identity(), std::function<void()>{})};
    }
};

template <class R>
R onCommandThread(std::function<R()> work) {
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto const sink = dependency::services::createNullStreamBuffer();
    cmddistributor::RunOptions const options(sink, sink, {}, {});
    auto iip = std::make_shared<cmddistributor::PackagedTaskIIP<R>>(std::move(work), "bench");
    auto request = std::make_shared<cmddistributor::Request<R>>(qvm::detail::createID(), std::move(iip));
    return vm->getCmdDistributor()->enqueueWithFuture(request, options).get();
}

// The three analyzers, made once.
struct Setup {
    std::shared_ptr<Graph const> graph = makeGraph();
    Analyzers hostLanguage;
    Analyzers scriptClass;
    Analyzers native{std::make_shared<NativeUnresolved>()};

    Setup() {
        onCommandThread<int>([this] {
            qvm::loadLibrary("libdepattr.so");
            auto const folder = std::filesystem::temp_directory_path() / ("depattr-bench-" + std::to_string(getpid()));
            std::filesystem::create_directories(folder);
            std::ofstream(folder / "BenchUnresolved.qx") << hostAnalyzer;
            qlang::setSearchPath({folder});
            auto const object = std::move(qlang::callFunction("BenchUnresolved", {}, 1).at(0));
            std::filesystem::remove_all(folder);
            auto const vm = qvm::Factory::getCurrentLocalQVM();
            hostLanguage = dependency::attribute::fromAttributeAnalyzerQxArray(*object, vm);

            // The same analyzer with its method written in C++.
            auto const identityObject = std::move(qlang::callFunction("BenchUnresolved", {}, 1).at(0));
            auto const identityValue = qcos::omGetPropertyShared(*identityObject->getObject(0), "Identity");
            qcos::ScriptClassBuilder("bench.lang.CppUnresolved")
                .superclass("dependencies.internal.attribute.AttributeAnalyzer")
                .method(
                    "analyze",
                    [identityValue](std::span<qxArray const* const> inputs, int) {
                        auto const resolved =
                            qcos::omGetProperty(*qcos::cosiGetArrayElement(*inputs[1], 0), "IsResolved");
                        std::vector<qxArrayPtr> outputs;
                        if (resolved->getLogical(0)) {
                            outputs.push_back(
                                qcos::omCreateQCOSMatrix(1, 0, "dependencies.internal.attribute.Attribute"));
                        } else {
                            qxArray const* arguments[] = {identityValue.get()};
                            outputs.push_back(std::move(qvm::callHostFunction("createAttribute", arguments, 1).at(0)));
                        }
                        return outputs;
                    })
                .define();
            auto const cpp = qcos::omCreateQCOSScalar(qcos::omCreateObject("bench.lang.CppUnresolved"));
            scriptClass = dependency::attribute::fromAttributeAnalyzerQxArray(*cpp, vm);
            return 0;
        });
    }
};

Setup& setup() {
    static Setup instance;
    return instance;
}

// The processor time the calling thread has used, in seconds.
double threadProcessorTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The times of one analysis, in seconds: wall clock, and the processor time of
// the command thread, which does all of the analysis's work. On a machine
// other work shares, the wall clock also counts the time the thread waited for
// a processor; the processor time does not.
struct Times {
    double wall = 0;
    double processor = 0;
};

// One analysis on the command thread.
Times analyze(Analyzers const& analyzers) {
    auto const& graph = setup().graph;
    auto const times = onCommandThread<std::pair<double, double>>([&] {
        auto const start = std::chrono::steady_clock::now();
        double const processorStart = threadProcessorTime();
        auto const result = dependency::attribute::analyzeGraph(graph, analyzers);
        benchmark::DoNotOptimize(result);
        return std::pair(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                         threadProcessorTime() - processorStart);
    });
    return Times{times.first, times.second};
}

void perNode(benchmark::State& state, Analyzers const& analyzers) {
    for (auto _ : state) {
        state.SetIterationTime(analyze(analyzers).wall);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * nodeCount));
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void BM_HostLanguageAnalyzer(benchmark::State& state) {
    perNode(state, setup().hostLanguage);
}
void BM_ScriptClassAnalyzerInCpp(benchmark::State& state) {
    perNode(state, setup().scriptClass);
}
void BM_NativeAnalyzer(benchmark::State& state) {
    perNode(state, setup().native);
}

// Alternates the two analyzers and reports the median of their time ratios,
// by the wall clock ("ratio") and by the command thread's processor time
// ("processor_ratio").
void versus(benchmark::State& state, Analyzers const& reference) {
    std::vector<double> ratios;
    std::vector<double> processorRatios;
    double hostTotal = 0;
    double referenceTotal = 0;
    double hostProcessorTotal = 0;
    double referenceProcessorTotal = 0;
    for (auto _ : state) {
        auto const host = analyze(setup().hostLanguage);
        auto const other = analyze(reference);
        hostTotal += host.wall;
        referenceTotal += other.wall;
        hostProcessorTotal += host.processor;
        referenceProcessorTotal += other.processor;
        ratios.push_back(host.wall / other.wall);
        processorRatios.push_back(host.processor / other.processor);
        state.SetIterationTime(host.wall + other.wall);
    }
    auto const n = static_cast<double>(state.iterations()) * nodeCount;
    state.counters["ratio"] = median(ratios);
    state.counters["processor_ratio"] = median(processorRatios);
    state.counters["host_ns_per_node"] = hostTotal / n * 1e9;
    state.counters["reference_ns_per_node"] = referenceTotal / n * 1e9;
    state.counters["host_processor_ns_per_node"] = hostProcessorTotal / n * 1e9;
    state.counters["reference_processor_ns_per_node"] = referenceProcessorTotal / n * 1e9;
}

void BM_HostLanguageVersusScriptClassInCpp(benchmark::State& state) {
    versus(state, setup().scriptClass);
}
void BM_HostLanguageVersusNative(benchmark::State& state) {
    versus(state, setup().native);
}

BENCHMARK(BM_HostLanguageAnalyzer)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScriptClassAnalyzerInCpp)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NativeAnalyzer)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HostLanguageVersusScriptClassInCpp)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(11);
BENCHMARK(BM_HostLanguageVersusNative)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(11);

}  // namespace

BENCHMARK_MAIN();

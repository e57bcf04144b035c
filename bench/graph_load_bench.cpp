// Graph-file loading throughput on generated files: N nodes and 3N edges.
#include "platform/graph/GraphFile.hpp"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <sys/resource.h>

namespace {

std::string generatedGraphText(std::int64_t nodes) {
    std::string text = "{\"format\": \"depattr-graph\", \"version\": 1,\n\"nodes\": [\n";
    for (std::int64_t i = 0; i < nodes; ++i) {
        auto const id = std::to_string(i);
        text += (i ? ",\n" : "");
        if (i % 2 == 0) {
            text += "{\"id\": \"f" + id + "\", \"type\": \"file\", \"path\": \"src/pkg" + std::to_string(i % 97) +
                    "/file" + id + ".qx\"}";
        } else {
            text += "{\"id\": \"f" + id + "\", \"type\": \"function\", \"name\": \"fn" + id +
                    "\", \"location\": [\"src/file" + id + ".qx\", \"fn" + id + "\"], \"resolved\": " +
                    (i % 3 ? "true" : "false") + "}";
        }
    }
    text += "\n],\n\"edges\": [\n";
    for (std::int64_t i = 0; i < nodes; ++i) {
        for (std::int64_t k = 1; k <= 3; ++k) {
            text += (i || k > 1 ? ",\n" : "");
            text += "{\"from\": \"f" + std::to_string(i) + "\", \"to\": \"f" + std::to_string((i * 7 + k) % nodes) +
                    "\", \"type\": \"call\"}";
        }
    }
    text += "\n]}\n";
    return text;
}

// Loads from a file, as the command line does; the generated text is freed
// before loading so that the peak reflects the loader and its graph.
void loadGeneratedGraph(benchmark::State& state) {
    auto const file = std::filesystem::temp_directory_path() / ("depattr_bench_graph_" + std::to_string(state.range(0)) + ".json");
    std::size_t size = 0;
    {
        auto const text = generatedGraphText(state.range(0));
        std::ofstream(file, std::ios::binary) << text;
        size = text.size();
    }
    for (auto _ : state) {
        auto graph = dependency::graph::loadGraphFile(file);
        benchmark::DoNotOptimize(graph);
    }
    std::filesystem::remove(file);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
    state.counters["file_MB"] = static_cast<double>(size) / 1e6;
    // The process's peak so far: the text, one loaded graph and the benchmark itself.
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_RSS_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace

BENCHMARK(loadGeneratedGraph)->RangeMultiplier(10)->Range(10'000, 1'000'000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

// Graph-file loading against the JSON reader alone, on the same generated
// files (N nodes and 3N edges, as bench/generate_graph.py writes them): the
// loader (`loadGraphFile`) and a cold DOM parse of the file by simdjson with a
// fresh parser, which reads the file and builds its whole document in memory.
// Their ratio is the loader's cost over the parse that any reader must pay;
// a warm DOM parse and an On Demand pass that reads every node's ID are the
// floor the loader is held to.
// Both are timed up to the moment their result is ready; letting go of it is
// not timed.
//
//   bench_graph_load --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
//       --benchmark_report_aggregates_only=true

#include "platform/graph/GraphFile.hpp"

#include <benchmark/benchmark.h>
#include <simdjson.h>

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace {

// The text bench/generate_graph.py writes for `count` nodes (the code files it
// writes beside it are not needed for loading).
std::string generatedGraphText(std::int64_t count) {
    std::int64_t const codeFiles = std::max<std::int64_t>(10, std::min<std::int64_t>(1000, count / 100));
    std::string text = "{\"format\": \"depattr-graph\", \"version\": 1,\n\"nodes\": [\n";
    for (std::int64_t i = 0; i < count; ++i) {
        auto const id = std::to_string(i);
        std::int64_t const k = i / 2;
        text += i ? ",\n" : "";
        if (i % 2 == 0) {
            std::string const path = k % 4 == 1 ? "src/mod" + std::to_string(k % codeFiles) + ".qx"
                                                : "src/pkg" + std::to_string(i % 97) + "/file" + id + ".qx";
            text += "{\"id\": \"f" + id + "\", \"type\": \"file\", \"path\": \"" + path +
                    "\", \"resolved\": " + (i % 20 == 0 ? "false" : "true") + "}";
        } else {
            auto const module = std::to_string(k % codeFiles);
            text += "{\"id\": \"f" + id + "\", \"type\": \"function\", \"name\": \"fn" + id +
                    "\", \"location\": [\"src/mod" + module + ".qx\", \"mod" + module + "_f" +
                    std::to_string((k / codeFiles) % 5) + "\"]}";
        }
    }
    text += "\n],\n\"edges\": [\n";
    bool first = true;
    for (std::int64_t i = 0; i < count; ++i) {
        for (std::int64_t k = 1; k <= 3; ++k) {
            text += first ? "" : ",\n";
            first = false;
            text += "{\"from\": \"f" + std::to_string(i) + "\", \"to\": \"f" + std::to_string((i * 7 + k) % count) +
                    "\", \"type\": \"call\"}";
        }
    }
    text += "\n]}\n";
    return text;
}

// The generated file for `count` nodes, written once per process and removed at exit.
class GraphFiles {
public:
    std::filesystem::path const& of(std::int64_t count) {
        auto& file = files_[count];
        if (file.empty()) {
            file = std::filesystem::temp_directory_path() /
                   ("depattr_bench_graph_" + std::to_string(::getpid()) + "_" + std::to_string(count) + ".json");
            std::ofstream(file, std::ios::binary) << generatedGraphText(count);
        }
        return file;
    }
    ~GraphFiles() {
        for (auto const& [count, file] : files_) {
            std::error_code ignored;
            std::filesystem::remove(file, ignored);
        }
    }

private:
    std::map<std::int64_t, std::filesystem::path> files_;
};

GraphFiles& files() {
    static GraphFiles instance;
    return instance;
}

void report(benchmark::State& state, std::filesystem::path const& file) {
    auto const size = static_cast<std::int64_t>(std::filesystem::file_size(file));
    state.SetBytesProcessed(state.iterations() * size);
    state.counters["file_MB"] = static_cast<double>(size) / 1e6;
}

void BM_LoadGraphFile(benchmark::State& state) {
    auto const& file = files().of(state.range(0));
    for (auto _ : state) {
        auto graph = dependency::graph::loadGraphFile(file);
        benchmark::DoNotOptimize(graph);
        state.PauseTiming();  // loading is measured, not letting go of the graph
        graph.reset();
        state.ResumeTiming();
    }
    report(state, file);
}

void BM_SimdjsonColdDomParse(benchmark::State& state) {
    auto const& file = files().of(state.range(0));
    for (auto _ : state) {
        // Fresh: the parser's buffers are allocated and touched anew.
        auto parser = std::make_unique<simdjson::dom::parser>();
        simdjson::dom::element document;
        if (parser->load(file.string()).get(document) != simdjson::SUCCESS) {
            state.SkipWithError("simdjson could not parse the file");
            break;
        }
        benchmark::DoNotOptimize(document);
        state.PauseTiming();
        parser.reset();
        state.ResumeTiming();
    }
    report(state, file);
}

// The floor any reader pays: a DOM parse with a parser whose buffers are
// allocated and touched already (the file read each time, as the loader does).
void BM_SimdjsonWarmDomParse(benchmark::State& state) {
    auto const& file = files().of(state.range(0));
    simdjson::dom::parser parser;
    simdjson::dom::element document;
    if (parser.load(file.string()).get(document) != simdjson::SUCCESS) {
        state.SkipWithError("simdjson could not parse the file");
        return;
    }
    for (auto _ : state) {
        if (parser.load(file.string()).get(document) != simdjson::SUCCESS) {
            state.SkipWithError("simdjson could not parse the file");
            break;
        }
        benchmark::DoNotOptimize(document);
    }
    report(state, file);
}

// A lower floor: one On Demand pass over the file that reads every node's ID
// (and skips the rest), with a warm parser.
void BM_SimdjsonOnDemandIdPass(benchmark::State& state) {
    auto const& file = files().of(state.range(0));
    simdjson::ondemand::parser parser;
    for (auto _ : state) {
        auto const text = simdjson::padded_string::load(file.string());
        simdjson::ondemand::document document;
        if (text.error() != simdjson::SUCCESS || parser.iterate(text.value_unsafe()).get(document)) {
            state.SkipWithError("simdjson could not read the file");
            break;
        }
        std::size_t idBytes = 0;
        for (auto node : document["nodes"].get_array()) {
            std::string_view id;
            if (node["id"].get_string().get(id) == simdjson::SUCCESS) {
                idBytes += id.size();
            }
        }
        benchmark::DoNotOptimize(idBytes);
    }
    report(state, file);
}

}  // namespace

BENCHMARK(BM_SimdjsonWarmDomParse)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_SimdjsonOnDemandIdPass)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_LoadGraphFile)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_SimdjsonColdDomParse)
    ->RangeMultiplier(10)
    ->Range(10'000, 1'000'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();

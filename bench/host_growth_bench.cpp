// Growing arrays one element at a time in the host language: a script that
// appends N elements with `x(end+1) = k` (numbers), `c{end+1} = k` (cell
// elements), `s(end+1) = 'a'` (characters), `item.Value(end+1) = k` (a
// property of a handle object) and `o(end+1) = object` (an object array), run
// by the interpreter. Each append must cost amortised constant
// time, so the time per append stays flat as N grows; 10^6 numbers are
// appended in well under a second.
//
//   build/bench/bench/bench_host_growth --benchmark_repetitions=5
//       --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
//   (one command line)

#include "platform/host/lang/Language.hpp"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

// A handle class whose objects the object-array case appends.
struct Folder {
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("depattr-growth-bench-" + std::to_string(getpid()));
    Folder() {
        std::filesystem::create_directories(path);
        std::ofstream(path / "GrowthItem.qx") << "classdef GrowthItem < handle\n"
                                                 "    properties\n"
                                                 "        Value = 0\n"
                                                 "    end\n"
                                                 "end\n";
        qlang::setSearchPath({path});
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

void appends(benchmark::State& state, char const* prologue, char const* append, char const* check) {
    static Folder const folder;
    auto const count = std::to_string(state.range(0));
    std::string const code = std::string(prologue) + "\nfor k = 1:" + count + "\n    " + append + "\nend\n" +
                             "ok = " + check + " == " + count + ";\n";
    for (auto _ : state) {
        auto const variables = qlang::runScript(code, "growth.qx");
        if (variables.at("ok")->getLogical(0) == false) {
            state.SkipWithError("the script did not append every element");
            return;
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_AppendNumbers(benchmark::State& state) {
    appends(state, "x = [];", "x(end+1) = k;", "numel(x)");
}
void BM_AppendCellElements(benchmark::State& state) {
    appends(state, "c = {};", "c{end+1} = k;", "numel(c)");
}
void BM_AppendCharacters(benchmark::State& state) {
    appends(state, "s = '';", "s(end+1) = 'a';", "numel(s)");
}
void BM_AppendToAProperty(benchmark::State& state) {
    appends(state, "item = GrowthItem(); item.Value = [];", "item.Value(end+1) = k;", "numel(item.Value)");
}
void BM_AppendObjects(benchmark::State& state) {
    appends(state, "item = GrowthItem(); o = GrowthItem.empty(1, 0);", "o(end+1) = item;", "numel(o)");
}

}  // namespace

BENCHMARK(BM_AppendNumbers)->RangeMultiplier(10)->Range(10000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AppendCellElements)->RangeMultiplier(10)->Range(10000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AppendCharacters)->RangeMultiplier(10)->Range(10000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AppendToAProperty)->RangeMultiplier(10)->Range(10000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AppendObjects)->RangeMultiplier(10)->Range(10000, 1000000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

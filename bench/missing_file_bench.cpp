// The missing-file analyzer over N file nodes (real files, every second one
// missing) against a bare loop of stat() calls on the same paths: the cost the
// analyzer adds on top of the system calls it cannot avoid.
#include "attribute/analyzers/Analyzers.hpp"
#include "platform/graph/GraphBuilder.hpp"

#include <benchmark/benchmark.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using dependency::graph::Node;
using dependency::graph::NodeData;

// N paths in a scratch folder; files exist for even indices only.
class FileSet {
public:
    explicit FileSet(std::size_t count) {
        folder_ = fs::temp_directory_path() /
                  ("depattr_missing_file_bench_" + std::to_string(::getpid()) + "_" + std::to_string(count));
        fs::create_directories(folder_);
        for (std::size_t i = 0; i < count; ++i) {
            fs::path const path = folder_ / ("file" + std::to_string(i) + ".qx");
            if (i % 2 == 0) {
                std::ofstream(path) << "x";
            }
            narrowPaths_.push_back(path.string());
            NodeData data;
            data.id = path.u16string();
            data.path = data.id;
            data.location = {data.id};
            data.isFile = true;
            nodes_.push_back(std::make_shared<Node>(std::move(data)));
        }
    }
    ~FileSet() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::vector<std::string> const& narrowPaths() const { return narrowPaths_; }
    std::vector<std::shared_ptr<Node>> const& nodes() const { return nodes_; }

private:
    fs::path folder_;
    std::vector<std::string> narrowPaths_;
    std::vector<std::shared_ptr<Node>> nodes_;
};

void useRepositoryResources() {
    // The analyzer's finding names come from the repository's catalogs when run from a build tree.
    ::setenv("DEPATTR_RESOURCES", (fs::path(__FILE__).parent_path().parent_path() / "resources").c_str(), 0);
}

void BM_MissingFileAnalyzer(benchmark::State& state) {
    useRepositoryResources();
    FileSet const files(static_cast<std::size_t>(state.range(0)));
    auto const analyzer = dependency::attribute::createMissingFileAnalyzer();
    auto const graph = dependency::graph::GraphBuilder().build();
    for (auto _ : state) {
        std::size_t missing = 0;
        for (auto const& node : files.nodes()) {
            auto const findings = analyzer->analyze(node, graph);
            missing += findings.front()->getID().size() == 7 ? 1 : 0;  // "Missing", not "Exists"
        }
        benchmark::DoNotOptimize(missing);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_BareStat(benchmark::State& state) {
    FileSet const files(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::size_t missing = 0;
        for (auto const& path : files.narrowPaths()) {
            struct stat info {};
            missing += ::stat(path.c_str(), &info) == 0 ? 0 : 1;
        }
        benchmark::DoNotOptimize(missing);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_MissingFileAnalyzer)->Arg(1000)->Arg(10000);
BENCHMARK(BM_BareStat)->Arg(1000)->Arg(10000);

}  // namespace

BENCHMARK_MAIN();

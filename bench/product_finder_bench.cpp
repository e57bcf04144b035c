// The product finder asked for the products at paths of the benchmark graph's
// shape, none of them inside a product (as most paths of a graph are), and at
// paths inside one, with the example installation's catalogue.
#include "platform/toolbox/ToolboxFinder.hpp"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using dependency::toolbox::ToolboxFinder;

std::shared_ptr<ToolboxFinder> exampleFinder() {
    return ToolboxFinder::fromInstallRoot(std::filesystem::path(DEPATTR_SOURCE_DIR) / "examples/install");
}

// 1,000 paths like the generated graph's: a long shared folder, then a
// module or package file.
std::vector<std::u16string> outsidePaths() {
    std::vector<std::u16string> paths;
    for (int i = 0; i < 1000; ++i) {
        auto const number = std::to_string(i);
        paths.push_back(u"/tmp/tmp.18RSQXEJpX/graph_1000000/src/" + std::u16string(i % 2 == 0 ? u"mod" : u"pkg") +
                        std::u16string(number.begin(), number.end()) + u"/file.qx");
    }
    return paths;
}

void BM_ProductsAtPathOutsideEveryProduct(benchmark::State& state) {
    auto const finder = exampleFinder();
    auto const paths = outsidePaths();
    for (auto _ : state) {
        for (auto const& path : paths) {
            benchmark::DoNotOptimize(finder->findProductsContainingPath(path));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}
BENCHMARK(BM_ProductsAtPathOutsideEveryProduct);

void BM_ProductsAtPathInsideAProduct(benchmark::State& state) {
    auto const finder = exampleFinder();
    std::vector<std::u16string> paths;
    for (auto const& product : finder->getProducts()) {
        if (product->isInstalled()) {
            paths.push_back(product->getVerDir() + u"/toolbox/sub/file.qx");
        }
    }
    for (auto _ : state) {
        for (auto const& path : paths) {
            benchmark::DoNotOptimize(finder->findProductsContainingPath(path));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}
BENCHMARK(BM_ProductsAtPathInsideAProduct);

}  // namespace

BENCHMARK_MAIN();

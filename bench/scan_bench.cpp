// The scanner against the parse alone of the same files, in the same run: a generated tree of code files
// (function files of realistic size calling each other, packages, classes, private folders). Each iteration
// parses every file on all cores and scans the tree, in alternating order, with the parse cache off so that both
// read and parse every file; the counters give the median of each and their ratio.
//
//   build/ci/bench/bench_scan --benchmark_filter='ScanVersusParse/5000'
//   TMPDIR=/dev/shm build/ci/bench/bench_scan   # the trees in memory: 50,000 files are slow to make on a busy disk
//
// Instruction counts of each side alone, which the load of a shared machine does not move: make a tree once, then
// run only the parse or only the scan of it under callgrind.
//
//   build/ci/bench/bench_scan --make-tree=5000 /tmp/tree5000
//   valgrind --tool=callgrind build/ci/bench/bench_scan --parse-only /tmp/tree5000
//   valgrind --tool=callgrind build/ci/bench/bench_scan --scan-only /tmp/tree5000

#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "scan/Scanner.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Lcg {
    std::uint64_t state;
    std::uint32_t next(std::uint32_t bound) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<std::uint32_t>((state >> 33) % bound);
    }
};

// A tree of `files` code files: folders of 40 function files, each folder with a private/ folder of 4 helpers,
// every fifth folder with a package of 8 functions and a class folder, and a classdef file per folder.
struct Tree {
    fs::path root;
    std::vector<fs::path> codeFiles;

    explicit Tree(std::size_t files)
        : Tree(files, fs::temp_directory_path() /
                          ("depattr-scan-bench-" + std::to_string(::getpid()) + "-" + std::to_string(files))) {}
    Tree(std::size_t files, fs::path where, bool keep = false) : root(std::move(where)), keep_(keep) {
        fs::remove_all(root);
        Lcg random{files};
        std::size_t const perFolder = 40;
        std::size_t const folders = std::max<std::size_t>(1, files / (perFolder + 4 + 1 + 2));
        std::size_t made = 0;
        auto write = [&](fs::path const& path, std::string const& text) {
            fs::create_directories(path.parent_path());
            std::ofstream(path) << text;
            codeFiles.push_back(path);
            ++made;
        };
        auto functionText = [&](std::string const& name, std::size_t folder, bool inPackage) {
            std::string text = "function [out, count] = " + name + "(data, options)\n% " + name +
                               ": generated for the scanner benchmark.\n"
                               "if nargin < 2\n    options = struct('scale', 2, 'limit', 10);\nend\ncount = 0;\n"
                               "out = zeros(size(data));\n";
            for (int block = 0; block < 4; ++block) {
                std::size_t const other = random.next(static_cast<std::uint32_t>(folders));
                std::size_t const f = random.next(static_cast<std::uint32_t>(perFolder));
                std::string const callee = other == folder && !inPackage
                                               ? "f" + std::to_string(other) + "_" + std::to_string(f)
                                               : "f" + std::to_string(other) + "_" + std::to_string(f);
                text +=
                    "for k = 1:numel(data)\n    value = data(k) * options.scale;\n"
                    "    if value > options.limit\n        out(k) = " +
                    callee +
                    "(value, options);\n        count = count + 1;\n    elseif value < 0\n"
                    "        out(k) = abs(value) + helper" +
                    std::to_string(random.next(4)) +
                    "(value);\n    else\n        out(k) = max(value, 0);\n    end\nend\n";
                if (folder % 5 == 0 && !inPackage) {
                    text += "result = pkg" + std::to_string(folder) + ".p" + std::to_string(random.next(8)) +
                            "(out);\nshape = Cls" + std::to_string(folder) + "(result);\n";
                }
                text +=
                    "items = cellfun(@(x) x * 2, num2cell(out), 'UniformOutput', false);\n"
                    "msg = sprintf('%d items, %d over the limit', numel(items), count);\n";
            }
            text +=
                "out = localStep(out, count);\nend\n\nfunction y = localStep(x, n)\n% A local function.\n"
                "y = x / max(n, 1);\nend\n";
            return text;
        };
        for (std::size_t folder = 0; folder < folders && made < files; ++folder) {
            fs::path const dir = root / ("module" + std::to_string(folder));
            for (std::size_t f = 0; f < perFolder && made < files; ++f) {
                auto const name = "f" + std::to_string(folder) + "_" + std::to_string(f);
                write(dir / (name + ".qx"), functionText(name, folder, false));
            }
            for (std::size_t h = 0; h < 4 && made < files; ++h) {
                auto const name = "helper" + std::to_string(h);
                write(dir / "private" / (name + ".qx"),
                      "function y = " + name + "(x)\ny = sqrt(abs(x)) + " + std::to_string(h) + ";\nend\n");
            }
            write(dir / ("Model" + std::to_string(folder) + ".qx"),
                  "classdef Model" + std::to_string(folder) +
                      " < handle\n    properties\n        Data = []\n        Limit = 10\n    end\n"
                      "    methods\n        function obj = Model" +
                      std::to_string(folder) +
                      "(data)\n            obj.Data = data;\n        end\n"
                      "        function r = run(obj)\n            r = f" +
                      std::to_string(folder) +
                      "_0(obj.Data);\n        end\n    end\n    methods (Static)\n"
                      "        function m = make()\n            m = Model" +
                      std::to_string(folder) + "([]);\n        end\n    end\nend\n");
            if (folder % 5 == 0) {
                for (std::size_t p = 0; p < 8 && made < files; ++p) {
                    auto const name = "p" + std::to_string(p);
                    write(dir / ("+pkg" + std::to_string(folder)) / (name + ".qx"), functionText(name, folder, true));
                }
                auto const cls = "Cls" + std::to_string(folder);
                write(dir / ("@" + cls) / (cls + ".qx"), "function obj = " + cls + "(x)\nobj = struct('x', x);\nend\n");
            }
        }
    }
    ~Tree() {
        if (!keep_) {
            std::error_code ignored;
            fs::remove_all(root, ignored);
        }
    }

private:
    bool keep_ = false;
};

double parseAll(std::vector<fs::path> const& files) {
    auto const start = std::chrono::steady_clock::now();
    std::atomic<std::size_t> next{0};
    auto work = [&] {
        auto analyzer = ca::createSingleFileAnalyzer();
        for (std::size_t i = next++; i < files.size(); i = next++) {
            benchmark::DoNotOptimize(analyzer->analyze(files[i].u16string()));
        }
    };
    std::vector<std::jthread> pool;
    for (unsigned t = 1; t < std::max(1u, std::thread::hardware_concurrency()); ++t) {
        pool.emplace_back(work);
    }
    work();
    pool.clear();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double scanAll(fs::path const& root) {
    auto const start = std::chrono::steady_clock::now();
    depattr::scan::ScanSettings settings;
    settings.folder = root;
    auto const result = depattr::scan::scanProject(settings);
    benchmark::DoNotOptimize(result.graph);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void ScanVersusParse(benchmark::State& state) {
    ca::setResultCacheCapacity(0);  // both read and parse every file
    Tree const tree(static_cast<std::size_t>(state.range(0)));
    std::vector<double> parses, scans;
    bool scanFirst = false;
    for (auto _ : state) {
        double parse = 0, scan = 0;
        if (scanFirst) {
            scan = scanAll(tree.root);
            parse = parseAll(tree.codeFiles);
        } else {
            parse = parseAll(tree.codeFiles);
            scan = scanAll(tree.root);
        }
        scanFirst = !scanFirst;
        parses.push_back(parse);
        scans.push_back(scan);
        state.SetIterationTime(scan);
    }
    state.counters["files"] = static_cast<double>(tree.codeFiles.size());
    state.counters["parse_ms"] = median(parses) * 1e3;
    state.counters["scan_ms"] = median(scans) * 1e3;
    state.counters["scan_over_parse"] = median(scans) / median(parses);
    state.counters["scan_us_per_file"] = median(scans) * 1e6 / static_cast<double>(tree.codeFiles.size());
    ca::setResultCacheCapacity(ca::defaultResultCacheCapacity);
}

}  // namespace

BENCHMARK(ScanVersusParse)
    ->Arg(500)
    ->Arg(5000)
    ->Arg(50000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(7);

// --make-tree=N FOLDER, --parse-only FOLDER and --scan-only FOLDER run one side alone (see the top of the file);
// anything else runs the benchmark.
int main(int argc, char** argv) {
    std::string const mode = argc == 3 ? argv[1] : "";
    if (mode.starts_with("--make-tree=")) {
        Tree const tree(std::stoul(mode.substr(12)), argv[2], true);
        std::printf("%zu code files in %s\n", tree.codeFiles.size(), argv[2]);
        return 0;
    }
    if (mode == "--parse-only" || mode == "--scan-only") {
        ca::setResultCacheCapacity(0);
        if (mode == "--scan-only") {
            scanAll(argv[2]);
            return 0;
        }
        std::vector<fs::path> files;
        for (auto const& entry : fs::recursive_directory_iterator(argv[2])) {
            if (entry.path().extension() == ".qx") {
                files.push_back(entry.path());
            }
        }
        parseAll(files);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// What may run on several threads at once, run so, for the thread sanitizer
// to watch: the queries of one shared result, and the analyzers that keep no
// mutable state of their own on one shared graph (the missing-function
// analyzer with the shared parse cache among them). Each thread's outcome must
// be the one a single thread gets.
#include "attribute/GraphAttributes.hpp"
#include "attribute/analyzers/Analyzers.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/graph/GraphBuilder.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <barrier>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace dependency;
using attribute::AttributeAnalyzer;
using attribute::GraphAttributes;
using attribute::Severity;
using graph::NodeData;
using graph::Type;

constexpr int threadCount = 8;

std::u16string u16(std::string const& text) {
    return {text.begin(), text.end()};
}

// Runs `work(thread)` on `threadCount` threads that start together.
void onThreads(std::function<void(int)> const& work) {
    std::barrier start(threadCount);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            work(t);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

// A project on disk and its graph: files present and missing, derived files
// with newer sources, nodes flagged by the graph's builder, projects
// unresolved or in cycles, and functions, several to a code file, defined or not.
class Project {
public:
    Project() {
        ::setenv("DEPATTR_RESOURCES", DEPATTR_SOURCE_DIR "/resources", 0);
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        auto const old = fs::file_time_type::clock::now() - std::chrono::hours(1);
        for (int i = 0; i < 40; ++i) {
            auto const n = std::to_string(i);
            auto const code = folder_ / ("code" + std::to_string(i % 5) + ".qx");
            if (i < 5) {
                std::ofstream(code) << "function f0\nend\nfunction f1\nend\nfunction g" << i << "\nend\n";
            }
            auto const source = file("src" + n, folder_ / ("src" + n + ".qx"), i % 4 != 0);
            auto const derived = file("out" + n, folder_ / ("out" + n + ".bin"), true, Type::DERIVED());
            if (i % 2 == 0 && fs::exists(folder_ / ("src" + n + ".qx"))) {
                fs::last_write_time(folder_ / ("out" + n + ".bin"), old);
            }
            builder_.addDependency(derived, source, Type::DERIVED());

            NodeData function;
            function.id = u16("fn" + n);
            function.type = Type::FUNCTION();
            function.path = code.u16string();
            function.location = {code.u16string(), u16(i % 3 == 0 ? "missing" + n : "f" + std::to_string(i % 2))};
            builder_.addNode(std::move(function));

            NodeData project;
            project.id = u16("prj" + n);
            project.type = Type::PROJECT();
            project.resolved = i % 3 != 0;
            if (i % 5 == 0) {
                project.properties[u"circularReferences"] = u"[\"prj" + u16(n) + u" > x > prj" + u16(n) + u"\"]";
            }
            if (i % 7 == 0) {
                project.properties[i % 2 ? u"syntaxError" : u"futureRelease"] = u"true";
            }
            builder_.addNode(std::move(project));
        }
        graph_ = builder_.build();
    }
    ~Project() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    std::shared_ptr<graph::Graph const> const& graph() const { return graph_; }

private:
    std::u16string file(std::string const& id, fs::path const& path, bool exists, Type type = Type::FILE()) {
        if (exists) {
            std::ofstream(path) << id;
        }
        NodeData data;
        data.id = u16(id);
        data.type = type;
        data.path = path.u16string();
        data.location = {data.path};
        data.isFile = true;
        builder_.addNode(data);
        return data.id;
    }

    fs::path folder_ = fs::temp_directory_path() / ("depattr_concurrency_" + std::to_string(::getpid()));
    graph::GraphBuilder builder_;
    std::shared_ptr<graph::Graph const> graph_;
};

// A result as plain values: per node ID, the finding IDs and Names in order.
using Outline = std::map<std::u16string, std::vector<std::u16string>>;

Outline outline(graph::Graph const& graph, GraphAttributes const& result) {
    Outline out;
    for (auto const& node : graph.getNodes()) {
        for (auto const& attribute : result.getAttributes(node)) {
            out[node->getID()].push_back(attribute->getID() + u":" + attribute->getName());
        }
    }
    return out;
}

std::vector<std::shared_ptr<AttributeAnalyzer>> threadSafeAnalyzers() {
    return {attribute::createMissingFileAnalyzer(),
            attribute::createDerivedFileAnalyzer(),
            attribute::createInvalidFormatAnalyzer(),
            attribute::createMissingProjectReferenceAnalyzer(),
            attribute::createCircularProjectReferenceAnalyzer(),
            attribute::createMissingFunctionAnalyzer()};
}

TEST(Concurrency, ThreadSafeAnalyzersSharedByThreadsOnOneGraphFindWhatOneThreadFinds) {
    Project const project;
    auto const analyzers = threadSafeAnalyzers();
    // The code files are parsed for the first time by the threads together, so
    // that they race to fill the parse cache; the single-threaded reference comes after.
    std::vector<Outline> outlines(threadCount);
    onThreads(
        [&](int t) { outlines[t] = outline(*project.graph(), *attribute::analyzeGraph(project.graph(), analyzers)); });
    auto const reference = outline(*project.graph(), *attribute::analyzeGraph(project.graph(), analyzers));

    // Every analyzer contributed: the reference is not trivially empty.
    for (std::u16string id :
         {u"Exists:", u"Missing:", u"OutOfDate:", u"SyntaxError:", u"FutureRelease:", u"CircularDependency:"}) {
        bool const found = std::any_of(reference.begin(), reference.end(), [&](auto const& entry) {
            return std::any_of(entry.second.begin(), entry.second.end(),
                               [&](auto const& finding) { return finding.starts_with(id); });
        });
        EXPECT_TRUE(found) << std::string(id.begin(), id.end());
    }
    for (int t = 0; t < threadCount; ++t) {
        EXPECT_EQ(outlines[t], reference) << "thread " << t;
    }
}

TEST(Concurrency, OneResultAnswersEightThreadsAtOnceAndOutlivesItsOwner) {
    Project const project;
    auto result = attribute::analyzeGraph(project.graph(), threadSafeAnalyzers());
    auto const reference = outline(*project.graph(), *result);
    auto const identities = result->getAllProblemIdentities();
    ASSERT_GE(identities.size(), 4u);
    std::map<std::u16string, std::size_t> nodesWith;
    for (auto const& identity : identities) {
        nodesWith[identity->getID() + identity->getName()] = result->getNodesWith(*identity).size();
    }

    std::vector<int> mismatches(threadCount, 0);
    std::barrier halfway(threadCount + 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t, shared = std::shared_ptr<GraphAttributes const>(result)] {
            for (int round = 0; round < 20; ++round) {
                if (round == 10) {
                    halfway.arrive_and_wait();  // the main thread lets go of its owner here
                }
                mismatches[t] += outline(*project.graph(), *shared) == reference ? 0 : 1;
                for (auto const& node : project.graph()->getNodes()) {
                    for (auto const& attribute : shared->getAttributes(node, Severity::Warning)) {
                        mismatches[t] += attribute->getSeverity() >= Severity::Warning ? 0 : 1;
                    }
                }
                auto const mine = shared->getAllProblemIdentities();
                mismatches[t] += mine.size() == identities.size() ? 0 : 1;
                for (auto const& identity : mine) {
                    mismatches[t] +=
                        shared->getNodesWith(*identity).size() == nodesWith.at(identity->getID() + identity->getName())
                            ? 0
                            : 1;
                }
            }
        });
    }
    halfway.arrive_and_wait();
    result.reset();
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<int>(threadCount, 0));
}

}  // namespace

// Script analyzers from several threads while the command thread is busy:
// every call queues, none is lost or answered with another's result.

#include "HostTestSupport.hpp"

#include "attribute/GraphAttributes.hpp"
#include "services/QorvexAnalyzer.hpp"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

using namespace depattr_test;

class Concurrency : public HostTest {};

TEST_F(Concurrency, ScriptAnalyzersQueueBehindABusyCommandThread) {
    // Reports the analyzed node's ID as the finding's Name.
    auto const echo = std::make_shared<dependency::attribute::QorvexAnalyzer>(
        defineAnalyzer("Echo", [](std::span<qxArray const* const> inputs, int) {
            auto const id = property(*inputs[1], "ID")->getString();
            return one(makeAttribute(*makeIdentity(u"Echo", id, "Information")));
        }));

    // Hold the command thread until the callers have queued their requests.
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    std::mutex mutex;
    std::condition_variable changed;
    bool released = false;
    auto blocker = std::make_shared<cmddistributor::PackagedTaskIIP<void>>(
        [&] {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return released; });
        },
        "blocker");
    auto blocked = vm->getCmdDistributor()->enqueueWithFuture(
        std::make_shared<cmddistributor::Request<void>>(qvm::detail::createID(), blocker),
        cmddistributor::RunOptions(nullptr, nullptr, {}, {}));

    dependency::graph::GraphBuilder builder;
    for (int i = 0; i < 40; ++i) {
        builder.addNode(u"n" + std::u16string(1, static_cast<char16_t>(u'A' + i)), dependency::graph::Type::FILE());
    }
    auto const graph = builder.build();
    std::vector<std::shared_ptr<dependency::attribute::GraphAttributes>> results(4);
    std::vector<std::thread> callers;
    for (std::size_t t = 0; t < results.size(); ++t) {
        callers.emplace_back([&, t] { results[t] = dependency::attribute::analyzeGraph(graph, {echo}); });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    {
        std::lock_guard lock(mutex);
        released = true;
    }
    changed.notify_all();
    for (auto& caller : callers) {
        caller.join();
    }
    blocked.get();

    for (auto const& result : results) {
        ASSERT_TRUE(result);
        for (auto const& node : graph->getNodes()) {
            auto const findings = result->getAttributes(node);
            ASSERT_EQ(findings.size(), 1u);
            EXPECT_EQ(findings[0]->getName(), node->getID());
        }
    }
}

}  // namespace

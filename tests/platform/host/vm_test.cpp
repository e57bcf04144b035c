#include "platform/host/Vm.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/services/NullStreamBuffer.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <future>
#include <numeric>
#include <sstream>
#include <thread>

namespace {

using cmddistributor::PackagedTaskIIP;
using cmddistributor::Request;
using cmddistributor::RunOptions;
using cmddistributor::RuntimeException;
using depattr_test::thrown;

RunOptions nullOptions() {
    auto const sink = dependency::services::createNullStreamBuffer();
    return RunOptions(sink, sink, {}, {});
}

template <class R>
boost::future<R> post(qvm::QVM& vm, std::function<R()> work, RunOptions const& options = nullOptions()) {
    auto iip = std::make_shared<PackagedTaskIIP<R>>(std::move(work), "test");
    return vm.getCmdDistributor()->enqueueWithFuture(std::make_shared<Request<R>>(qvm::detail::createID(), iip),
                                                     options);
}

// "test.vm.Config.Settings" is a settings object with "Depth" and a "Child"
// object whose "Name" is "leaf".
void defineConfig() {
    [[maybe_unused]] static bool const defined = [] {
        qcos::ScriptClassBuilder("test.vm.Settings")
            .property("Depth", matrix::to_qorvex(3.0))
            .property("Child", qxArray::createEmpty())
            .property("Name", qxArray::createString(u"leaf"))
            .define();
        auto settings = qcos::omCreateObject("test.vm.Settings");
        qcos::omSetProperty(*settings, "Child", qcos::omCreateQCOSScalar(qcos::omCreateObject("test.vm.Settings")));
        qcos::ScriptClassBuilder("test.vm.Config")
            .constantProperty("Settings", qcos::omCreateQCOSScalar(settings))
            .define();
        return true;
    }();
}

std::vector<qxArrayPtr> evalOn(qvm::QVM& vm, std::u16string_view expression, int outputCount = 1) {
    std::vector<qxArrayPtr> arguments;
    arguments.push_back(qxArray::createString(expression));
    return vm.feval("eval", std::move(arguments), outputCount, vm.createRequestID(), nullOptions()).get();
}

std::string evalError(qvm::QVM& vm, std::u16string_view expression, int outputCount = 1) {
    auto const error = thrown<qcos::HostError>([&] { evalOn(vm, expression, outputCount); });
    return error ? error->identifier() : "no error";
}

TEST(HostVm, EvalReadsDottedExpressionsOnTheCommandThread) {
    defineConfig();
    auto const vm = qvm::QVM::create();
    auto depth = evalOn(*vm, u"test.vm.Config.Settings.Depth");
    ASSERT_EQ(depth.size(), 1u);
    EXPECT_EQ(depth[0]->getDouble(0), 3.0);
    EXPECT_EQ(evalOn(*vm, u"  test.vm . Config.Settings.Child.Name ", 0)[0]->getString(), u"leaf");
    EXPECT_EQ(evalOn(*vm, u"test.vm.Config.Settings")[0]->getClassName(), "test.vm.Settings");

    EXPECT_EQ(evalError(*vm, u"test.vm.Missing.Value"), "qvm:eval:undefined");
    EXPECT_EQ(evalError(*vm, u"test.vm.Config"), "qvm:eval:classNotValue");
    EXPECT_EQ(evalError(*vm, u"test.vm.Config.Nothing"), "qcos:property:undefined");
    EXPECT_EQ(evalError(*vm, u"test.vm.Config.Settings.Nothing"), "qcos:property:undefined");
    EXPECT_EQ(evalError(*vm, u"test.vm.Config.Settings.Depth.More"), "qvm:eval:notAnObject");
    EXPECT_EQ(evalError(*vm, u"test..vm"), "qvm:eval:invalidExpression");
    EXPECT_EQ(evalError(*vm, u"test.vm.Config.Settings("), "qvm:eval:invalidExpression");
    EXPECT_EQ(evalError(*vm, u""), "qvm:eval:invalidExpression");
    EXPECT_EQ(evalError(*vm, u"1abc"), "qvm:eval:invalidExpression");
    EXPECT_EQ(evalError(*vm, u"test.vm.Config.Settings", 2), "qvm:eval:tooManyOutputs");

    std::vector<qxArrayPtr> number;
    number.push_back(matrix::to_qorvex(1.0));
    EXPECT_THROW(vm->feval("eval", std::move(number), 1, vm->createRequestID(), nullOptions()).get(), qcos::HostError);
    EXPECT_THROW(vm->feval("disp", {}, 0, vm->createRequestID(), nullOptions()).get(), qcos::HostError);
}

TEST(HostVm, RequestsRunInArrivalOrderOnOneThread) {
    auto const vm = qvm::QVM::create();
    std::promise<void> allQueued;
    auto gate = allQueued.get_future().share();
    std::vector<int> order;  // touched on the command thread only
    std::thread::id commandThread;
    auto first = post<void>(*vm, [&, gate] {
        gate.wait();  // keeps the rest queued behind it
        commandThread = std::this_thread::get_id();
    });
    std::vector<boost::future<void>> rest;
    for (int i = 0; i < 50; ++i) {
        rest.push_back(post<void>(*vm, [&order, &commandThread, i] {
            EXPECT_EQ(std::this_thread::get_id(), commandThread);
            order.push_back(i);
        }));
    }
    allQueued.set_value();
    auto const seen = post<std::vector<int>>(*vm, [&order] { return order; }).get();
    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(seen, expected);
    EXPECT_NE(commandThread, std::this_thread::get_id());
}

TEST(HostVm, FuturesCarryTheExactExceptionAcrossThreads) {
    auto const vm = qvm::QVM::create();
    auto failing = post<int>(*vm, []() -> int { throw qcos::HostError("test:vm:failed", "went wrong"); });
    auto const host = thrown<qcos::HostError>([&] { failing.get(); });
    ASSERT_TRUE(host);
    EXPECT_EQ(host->identifier(), "test:vm:failed");
    EXPECT_STREQ(host->what(), "went wrong");
    auto runtime = post<void>(*vm, [] { throw RuntimeException(1, "host failure", "at line 3", {"cause one"}); });
    auto const error = thrown<RuntimeException>([&] { runtime.get(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getExecutionStatus(), 1);
    EXPECT_EQ(error->getStack(), "at line 3");
    EXPECT_EQ(error->getCauses(), std::vector<std::string>{"cause one"});
    struct NotStandard {
        int code;
    };
    auto odd = post<void>(*vm, [] { throw NotStandard{7}; });
    EXPECT_EQ(thrown<NotStandard>([&] { odd.get(); }).value_or(NotStandard{0}).code, 7);
}

TEST(HostVm, TheReaderOwnsTheExceptionItReads) {
    // The command thread lets go of a request (its options, then its procedure) after it has run; a sink slow
    // to destroy holds it there while this thread reads an exception of a type the runtime does not know. The
    // reader must be its last owner, or the thread sanitizer sees the command thread delete what was read.
    struct SlowToLetGo : std::basic_streambuf<char16_t> {
        ~SlowToLetGo() override { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }
    };
    struct Unknown : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    auto const vm = qvm::QVM::create();
    for (int i = 0; i < 20; ++i) {
        std::string message;
        try {
            auto sink = std::make_shared<SlowToLetGo>();
            auto failing = post<void>(
                *vm, [i] { throw Unknown("failure " + std::to_string(i)); }, RunOptions(sink, sink, {}, {}));
            sink.reset();
            failing.get();
        } catch (Unknown const& e) {
            message = e.what();  // the future is gone: only the exception links this thread to the request
        }
        ASSERT_EQ(message, "failure " + std::to_string(i));
    }
}

TEST(HostVm, ARequestFromTheCommandThreadRunsAtOnce) {
    auto const vm = qvm::QVM::create();
    auto const distributor = vm->getCmdDistributor();
    EXPECT_FALSE(distributor->isCommandThread());
    auto outer = post<int>(*vm, [&vm, &distributor] {
        EXPECT_TRUE(distributor->isCommandThread());
        // Waiting on a queued request here would wait for ourselves forever.
        auto inner = post<int>(*vm, [] { return 41; });
        EXPECT_TRUE(inner.is_ready());
        return inner.get() + 1;
    });
    EXPECT_EQ(outer.get(), 42);
}

TEST(HostVm, AVmWithoutDistributorFailsEveryRequest) {
    auto const vm = qvm::QVM::create(false);
    auto const found = qvm::detail::getCmdDistributorAndSinks(vm, nullOptions());
    EXPECT_EQ(found.distributor, nullptr);
    ASSERT_NE(found.outputSink, nullptr);

    qvm::detail::NullCmdDistributorTaskReference<int> reference;
    EXPECT_TRUE(reference.getFuture().is_ready());
    auto const error = thrown<RuntimeException>([&] { reference.get(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->getExecutionStatus(), 2);
    EXPECT_EQ(error->getMessage(), "No CmdDistributor available");
    EXPECT_TRUE(error->getStack().empty());
    EXPECT_TRUE(error->getCauses().empty());
    defineConfig();
    EXPECT_THROW(evalOn(*vm, u"test.vm.Config.Settings"), RuntimeException);
    // A future without shared state reports Boost's own error.
    boost::future<int> none;
    EXPECT_THROW(none.get(), boost::future_uninitialized);
}

TEST(HostVm, RequestsAreCheckedBeforeTheyAreQueued) {
    auto const vm = qvm::QVM::create();
    using depattr_test::whatOf;
    auto const distributor = vm->getCmdDistributor();
    EXPECT_EQ(whatOf<std::invalid_argument>([] { PackagedTaskIIP<int>(std::function<int()>(), "empty"); }),
              "func cannot be empty.");
    EXPECT_EQ(whatOf<std::invalid_argument>(
                  [&] { distributor->enqueueWithFuture(std::shared_ptr<Request<int>>(), nullOptions()); }),
              "request cannot be null.");
    EXPECT_EQ(whatOf<std::invalid_argument>([&] {
                  distributor->enqueueWithFuture(std::make_shared<Request<int>>(qvm::detail::createID(), nullptr),
                                                 nullOptions());
              }),
              "request must contain an IIP.");
    EXPECT_NE(qvm::detail::createID(), qvm::detail::createID());
}

TEST(HostVm, ShutdownCancelsQueuedRequestsAndRefusesNewOnes) {
    auto vm = qvm::QVM::create();
    auto const distributor = vm->getCmdDistributor();
    std::promise<void> release;
    auto gate = release.get_future().share();
    // The first request shuts the distributor down from the command thread, so
    // the second is certainly still queued when the thread stops.
    auto first = post<int>(*vm, [distributor, gate] {
        gate.wait();
        distributor->shutdown();
        return 1;
    });
    auto second = post<int>(*vm, [] { return 2; });
    release.set_value();
    EXPECT_EQ(first.get(), 1);
    auto const cancelled = thrown<RuntimeException>([&] { second.get(); });
    EXPECT_EQ(cancelled ? cancelled->getExecutionStatus() : 0, 3);
    auto late = post<int>(*vm, [] { return 3; });
    EXPECT_THROW(late.get(), RuntimeException);
    vm.reset();  // shutting down twice is harmless

    // Destroying a busy VM lets the running request finish; nothing queued is
    // left hanging (it ran before the stop, or it was cancelled).
    auto busy = qvm::QVM::create();
    std::promise<void> started;
    auto running = post<int>(*busy, [&started] {
        started.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return 5;
    });
    auto queued = post<int>(*busy, [] { return 6; });
    started.get_future().wait();
    busy.reset();
    EXPECT_EQ(running.get(), 5);
    ASSERT_TRUE(queued.is_ready());
    try {
        EXPECT_EQ(queued.get(), 6);
    } catch (RuntimeException const& error) {
        EXPECT_EQ(error.getExecutionStatus(), 3);
    }
}

TEST(HostVm, HostTextGoesToTheSinksOfTheRequest) {
    auto const vm = qvm::QVM::create();
    auto output = std::make_shared<std::basic_stringbuf<char16_t>>();
    auto error = std::make_shared<std::basic_stringbuf<char16_t>>();
    RunOptions const options(output, error, {true, false}, {false, true});
    post<void>(
        *vm,
        [] {
            qvm::print(u"hello");
            qvm::warning(u"careful");
        },
        options)
        .get();
    EXPECT_EQ(output->str(), u"hello");
    EXPECT_EQ(error->str(), u"careful");

    testing::internal::CaptureStdout();
    post<void>(*vm, [] { qvm::print(u"discarded"); }).get();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(HostVm, TheCurrentVmIsProcessWideAndReplaceable) {
    auto const first = qvm::Factory::getCurrentLocalQVM();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(qvm::Factory::getCurrentLocalQVM(), first);
    EXPECT_NE(first->getCmdDistributor(), nullptr);

    auto const bare = qvm::QVM::create(false);
    qvm::Factory::setCurrentLocalQVM(bare);
    EXPECT_EQ(qvm::Factory::getCurrentLocalQVM(), bare);
    EXPECT_EQ(qvm::detail::getCmdDistributorAndSinks(qvm::Factory::getCurrentLocalQVM(), nullOptions()).distributor,
              nullptr);
    qvm::Factory::setCurrentLocalQVM(nullptr);
    auto const fresh = qvm::Factory::getCurrentLocalQVM();
    EXPECT_NE(fresh, bare);
    EXPECT_NE(fresh->getCmdDistributor(), nullptr);
}

}  // namespace

#include "platform/host/Vm.hpp"

#include "platform/host/HostError.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <boost/shared_ptr.hpp>
#include <fmt/format.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <iostream>
#include <mutex>
#include <random>
#include <thread>
#include <utility>

namespace cmddistributor {

namespace {

// The sinks of the request the command thread is serving; null elsewhere.
struct CurrentSinks {
    OutputSink const* output = nullptr;
    OutputSink const* error = nullptr;
};
thread_local CurrentSinks currentSinks;

std::exception_ptr shutDownError() {
    return std::make_exception_ptr(RuntimeException(3, "The command distributor has shut down."));
}

}  // namespace

RunOptions::RunOptions(Buffer output, Buffer error, SinkTraits outputTraits, SinkTraits errorTraits)
    : output_(std::move(output)), error_(std::move(error)), outputTraits_(outputTraits), errorTraits_(errorTraits) {}

bool OutputSink::write(std::u16string_view text) const {
    if (!buffer_) {
        return false;
    }
    buffer_->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    return true;
}

RuntimeException::RuntimeException(int executionStatus, std::string message, std::string stack,
                                   std::vector<std::string> causes)
    : std::runtime_error(std::string()),
      status_(executionStatus),
      message_(std::move(message)),
      stack_(std::move(stack)),
      causes_(std::move(causes)) {}

IIP::~IIP() = default;

// Saved and restored: a request made by host code on the command thread runs
// nested inside the one being served.
SinkScope::SinkScope(RunOptions const& options)
    : output_(options.getOutputBuffer(), options.getOutputTraits()),
      error_(options.getErrorBuffer(), options.getErrorTraits()),
      savedOutput_(currentSinks.output),
      savedError_(currentSinks.error) {
    currentSinks = CurrentSinks{&output_, &error_};
}

SinkScope::~SinkScope() {
    currentSinks = CurrentSinks{savedOutput_, savedError_};
}

namespace detail {

namespace {

// Holds the exception of a request until its future is read, then hands the
// exception itself to the reading thread and keeps no reference to it. The
// reader is then the last owner and destroys it, whatever the command thread
// does with the request afterwards. A shared exception would be destroyed by
// whichever thread let go last, and its reference count (and the message
// buffer a standard exception shares with its copies) lives inside the C++
// runtime, where no happens-before between the reader's last use and the
// command thread's delete is visible to a race detector.
class HandedOverException : public boost::exception_detail::clone_base {
public:
    explicit HandedOverException(std::exception_ptr error) : error_(std::move(error)) {}

    clone_base const* clone() const override { return new HandedOverException(error_); }

    // A future is read once, under its state's lock; a second read finds
    // the exception already handed over.
    [[noreturn]] void rethrow() const override {
        auto error = std::exchange(error_, nullptr);
        if (!error) {
            throw RuntimeException(1, "The result of this request has already been read.");
        }
        std::rethrow_exception(std::move(error));
    }

private:
    mutable std::exception_ptr error_;
};

}  // namespace

boost::exception_ptr toBoostExceptionPtr(std::exception_ptr error) {
    return boost::exception_ptr(
        boost::shared_ptr<boost::exception_detail::clone_base const>(new HandedOverException(std::move(error))));
}

bool spinUntil(std::function<bool()> const& ready) {
    // What holds already (a request run on the command thread itself) costs
    // no look at the clock.
    if (ready()) {
        return true;
    }
    auto const deadline = std::chrono::steady_clock::now() + handoffSpin;
    for (;;) {
        // Look at the clock only every few polls: reading it costs more than a poll.
        for (int i = 0; i < 64; ++i) {
            if (ready()) {
                return true;
            }
#if defined(__x86_64__) || defined(__i386__)
            __builtin_ia32_pause();
#endif
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return ready();
        }
        // Let the other side run if it waits for this processor: on a busy
        // machine both threads of a handoff may share one.
        std::this_thread::yield();
    }
}

}  // namespace detail

struct CmdDistributor::State {
    struct Queued {
        qvm::RequestID id;
        std::shared_ptr<IIP> iip;
        RunOptions options;
    };

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Queued> queue;
    // The queue's length, readable without the lock, for the command thread's polling.
    std::atomic<std::size_t> queued{0};
    bool stopping = false;
    std::atomic<std::thread::id> commandThread;
    std::thread thread;
};

namespace {

void runWithSinks(std::shared_ptr<IIP> const& iip, RunOptions const& options) {
    SinkScope const sinks(options);
    iip->run();
}

}  // namespace

CmdDistributor::CmdDistributor() : state_(std::make_shared<State>()) {
    state_->thread = std::thread([state = state_] {
        std::deque<State::Queued> abandoned;
        for (;;) {
            (void)detail::spinUntil([&] { return state->queued.load(std::memory_order_acquire) != 0; });
            std::unique_lock lock(state->mutex);
            state->wake.wait(lock, [&] { return state->stopping || !state->queue.empty(); });
            if (state->stopping) {
                abandoned.swap(state->queue);
                state->queued.store(0, std::memory_order_release);
                break;
            }
            auto next = std::move(state->queue.front());
            state->queue.pop_front();
            state->queued.fetch_sub(1, std::memory_order_release);
            lock.unlock();
            runWithSinks(next.iip, next.options);
        }
        for (auto& queued : abandoned) {
            queued.iip->cancel(shutDownError());
        }
    });
    state_->commandThread.store(state_->thread.get_id(), std::memory_order_release);
}

CmdDistributor::~CmdDistributor() {
    shutdown();
}

bool CmdDistributor::isCommandThread() const noexcept {
    return state_->commandThread.load(std::memory_order_acquire) == std::this_thread::get_id();
}

void CmdDistributor::shutdown() noexcept {
    {
        std::lock_guard lock(state_->mutex);
        if (state_->stopping) {
            return;
        }
        state_->stopping = true;
    }
    state_->wake.notify_all();
    if (isCommandThread()) {
        // The last owner let go on the command thread itself: it cannot wait for
        // itself. The thread keeps the state alive and ends after this request.
        state_->thread.detach();
    } else {
        state_->thread.join();
    }
}

void CmdDistributor::enqueue(qvm::RequestID id, std::shared_ptr<IIP> iip, RunOptions const& options) {
    if (isCommandThread()) {
        runWithSinks(iip, options);
        return;
    }
    {
        std::lock_guard lock(state_->mutex);
        if (!state_->stopping) {
            state_->queue.push_back(State::Queued{id, std::move(iip), options});
            state_->queued.fetch_add(1, std::memory_order_release);
            state_->wake.notify_one();
            return;
        }
    }
    iip->cancel(shutDownError());
}

}  // namespace cmddistributor

namespace qvm {

namespace {

std::string describe(std::u16string_view text) {
    return boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
}

struct CurrentVM {
    std::mutex mutex;
    std::shared_ptr<QVM> vm;
};

CurrentVM& currentVM() {
    static CurrentVM current;
    return current;
}

}  // namespace

QVM::QVM(bool withCmdDistributor)
    : distributor_(withCmdDistributor ? std::make_shared<cmddistributor::CmdDistributor>() : nullptr) {}

QVM::~QVM() {
    if (distributor_) {
        distributor_->shutdown();
    }
}

std::shared_ptr<QVM> QVM::create(bool withCmdDistributor) {
    return std::shared_ptr<QVM>(new QVM(withCmdDistributor));
}

RequestID QVM::createRequestID() const {
    return detail::createID();
}

boost::future<std::vector<qxArrayPtr>> QVM::feval(std::string const& functionName, std::vector<qxArrayPtr> arguments,
                                                  int outputCount, RequestID id,
                                                  cmddistributor::RunOptions const& options) {
    using Result = std::vector<qxArrayPtr>;
    if (!distributor_) {
        detail::NullCmdDistributorTaskReference<Result> failed;
        return std::move(failed.getFuture());
    }
    // std::function needs a copyable closure; the arguments are shared instead.
    auto shared = std::make_shared<std::vector<qxArrayPtr>>(std::move(arguments));
    auto iip = std::make_shared<cmddistributor::PackagedTaskIIP<Result>>(
        [functionName, shared, outputCount] {
            std::vector<qxArray const*> inputs;
            for (auto const& argument : *shared) {
                if (!argument) {
                    throw qcos::HostError("qvm:feval:missingArgument", fmt::format("Argument {} of '{}' is missing.",
                                                                                   inputs.size() + 1, functionName));
                }
                inputs.push_back(argument.get());
            }
            return callHostFunction(functionName, inputs, outputCount);
        },
        "feval " + functionName);
    return distributor_->enqueueWithFuture(std::make_shared<cmddistributor::Request<Result>>(id, std::move(iip)),
                                           options);
}

std::shared_ptr<QVM> Factory::getCurrentLocalQVM() {
    auto& current = currentVM();
    std::lock_guard lock(current.mutex);
    if (!current.vm) {
        current.vm = QVM::create(true);
    }
    return current.vm;
}

void Factory::setCurrentLocalQVM(std::shared_ptr<QVM> vm) {
    auto& current = currentVM();
    std::shared_ptr<QVM> previous;
    {
        std::lock_guard lock(current.mutex);
        previous = std::exchange(current.vm, std::move(vm));
    }
    // `previous` may be the last owner; its command thread is joined here,
    // outside the lock.
}

void print(std::u16string_view text) {
    auto const* sink = cmddistributor::currentSinks.output;
    if (sink != nullptr && sink->traits().plainText && sink->write(text)) {
        return;
    }
    std::cout << describe(text) << std::flush;
}

void warning(std::u16string_view text) {
    auto const* sink = cmddistributor::currentSinks.error;
    if (sink != nullptr && sink->traits().warnings && sink->write(text)) {
        return;
    }
    std::cerr << "Warning: " << describe(text) << std::endl;
}

void printError(std::u16string_view text) {
    auto const* sink = cmddistributor::currentSinks.error;
    if (sink != nullptr && sink->traits().plainText && sink->write(text)) {
        return;
    }
    std::cerr << describe(text) << std::flush;
}

namespace {

std::atomic<bool> interruptFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets the interrupt flag");

}  // namespace

void requestInterrupt() noexcept {
    interruptFlag.store(true, std::memory_order_relaxed);
}

namespace {
thread_local long long stepsLeft = -1;
}

bool isInterruptRequested() noexcept {
    if (stepsLeft >= 0) {
        if (stepsLeft == 0) {
            return true;
        }
        --stepsLeft;
    }
    return interruptFlag.load(std::memory_order_relaxed);
}

void setStepBudget(long long steps) noexcept {
    stepsLeft = steps < 0 ? -1 : steps;
}

void clearInterrupt() noexcept {
    interruptFlag.store(false, std::memory_order_relaxed);
}

qxArrayPtr evaluate(std::u16string_view expression) {
    auto const shown = describe(expression);
    // Split into names, remembering where each starts for error messages.
    std::vector<std::string> names;
    std::size_t position = 0;
    auto const skipBlanks = [&] {
        while (position < expression.size() && (expression[position] == u' ' || expression[position] == u'\t')) {
            ++position;
        }
    };
    skipBlanks();
    for (;;) {
        std::string name;
        std::size_t const start = position;
        while (position < expression.size()) {
            char16_t const c = expression[position];
            bool const letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
            bool const digitOrUnderscore = (c >= u'0' && c <= u'9') || c == u'_';
            if (!letter && !(digitOrUnderscore && !name.empty())) {
                break;
            }
            name.push_back(static_cast<char>(c));
            ++position;
        }
        if (name.empty()) {
            throw qcos::HostError(
                "qvm:eval:invalidExpression",
                fmt::format("Invalid expression '{}': expected a name at position {}.", shown, start + 1));
        }
        names.push_back(std::move(name));
        skipBlanks();
        if (position == expression.size()) {
            break;
        }
        if (expression[position] != u'.') {
            throw qcos::HostError(
                "qvm:eval:invalidExpression",
                fmt::format("Invalid expression '{}': unexpected character at position {}.", shown, position + 1));
        }
        ++position;
        skipBlanks();
    }

    // The shortest leading run of names that is a registered class.
    std::string className;
    std::size_t next = 0;
    for (std::string prefix; next < names.size();) {
        prefix += (next == 0 ? "" : ".") + names[next];
        ++next;
        if (qcos::omFindClass(prefix)) {
            className = prefix;
            break;
        }
    }
    if (className.empty()) {
        throw qcos::HostError("qvm:eval:undefined",
                              fmt::format("Unrecognized name '{}': no class is named by its leading part.", shown));
    }
    if (next == names.size()) {
        throw qcos::HostError("qvm:eval:classNotValue", fmt::format("'{}' names a class, not a value.", className));
    }
    auto value = qcos::omGetConstantProperty(className, names[next]);
    for (++next; next < names.size(); ++next) {
        if (value->classID() != qxClassID::Object || !value->isScalar()) {
            throw qcos::HostError("qvm:eval:notAnObject",
                                  fmt::format("Cannot read property '{}' of a value of class '{}' that is not one "
                                              "object.",
                                              names[next], value->getClassName()));
        }
        value = qcos::omGetProperty(*qcos::cosiGetArrayElement(*value, 0), names[next]);
    }
    return value;
}

namespace detail {

RequestID createID() {
    // One random word per process, one counter per request: unique in the
    // process and unlikely to repeat across processes.
    static std::uintptr_t const processStamp = [] {
        std::random_device device;
        return (static_cast<std::uintptr_t>(device()) << 16) ^ static_cast<std::uintptr_t>(device());
    }();
    static std::atomic<std::uintptr_t> counter{0};
    return RequestID{processStamp, counter.fetch_add(1, std::memory_order_relaxed) + 1};
}

DistributorAndSinks getCmdDistributorAndSinks(std::shared_ptr<QVM> const& vm,
                                              cmddistributor::RunOptions const& options) {
    // Callers that make one request after another give the same options each
    // time: the sinks made for them last time serve again.
    struct Cached {
        cmddistributor::RunOptions::Buffer output;
        cmddistributor::RunOptions::Buffer error;
        cmddistributor::SinkTraits outputTraits;
        cmddistributor::SinkTraits errorTraits;
        std::shared_ptr<cmddistributor::OutputSink> outputSink;
        std::shared_ptr<cmddistributor::OutputSink> errorSink;
    };
    thread_local Cached cached;
    auto const sameTraits = [](cmddistributor::SinkTraits const& a, cmddistributor::SinkTraits const& b) {
        return a.plainText == b.plainText && a.warnings == b.warnings;
    };
    if (!cached.outputSink || cached.output != options.getOutputBuffer() || cached.error != options.getErrorBuffer() ||
        !sameTraits(cached.outputTraits, options.getOutputTraits()) ||
        !sameTraits(cached.errorTraits, options.getErrorTraits())) {
        cached =
            Cached{options.getOutputBuffer(),
                   options.getErrorBuffer(),
                   options.getOutputTraits(),
                   options.getErrorTraits(),
                   std::make_shared<cmddistributor::OutputSink>(options.getOutputBuffer(), options.getOutputTraits()),
                   std::make_shared<cmddistributor::OutputSink>(options.getErrorBuffer(), options.getErrorTraits())};
    }
    return DistributorAndSinks{vm ? vm->getCmdDistributor() : nullptr, cached.outputSink, cached.errorSink};
}

}  // namespace detail
}  // namespace qvm

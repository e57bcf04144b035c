#pragma once
// The host VM and its command distributor. Host code runs on the VM's one
// command thread; other threads hand it work as requests, served in FIFO order,
// and wait on Boost futures for the result or the exception. A request made on
// the command thread itself runs at once instead of waiting for itself.

#include "platform/host/Array.hpp"

#if !defined(BOOST_THREAD_VERSION) || BOOST_THREAD_VERSION < 4
#error "The host runtime needs BOOST_THREAD_VERSION 4 (set by the depattr_host target)"
#endif
#include <boost/exception_ptr.hpp>
#include <boost/thread/future.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace qvm {

// Identifies one request: two machine words, unique within the process.
struct RequestID {
    std::uintptr_t high = 0;
    std::uintptr_t low = 0;
    friend bool operator==(RequestID const&, RequestID const&) = default;
};

class QVM;

}  // namespace qvm

namespace cmddistributor {

// Which kinds of host text a sink takes; text a sink does not take goes to the
// process's own standard output or error.
struct SinkTraits {
    bool plainText = true;  // what host code prints
    bool warnings = true;   // warnings host code raises
};

// The options of one request: where the host's output and error text go.
class RunOptions {
public:
    using Buffer = std::shared_ptr<std::basic_streambuf<char16_t>>;

    RunOptions(Buffer output, Buffer error, SinkTraits outputTraits, SinkTraits errorTraits);

    Buffer const& getOutputBuffer() const noexcept { return output_; }
    Buffer const& getErrorBuffer() const noexcept { return error_; }
    SinkTraits const& getOutputTraits() const noexcept { return outputTraits_; }
    SinkTraits const& getErrorTraits() const noexcept { return errorTraits_; }

private:
    Buffer output_;
    Buffer error_;
    SinkTraits outputTraits_;
    SinkTraits errorTraits_;
};

// A stream buffer with the kinds of text it takes.
class OutputSink {
public:
    OutputSink(RunOptions::Buffer buffer, SinkTraits traits) : buffer_(std::move(buffer)), traits_(traits) {}
    SinkTraits const& traits() const noexcept { return traits_; }
    // Writes the text; false when there is no buffer to write to.
    bool write(std::u16string_view text) const;

private:
    RunOptions::Buffer buffer_;
    SinkTraits traits_;
};

// A failed execution on the command thread. Execution statuses used by the
// runtime: 1 host code failed, 2 no command distributor, 3 distributor shut down.
// Like HostError it keeps its text in its own string, so that the copies that
// pass between threads share no buffer.
class RuntimeException : public std::runtime_error {
public:
    RuntimeException(int executionStatus, std::string message, std::string stack = {},
                     std::vector<std::string> causes = {});

    char const* what() const noexcept override { return message_.c_str(); }

    int getExecutionStatus() const noexcept { return status_; }
    std::string const& getMessage() const noexcept { return message_; }
    std::string const& getStack() const noexcept { return stack_; }
    std::vector<std::string> const& getCauses() const noexcept { return causes_; }

private:
    int status_;
    std::string message_;
    std::string stack_;
    std::vector<std::string> causes_;
};

namespace detail {
// A Boost exception pointer that rethrows exactly `error` (its dynamic type
// included) when a Boost future is read, handing it over to the reader.
boost::exception_ptr toBoostExceptionPtr(std::exception_ptr error);

// How long each side of a handoff polls before it goes to sleep. A caller
// that sends requests one after another (a script analyzer, node after node)
// then finds the command thread awake, and the command thread usually answers
// before the caller has gone to sleep: waking a sleeping thread costs tens of
// microseconds, far more than a short request. Beyond this bound both sides
// block, so an idle distributor or a long request costs no processor time.
inline constexpr std::chrono::microseconds handoffSpin{50};

// Polls `ready` until it holds or `handoffSpin` has passed; returns whether it held.
bool spinUntil(std::function<bool()> const& ready);
}  // namespace detail

// Work the command thread runs. run() and cancel() are each called at most
// once, and only one of them.
class IIP {
public:
    explicit IIP(std::string label) : label_(std::move(label)) {}
    virtual ~IIP();
    IIP(IIP const&) = delete;
    IIP& operator=(IIP const&) = delete;

    std::string const& getLabel() const noexcept { return label_; }
    virtual void run() noexcept = 0;
    virtual void cancel(std::exception_ptr reason) noexcept = 0;

    // Whether run or cancel has finished, read without a lock: a waiting
    // thread may poll it while the command thread fulfils the promise, where
    // polling the future itself would contend for the future's lock.
    bool hasFinished() const noexcept { return finished_.load(std::memory_order_acquire); }

protected:
    void markFinished() noexcept { finished_.store(true, std::memory_order_release); }

private:
    std::string label_;
    std::atomic<bool> finished_{false};
};

// A native function to run on the command thread, with the promise of its result.
template <class R>
class PackagedTaskIIP final : public IIP {
public:
    PackagedTaskIIP(std::function<R()> func, std::string label) : IIP(std::move(label)), func_(std::move(func)) {
        if (!func_) {
            throw std::invalid_argument("func cannot be empty.");
        }
    }

    // The future of the result; may be taken once.
    boost::future<R> getFuture() { return promise_.get_future(); }

    void run() noexcept override {
        // The exception is set after its catch block has ended, so the
        // command thread holds no reference to it once a reader can see it.
        std::exception_ptr error;
        try {
            if constexpr (std::is_void_v<R>) {
                func_();
                promise_.set_value();
            } else {
                promise_.set_value(func_());
            }
        } catch (...) {
            error = std::current_exception();
        }
        if (error) {
            promise_.set_exception(detail::toBoostExceptionPtr(std::move(error)));
        }
        markFinished();
    }

    void cancel(std::exception_ptr reason) noexcept override {
        promise_.set_exception(detail::toBoostExceptionPtr(std::move(reason)));
        markFinished();
    }

private:
    std::function<R()> func_;
    boost::promise<R> promise_;
};

// What is queued: an identifier and the procedure to run.
template <class R>
class Request {
public:
    Request(qvm::RequestID id, std::shared_ptr<PackagedTaskIIP<R>> iip) : id_(id), iip_(std::move(iip)) {}
    qvm::RequestID getID() const noexcept { return id_; }
    std::shared_ptr<PackagedTaskIIP<R>> const& getIIP() const noexcept { return iip_; }

private:
    qvm::RequestID id_;
    std::shared_ptr<PackagedTaskIIP<R>> iip_;
};

// While it exists, host text on this thread goes to the sinks of `options`
// (then back to the sinks before it).
class SinkScope {
public:
    explicit SinkScope(RunOptions const& options);
    ~SinkScope();
    SinkScope(SinkScope const&) = delete;
    SinkScope& operator=(SinkScope const&) = delete;

private:
    OutputSink output_;
    OutputSink error_;
    OutputSink const* savedOutput_;
    OutputSink const* savedError_;
};

// The FIFO queue of one VM and the command thread that serves it.
class CmdDistributor {
public:
    CmdDistributor();
    ~CmdDistributor();
    CmdDistributor(CmdDistributor const&) = delete;
    CmdDistributor& operator=(CmdDistributor const&) = delete;

    // Queues the request and returns the future of its result. Throws
    // std::invalid_argument for a null request or one without a procedure.
    // On the command thread the request runs before this returns; after
    // shutdown the future holds a RuntimeException (status 3).
    template <class R>
    boost::future<R> enqueueWithFuture(std::shared_ptr<Request<R>> const& request, RunOptions const& options) {
        if (!request) {
            throw std::invalid_argument("request cannot be null.");
        }
        if (!request->getIIP()) {
            throw std::invalid_argument("request must contain an IIP.");
        }
        auto future = request->getIIP()->getFuture();
        enqueue(request->getID(), request->getIIP(), options);
        return future;
    }

    bool isCommandThread() const noexcept;
    // Stops the command thread: the request running finishes, the ones still
    // queued are cancelled with RuntimeException (status 3), later ones fail
    // at once. Waits for the thread unless called on it. Idempotent.
    void shutdown() noexcept;

private:
    void enqueue(qvm::RequestID id, std::shared_ptr<IIP> iip, RunOptions const& options);

    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace cmddistributor

namespace qvm {

// A host VM: its command distributor (none for a VM made without one) and the
// host functions it evaluates.
class QVM {
public:
    static std::shared_ptr<QVM> create(bool withCmdDistributor = true);
    ~QVM();
    QVM(QVM const&) = delete;
    QVM& operator=(QVM const&) = delete;

    std::shared_ptr<cmddistributor::CmdDistributor> const& getCmdDistributor() const noexcept { return distributor_; }
    RequestID createRequestID() const;

    // Calls a host function of the host function table (HostFunctions.hpp) on
    // the command thread: "eval", which takes one char array holding a dotted
    // expression (namespace.Class.ConstantProperty.Property ...) and returns
    // its value, any registered function, or a gateway of a loaded library.
    // The future holds the outputs or the host error; without a distributor it
    // holds RuntimeException (status 2) "No CmdDistributor available".
    boost::future<std::vector<qxArrayPtr>> feval(std::string const& functionName, std::vector<qxArrayPtr> arguments,
                                                 int outputCount, RequestID id,
                                                 cmddistributor::RunOptions const& options);

private:
    explicit QVM(bool withCmdDistributor);
    std::shared_ptr<cmddistributor::CmdDistributor> distributor_;
};

class Factory {
public:
    // The process's current VM; made (with a distributor) on first use unless
    // one was set.
    static std::shared_ptr<QVM> getCurrentLocalQVM();
    // Replaces the current VM (null: the next get makes a new one).
    static void setCurrentLocalQVM(std::shared_ptr<QVM> vm);
};

// Host text output for code running on the command thread: goes to the sinks
// of the request being served if they take that kind of text, else to the
// process's standard output or error.
void print(std::u16string_view text);
void warning(std::u16string_view text);
// Text host code writes to its error stream: the error sink when it takes
// plain text, else the process's standard error.
void printError(std::u16string_view text);

// Interrupting host code (Ctrl-C): one flag for the process. Host code checks
// it at loop back-edges and calls and stops with an error while it is set.
// requestInterrupt is async-signal-safe, so a signal handler may call it.
void requestInterrupt() noexcept;
bool isInterruptRequested() noexcept;
void clearInterrupt() noexcept;
// A step budget for host code on the calling thread: every check of the
// interrupt flag (each loop iteration, each call) is a step, and once `steps`
// have been taken the flag reads as set until the budget is set again.
// Negative: no budget (the default). For running untrusted code in tests and
// fuzzing, where a program must end whatever the code does.
void setStepBudget(long long steps) noexcept;

// Evaluates a dotted expression on the calling thread (feval's "eval").
qxArrayPtr evaluate(std::u16string_view expression);

namespace detail {

RequestID createID();

struct DistributorAndSinks {
    std::shared_ptr<cmddistributor::CmdDistributor> distributor;
    std::shared_ptr<cmddistributor::OutputSink> outputSink;
    std::shared_ptr<cmddistributor::OutputSink> errorSink;
};
DistributorAndSinks getCmdDistributorAndSinks(std::shared_ptr<QVM> const& vm,
                                              cmddistributor::RunOptions const& options);

// Owns the future of a queued request, and optionally the request's
// procedure, whose end it then polls without contending for the future's lock.
template <class R>
class CmdDistributorTaskReference {
public:
    explicit CmdDistributorTaskReference(boost::future<R> future, std::shared_ptr<cmddistributor::IIP const> iip = {})
        : future_(std::move(future)), iip_(std::move(iip)) {}
    virtual ~CmdDistributorTaskReference() = default;

    boost::future<R>& getFuture() noexcept { return future_; }
    // Waits, then returns the result or rethrows the request's exception.
    R get() {
        if (iip_) {
            (void)cmddistributor::detail::spinUntil([this] { return iip_->hasFinished(); });
        } else {
            (void)cmddistributor::detail::spinUntil([this] { return future_.is_ready(); });
        }
        return future_.get();
    }

private:
    boost::future<R> future_;
    std::shared_ptr<cmddistributor::IIP const> iip_;
};

// Stands for a request that could not be queued: its future already holds the
// exception (by default RuntimeException status 2 "No CmdDistributor available").
template <class R>
class NullCmdDistributorTaskReference final : public CmdDistributorTaskReference<R> {
public:
    NullCmdDistributorTaskReference()
        : NullCmdDistributorTaskReference(
              std::make_exception_ptr(cmddistributor::RuntimeException(2, "No CmdDistributor available"))) {}
    explicit NullCmdDistributorTaskReference(std::exception_ptr error)
        : CmdDistributorTaskReference<R>(
              boost::make_exceptional_future<R>(cmddistributor::detail::toBoostExceptionPtr(std::move(error)))) {}
};

}  // namespace detail
}  // namespace qvm

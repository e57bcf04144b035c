// Calls: the per-thread state of running code, calls of compiled functions (binding the inputs, running the body,
// collecting the outputs), of host functions and of function handles, and the interpreter's public entry points.

#include "platform/host/Vm.hpp"
#include "platform/host/lang/detail/Evaluation.hpp"

#include <pthread.h>

#include <algorithm>
#include <mutex>
#include <new>

namespace qlang::detail {

thread_local ThreadState threadState;

namespace {

std::atomic<std::uint64_t> nextActivation{1};
std::atomic<int> maximumDepth{500};

// The lowest stack address host code may reach on this thread: a margin
// above the end of the thread's stack, so that the interpreter stops with an
// error long before the stack would overflow.
std::uintptr_t stackLimitOfThisThread() {
    pthread_attr_t attributes;
    void* low = nullptr;
    std::size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getstack(&attributes, &low, &size);
        pthread_attr_destroy(&attributes);
    }
    if (low == nullptr || size == 0) {
        return 0;
    }
    std::size_t const margin = std::max<std::size_t>(64 * 1024, size / 8);
    return reinterpret_cast<std::uintptr_t>(low) + std::min(margin, size / 2);
}

// Keeps the running frames for error locations and class contexts.
class FrameScope {
public:
    explicit FrameScope(Frame const& frame) {
        threadState.frames.push_back(&frame);
        ++threadState.depth;
    }
    ~FrameScope() {
        threadState.frames.pop_back();
        --threadState.depth;
    }
    FrameScope(FrameScope const&) = delete;
    FrameScope& operator=(FrameScope const&) = delete;
};

}  // namespace

void checkStack() {
    if (threadState.stackLimit == 0) {
        threadState.stackLimit = stackLimitOfThisThread();
    }
    auto const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    if (here < threadState.stackLimit) {
        raise("qlang:recursionLimit",
              "Out of stack space: the calls or expressions are nested too deeply (maximum recursion reached).");
    }
}

void checkInterrupt() {
    if (qvm::isInterruptRequested()) {
        raise("qlang:interrupted", "Interrupted (Ctrl-C): the host code was stopped.");
    }
}

Frame const* currentFrame() {
    return threadState.frames.empty() ? nullptr : threadState.frames.back();
}

// ===================================================================== errors

void addFrame(qcos::HostError& error, Frame const& frame) {
    for (auto const& existing : error.stack()) {
        if (existing.activation == frame.activation) {
            return;
        }
    }
    Position where = frame.function->position;
    if (frame.statement != nullptr) {
        where = frame.statement->position;
    }
    error.addFrame(
        {frame.function->file->displayName, frame.function->name, where.line, where.column, frame.activation});
}

// Native failures inside host code become host errors, so that try/catch
// sees them and stacks name where they happened.
qcos::HostError asHostError(std::exception const& error) {
    if (dynamic_cast<std::bad_alloc const*>(&error) != nullptr) {
        return qcos::HostError("qlang:outOfMemory", "Out of memory.");
    }
    return qcos::HostError("qlang:nativeError", error.what());
}

[[noreturn]] void undefinedName(std::string const& name) {
    raise("qlang:undefined", fmt::format("Undefined function or variable '{}'.", name));
}

// ===================================================================== values in and out

Values valuesOf(std::span<qxArray const* const> inputs) {
    Values values;
    values.reserve(inputs.size());
    for (auto const* input : inputs) {
        values.push_back(share(input->clone()));
    }
    return values;
}

std::vector<qxArrayPtr> arraysOf(Values values) {
    std::vector<qxArrayPtr> arrays;
    arrays.reserve(values.size());
    for (auto& value : values) {
        // Moved, so that a value nobody else holds is handed over without a copy.
        arrays.push_back(qxArray::unshare(std::move(value)));
    }
    return arrays;
}

Values callHostFunction(qvm::HostFunction const& function, std::span<Value const> args, int nargout) {
    std::vector<qxArray const*> inputs;
    inputs.reserve(args.size());
    for (auto const& arg : args) {
        inputs.push_back(arg.get());
    }
    std::vector<qxArrayPtr> outputs;
    try {
        outputs = function(inputs, nargout);
    } catch (qcos::HostError const&) {
        throw;
    } catch (std::exception const& error) {
        throw asHostError(error);
    }
    Values values;
    values.reserve(outputs.size());
    for (auto& output : outputs) {
        if (!output) {
            break;
        }
        values.push_back(share(std::move(output)));
    }
    return values;
}

FramePtr lexicalParentFor(Function const& callee, Frame const* caller, FramePtr const& callerPtr) {
    if (callee.parent == nullptr) {
        return nullptr;
    }
    // The frame of the callee's enclosing function: the caller or one of its enclosing frames.
    if (caller != nullptr && caller->function == callee.parent) {
        return callerPtr;
    }
    for (auto frame = caller != nullptr ? caller->parent : nullptr; frame; frame = frame->parent) {
        if (frame->function == callee.parent) {
            return frame;
        }
    }
    raise("qlang:call:nestedOutOfScope",
          fmt::format("The nested function '{}' can only be called while its enclosing function runs.", callee.name));
}

// ===================================================================== calls of compiled code

namespace {

// Refuses a call before it starts: an interrupt, too deep a recursion, an abstract method, more arguments or
// outputs than the function has.
void checkCall(Function const& function, std::size_t argumentCount, int nargout) {
    checkInterrupt();
    if (threadState.depth >= maximumDepth.load(std::memory_order_relaxed)) {
        raise("qlang:recursionLimit",
              fmt::format("Maximum recursion depth of {} reached in '{}'.", maximumDepth.load(), function.name));
    }
    checkStack();
    if (function.isAbstract) {
        raise("qlang:method:abstract",
              fmt::format("The abstract method '{}' has no implementation in this class.", function.name));
    }
    auto const inputCount = function.inputSlots.size();
    if (!function.varargin && argumentCount > inputCount) {
        raise("qlang:call:tooManyInputs", fmt::format("Too many input arguments: '{}' takes at most {}, got {}.",
                                                      function.name, inputCount, argumentCount));
    }
    if (!function.isAnonymous && !function.varargout &&
        static_cast<std::size_t>(std::max(nargout, 0)) > function.outputSlots.size()) {
        raise("qlang:call:tooManyOutputs",
              fmt::format("Too many output arguments: '{}' returns at most {}, {} requested.", function.name,
                          function.outputSlots.size(), nargout));
    }
}

FramePtr newFrame(Function const& function, FramePtr parent) {
    auto frame = std::make_shared<Frame>();
    frame->function = &function;
    frame->slots.resize(function.slotNames.size());
    frame->parent = std::move(parent);
    frame->activation = nextActivation.fetch_add(1, std::memory_order_relaxed);
    return frame;
}

// The arguments go to the inputs in order; with varargin, the rest go into one cell row.
void bindInputs(Frame& frame, std::span<Value const> args) {
    auto const& function = *frame.function;
    auto const inputCount = function.inputSlots.size();
    auto const fixedInputs = function.varargin ? inputCount - 1 : inputCount;
    for (std::size_t i = 0; i < args.size() && i < fixedInputs; ++i) {
        if (auto const slot = function.inputSlots[i]; slot >= 0) {
            frame.slots[static_cast<std::size_t>(slot)] = args[i];
        }
    }
    if (function.varargin) {
        auto const extra = args.size() > fixedInputs ? args.size() - fixedInputs : 0;
        auto cell = qxArray::createCell({1, extra});
        for (std::size_t i = 0; i < extra; ++i) {
            cell->setCell(i, args[fixedInputs + i]);
        }
        frame.slots[static_cast<std::size_t>(function.inputSlots.back())] = share(std::move(cell));
    }
}

// What the call kind sets in the frame before the body runs.
void presetSlots(Frame& frame, CallKind const& kind) {
    if (auto const* anonymous = std::get_if<AnonymousCall>(&kind)) {
        for (auto const& [slot, value] : anonymous->captured) {
            frame.slots[static_cast<std::size_t>(slot)] = value;
        }
    } else if (auto const* constructor = std::get_if<ConstructorCall>(&kind)) {
        frame.slots[static_cast<std::size_t>(frame.function->outputSlots.front())] = constructor->object;
    }
}

// Superclass constructors the body does not call itself run first, without arguments.
void constructSuperclasses(Frame& frame, ClassRecord const& record) {
    auto const& function = *frame.function;
    auto& object = frame.slots[static_cast<std::size_t>(function.outputSlots.front())];
    for (auto const& super : record.superclasses) {
        auto const& explicitCalls = function.explicitSuperConstructors;
        if (std::find(explicitCalls.begin(), explicitCalls.end(), super) != explicitCalls.end()) {
            continue;
        }
        if (auto const* superRecord = CodeRuntime::get().classRecord(super)) {
            object = constructInto(*superRecord, object, {});
        }
    }
}

// Runs run(); an error leaving it names the frame's function and position in its stack.
template <typename Run>
decltype(auto) inFrame(Frame& frame, Run&& run) {
    try {
        return run();
    } catch (qcos::HostError& error) {
        addFrame(error, frame);
        throw;
    } catch (std::exception const& error) {
        auto hostError = asHostError(error);
        addFrame(hostError, frame);
        throw hostError;
    }
}

// The outputs the caller asked for (at least the first, when it is set). Outputs that were not set are the caller's
// error: it asked for them.
Values collectOutputs(Frame const& frame) {
    auto const& function = *frame.function;
    Values results;
    auto const outputCount = function.outputSlots.size();
    auto const wanted = static_cast<std::size_t>(std::max(frame.nargout, 0));
    for (std::size_t k = 0; k < std::max<std::size_t>(wanted, 1) && k < outputCount; ++k) {
        auto const slot = static_cast<std::size_t>(function.outputSlots[k]);
        if (function.varargout && k + 1 == outputCount) {
            auto const& rest = frame.slots[slot];
            std::size_t const needed = wanted > k ? wanted - k : 0;
            if (needed == 0) {
                break;
            }
            if (!rest || rest->classID() != qxClassID::Cell || rest->getNumberOfElements() < needed) {
                raise("qlang:call:outputNotAssigned",
                      fmt::format("'{}' set fewer outputs in varargout than were requested.", function.name));
            }
            for (std::size_t i = 0; i < needed; ++i) {
                results.push_back(rest->getCell(i));
            }
            break;
        }
        auto const& output = frame.slots[slot];
        if (!output) {
            if (wanted == 0) {
                break;
            }
            raise("qlang:call:outputNotAssigned",
                  fmt::format("The output '{}' of '{}' was not assigned.", function.slotNames[slot], function.name));
        }
        results.push_back(output);
    }
    return results;
}

// A handle to a nested function keeps the frame of its enclosing function; only the variables nested functions use
// need to stay (the others could hold that very handle, and keep the frame alive for ever).
class ReleaseUnshared {
public:
    explicit ReleaseUnshared(FramePtr const& frame) : frame_(frame) {}
    ~ReleaseUnshared() {
        if (frame_.use_count() > 1) {
            auto const& shared = frame_->function->sharedSlots;
            for (std::size_t i = 0; i < frame_->slots.size(); ++i) {
                if (i >= shared.size() || !shared[i]) {
                    frame_->slots[i].reset();
                }
            }
        }
    }
    ReleaseUnshared(ReleaseUnshared const&) = delete;
    ReleaseUnshared& operator=(ReleaseUnshared const&) = delete;

private:
    FramePtr const& frame_;
};

// Stores the persistent variables a call declared back with its function
// when the call ends, however it ends.
class KeepPersistent {
public:
    explicit KeepPersistent(Frame& frame) : frame_(frame) {}
    ~KeepPersistent() {
        auto const& function = *frame_.function;
        if (function.persistentSlots.empty()) {
            return;
        }
        auto& kept = *function.persistent;
        std::lock_guard const lock(kept.mutex);
        for (std::size_t i = 0; i < function.persistentSlots.size(); ++i) {
            auto const& value = frame_.slots[static_cast<std::size_t>(function.persistentSlots[i])];
            if (value) {
                kept.values[i] = value;
            }
        }
    }
    KeepPersistent(KeepPersistent const&) = delete;
    KeepPersistent& operator=(KeepPersistent const&) = delete;

private:
    Frame& frame_;
};

}  // namespace

Values callCompiled(Function const& function, FramePtr const& parent, std::span<Value const> args, int nargout,
                    CallKind const& kind) {
    checkCall(function, args.size(), nargout);
    auto frame = newFrame(function, parent);
    frame->nargin = static_cast<int>(args.size());
    frame->nargout = nargout;
    bindInputs(*frame, args);
    presetSlots(*frame, kind);
    FrameScope scope(*frame);
    Evaluator evaluator(*frame, frame);
    if (function.isAnonymous) {
        return inFrame(*frame, [&] {
            Values results;
            frame->statement = function.body.front();
            evaluator.values(*function.body.front()->expr, nargout, results);
            return results;
        });
    }
    {
        KeepPersistent const keep(*frame);
        inFrame(*frame, [&] {
            if (auto const* constructor = std::get_if<ConstructorCall>(&kind)) {
                constructSuperclasses(*frame, constructor->record);
            }
            (void)evaluator.block(function.body);
        });
    }
    ReleaseUnshared const release(frame);
    return collectOutputs(*frame);
}

// ===================================================================== public entry points

Values callFunction(Function const& function, FramePtr parent, std::span<Value const> args, int nargout,
                    std::vector<std::pair<int, Value>> const* captured) {
    if (captured != nullptr) {
        return callCompiled(function, parent, args, nargout, AnonymousCall{*captured});
    }
    return callCompiled(function, parent, args, nargout, PlainCall{});
}

Values callCallable(Value const& callable, std::span<Value const> args, int nargout) {
    if (callable->classID() == qxClassID::FunctionHandle) {
        auto const& handle = callable->getFunctionHandle();
        if (auto const* compiled = dynamic_cast<CompiledHandle const*>(handle.get())) {
            return compiled->callValues(args, nargout);
        }
        if (auto const* named = dynamic_cast<NameHandle const*>(handle.get())) {
            return named->callValues(args, nargout);
        }
        std::vector<qxArray const*> inputs;
        for (auto const& arg : args) {
            inputs.push_back(arg.get());
        }
        Values results;
        for (auto& output : handle->call(inputs, nargout)) {
            if (!output) {
                break;
            }
            results.push_back(share(std::move(output)));
        }
        return results;
    }
    if (isText(*callable)) {
        return callByName(utf8(callable->getString()), args, nargout);
    }
    raise("qlang:call:notCallable", fmt::format("A value of class '{}' cannot be called; a function handle is needed.",
                                                callable->getClassName()));
}

Values callByName(std::string const& name, std::span<Value const> args, int nargout) {
    auto const* resolution = CodeRuntime::get().resolve(name);
    if (resolution == nullptr) {
        undefinedName(name);
    }
    auto const parts = splitDotted(name);
    if (resolution->consumed != parts.size()) {
        raise("qlang:undefined", fmt::format("Unable to resolve the name '{}' as a function.", name));
    }
    switch (resolution->kind) {
    case Resolution::Kind::PathFunction:
        return callFunction(*resolution->function, nullptr, args, nargout);
    case Resolution::Kind::Class:
        return constructByName(resolution->className, args, nargout);
    case Resolution::Kind::Builtin:
        return resolution->builtin->function(args, nargout);
    case Resolution::Kind::Host:
        return callHostFunction(*resolution->host, args, nargout);
    }
    undefinedName(name);
}

Value makeNamedHandle(std::string name) {
    return share(qxArray::createFunctionHandle(std::make_shared<NameHandle>(std::move(name))));
}

FramePtr runScript(CompiledFile const& file) {
    auto frame = newFrame(*file.main, nullptr);
    FrameScope scope(*frame);
    Evaluator evaluator(*frame, frame);
    inFrame(*frame, [&] { (void)evaluator.block(file.main->body); });
    return frame;
}

Value evaluateExpression(Function const& frameFunction, Expr const& expr) {
    auto frame = newFrame(frameFunction, nullptr);
    FrameScope scope(*frame);
    Evaluator evaluator(*frame, frame);
    return inFrame(*frame, [&] { return evaluator.value(expr); });
}

std::string currentClassContext() {
    auto const* frame = currentFrame();
    return frame != nullptr ? classContextOf(*frame) : std::string();
}

int recursionLimit() noexcept {
    return maximumDepth.load(std::memory_order_relaxed);
}

void setRecursionLimit(int limit) noexcept {
    maximumDepth.store(std::max(limit, 1), std::memory_order_relaxed);
}

}  // namespace qlang::detail

#include "platform/host/lang/detail/Interpreter.hpp"

#include "platform/host/Vm.hpp"
#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <new>
#include <unordered_map>

namespace qlang::detail {

namespace {

// ===================================================================== per-thread state

struct EndContext {
    qxArray const* array = nullptr;
    std::size_t position = 0;
    std::size_t count = 0;
};

struct ThreadState {
    std::vector<EndContext> ends;
    std::vector<Frame const*> frames;  // the running frames, innermost last
    int depth = 0;
    std::uintptr_t stackLimit = 0;
};

thread_local ThreadState state;

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

void checkStack() {
    if (state.stackLimit == 0) {
        state.stackLimit = stackLimitOfThisThread();
    }
    auto const here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    if (here < state.stackLimit) {
        raise("qlang:recursionLimit",
              "Out of stack space: the calls or expressions are nested too deeply (maximum recursion reached).");
    }
}

void checkInterrupt() {
    if (qvm::isInterruptRequested()) {
        raise("qlang:interrupted", "Interrupted (Ctrl-C): the host code was stopped.");
    }
}

// Keeps the running frames for error locations and class contexts.
class FrameScope {
public:
    explicit FrameScope(Frame const& frame) {
        state.frames.push_back(&frame);
        ++state.depth;
    }
    ~FrameScope() {
        state.frames.pop_back();
        --state.depth;
    }
    FrameScope(FrameScope const&) = delete;
    FrameScope& operator=(FrameScope const&) = delete;
};

class EndScope {
public:
    EndScope(qxArray const* array, std::size_t position, std::size_t count) {
        state.ends.push_back({array, position, count});
    }
    ~EndScope() { state.ends.pop_back(); }
    EndScope(EndScope const&) = delete;
    EndScope& operator=(EndScope const&) = delete;
};

enum class Flow { Normal, Break, Continue, Return };

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

// ===================================================================== the error object

constexpr char const* ExceptionClassName = "qorvex.Exception";

class ErrorHolder final : public dependency::services::Shareable {
public:
    explicit ErrorHolder(qcos::HostError error) : Shareable(ExceptionClassName), error_(std::move(error)) {}
    qcos::HostError const& error() const noexcept { return error_; }

private:
    qcos::HostError error_;
};

qcos::HostError const& heldError(qcos::COSInterface const& object) {
    return qcos::factory::impl::validateSelfPointer<ErrorHolder>(object)->error();
}

void registerExceptionClass() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        auto info = std::make_shared<qcos::QcosFactoryClassInfo>(ExceptionClassName);
        info->addProperty(qcos::QcosProperty::withGetter("identifier", "char", [](qcos::COSInterface const& self) {
            return qxArray::createString(utf16(heldError(self).identifier()));
        }));
        info->addProperty(qcos::QcosProperty::withGetter("message", "char", [](qcos::COSInterface const& self) {
            return qxArray::createString(utf16(heldError(self).what()));
        }));
        info->addProperty(qcos::QcosProperty::withGetter("stack", "struct", [](qcos::COSInterface const& self) {
            auto const& frames = heldError(self).stack();
            auto stack = qxArray::createStruct({frames.size(), 1}, {"file", "name", "line", "column"});
            for (std::size_t i = 0; i < frames.size(); ++i) {
                stack->setField(i, 0, makeChars(utf16(frames[i].file)));
                stack->setField(i, 1, makeChars(utf16(frames[i].function)));
                stack->setField(i, 2, makeDouble(frames[i].line));
                stack->setField(i, 3, makeDouble(frames[i].column));
            }
            return stack;
        }));
        qcos::QcosMethod rethrow("rethrow");
        rethrow.addSignature(qcos::createUntypedSignature(),
                             [](std::span<qxArray const* const> inputs, int) -> std::vector<qxArrayPtr> {
                                 throw qcos::HostError(errorOf(*inputs[0]));
                             });
        info->addMethod(std::move(rethrow));
        qcos::omGetNamespace("qorvex").addClass(std::move(info));
    });
}

// ===================================================================== members of classes

struct Member {
    enum class Kind : std::uint8_t { None, Property, Method };
    Kind kind = Kind::None;
    std::string definingClass;
    ClassRecord const* record{};       // set when the defining class is a class file
    PropertySyntax const* property{};  // property of a class file
    Function const* method{};          // method of a class file
    qcos::QcosProperty const* boundProperty{};
    qcos::QcosMethod const* boundMethod{};
    bool isStatic = false;
    std::uint64_t generation = 0;
};

// Finds a member in the class and its superclasses, depth-first in declared order.
Member lookUpMember(std::string const& className, std::string_view name) {
    Member member;
    auto& runtime = CodeRuntime::get();
    std::vector<std::string> pending{className};
    std::vector<std::string> seen;
    while (!pending.empty()) {
        auto current = std::move(pending.back());
        pending.pop_back();
        if (std::find(seen.begin(), seen.end(), current) != seen.end()) {
            continue;
        }
        seen.push_back(current);
        std::vector<std::string> supers;
        if (auto const* record = runtime.existingRecord(current)) {
            if (auto const found = record->properties.find(name); found != record->properties.end()) {
                member.kind = Member::Kind::Property;
                member.property = found->second;
            } else if (auto const method = record->methods.find(name); method != record->methods.end()) {
                member.kind = Member::Kind::Method;
                member.method = method->second;
                member.isStatic = method->second->isStatic;
            }
            if (member.kind != Member::Kind::None) {
                member.record = record;
                member.definingClass = current;
                return member;
            }
            supers = record->superclasses;
        } else if (auto const info = qcos::omFindClass(current)) {
            if (auto const* property = info->findOwnProperty(name)) {
                member.kind = Member::Kind::Property;
                member.boundProperty = property;
            } else if (auto const* method = info->findOwnMethod(name)) {
                member.kind = Member::Kind::Method;
                member.boundMethod = method;
                member.isStatic = method->getAttributes().isStatic;
            } else {
                for (auto const& [memberName, value] : info->getEnumerationMembers()) {
                    if (memberName == name) {
                        member.kind = Member::Kind::Property;
                    }
                }
            }
            if (member.kind != Member::Kind::None) {
                member.definingClass = current;
                return member;
            }
            supers = info->getSuperclassNames();
        }
        for (auto it = supers.rbegin(); it != supers.rend(); ++it) {
            pending.push_back(*it);
        }
    }
    return member;
}

// Members found, per thread, by class and member name.
struct MemberKeyView {
    std::string_view className;
    std::string_view name;
};
struct MemberKey {
    std::string className;
    std::string name;
    operator MemberKeyView() const noexcept { return {className, name}; }
};
struct MemberKeyHash {
    using is_transparent = void;
    std::size_t operator()(MemberKeyView key) const noexcept {
        return std::hash<std::string_view>{}(key.className) * 31 + std::hash<std::string_view>{}(key.name);
    }
};
struct MemberKeyEqual {
    using is_transparent = void;
    bool operator()(MemberKeyView a, MemberKeyView b) const noexcept {
        return a.className == b.className && a.name == b.name;
    }
};

Member const& findMember(std::string const& className, std::string_view name) {
    thread_local std::unordered_map<MemberKey, Member, MemberKeyHash, MemberKeyEqual> cache;
    auto const generation = CodeRuntime::get().generation();
    auto found = cache.find(MemberKeyView{className, name});
    if (found != cache.end() && found->second.generation == generation) {
        return found->second;
    }
    auto member = lookUpMember(className, name);
    member.generation = generation;
    if (member.kind == Member::Kind::None) {
        // Not kept: the class may gain a superclass registered later.
        thread_local Member none;
        none = member;
        return none;
    }
    if (found != cache.end()) {
        found->second = std::move(member);
        return found->second;
    }
    return cache.emplace(MemberKey{className, std::string(name)}, std::move(member)).first->second;
}

std::string classContextOf(Frame const& frame) {
    auto const* owner = frame.function->owner;
    return owner != nullptr ? owner->name : std::string();
}

bool mayAccess(Visibility visibility, std::string const& definingClass, Frame const* frame) {
    if (visibility == Visibility::Public) {
        return true;
    }
    if (frame == nullptr) {
        return false;
    }
    auto const context = classContextOf(*frame);
    if (context.empty()) {
        return false;
    }
    if (visibility == Visibility::Private) {
        return context == definingClass;
    }
    return qcos::omIsA(context, definingClass);
}

std::string const& objectClassOf(qxArray const& array) {
    if (array.classID() != qxClassID::Object) {
        return array.getClassName();
    }
    if (!array.isEmpty() && array.getObject(0)) {
        return array.getObject(0)->getClassName();
    }
    return array.getClassName();
}

Frame const* currentFrame() {
    return state.frames.empty() ? nullptr : state.frames.back();
}

// ===================================================================== calls

Values callCompiled(Function const& function, FramePtr const& parent, std::span<Value const> args, int nargout,
                    std::vector<std::pair<int, Value>> const* captured, Value const* presetOutput,
                    ClassRecord const* constructing);

qxArrayPtr asArray(Value const& value) {
    return qxArray::unshare(value);
}

}  // namespace

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
        arrays.push_back(asArray(std::move(value)));
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

namespace {

// ===================================================================== function handles

// A handle to compiled code: a function of a file (nested ones with the frame
// of their enclosing function) or an anonymous function with its captured values.
class CompiledHandle final : public qvm::FunctionHandle {
public:
    CompiledHandle(std::shared_ptr<CompiledFile const> file, Function const& function, FramePtr parent,
                   std::vector<std::pair<int, Value>> captured)
        : file_(std::move(file)), function_(function), parent_(std::move(parent)), captured_(std::move(captured)) {}

    std::vector<qxArrayPtr> call(std::span<qxArray const* const> inputs, int outputCount) const override {
        return arraysOf(callValues(valuesOf(inputs), outputCount));
    }
    Values callValues(std::span<Value const> args, int nargout) const {
        return callFunction(function_, parent_, args, nargout, function_.isAnonymous ? &captured_ : nullptr);
    }
    std::u16string text() const override {
        return function_.isAnonymous ? function_.text : u"@" + utf16(function_.shortName);
    }

private:
    std::shared_ptr<CompiledFile const> file_;  // keeps the code alive
    Function const& function_;
    FramePtr parent_;
    std::vector<std::pair<int, Value>> captured_;
};

// A handle to a name, looked up when called: a function on the path, a
// class constructor, a built-in or a host function.
class NameHandle final : public qvm::FunctionHandle {
public:
    explicit NameHandle(std::string name) : name_(std::move(name)) {}

    std::vector<qxArrayPtr> call(std::span<qxArray const* const> inputs, int outputCount) const override {
        return arraysOf(callByName(name_, valuesOf(inputs), outputCount));
    }
    Values callValues(std::span<Value const> args, int nargout) const { return callByName(name_, args, nargout); }
    std::u16string text() const override { return u"@" + utf16(name_); }

private:
    std::string name_;
};

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

// ===================================================================== the evaluator

class Evaluator {
public:
    Evaluator(Frame& frame, FramePtr const& self) : frame_(frame), self_(self) {}

    Flow block(std::span<Stmt const* const> statements);
    Value value(Expr const& expr);
    void values(Expr const& expr, int nargout, Values& out);

private:
    Flow statement(Stmt const& stmt);
    Flow forLoop(Stmt const& stmt);
    Flow tryStatement(Stmt const& stmt);
    bool switchMatches(qxArray const& subject, qxArray const& candidate);

    Value& slot(int depth, int index);
    void assign(LValue const& target, Value value, bool deletion);
    void assignPath(Value& container, std::span<Accessor const> path, Value const& value, bool deletion);

    void arguments(std::vector<Expr const*> const& args, Values& out, qxArray const* indexed);
    void chain(Expr const& expr, int nargout, Values& out);
    std::size_t nameBase(Expr const& base, std::span<Accessor const> accessors, int nargout, Values& out);
    void callNamed(std::string const& name, Function const* local, Values const& args, int nargout, Values& out);
    std::size_t classMember(std::string const& className, std::string const& memberName, std::span<Accessor const> next,
                            int nargout, Values& out);
    std::size_t objectMember(Value const& object, std::string const& name, std::span<Accessor const> next, int nargout,
                             Values& out);
    Value operation(Expr const& expr);
    Value anonymous(Expr const& expr);
    Value handle(Expr const& expr);
    void superCall(Expr const& expr, int nargout, Values& out);

    Frame& frame_;
    FramePtr const& self_;
};

Value& Evaluator::slot(int depth, int index) {
    Frame* frame = &frame_;
    for (int d = 0; d < depth; ++d) {
        frame = frame->parent.get();
    }
    return frame->slots[static_cast<std::size_t>(index)];
}

// ----- statements

Flow Evaluator::block(std::span<Stmt const* const> statements) {
    for (auto const* stmt : statements) {
        auto const flow = statement(*stmt);
        if (flow != Flow::Normal) {
            return flow;
        }
    }
    return Flow::Normal;
}

Flow Evaluator::statement(Stmt const& stmt) {
    frame_.statement = &stmt;
    switch (stmt.kind) {
    case StmtKind::Expression: {
        Values out;
        auto const& expr = *stmt.expr;
        if (expr.kind == ExprKind::Chain || expr.kind == ExprKind::Name || expr.kind == ExprKind::SuperCall ||
            (expr.kind == ExprKind::Variable)) {
            values(expr, 0, out);
        } else {
            out.push_back(value(expr));
        }
        if (!out.empty() && stmt.ansSlot >= 0) {
            slot(stmt.ansDepth, stmt.ansSlot) = std::move(out.front());
        }
        return Flow::Normal;
    }
    case StmtKind::Command: {
        Values args;
        for (auto const& word : stmt.words) {
            args.push_back(makeChars(word));
        }
        Values out;
        callNamed(stmt.command, nullptr, args, 0, out);
        if (!out.empty() && stmt.ansSlot >= 0) {
            slot(stmt.ansDepth, stmt.ansSlot) = std::move(out.front());
        }
        return Flow::Normal;
    }
    case StmtKind::Assign: {
        auto const& target = stmt.targets.front();
        bool const deletion = stmt.expr->kind == ExprKind::Matrix && stmt.expr->literalEmpty &&
                              !target.accessors.empty() && target.accessors.back().kind == AccessorKind::Paren;
        assign(target, deletion ? Value() : value(*stmt.expr), deletion);
        return Flow::Normal;
    }
    case StmtKind::MultiAssign: {
        Values out;
        auto const wanted = static_cast<int>(stmt.targets.size());
        values(*stmt.expr, wanted, out);
        if (out.size() < stmt.targets.size()) {
            // Outputs the caller ignores with ~ at the end need not exist.
            std::size_t needed = stmt.targets.size();
            while (needed > 0 && stmt.targets[needed - 1].ignored) {
                --needed;
            }
            if (out.size() < needed) {
                raise("qlang:call:tooManyOutputs",
                      fmt::format("Too many output arguments: {} requested, {} given.", needed, out.size()));
            }
        }
        for (std::size_t i = 0; i < stmt.targets.size() && i < out.size(); ++i) {
            if (!stmt.targets[i].ignored) {
                assign(stmt.targets[i], std::move(out[i]), false);
            }
        }
        return Flow::Normal;
    }
    case StmtKind::If:
        for (auto const& clause : stmt.clauses) {
            if (clause.condition == nullptr || truthOf(*value(*clause.condition))) {
                return block(clause.body);
            }
        }
        return Flow::Normal;
    case StmtKind::While:
        for (;;) {
            checkInterrupt();
            frame_.statement = &stmt;
            if (!truthOf(*value(*stmt.expr))) {
                return Flow::Normal;
            }
            auto const flow = block(stmt.body);
            if (flow == Flow::Break) {
                return Flow::Normal;
            }
            if (flow == Flow::Return) {
                return flow;
            }
        }
    case StmtKind::For:
        return forLoop(stmt);
    case StmtKind::Switch: {
        auto const subject = value(*stmt.expr);
        if (!(isText(*subject) || (isNumeric(*subject) && subject->isScalar()) ||
              (subject->classID() == qxClassID::Object && subject->isScalar()))) {
            raise("qlang:switch:subject", "A switch expression must be a scalar or text.");
        }
        for (auto const& clause : stmt.clauses) {
            if (clause.condition == nullptr) {
                return block(clause.body);
            }
            auto const candidate = value(*clause.condition);
            bool matched = false;
            if (candidate->classID() == qxClassID::Cell) {
                for (auto const& element : candidate->cells()) {
                    matched = matched || switchMatches(*subject, *element);
                }
            } else {
                matched = switchMatches(*subject, *candidate);
            }
            if (matched) {
                return block(clause.body);
            }
        }
        return Flow::Normal;
    }
    case StmtKind::Try:
        return tryStatement(stmt);
    case StmtKind::Break:
        return Flow::Break;
    case StmtKind::Continue:
        return Flow::Continue;
    case StmtKind::Return:
        return Flow::Return;
    }
    return Flow::Normal;
}

bool Evaluator::switchMatches(qxArray const& subject, qxArray const& candidate) {
    if (isText(subject) || subject.classID() == qxClassID::String) {
        return isText(candidate) && textOf(subject, "switch") == textOf(candidate, "case");
    }
    if (isNumeric(subject) && isNumeric(candidate) && candidate.isScalar() && !isText(candidate)) {
        return numberAt(subject, 0) == numberAt(candidate, 0);
    }
    if (subject.classID() == qxClassID::Object && candidate.classID() == qxClassID::Object && candidate.isScalar()) {
        return truthOf(*comparison(Operator::Equal, subject, candidate));
    }
    return false;
}

Flow Evaluator::forLoop(Stmt const& stmt) {
    auto const& variable = stmt.targets.front();
    auto const body = [&]() -> Flow {
        auto const flow = block(stmt.body);
        return flow == Flow::Continue ? Flow::Normal : flow;
    };
    auto const& range = *stmt.expr;
    Value over;
    if (range.kind == ExprKind::Range) {
        auto const start = value(*range.args[0]);
        auto const step = range.args[1] != nullptr ? value(*range.args[1]) : Value();
        auto const stop = value(*range.args[2]);
        // A range of numbers is looped over without making the row, however long it is.
        if (start->classID() != qxClassID::Char || stop->classID() != qxClassID::Char) {
            auto const steps = rangeSpec(*start, step.get(), *stop);
            if (steps.count == 0) {
                slot(variable.depth, variable.slot) = share(qxArray::createDouble({1, 0}));
            }
            for (std::size_t i = 0; i < steps.count; ++i) {
                checkInterrupt();
                slot(variable.depth, variable.slot) = makeDouble(steps.at(i));
                auto const flow = body();
                if (flow == Flow::Break) {
                    break;
                }
                if (flow == Flow::Return) {
                    return flow;
                }
            }
            return Flow::Normal;
        }
        over = detail::range(*start, step.get(), *stop);
    } else {
        over = value(range);
    }
    auto const columns = columnCountOf(*over);
    if (columns == 0) {
        slot(variable.depth, variable.slot) = makeEmpty();
    }
    for (std::size_t column = 0; column < columns; ++column) {
        checkInterrupt();
        slot(variable.depth, variable.slot) = columnOf(*over, column);
        auto const flow = body();
        if (flow == Flow::Break) {
            break;
        }
        if (flow == Flow::Return) {
            return flow;
        }
    }
    return Flow::Normal;
}

Flow Evaluator::tryStatement(Stmt const& stmt) {
    std::optional<qcos::HostError> caught;
    try {
        return block(stmt.body);
    } catch (qcos::HostError const& error) {
        if (error.identifier() == "qlang:interrupted") {
            throw;
        }
        caught = error;
    } catch (std::exception const& error) {
        caught = asHostError(error);
    }
    // The caught error says where it happened in this function too.
    addFrame(*caught, frame_);
    if (stmt.catchSlot >= 0) {
        slot(stmt.catchDepth, stmt.catchSlot) = makeErrorObject(*caught);
    }
    return block(stmt.handler);
}

// ----- assignment

void Evaluator::assign(LValue const& target, Value value, bool deletion) {
    auto& root = slot(target.depth, target.slot);
    if (target.accessors.empty()) {
        root = std::move(value);
        return;
    }
    assignPath(root, target.accessors, value, deletion);
}

void Evaluator::assignPath(Value& container, std::span<Accessor const> path, Value const& value, bool deletion) {
    auto const& accessor = path.front();
    bool const last = path.size() == 1;
    switch (accessor.kind) {
    case AccessorKind::Paren: {
        Values subscripts;
        arguments(accessor.args, subscripts, container ? container.get() : nullptr);
        if (last) {
            if (deletion) {
                deleteParen(container, subscripts);
            } else {
                assignParen(container, subscripts, value);
            }
            return;
        }
        if (path[1].kind == AccessorKind::Paren) {
            raise("qlang:index:chainedParentheses", "()-indexing must appear last in an index expression.");
        }
        // s(k).f = v: work on the element, then store it back.
        Value element;
        bool exists = false;
        if (container) {
            try {
                element = indexParen(*container, subscripts);
                exists = element->isScalar();
            } catch (qcos::HostError const& error) {
                if (error.identifier() != "qlang:index:outOfBounds") {
                    throw;
                }
            }
        }
        if (!exists) {
            if (container && container->classID() == qxClassID::Struct) {
                element = share(qxArray::createStruct({1, 1}, container->getFieldNames()));
            } else if (path[1].kind == AccessorKind::Brace) {
                element = share(qxArray::createCell({0, 0}));
            } else {
                element = Value();
            }
        }
        assignPath(element, path.subspan(1), value, deletion);
        // s(k).newField = v gives every element of s the new field.
        if (container && container->classID() == qxClassID::Struct && element &&
            element->classID() == qxClassID::Struct) {
            for (auto const& field : element->getFieldNames()) {
                if (container->fieldIndex(field) < 0) {
                    mutate(container).addField(field);
                }
            }
        }
        assignParen(container, subscripts, element);
        return;
    }
    case AccessorKind::Brace: {
        Values subscripts;
        arguments(accessor.args, subscripts, container ? container.get() : nullptr);
        if (last) {
            if (deletion) {
                raise("qlang:index:braceDeletion", "Elements of a cell array are deleted with (), not {}.");
            }
            assignBrace(container, subscripts, value);
            return;
        }
        Value element;
        if (container && container->classID() == qxClassID::Cell) {
            Values found;
            try {
                indexBrace(*container, subscripts, found);
            } catch (qcos::HostError const& error) {
                if (error.identifier() != "qlang:index:outOfBounds") {
                    throw;
                }
            }
            if (found.size() == 1) {
                element = std::move(found.front());
                // Let go of the cell's reference first, so that the element can change in place.
                auto empty = qxArray::createCell({1, 1});
                assignParen(container, subscripts, share(std::move(empty)));
            }
        }
        assignPath(element, path.subspan(1), value, deletion);
        assignBrace(container, subscripts, element);
        return;
    }
    case AccessorKind::Field:
    case AccessorKind::DynamicField: {
        std::string const name = accessor.kind == AccessorKind::Field
                                     ? accessor.name
                                     : utf8(textOf(*this->value(*accessor.nameExpr), "A dynamic field name"));
        if (container && container->classID() == qxClassID::Object) {
            if (!container->isScalar()) {
                raise("qlang:property:objectArray",
                      "Setting a property of an object array needs an index: objects(k).Name = value.");
            }
            auto const& className = objectClassOf(*container);
            auto const& member = findMember(className, name);
            if (member.kind != Member::Kind::Property) {
                raise("qcos:property:undefined", fmt::format("No property '{}' for class '{}'.", name, className));
            }
            if (member.property != nullptr) {
                if (member.property->constant) {
                    raise("qcos:property:readOnly",
                          fmt::format("The constant property '{}' of class '{}' cannot be set.", name, className));
                }
                if (!mayAccess(member.property->setAccess, member.definingClass, &frame_)) {
                    raise("qlang:property:access",
                          fmt::format("The property '{}' of class '{}' cannot be set here.", name, className));
                }
            }
            Value newValue = value;
            if (!last) {
                Value current = qcos::omGetPropertyShared(*container->getObject(0), name);
                assignPath(current, path.subspan(1), value, deletion);
                newValue = std::move(current);
            }
            // Objects of value classes are copied before they change.
            if (!isHandleClass(className)) {
                auto& array = mutate(container);
                if (array.getObject(0)->referenceCount() > 1) {
                    array.setObject(0, qcos::omCopyObject(*array.getObject(0)));
                }
            }
            qcos::omSetPropertyShared(*container->getObject(0), name, std::move(newValue));
            return;
        }
        if (!container || (container->classID() == qxClassID::Double && container->isEmpty())) {
            container = share(qxArray::createStruct({1, 1}, {}));
        }
        if (container->classID() != qxClassID::Struct) {
            raise("qlang:field:notStruct",
                  fmt::format("A field cannot be set on a value of class '{}'.", container->getClassName()));
        }
        if (!container->isScalar()) {
            raise("qlang:field:structArray", "Setting a field of a struct array needs an index: s(k).name = value.");
        }
        auto& record = mutate(container);
        int field = record.fieldIndex(name);
        if (field < 0) {
            field = static_cast<int>(record.addField(name));
        }
        auto const index = static_cast<std::size_t>(field);
        if (last) {
            record.setField(0, index, value);
            return;
        }
        // Take the field's value out, so that it can change in place.
        Value current = record.getField(0, index);
        record.setField(0, index, nullptr);
        if (current->classID() == qxClassID::Double && current->isEmpty()) {
            current = Value();
        }
        assignPath(current, path.subspan(1), value, deletion);
        record.setField(0, index, std::move(current));
        return;
    }
    }
}

// ----- expressions

void Evaluator::arguments(std::vector<Expr const*> const& args, Values& out, qxArray const* indexed) {
    out.reserve(out.size() + args.size());
    for (std::size_t k = 0; k < args.size(); ++k) {
        auto const& arg = *args[k];
        if (arg.kind == ExprKind::Colon) {
            out.push_back(colonMarker());
            continue;
        }
        if (indexed != nullptr) {
            EndScope scope(indexed, k, args.size());
            if (arg.kind == ExprKind::Chain) {
                values(arg, 1, out);
            } else {
                out.push_back(value(arg));
            }
        } else if (arg.kind == ExprKind::Chain) {
            values(arg, 1, out);
        } else {
            out.push_back(value(arg));
        }
    }
}

Value Evaluator::value(Expr const& expr) {
    switch (expr.kind) {
    case ExprKind::Constant:
        return expr.constant;
    case ExprKind::Variable:
        if (auto const& v = frame_.slots[static_cast<std::size_t>(expr.slot)]) {
            return v;
        }
        break;
    case ExprKind::Outer:
        if (auto const& v = slot(expr.depth, expr.slot)) {
            return v;
        }
        undefinedName(expr.name);
    case ExprKind::Nargin:
        return makeDouble(frame_.nargin);
    case ExprKind::Nargout:
        return makeDouble(frame_.nargout);
    case ExprKind::Colon:
        return makeChars(u":");
    case ExprKind::End: {
        if (state.ends.empty() || state.ends.back().array == nullptr) {
            raise("qlang:end:outsideIndex", "'end' is only valid inside an index of an array.");
        }
        auto const& context = state.ends.back();
        return makeDouble(static_cast<double>(endOf(*context.array, context.position, context.count)));
    }
    case ExprKind::Unary:
    case ExprKind::Binary:
    case ExprKind::Compare:
    case ExprKind::Postfix:
        // Deeply nested expressions recurse too: the stack is checked at every level.
        checkStack();
        return operation(expr);
    case ExprKind::AndAnd:
    case ExprKind::OrOr: {
        auto const logicalScalar = [](Value const& operand) {
            if (!operand->isScalar() || !isNumeric(*operand)) {
                raise("qlang:operator:shortCircuit",
                      fmt::format("Operands of && and || must be logical scalars, got a {} {}.",
                                  dimsText(operand->getDimensions()), operand->getClassName()));
            }
            return truthOf(*operand);
        };
        bool const left = logicalScalar(value(*expr.args[0]));
        if (expr.kind == ExprKind::AndAnd ? !left : left) {
            return makeLogical(left);
        }
        return makeLogical(logicalScalar(value(*expr.args[1])));
    }
    case ExprKind::Range: {
        auto const start = value(*expr.args[0]);
        auto const step = expr.args[1] != nullptr ? value(*expr.args[1]) : Value();
        auto const stop = value(*expr.args[2]);
        return range(*start, step.get(), *stop);
    }
    case ExprKind::Matrix:
    case ExprKind::Cell: {
        checkStack();
        std::vector<Values> rows;
        rows.reserve(expr.rows.size());
        for (auto const& row : expr.rows) {
            Values elements;
            arguments(row, elements, nullptr);
            rows.push_back(std::move(elements));
        }
        if (expr.kind == ExprKind::Cell) {
            return cellOf(rows);
        }
        // Operands that are objects may define horzcat/vertcat; otherwise the built-in rules apply.
        return concatenate(rows);
    }
    case ExprKind::AnonFunction:
        return anonymous(expr);
    case ExprKind::Handle:
        return handle(expr);
    case ExprKind::Name:
    case ExprKind::Chain:
    case ExprKind::SuperCall:
        break;
    }
    Values out;
    values(expr, 1, out);
    bool const list = expr.kind == ExprKind::Chain && expr.accessors.back().kind != AccessorKind::Paren;
    if (out.empty()) {
        if (list) {
            raise("qlang:index:emptyList", "The expression gives an empty list of values where one value is needed.");
        }
        std::string const what = expr.kind == ExprKind::Chain ? expr.base->name : expr.name;
        raise("qlang:call:noValue", fmt::format("'{}' did not return a value.", what.empty() ? "The call" : what));
    }
    if (out.size() > 1 && list) {
        // c{:} and s.f of several elements are lists of values, not one value.
        raise("qlang:index:braceList",
              fmt::format("The expression gives a list of {} values where one value is needed.", out.size()));
    }
    return std::move(out.front());
}

void Evaluator::values(Expr const& expr, int nargout, Values& out) {
    switch (expr.kind) {
    case ExprKind::Chain:
        chain(expr, nargout, out);
        return;
    case ExprKind::Variable:
        if (auto const& v = frame_.slots[static_cast<std::size_t>(expr.slot)]) {
            out.push_back(v);
            return;
        }
        [[fallthrough]];
    case ExprKind::Name:
        nameBase(expr, {}, nargout, out);
        return;
    case ExprKind::SuperCall:
        superCall(expr, nargout, out);
        return;
    default:
        out.push_back(value(expr));
    }
}

Value Evaluator::operation(Expr const& expr) {
    if (expr.kind == ExprKind::Unary || expr.kind == ExprKind::Postfix) {
        auto const operand = value(*expr.args[0]);
        if (operand->classID() == qxClassID::Object && expr.kind == ExprKind::Unary) {
            auto const* method = operatorMethodName(expr.op);
            if (classHasMethod(objectClassOf(*operand), method)) {
                auto out = callMethodByName(operand, method, std::vector<Value>{operand}, 1);
                if (!out.empty()) {
                    return out.front();
                }
            }
        }
        if (expr.kind == ExprKind::Postfix) {
            return transpose(*operand);
        }
        return unaryOperation(expr.op, *operand);
    }
    auto const left = value(*expr.args[0]);
    auto const right = value(*expr.args[1]);
    if (left->classID() == qxClassID::Object || right->classID() == qxClassID::Object) {
        auto const* method = operatorMethodName(expr.op);
        auto const& object = left->classID() == qxClassID::Object ? left : right;
        if (*method != '\0' && classHasMethod(objectClassOf(*object), method)) {
            std::vector<Value> args{left, right};
            auto out = callMethodByName(object, method, args, 1);
            if (!out.empty()) {
                return out.front();
            }
            raise("qlang:call:noValue", fmt::format("The method '{}' did not return a value.", method));
        }
    }
    if (expr.kind == ExprKind::Compare) {
        return comparison(expr.op, *left, *right);
    }
    return binaryOperation(expr.op, *left, *right);
}

Value Evaluator::anonymous(Expr const& expr) {
    std::vector<std::pair<int, Value>> captured;
    captured.reserve(expr.captures.size());
    for (auto const& capture : expr.captures) {
        if (auto const& v = slot(capture.depth, capture.slot)) {
            captured.emplace_back(capture.ownSlot, v);
        }
    }
    auto handle = std::make_shared<CompiledHandle>(frame_.function->file->shared_from_this(), *expr.function, nullptr,
                                                   std::move(captured));
    return share(qxArray::createFunctionHandle(std::move(handle)));
}

Value Evaluator::handle(Expr const& expr) {
    if (expr.function != nullptr) {
        auto parent = lexicalParentFor(*expr.function, &frame_, self_);
        auto handle = std::make_shared<CompiledHandle>(expr.function->file->shared_from_this(), *expr.function,
                                                       std::move(parent), std::vector<std::pair<int, Value>>{});
        return share(qxArray::createFunctionHandle(std::move(handle)));
    }
    return makeNamedHandle(expr.name);
}

// ----- names, members and calls

Resolution const* resolveAt(Expr const& site, std::string const& name) {
    auto& runtime = CodeRuntime::get();
    auto const* cached = site.resolved.load(std::memory_order_acquire);
    if (cached != nullptr && cached->generation == runtime.generation()) {
        return cached;
    }
    auto const* resolution = runtime.resolve(name);
    if (resolution != nullptr) {
        site.resolved.store(resolution, std::memory_order_release);
    }
    return resolution;
}

std::vector<std::string> splitDotted(std::string const& name) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        auto const dot = name.find('.', start);
        parts.push_back(name.substr(start, dot - start));
        if (dot == std::string::npos) {
            return parts;
        }
        start = dot + 1;
    }
}

Values callBound(std::string const& className, std::string const& name, std::span<Value const> args, int nargout,
                 bool isStatic, std::string const* ofClass) {
    std::vector<qxArray const*> inputs;
    inputs.reserve(args.size());
    for (auto const& arg : args) {
        inputs.push_back(arg.get());
    }
    std::vector<qxArrayPtr> outputs(static_cast<std::size_t>(std::max(nargout, 0)));
    auto const& client = qcos::COSGetInternalClient();
    auto const nlhs = static_cast<int>(outputs.size());
    auto const nrhs = static_cast<int>(inputs.size());
    bool const succeeded =
        isStatic ? qcos::omCallStaticMethod(client, className, name, nlhs, outputs.data(), nrhs, inputs.data())
        : ofClass != nullptr
            ? qcos::omCallMethodOfClass(client, *ofClass, name, nlhs, outputs.data(), nrhs, inputs.data())
            : qcos::omCallMethod(client, name, nlhs, outputs.data(), nrhs, inputs.data());
    if (!succeeded) {
        computils::qcos::throwErrorCallingQorvexException(className + "." + name);
    }
    Values results;
    for (auto& output : outputs) {
        if (!output) {
            break;
        }
        results.push_back(share(std::move(output)));
    }
    return results;
}

Value constructInto(ClassRecord const& record, Value object, std::span<Value const> args);

Values constructByName(std::string const& className, std::span<Value const> args, int nargout) {
    if (auto const* record = CodeRuntime::get().classRecord(className)) {
        return constructObject(*record, args, nargout);
    }
    auto const info = qcos::omFindClass(className);
    if (!info) {
        raise("qcos:class:undefined", fmt::format("Undefined class '{}'.", className));
    }
    auto const shortName = info->getName();
    if (auto const* constructor = info->findOwnMethod(shortName);
        constructor != nullptr && constructor->getAttributes().isStatic) {
        return callBound(className, shortName, args, std::max(nargout, 1), true, nullptr);
    }
    if (info->isNativeBinding() || info->isEnumeration()) {
        raise("qcos:object:notConstructible",
              fmt::format("Objects of class '{}' cannot be created directly.", className));
    }
    if (!args.empty()) {
        raise("qlang:call:tooManyInputs",
              fmt::format("The class '{}' has no constructor; it takes no arguments.", className));
    }
    return {share(qcos::omCreateQCOSScalar(qcos::omCreateObject(className)))};
}

Value emptyObjects(std::string const& className, std::span<Value const> args) {
    Dims dims{0, 0};
    if (args.size() == 1) {
        auto const n = countOf(*args[0], "The size");
        dims = {n, n};
    } else if (!args.empty()) {
        dims.clear();
        for (auto const& arg : args) {
            dims.push_back(countOf(*arg, "A size"));
        }
    }
    if (countOf(dims) != 0) {
        raise("qlang:class:emptyNotEmpty",
              fmt::format("{}.empty needs at least one size of zero, got {}.", className, dimsText(dims)));
    }
    auto array = qxArray::createObjects(dims, className);
    return share(std::move(array));
}

std::size_t Evaluator::classMember(std::string const& className, std::string const& memberName,
                                   std::span<Accessor const> next, int nargout, Values& out) {
    auto const argumentsFromNext = [&](Values& args) -> std::size_t {
        if (!next.empty() && next.front().kind == AccessorKind::Paren) {
            arguments(next.front().args, args, nullptr);
            return 1;
        }
        return 0;
    };
    if (memberName == "empty") {
        Values args;
        auto const consumed = argumentsFromNext(args);
        out.push_back(emptyObjects(className, args));
        return consumed;
    }
    auto& runtime = CodeRuntime::get();
    if (auto const* record = runtime.classRecord(className)) {
        if (auto const found = record->constants.find(memberName); found != record->constants.end()) {
            out.push_back(found->second);
            return 0;
        }
    }
    auto const& member = findMember(className, memberName);
    switch (member.kind) {
    case Member::Kind::Method: {
        if (!member.isStatic) {
            raise("qlang:method:notStatic",
                  fmt::format("The method '{}' of class '{}' is not static; call it on an object.", memberName,
                              className));
        }
        Values args;
        auto const consumed = argumentsFromNext(args);
        int const wanted = consumed == next.size() ? nargout : 1;
        if (member.method != nullptr) {
            if (!mayAccess(member.method->access, member.definingClass, &frame_)) {
                raise("qlang:method:access",
                      fmt::format("The method '{}' of class '{}' cannot be called here.", memberName, className));
            }
            auto results = callFunction(*member.method, nullptr, args, wanted);
            out.insert(out.end(), results.begin(), results.end());
        } else {
            auto results = callBound(className, memberName, args, wanted, true, nullptr);
            out.insert(out.end(), results.begin(), results.end());
        }
        return consumed;
    }
    case Member::Kind::Property:
        if (member.property != nullptr && !member.property->constant) {
            raise("qlang:property:notConstant",
                  fmt::format("The property '{}' of class '{}' is not constant; read it from an object.", memberName,
                              className));
        }
        if (member.property != nullptr && !mayAccess(member.property->getAccess, member.definingClass, &frame_)) {
            raise("qlang:property:access",
                  fmt::format("The property '{}' of class '{}' cannot be read here.", memberName, className));
        }
        out.push_back(qcos::omGetConstantPropertyShared(className, memberName));
        return 0;
    case Member::Kind::None:
        break;
    }
    raise("qlang:class:noMember",
          fmt::format("No static method, constant or enumeration member '{}' for class '{}'.", memberName, className));
}

std::size_t Evaluator::objectMember(Value const& object, std::string const& name, std::span<Accessor const> next,
                                    int nargout, Values& out) {
    auto const& className = objectClassOf(*object);
    auto const& member = findMember(className, name);
    switch (member.kind) {
    case Member::Kind::Property: {
        if (member.property != nullptr && !mayAccess(member.property->getAccess, member.definingClass, &frame_)) {
            raise("qlang:property:access",
                  fmt::format("The property '{}' of class '{}' cannot be read here.", name, className));
        }
        for (auto const& element : object->objects()) {
            if (!element) {
                raise("qcos:array:emptySlot", "An element of the object array holds no object.");
            }
            // A getter of a bound class is called at once: no search of the class chain again.
            auto const* bound = member.boundProperty;
            if (bound != nullptr && bound->kind == qcos::QcosProperty::Kind::Getter && element->getNative()) {
                auto value = bound->getter(*element);
                if (!value) {
                    raise("qcos:property:noValue",
                          fmt::format("Property '{}' of class '{}' produced no value.", name, className));
                }
                out.push_back(share(std::move(value)));
                continue;
            }
            out.push_back(qcos::omGetPropertyShared(*element, name));
        }
        return 0;
    }
    case Member::Kind::Method: {
        Values args;
        if (!member.isStatic) {
            args.push_back(object);
        }
        std::size_t consumed = 0;
        if (!next.empty() && next.front().kind == AccessorKind::Paren) {
            arguments(next.front().args, args, nullptr);
            consumed = 1;
        }
        int const wanted = consumed == next.size() ? nargout : 1;
        Values results;
        if (member.method != nullptr) {
            if (!mayAccess(member.method->access, member.definingClass, &frame_)) {
                raise("qlang:method:access",
                      fmt::format("The method '{}' of class '{}' cannot be called here.", name, className));
            }
            results = callFunction(*member.method, nullptr, args, wanted);
        } else {
            results = callBound(className, name, args, wanted, member.isStatic, nullptr);
        }
        out.insert(out.end(), results.begin(), results.end());
        return consumed;
    }
    case Member::Kind::None:
        break;
    }
    raise("qlang:member:undefined", fmt::format("No property or method '{}' for class '{}'.", name, className));
}

void Evaluator::callNamed(std::string const& name, Function const* local, Values const& args, int nargout,
                          Values& out) {
    Values results;
    if (local != nullptr) {
        results = callFunction(*local, lexicalParentFor(*local, &frame_, self_), args, nargout);
    } else {
        // A method of the class of an object argument comes before functions of the same name.
        for (auto const& arg : args) {
            if (arg->classID() == qxClassID::Object) {
                auto const& className = objectClassOf(*arg);
                auto const& member = findMember(className, name);
                if (member.kind == Member::Kind::Method) {
                    if (member.method != nullptr) {
                        if (!mayAccess(member.method->access, member.definingClass, &frame_)) {
                            raise("qlang:method:access", fmt::format("The method '{}' of class '{}' cannot be called "
                                                                     "here.",
                                                                     name, className));
                        }
                        results = callFunction(*member.method, nullptr, args, nargout);
                    } else {
                        results = callBound(className, name, args, nargout, member.isStatic, nullptr);
                    }
                    out.insert(out.end(), results.begin(), results.end());
                    return;
                }
                break;
            }
        }
        results = callByName(name, args, nargout);
    }
    out.insert(out.end(), results.begin(), results.end());
}

std::size_t Evaluator::nameBase(Expr const& base, std::span<Accessor const> accessors, int nargout, Values& out) {
    auto const argumentsFromFirst = [&](Values& args) -> std::size_t {
        if (!accessors.empty() && accessors.front().kind == AccessorKind::Paren) {
            arguments(accessors.front().args, args, nullptr);
            return 1;
        }
        return 0;
    };
    if (base.name.find('.') == std::string::npos) {
        Values args;
        auto const consumed = argumentsFromFirst(args);
        int const wanted = consumed == accessors.size() ? nargout : 1;
        if (base.function == nullptr) {
            auto const* resolution = resolveAt(base, base.name);
            if (resolution == nullptr) {
                bool anyObject = std::any_of(args.begin(), args.end(),
                                             [](Value const& arg) { return arg->classID() == qxClassID::Object; });
                if (!anyObject) {
                    undefinedName(base.name);
                }
            }
        }
        callNamed(base.name, base.function, args, wanted, out);
        return consumed;
    }
    // A dotted name: package functions and classes, their static members and constants.
    auto const* resolution = resolveAt(base, base.name);
    if (resolution == nullptr) {
        raise("qlang:undefined", fmt::format("Unable to resolve the name '{}'.", base.name));
    }
    std::span<std::string const> const rest =
        std::span<std::string const>(base.parts).subspan(std::min(resolution->consumed, base.parts.size()));
    Values results;
    std::size_t consumed = 0;
    switch (resolution->kind) {
    case Resolution::Kind::Class:
        if (rest.empty()) {
            Values args;
            consumed = argumentsFromFirst(args);
            results = constructByName(resolution->className, args, consumed == accessors.size() ? nargout : 1);
        } else {
            consumed = classMember(resolution->className, rest.front(),
                                   rest.size() == 1 ? accessors : std::span<Accessor const>(),
                                   rest.size() == 1 ? nargout : 1, results);
        }
        break;
    case Resolution::Kind::PathFunction: {
        Values args;
        if (rest.empty()) {
            consumed = argumentsFromFirst(args);
        }
        int const wanted = rest.empty() && consumed == accessors.size() ? nargout : 1;
        results = callFunction(*resolution->function, nullptr, args, wanted);
        break;
    }
    default:
        raise("qlang:undefined", fmt::format("Unable to resolve the name '{}'.", base.name));
    }
    // Names after the member are fields or properties of its value.
    std::size_t const fieldsFrom = resolution->kind == Resolution::Kind::Class && !rest.empty() ? 1 : 0;
    if (fieldsFrom >= rest.size()) {
        out.insert(out.end(), results.begin(), results.end());
        return consumed;
    }
    if (results.empty()) {
        raise("qlang:call:noValue", fmt::format("'{}' did not return a value.", base.name));
    }
    std::vector<Accessor> remaining;
    for (std::size_t i = fieldsFrom; i < rest.size(); ++i) {
        Accessor field;
        field.kind = AccessorKind::Field;
        field.position = base.position;
        field.name = rest[i];
        remaining.push_back(std::move(field));
    }
    for (auto i = consumed; i < accessors.size(); ++i) {
        remaining.push_back(accessors[i]);
    }
    Expr synthetic;
    synthetic.kind = ExprKind::Chain;
    synthetic.position = base.position;
    Expr constant;
    constant.kind = ExprKind::Constant;
    constant.constant = results.front();
    synthetic.base = &constant;
    synthetic.accessors = std::move(remaining);
    chain(synthetic, nargout, out);
    return accessors.size();
}

void Evaluator::chain(Expr const& expr, int nargout, Values& out) {
    checkStack();
    std::span<Accessor const> accessors = expr.accessors;
    auto const& base = *expr.base;
    Value current;
    std::size_t next = 0;
    if ((base.kind == ExprKind::Variable && !frame_.slots[static_cast<std::size_t>(base.slot)]) ||
        base.kind == ExprKind::Name) {
        Values results;
        next = nameBase(base, accessors, nargout, results);
        if (next == accessors.size()) {
            out.insert(out.end(), results.begin(), results.end());
            return;
        }
        if (results.empty()) {
            raise("qlang:call:noValue", fmt::format("'{}' did not return a value.", base.name));
        }
        current = std::move(results.front());
    } else {
        current = value(base);
    }
    while (next < accessors.size()) {
        auto const& accessor = accessors[next];
        bool const last = next + 1 == accessors.size();
        switch (accessor.kind) {
        case AccessorKind::Paren: {
            if (current->classID() == qxClassID::FunctionHandle) {
                Values args;
                arguments(accessor.args, args, nullptr);
                auto results = callCallable(current, args, last ? nargout : 1);
                if (last) {
                    out.insert(out.end(), results.begin(), results.end());
                    return;
                }
                if (results.empty()) {
                    raise("qlang:call:noValue", "The function handle did not return a value.");
                }
                current = std::move(results.front());
                ++next;
                continue;
            }
            Values subscripts;
            arguments(accessor.args, subscripts, current.get());
            current = indexParen(*current, subscripts);
            ++next;
            continue;
        }
        case AccessorKind::Brace: {
            Values subscripts;
            arguments(accessor.args, subscripts, current.get());
            Values found;
            indexBrace(*current, subscripts, found);
            if (last) {
                out.insert(out.end(), found.begin(), found.end());
                return;
            }
            if (found.size() != 1) {
                raise("qlang:index:braceList",
                      fmt::format("A {{}} index inside an expression must select one element; it selects {}.",
                                  found.size()));
            }
            current = std::move(found.front());
            ++next;
            continue;
        }
        case AccessorKind::Field:
        case AccessorKind::DynamicField: {
            std::string const name = accessor.kind == AccessorKind::Field
                                         ? accessor.name
                                         : utf8(textOf(*value(*accessor.nameExpr), "A dynamic field name"));
            if (current->classID() == qxClassID::Struct) {
                int const field = current->fieldIndex(name);
                if (field < 0) {
                    raise("qlang:field:undefined", fmt::format("Reference to a non-existent field '{}'.", name));
                }
                auto const count = current->getNumberOfElements();
                if (last) {
                    for (std::size_t i = 0; i < count; ++i) {
                        out.push_back(current->getField(i, static_cast<std::size_t>(field)));
                    }
                    return;
                }
                if (count != 1) {
                    raise("qlang:field:structArray",
                          fmt::format("A field of a {} struct array is a list of {} values; index one element.",
                                      dimsText(current->getDimensions()), count));
                }
                current = current->getField(0, static_cast<std::size_t>(field));
                ++next;
                continue;
            }
            if (current->classID() == qxClassID::Object) {
                Values results;
                auto const consumed = objectMember(current, name, accessors.subspan(next + 1), nargout, results);
                next += 1 + consumed;
                if (next == accessors.size()) {
                    out.insert(out.end(), results.begin(), results.end());
                    return;
                }
                if (results.size() != 1) {
                    raise("qlang:member:list",
                          fmt::format("'{}' gives {} values where one is needed.", name, results.size()));
                }
                current = std::move(results.front());
                continue;
            }
            raise("qlang:field:notStruct",
                  fmt::format("Dot indexing is not supported for a value of class '{}'.", current->getClassName()));
        }
        }
    }
    out.push_back(std::move(current));
}

void Evaluator::superCall(Expr const& expr, int nargout, Values& out) {
    auto const* function = frame_.function;
    auto const* owner = function->owner;
    auto& runtime = CodeRuntime::get();
    auto const* record = owner != nullptr ? runtime.existingRecord(owner->name) : nullptr;
    if (record == nullptr) {
        raise("qlang:superclass:context", "A superclass member can only be called from a method of a subclass.");
    }
    if (std::find(record->superclasses.begin(), record->superclasses.end(), expr.superclass) ==
        record->superclasses.end()) {
        raise("qlang:superclass:notDirect",
              fmt::format("'{}' is not a direct superclass of '{}'.", expr.superclass, record->name));
    }
    Values args;
    arguments(expr.args, args, nullptr);
    auto const* superRecord = runtime.classRecord(expr.superclass);
    if (function->isConstructor && !function->outputSlots.empty() &&
        function->slotNames[static_cast<std::size_t>(function->outputSlots.front())] == expr.name) {
        auto const& object = frame_.slots[static_cast<std::size_t>(function->outputSlots.front())];
        if (superRecord != nullptr) {
            out.push_back(constructInto(*superRecord, object, args));
        } else {
            if (!args.empty()) {
                raise("qlang:superclass:constructor",
                      fmt::format("The superclass '{}' has no constructor that takes arguments.", expr.superclass));
            }
            out.push_back(object);
        }
        return;
    }
    if (superRecord != nullptr) {
        auto const& member = findMember(expr.superclass, expr.name);
        if (member.kind == Member::Kind::Method && member.method != nullptr) {
            auto results = callFunction(*member.method, nullptr, args, nargout);
            out.insert(out.end(), results.begin(), results.end());
            return;
        }
        if (member.kind != Member::Kind::Method) {
            raise("qcos:method:undefined", fmt::format("No method '{}' for class '{}'.", expr.name, expr.superclass));
        }
    }
    auto results = callBound(expr.superclass, expr.name, args, nargout, false, &expr.superclass);
    out.insert(out.end(), results.begin(), results.end());
}

Value constructInto(ClassRecord const& record, Value object, std::span<Value const> args) {
    if (record.constructor != nullptr) {
        auto results = callCompiled(*record.constructor, nullptr, args, 1, nullptr, &object, &record);
        if (results.empty() || results.front()->classID() != qxClassID::Object ||
            !qcos::omIsA(objectClassOf(*results.front()), record.name)) {
            raise("qlang:class:constructorResult",
                  fmt::format("The constructor of '{}' must return the object it was given.", record.name));
        }
        return results.front();
    }
    if (!args.empty()) {
        raise("qlang:call:tooManyInputs",
              fmt::format("The class '{}' has no constructor; it takes no arguments.", record.name));
    }
    for (auto const& super : record.superclasses) {
        if (auto const* superRecord = CodeRuntime::get().classRecord(super)) {
            object = constructInto(*superRecord, object, {});
        }
    }
    return object;
}

Values callCompiled(Function const& function, FramePtr const& parent, std::span<Value const> args, int nargout,
                    std::vector<std::pair<int, Value>> const* captured, Value const* presetOutput,
                    ClassRecord const* constructing) {
    checkInterrupt();
    if (state.depth >= maximumDepth.load(std::memory_order_relaxed)) {
        raise("qlang:recursionLimit",
              fmt::format("Maximum recursion depth of {} reached in '{}'.", maximumDepth.load(), function.name));
    }
    checkStack();
    if (function.isAbstract) {
        raise("qlang:method:abstract",
              fmt::format("The abstract method '{}' has no implementation in this class.", function.name));
    }
    auto const inputCount = function.inputSlots.size();
    if (!function.varargin && args.size() > inputCount) {
        raise("qlang:call:tooManyInputs", fmt::format("Too many input arguments: '{}' takes at most {}, got {}.",
                                                      function.name, inputCount, args.size()));
    }
    if (!function.isAnonymous && !function.varargout &&
        static_cast<std::size_t>(std::max(nargout, 0)) > function.outputSlots.size()) {
        raise("qlang:call:tooManyOutputs",
              fmt::format("Too many output arguments: '{}' returns at most {}, {} requested.", function.name,
                          function.outputSlots.size(), nargout));
    }
    auto frame = std::make_shared<Frame>();
    frame->function = &function;
    frame->slots.resize(function.slotNames.size());
    frame->parent = parent;
    frame->nargin = static_cast<int>(args.size());
    frame->nargout = nargout;
    frame->activation = nextActivation.fetch_add(1, std::memory_order_relaxed);
    auto const fixedInputs = function.varargin ? inputCount - 1 : inputCount;
    for (std::size_t i = 0; i < args.size() && i < fixedInputs; ++i) {
        if (auto const slot = function.inputSlots[i]; slot >= 0) {
            frame->slots[static_cast<std::size_t>(slot)] = args[i];
        }
    }
    if (function.varargin) {
        auto const extra = args.size() > fixedInputs ? args.size() - fixedInputs : 0;
        auto cell = qxArray::createCell({1, extra});
        for (std::size_t i = 0; i < extra; ++i) {
            cell->setCell(i, args[fixedInputs + i]);
        }
        frame->slots[static_cast<std::size_t>(function.inputSlots.back())] = share(std::move(cell));
    }
    if (captured != nullptr) {
        for (auto const& [slot, value] : *captured) {
            frame->slots[static_cast<std::size_t>(slot)] = value;
        }
    }
    if (presetOutput != nullptr) {
        frame->slots[static_cast<std::size_t>(function.outputSlots.front())] = *presetOutput;
    }
    FrameScope scope(*frame);
    Evaluator evaluator(*frame, frame);
    Values results;
    try {
        if (constructing != nullptr) {
            // Superclass constructors the body does not call itself run first, without arguments.
            auto& object = frame->slots[static_cast<std::size_t>(function.outputSlots.front())];
            for (auto const& super : constructing->superclasses) {
                auto const& explicitCalls = function.explicitSuperConstructors;
                if (std::find(explicitCalls.begin(), explicitCalls.end(), super) != explicitCalls.end()) {
                    continue;
                }
                if (auto const* superRecord = CodeRuntime::get().classRecord(super)) {
                    object = constructInto(*superRecord, object, {});
                }
            }
        }
        if (function.isAnonymous) {
            frame->statement = function.body.front();
            evaluator.values(*function.body.front()->expr, nargout, results);
            return results;
        }
        (void)evaluator.block(function.body);
    } catch (qcos::HostError& error) {
        addFrame(error, *frame);
        throw;
    } catch (std::exception const& error) {
        auto hostError = asHostError(error);
        addFrame(hostError, *frame);
        throw hostError;
    }
    // Outputs that were not set are the caller's error: it asked for them.
    struct ReleaseUnshared {
        FramePtr const& frame;
        // A handle to a nested function keeps this frame; only the variables
        // nested functions use need to stay (the others could hold that very
        // handle, and keep the frame alive for ever).
        ~ReleaseUnshared() {
            if (frame.use_count() > 1) {
                auto const& shared = frame->function->sharedSlots;
                for (std::size_t i = 0; i < frame->slots.size(); ++i) {
                    if (i >= shared.size() || !shared[i]) {
                        frame->slots[i].reset();
                    }
                }
            }
        }
    };
    ReleaseUnshared const release{frame};
    {
        auto const outputCount = function.outputSlots.size();
        auto const wanted = static_cast<std::size_t>(std::max(nargout, 0));
        for (std::size_t k = 0; k < std::max<std::size_t>(wanted, 1) && k < outputCount; ++k) {
            auto const slot = static_cast<std::size_t>(function.outputSlots[k]);
            if (function.varargout && k + 1 == outputCount) {
                auto const& rest = frame->slots[slot];
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
            auto const& output = frame->slots[slot];
            if (!output) {
                if (wanted == 0) {
                    break;
                }
                raise("qlang:call:outputNotAssigned", fmt::format("The output '{}' of '{}' was not assigned.",
                                                                  function.slotNames[slot], function.name));
            }
            results.push_back(output);
        }
    }
    return results;
}

}  // namespace

// ===================================================================== public entry points

Values callFunction(Function const& function, FramePtr parent, std::span<Value const> args, int nargout,
                    std::vector<std::pair<int, Value>> const* captured) {
    return callCompiled(function, parent, args, nargout, captured, nullptr, nullptr);
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
    auto frame = std::make_shared<Frame>();
    frame->function = file.main;
    frame->slots.resize(file.main->slotNames.size());
    frame->activation = nextActivation.fetch_add(1, std::memory_order_relaxed);
    FrameScope scope(*frame);
    Evaluator evaluator(*frame, frame);
    try {
        (void)evaluator.block(file.main->body);
    } catch (qcos::HostError& error) {
        addFrame(error, *frame);
        throw;
    } catch (std::exception const& error) {
        auto hostError = asHostError(error);
        addFrame(hostError, *frame);
        throw hostError;
    }
    return frame;
}

Value evaluateExpression(Function const& frameFunction, Expr const& expr) {
    auto frame = std::make_shared<Frame>();
    frame->function = &frameFunction;
    frame->slots.resize(frameFunction.slotNames.size());
    frame->activation = nextActivation.fetch_add(1, std::memory_order_relaxed);
    FrameScope scope(*frame);
    Evaluator evaluator(*frame, frame);
    try {
        return evaluator.value(expr);
    } catch (qcos::HostError& error) {
        addFrame(error, *frame);
        throw;
    } catch (std::exception const& error) {
        auto hostError = asHostError(error);
        addFrame(hostError, *frame);
        throw hostError;
    }
}

Values constructObject(ClassRecord const& record, std::span<Value const> args, int /*nargout*/) {
    if (record.syntax->isAbstract) {
        raise("qlang:class:abstract", fmt::format("Objects of the abstract class '{}' cannot be made.", record.name));
    }
    Value object = share(qcos::omCreateQCOSScalar(qcos::omCreateObject(record.name)));
    return {constructInto(record, std::move(object), args)};
}

Values callMethodByName(Value const& object, std::string const& name, std::span<Value const> args, int nargout) {
    auto const& className = objectClassOf(*object);
    auto const& member = findMember(className, name);
    if (member.kind != Member::Kind::Method) {
        raise("qcos:method:undefined", fmt::format("No method '{}' for class '{}'.", name, className));
    }
    if (member.method != nullptr) {
        if (!mayAccess(member.method->access, member.definingClass, currentFrame())) {
            raise("qlang:method:access",
                  fmt::format("The method '{}' of class '{}' cannot be called here.", name, className));
        }
        return callFunction(*member.method, nullptr, args, nargout);
    }
    return callBound(className, name, args, nargout, member.isStatic, nullptr);
}

bool classHasMethod(std::string const& className, std::string_view name) {
    return findMember(className, name).kind == Member::Kind::Method;
}

Value makeErrorObject(qcos::HostError const& error) {
    registerExceptionClass();
    auto holder = std::make_shared<ErrorHolder>(error);
    qcos::factory::basic::BindingRegistry::announce(holder, ExceptionClassName);
    return share(qcos::omCreateQCOSScalar(qcos::factory::full::acquireReference(holder)));
}

qcos::HostError const& errorOf(qxArray const& errorObject) {
    if (errorObject.classID() != qxClassID::Object || !errorObject.isScalar() ||
        errorObject.getClassName() != ExceptionClassName) {
        raise("qlang:error:notErrorObject",
              fmt::format("Expected an error object of class '{}', got a value of class '{}'.", ExceptionClassName,
                          errorObject.getClassName()));
    }
    return heldError(*qcos::cosiGetArrayElement(errorObject, 0));
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

#pragma once
// What the interpreter's files share: the per-thread state of running code, the evaluator of statements and
// expressions (Statements.cpp, Expressions.cpp), calls of compiled code (Calls.cpp) and the member machinery of
// classes (Classes.cpp). Nothing outside the interpreter includes it.

#include "platform/host/lang/detail/Interpreter.hpp"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace qlang::detail {

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

extern thread_local ThreadState threadState;

// Raise an error when the thread's stack is nearly used up, or when an interrupt was requested.
void checkStack();
void checkInterrupt();

// The innermost running frame on this thread; nullptr outside host code.
Frame const* currentFrame();

enum class Flow { Normal, Break, Continue, Return };

// ===================================================================== errors

// Adds the frame's position to the error's stack, once per activation.
void addFrame(qcos::HostError& error, Frame const& frame);
// Native failures inside host code become host errors, so that try/catch sees them and stacks name where they
// happened.
qcos::HostError asHostError(std::exception const& error);
[[noreturn]] void undefinedName(std::string const& name);

// ===================================================================== calls

// What a call of compiled code does besides binding the arguments to the inputs: nothing (a plain call), set the
// values an anonymous function captured, or construct an object (the object is preset as the output, and the
// superclass constructors the body does not call run first).
struct PlainCall {};
struct AnonymousCall {
    std::vector<std::pair<int, Value>> const& captured;
};
struct ConstructorCall {
    ClassRecord const& record;
    Value const& object;
};
using CallKind = std::variant<PlainCall, AnonymousCall, ConstructorCall>;

Values callCompiled(Function const& function, FramePtr const& parent, std::span<Value const> args, int nargout,
                    CallKind const& kind);

// The frame a nested function's call runs in: its enclosing function's frame, the caller's or one around it.
FramePtr lexicalParentFor(Function const& callee, Frame const* caller, FramePtr const& callerPtr);

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
    std::uint64_t generation = 0;       // of the code runtime when it was looked up
    std::uint64_t classGeneration = 0;  // of the class-object system's classes then
};

// The member of that name of the class or its superclasses (kind None when there is none); kept per thread.
Member const& findMember(std::string const& className, std::string_view name);
std::string classContextOf(Frame const& frame);
bool mayAccess(Visibility visibility, std::string const& definingClass, Frame const* frame);
// The class of an object array's elements (of its first one), else the array's class.
std::string const& objectClassOf(qxArray const& array);

// Calls a method of a class of the class-object system (static, of a given class, or found on the arguments).
Values callBound(std::string const& className, std::string const& name, std::span<Value const> args, int nargout,
                 bool isStatic, std::string const* ofClass);
// Runs the constructor of a class file's class on an object made already.
Value constructInto(ClassRecord const& record, Value object, std::span<Value const> args);
Values constructByName(std::string const& className, std::span<Value const> args, int nargout);
// Class.empty(sizes).
Value emptyObjects(std::string const& className, std::span<Value const> args);

// ===================================================================== names

// What a name at a call site stands for, cached on the site while the runtime's generation holds.
Resolution const* resolveAt(Expr const& site, std::string const& name);
std::vector<std::string> splitDotted(std::string const& name);

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
    // [s.f] = ... and [s(k).f] = ...: when the target names a field of several (or no) elements of a struct
    // array, how many, with the subscripts of the (k) form put in `subscripts`; nothing otherwise.
    std::optional<std::size_t> structArrayTarget(LValue const& target, Values& subscripts);
    void assignFieldOfEach(LValue const& target, Values const& subscripts, std::span<Value const> values);
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

}  // namespace qlang::detail

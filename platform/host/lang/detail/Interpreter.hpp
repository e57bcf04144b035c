#pragma once
// Running compiled code: frames, statements, expressions, calls of every kind
// (compiled functions, methods, constructors, built-ins, host functions,
// function handles), and the errors they raise. Calls.cpp holds calls and the
// entry points, Statements.cpp and Expressions.cpp the evaluator, Classes.cpp
// classes and their members (see Evaluation.hpp).

#include "platform/host/HostFunctions.hpp"
#include "platform/host/lang/detail/Code.hpp"
#include "platform/host/lang/detail/Runtime.hpp"

#include <boost/container/small_vector.hpp>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace qlang::detail {

struct Frame;
using FramePtr = std::shared_ptr<Frame>;

// One running function: its variables and what errors need to say where.
struct Frame {
    Function const* function{};
    boost::container::small_vector<Value, 8> slots;
    FramePtr parent;  // nested functions: the frame of the enclosing function
    int nargin = 0;
    int nargout = 0;
    Stmt const* statement{};  // the statement running
    std::uint64_t activation = 0;
};

// Calls a compiled function with arguments; `parent` is the frame of the
// enclosing function for nested functions. For anonymous functions,
// `captured` holds (slot, value) pairs set before the body runs.
Values callFunction(Function const& function, FramePtr parent, std::span<Value const> args, int nargout,
                    std::vector<std::pair<int, Value>> const* captured = nullptr);

// Calls a function handle value (or the function a text names) with arguments.
Values callCallable(Value const& callable, std::span<Value const> args, int nargout);
// Calls what a name stands for (path function, class constructor, built-in,
// host function), as a call written `name(args)` outside any file does.
Values callByName(std::string const& name, std::span<Value const> args, int nargout);
// Calls a host function with values.
Values callHostFunction(qvm::HostFunction const& function, std::span<Value const> args, int nargout);

// A function handle to a name: path function, built-in or host function,
// looked up when it is called.
Value makeNamedHandle(std::string name);

// Evaluates one expression in a fresh frame of `frameFunction` (property
// defaults are evaluated this way, once, when their class is defined).
Value evaluateExpression(Function const& frameFunction, Expr const& expr);

// Runs a script file's body in a fresh frame and returns the frame.
FramePtr runScript(CompiledFile const& file);

// Objects.
Values constructObject(ClassRecord const& record, std::span<Value const> args, int nargout);
Values callMethodByName(Value const& object, std::string const& name, std::span<Value const> args, int nargout);
// Whether the class (a class file or a registered class) has a method of that name.
bool classHasMethod(std::string const& className, std::string_view name);

// The error object of a caught error: an object of class "qorvex.Exception"
// wrapping the error.
Value makeErrorObject(qcos::HostError const& error);
// The error an error object wraps (HostError for anything else).
qcos::HostError const& errorOf(qxArray const& errorObject);

// Host arrays handed in by reference become values; values handed out
// become arrays their receiver owns.
Values valuesOf(std::span<qxArray const* const> inputs);
std::vector<qxArrayPtr> arraysOf(Values values);

// The class context of the frame running on this thread (for access
// checks of built-ins such as fieldnames); empty outside methods.
std::string currentClassContext();

// Limits.
int recursionLimit() noexcept;
void setRecursionLimit(int limit) noexcept;

}  // namespace qlang::detail

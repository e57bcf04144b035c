#pragma once
// Compiled host-language code: the syntax tree of a file turned into
// expressions and statements whose names are already sorted into variables
// (with frame slots) and names to resolve when they run. The compiler
// (Compiler.cpp) checks the whole file against the supported subset, so every
// construct here can run.

#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/host/Array.hpp"
#include "platform/host/Qcos.hpp"

#include <atomic>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qlang::detail {

using Value = qxArrayShared;
using ca::astapi::Operator;

struct Function;
struct CompiledFile;
struct Resolution;

// Where a construct stands in its file.
struct Position {
    std::uint32_t line = 0;
    std::uint32_t column = 0;
};

enum class ExprKind : std::uint8_t {
    Constant,      // a literal, made once at compile time
    Variable,      // a variable of this function: slot; unset at run time, the name is called instead
    Outer,         // a variable of an enclosing function (nested functions): depth, slot
    Name,          // a name that is never a variable here: a function, class or package name
    Nargin,        // nargin of the running function
    Nargout,       // nargout of the running function
    Colon,         // ':' standing alone as an index
    End,           // 'end' inside an index
    Unary,         // op, args[0]
    Binary,        // arithmetic and element-wise operators, & and |: op, args[0], args[1]
    Compare,       // op, args[0], args[1]
    AndAnd,        // args[0] && args[1]
    OrOr,          // args[0] || args[1]
    Postfix,       // transpose: op, args[0]
    Range,         // args: start, step (may be null), stop
    Matrix,        // rows of elements
    Cell,          // rows of elements
    Chain,         // base, then accessors: calls, indexing, fields
    AnonFunction,  // function (its body), captures
    Handle,        // @name: name (possibly dotted)
    SuperCall,     // name@Superclass(args): name, superclass, args
};

// A variable an anonymous function copies when it is made: (depth, slot) in
// the enclosing frame, into its own slot.
struct Capture {
    int depth = 0;
    int slot = -1;
    int ownSlot = -1;
};

enum class AccessorKind : std::uint8_t { Paren, Brace, Field, DynamicField };

struct Expr;

struct Accessor {
    AccessorKind kind = AccessorKind::Paren;
    Position position;
    std::string name;               // Field
    Expr const* nameExpr{};         // DynamicField
    std::vector<Expr const*> args;  // Paren, Brace
};

struct Expr {
    ExprKind kind = ExprKind::Constant;
    Operator op = Operator::None;
    Position position;
    int slot = -1;                   // Variable, Outer
    int depth = 0;                   // Outer: how many functions out
    std::string name;                // Variable, Outer, Name (dotted for names), Handle, SuperCall: member name
    std::string superclass;          // SuperCall
    std::vector<std::string> parts;  // Name: the parts of a dotted name
    Value constant;
    Expr const* base{};                          // Chain
    std::vector<Accessor> accessors;             // Chain
    std::vector<Expr const*> args;               // operands, Range, SuperCall arguments
    std::vector<std::vector<Expr const*>> rows;  // Matrix, Cell
    // AnonFunction: its body; Name, Chain on a name and Handle: the function
    // of this file the name stands for, when it is one (resolved at compile time).
    Function const* function{};
    std::vector<Capture> captures;  // AnonFunction: values copied from the enclosing frame
    bool literalEmpty = false;      // Matrix: written as [] (deletion in assignments)
    // Name, Chain on a name, Handle: the resolution of the name, kept while
    // the code runtime's generation stays the same.
    mutable std::atomic<Resolution const*> resolved{nullptr};
};

enum class StmtKind : std::uint8_t {
    Expression,
    Assign,
    MultiAssign,
    If,
    For,
    While,
    Switch,
    Try,
    Break,
    Continue,
    Return,
    Command,
    Persistent,  // targets: the variables declared persistent
};

// The target of an assignment: a variable and the accessors below it.
struct LValue {
    Position position;
    bool ignored = false;  // ~ in [a, ~] = f()
    int slot = -1;
    int depth = 0;  // > 0: a variable of an enclosing function
    std::string name;
    std::vector<Accessor> accessors;
};

struct Stmt;

struct Clause {
    Position position;
    Expr const* condition{};  // null: else / otherwise
    std::vector<Stmt const*> body;
};

struct Stmt {
    StmtKind kind = StmtKind::Expression;
    Position position;
    Expr const* expr{};                // Expression, Assign, MultiAssign (value), For (range), While, Switch (subject)
    std::vector<LValue> targets;       // Assign (one), MultiAssign, For (the loop variable)
    std::vector<Clause> clauses;       // If, Switch
    std::vector<Stmt const*> body;     // For, While, Try
    std::vector<Stmt const*> handler;  // Try: the catch body
    int catchSlot = -1;                // Try: the caught error's variable, or -1
    int catchDepth = 0;
    int ansSlot = -1;  // Expression, Command: where the value goes ("ans")
    int ansDepth = 0;
    std::string command;                // Command: the function name
    std::vector<std::u16string> words;  // Command: its arguments
};

enum class Visibility : std::uint8_t { Public, Protected, Private };

struct ClassSyntax;

// The values of a function's persistent variables, kept from one call to the
// next for as long as the compiled function lives; parallel to
// Function::persistentSlots, null until a call first declares the variable.
struct PersistentValues {
    std::mutex mutex;
    std::vector<Value> values;
};

struct Function {
    std::string name;       // as errors and stacks show it: "f", "Class.method", "pkg.f"
    std::string shortName;  // the name written after 'function'
    CompiledFile const* file{};
    Position position;
    std::vector<std::string> slotNames;
    std::vector<int> inputSlots;  // -1 for an ignored input (~)
    bool varargin = false;        // the last input slot is varargin
    std::vector<int> outputSlots;
    bool varargout = false;  // the last output slot is varargout
    std::vector<Stmt const*> body;
    // Slots that nested functions read or write: they outlive the call when a
    // handle to a nested function does (the others are let go when it returns).
    std::vector<bool> sharedSlots;
    // Slots of variables declared persistent, and their kept values.
    std::vector<int> persistentSlots;
    std::unique_ptr<PersistentValues> persistent;
    Function const* parent{};  // nested functions: the enclosing function
    std::vector<Function const*> nested;
    // Class methods.
    ClassSyntax const* owner{};
    bool isStatic = false;
    bool isConstructor = false;
    bool isAbstract = false;
    bool isSealed = false;  // subclasses cannot redefine it
    Visibility access = Visibility::Public;
    bool isAnonymous = false;
    std::u16string text;  // anonymous functions: their source form
    // Superclasses whose constructors the body calls itself (obj@Super(...)).
    std::vector<std::string> explicitSuperConstructors;
};

struct PropertySyntax {
    std::string name;
    Position position;
    Expr const* defaultValue{};
    Function const* frame{};  // the frame the default is evaluated in
    bool constant = false;
    Visibility getAccess = Visibility::Public;
    Visibility setAccess = Visibility::Public;
};

struct ClassSyntax {
    std::string name;  // qualified: "pkg.Name"
    Position position;
    std::vector<std::pair<std::string, Position>> superclasses;  // as written (dotted)
    std::vector<PropertySyntax> properties;
    std::vector<Function const*> methods;  // constructor, ordinary, static and abstract methods
    bool isAbstract = false;
    bool isSealed = false;  // no class can derive from it
};

// One compiled file (or script text). Owns every expression, statement and
// function of it, and the syntax tree they point into.
struct CompiledFile : std::enable_shared_from_this<CompiledFile> {
    std::filesystem::path path;
    std::string displayName;    // the path as errors show it
    std::string qualifiedName;  // the name the file defines ("pkg.f", "pkg.Cls"); empty for scripts
    std::shared_ptr<ca::AnalysisResult const> tree;
    std::deque<Expr> exprs;
    std::deque<Stmt> stmts;
    std::deque<Function> functions;
    Function const* main{};  // function files: the first function; scripts: the script body as a function
    std::map<std::string, Function const*, std::less<>> locals;  // the file's functions by name
    std::unique_ptr<ClassSyntax> classSyntax;
    bool isScript = false;
};

}  // namespace qlang::detail

#pragma once
// What the compiler's two files share: the compiler of one file and the helpers both use. Compiler.cpp compiles
// files, functions and classes; CompilerBodies.cpp the statements and expressions of their bodies.

#include "platform/host/lang/detail/Compiler.hpp"

#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qlang::detail::compiling {

using ca::astapi::Node;
using ca::astapi::NodeKind;
namespace slot = ca::astapi::slot;

inline Position at(Node const& node) {
    return {node.line(), node.column()};
}

inline std::string textOf(Node const& node) {
    return narrow(node.identifier().getString());
}

// The expression an indexing or field step applies to: x in x(1), x{1}, x.f and x.(n); nullptr for other kinds.
Node const* stepBase(Node const& step);
// The test of an if, elseif or case clause; nullptr for else and otherwise.
Node const* clauseTest(Node const& clause);
// The statements of any clause of an if or switch statement.
std::span<Node const* const> clauseBody(Node const& clause);

// The source text of an expression, as anonymous functions show it.
std::u16string sourceOf(Node const& node);

// The names a function's frame holds, and how names not in it are found.
struct Scope {
    Function* function = nullptr;
    Scope* enclosing = nullptr;  // nested and anonymous functions
    bool anonymous = false;
    std::map<std::string, int, std::less<>> slots;
    std::vector<Capture>* captures = nullptr;  // anonymous functions

    int addSlot(std::string const& name) {
        auto const [found, inserted] = slots.try_emplace(name, static_cast<int>(function->slotNames.size()));
        if (inserted) {
            function->slotNames.push_back(name);
        }
        return found->second;
    }
};

struct VariableRef {
    int depth = 0;
    int slot = -1;
};

class Compiler {
public:
    Compiler(CompiledFile& file) : file_(file) {}

    void compileRoot(Node const& root, bool allowScript);

private:
    [[noreturn]] void fail(Node const& node, std::string const& what) const {
        unsupported(file_.displayName, at(node), what);
    }
    [[noreturn]] void invalid(Node const& node, std::string const& message) const {
        qcos::HostError error("qlang:invalidCode", message);
        error.addFrame({file_.displayName, "", node.line(), node.column()});
        throw error;
    }

    Expr& newExpr(ExprKind kind, Node const& node) {
        auto& expr = file_.exprs.emplace_back();
        expr.kind = kind;
        expr.position = at(node);
        return expr;
    }
    Stmt& newStmt(StmtKind kind, Node const& node) {
        auto& stmt = file_.stmts.emplace_back();
        stmt.kind = kind;
        stmt.position = at(node);
        return stmt;
    }

    // ----- declarations
    Function& declareFunction(Node const& definition, Function const* parent, ClassSyntax const* owner);
    void collectAssigned(std::span<Node const* const> statements, std::set<std::string>& names) const;
    void collectAssignedIn(Node const& statement, std::set<std::string>& names) const;
    void prepareScope(Scope& scope, Node const& definition);
    void compileFunction(Function& function, Node const& definition, Scope* enclosing);
    void compileClass(Node const& definition);

    // ----- names
    std::optional<VariableRef> resolveVariable(Scope& scope, std::string const& name, bool fromInner = false);
    Function const* findLocalFunction(Scope const& scope, std::string_view name) const;

    // ----- statements
    std::vector<Stmt const*> compileBlock(std::span<Node const* const> statements, Scope& scope);
    Stmt const* compileStatement(Node const& node, Scope& scope);
    LValue compileTarget(Node const& node, Scope& scope);

    // ----- expressions
    Expr const* compileExpr(Node const& node, Scope& scope);
    Expr const* compileIdentifier(Node const& node, Scope& scope);
    Expr const* compileChain(Node const& node, Scope& scope);
    void compileArguments(std::span<Node const* const> nodes, Scope& scope, std::vector<Expr const*>& args);
    // One step of an indexing chain: (), {}, .name or .(expr).
    Accessor compileAccessor(Node const& step, Scope& scope);
    // A clause of an if or switch statement; else and otherwise have no condition.
    Clause compileClause(Node const& clause, Scope& scope);
    Expr const* compileNumber(Node const& node);
    Expr const* compileAnonymous(Node const& node, Scope& scope);
    Expr const* compileSuperCall(Node const& node, Scope& scope);

    CompiledFile& file_;
    int loopDepth_ = 0;
    Function* current_ = nullptr;
};

}  // namespace qlang::detail::compiling

// Compiles the statements and expressions of function bodies, and keeps the source text of anonymous functions.

#include "platform/host/lang/detail/Compiling.hpp"
#include "platform/host/lang/detail/Values.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>

namespace qlang::detail::compiling {

// ===================================================================== source text of anonymous functions

std::u16string operatorText(Operator op) {
    switch (op) {
    case Operator::Plus:
    case Operator::UnaryPlus:
        return u"+";
    case Operator::Minus:
    case Operator::UnaryMinus:
        return u"-";
    case Operator::Times:
        return u"*";
    case Operator::RightDivide:
        return u"/";
    case Operator::LeftDivide:
        return u"\\";
    case Operator::Power:
        return u"^";
    case Operator::ElementTimes:
        return u".*";
    case Operator::ElementRightDivide:
        return u"./";
    case Operator::ElementLeftDivide:
        return u".\\";
    case Operator::ElementPower:
        return u".^";
    case Operator::ElementAnd:
        return u"&";
    case Operator::ElementOr:
        return u"|";
    case Operator::Equal:
        return u"==";
    case Operator::NotEqual:
        return u"~=";
    case Operator::Less:
        return u"<";
    case Operator::LessEqual:
        return u"<=";
    case Operator::Greater:
        return u">";
    case Operator::GreaterEqual:
        return u">=";
    case Operator::AndAnd:
        return u"&&";
    case Operator::OrOr:
        return u"||";
    case Operator::Not:
        return u"~";
    case Operator::Transpose:
        return u"'";
    case Operator::DotTranspose:
        return u".'";
    case Operator::None:
        break;
    }
    return u"";
}

// The source form of an expression, as func2str and disp show anonymous functions.
std::u16string sourceOf(Node const& node);

std::u16string joined(std::span<Node const* const> nodes, std::u16string_view separator) {
    std::u16string out;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (i > 0) {
            out += separator;
        }
        out += sourceOf(*nodes[i]);
    }
    return out;
}

std::u16string rowsOf(std::span<Node const* const> rows) {
    std::u16string out;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (i > 0) {
            out += u";";
        }
        out += joined(rows[i]->list(slot::Row::elements), u",");
    }
    return out;
}

std::u16string sourceOf(Node const& node) {
    switch (node.kind()) {
    case NodeKind::Identifier:
    case NodeKind::DottedName:
    case NodeKind::Number:
    case NodeKind::ImaginaryNumber:
        return std::u16string(node.identifier().getString());
    case NodeKind::CharacterString:
        return quotedText(node.identifier().getString(), u'\'');
    case NodeKind::String:
        return quotedText(node.identifier().getString(), u'"');
    case NodeKind::Colon:
        return u":";
    case NodeKind::End:
        return u"end";
    case NodeKind::Ignored:
        return u"~";
    case NodeKind::BinaryOperation:
        return sourceOf(*node.child(slot::BinaryOperation::left)) + operatorText(node.op()) +
               sourceOf(*node.child(slot::BinaryOperation::right));
    case NodeKind::Comparison:
        return sourceOf(*node.child(slot::Comparison::left)) + operatorText(node.op()) +
               sourceOf(*node.child(slot::Comparison::right));
    case NodeKind::ShortCircuit:
        return sourceOf(*node.child(slot::ShortCircuit::left)) + operatorText(node.op()) +
               sourceOf(*node.child(slot::ShortCircuit::right));
    case NodeKind::UnaryOperation:
        return operatorText(node.op()) + sourceOf(*node.child(slot::UnaryOperation::operand));
    case NodeKind::PostfixOperation:
        return sourceOf(*node.child(slot::PostfixOperation::operand)) + operatorText(node.op());
    case NodeKind::Range: {
        auto out = sourceOf(*node.child(slot::Range::start)) + u":";
        if (auto const* step = node.child(slot::Range::step)) {
            out += sourceOf(*step) + u":";
        }
        return out + sourceOf(*node.child(slot::Range::end));
    }
    case NodeKind::Parenthesized:
        return u"(" + sourceOf(*node.child(slot::Parenthesized::expression)) + u")";
    case NodeKind::Matrix:
        return u"[" + rowsOf(node.list(slot::Matrix::rows)) + u"]";
    case NodeKind::Cell:
        return u"{" + rowsOf(node.list(slot::Cell::rows)) + u"}";
    case NodeKind::ParenIndex:
        return sourceOf(*node.child(slot::ParenIndex::indexed)) + u"(" +
               joined(node.list(slot::ParenIndex::arguments), u",") + u")";
    case NodeKind::BraceIndex:
        return sourceOf(*node.child(slot::BraceIndex::indexed)) + u"{" +
               joined(node.list(slot::BraceIndex::arguments), u",") + u"}";
    case NodeKind::FieldAccess:
        return sourceOf(*node.child(slot::FieldAccess::structure)) + u"." +
               sourceOf(*node.child(slot::FieldAccess::field));
    case NodeKind::DynamicField:
        return sourceOf(*node.child(slot::DynamicField::structure)) + u".(" +
               sourceOf(*node.child(slot::DynamicField::fieldName)) + u")";
    case NodeKind::InputArgument: {
        auto const* identifier = node.child(slot::InputArgument::identifier);
        return identifier != nullptr ? sourceOf(*identifier) : u"~";
    }
    case NodeKind::AnonymousFunction:
        return u"@(" + joined(node.list(slot::AnonymousFunction::parameters), u",") + u")" +
               sourceOf(*node.child(slot::AnonymousFunction::body));
    case NodeKind::FunctionHandle:
        return u"@" + sourceOf(*node.child(slot::FunctionHandle::name));
    case NodeKind::Assignment:
        return sourceOf(*node.child(slot::Assignment::target)) + u"=" + sourceOf(*node.child(slot::Assignment::value));
    case NodeKind::SuperclassCall:
        return sourceOf(*node.child(slot::SuperclassCall::member)) + u"@" +
               sourceOf(*node.child(slot::SuperclassCall::superclass)) + u"(" +
               joined(node.list(slot::SuperclassCall::arguments), u",") + u")";
    default:
        break;
    }
    return u"...";
}

// ===================================================================== statements

std::vector<Stmt const*> Compiler::compileBlock(std::span<Node const* const> statements, Scope& scope) {
    std::vector<Stmt const*> block;
    block.reserve(statements.size());
    for (auto const* statement : statements) {
        if (auto const* compiled = compileStatement(*statement, scope)) {
            block.push_back(compiled);
        }
    }
    return block;
}

LValue Compiler::compileTarget(Node const& node, Scope& scope) {
    LValue target;
    target.position = at(node);
    if (node.kind() == NodeKind::Ignored) {
        target.ignored = true;
        return target;
    }
    std::vector<Node const*> path;
    Node const* base = &node;
    while (base->kind() != NodeKind::Identifier) {
        auto const* next = stepBase(*base);
        if (next == nullptr) {
            invalid(*base, "This expression cannot be assigned to.");
        }
        path.push_back(base);
        base = next;
    }
    target.name = textOf(*base);
    auto const variable = resolveVariable(scope, target.name);
    if (!variable) {
        invalid(*base, fmt::format("'{}' cannot be assigned to here.", target.name));
    }
    target.slot = variable->slot;
    target.depth = variable->depth;
    for (auto it = path.rbegin(); it != path.rend(); ++it) {
        Node const& step = **it;
        target.accessors.push_back(compileAccessor(step, scope));
    }
    return target;
}

Stmt const* Compiler::compileStatement(Node const& node, Scope& scope) {
    switch (node.kind()) {
    case NodeKind::EmptyStatement:
        return nullptr;
    case NodeKind::ExpressionStatement: {
        auto& stmt = newStmt(StmtKind::Expression, node);
        stmt.expr = compileExpr(*node.child(slot::ExpressionStatement::expression), scope);
        if (auto const ans = resolveVariable(scope, "ans")) {
            stmt.ansSlot = ans->slot;
            stmt.ansDepth = ans->depth;
        }
        return &stmt;
    }
    case NodeKind::Assignment: {
        auto& stmt = newStmt(StmtKind::Assign, node);
        stmt.expr = compileExpr(*node.child(slot::Assignment::value), scope);
        stmt.targets.push_back(compileTarget(*node.child(slot::Assignment::target), scope));
        return &stmt;
    }
    case NodeKind::MultipleAssignment: {
        auto& stmt = newStmt(StmtKind::MultiAssign, node);
        stmt.expr = compileExpr(*node.child(slot::MultipleAssignment::value), scope);
        for (auto const* target : node.list(slot::MultipleAssignment::targets)) {
            stmt.targets.push_back(compileTarget(*target, scope));
        }
        if (stmt.targets.empty()) {
            invalid(node, "A multiple assignment needs at least one target.");
        }
        return &stmt;
    }
    case NodeKind::IfStatement: {
        auto& stmt = newStmt(StmtKind::If, node);
        for (auto const* clause : node.list(slot::IfStatement::clauses)) {
            stmt.clauses.push_back(compileClause(*clause, scope));
        }
        return &stmt;
    }
    case NodeKind::ForStatement: {
        auto& stmt = newStmt(StmtKind::For, node);
        stmt.targets.push_back(compileTarget(*node.child(slot::ForStatement::variable), scope));
        stmt.expr = compileExpr(*node.child(slot::ForStatement::range), scope);
        ++loopDepth_;
        stmt.body = compileBlock(node.list(slot::ForStatement::body), scope);
        --loopDepth_;
        return &stmt;
    }
    case NodeKind::WhileStatement: {
        auto& stmt = newStmt(StmtKind::While, node);
        stmt.expr = compileExpr(*node.child(slot::WhileStatement::condition), scope);
        ++loopDepth_;
        stmt.body = compileBlock(node.list(slot::WhileStatement::body), scope);
        --loopDepth_;
        return &stmt;
    }
    case NodeKind::SwitchStatement: {
        auto& stmt = newStmt(StmtKind::Switch, node);
        stmt.expr = compileExpr(*node.child(slot::SwitchStatement::subject), scope);
        for (auto const* clause : node.list(slot::SwitchStatement::clauses)) {
            stmt.clauses.push_back(compileClause(*clause, scope));
        }
        return &stmt;
    }
    case NodeKind::TryStatement: {
        auto& stmt = newStmt(StmtKind::Try, node);
        stmt.body = compileBlock(node.list(slot::TryStatement::body), scope);
        if (auto const* handler = node.child(slot::TryStatement::catchClause)) {
            if (auto const* variable = handler->child(slot::CatchClause::variable)) {
                auto const ref = resolveVariable(scope, textOf(*variable));
                stmt.catchSlot = ref->slot;
                stmt.catchDepth = ref->depth;
            }
            stmt.handler = compileBlock(handler->list(slot::CatchClause::body), scope);
        }
        return &stmt;
    }
    case NodeKind::Break:
    case NodeKind::Continue:
        if (loopDepth_ == 0) {
            invalid(node, fmt::format("'{}' is only allowed inside a loop.",
                                      node.kind() == NodeKind::Break ? "break" : "continue"));
        }
        return &newStmt(node.kind() == NodeKind::Break ? StmtKind::Break : StmtKind::Continue, node);
    case NodeKind::Return:
        return &newStmt(StmtKind::Return, node);
    case NodeKind::CommandStatement: {
        auto& stmt = newStmt(StmtKind::Command, node);
        stmt.command = textOf(*node.child(slot::CommandStatement::command));
        if (auto const ans = resolveVariable(scope, "ans")) {
            stmt.ansSlot = ans->slot;
            stmt.ansDepth = ans->depth;
        }
        for (auto const* word : node.list(slot::CommandStatement::arguments)) {
            stmt.words.emplace_back(word->identifier().getString());
        }
        return &stmt;
    }
    case NodeKind::GlobalStatement:
        fail(node, "A global declaration");
    case NodeKind::PersistentStatement: {
        if (current_ == nullptr ||
            (file_.isScript && current_->parent == nullptr && current_->name == file_.displayName)) {
            fail(node, "A persistent declaration outside a function");
        }
        auto& stmt = newStmt(StmtKind::Persistent, node);
        auto& function = *current_;
        for (auto const* nameNode : node.list(slot::PersistentStatement::names)) {
            auto const name = textOf(*nameNode);
            auto const variable = resolveVariable(scope, name);
            bool const argument = std::find(function.inputSlots.begin(), function.inputSlots.end(),
                                            variable ? variable->slot : -2) != function.inputSlots.end() ||
                                  std::find(function.outputSlots.begin(), function.outputSlots.end(),
                                            variable ? variable->slot : -2) != function.outputSlots.end();
            if (!variable || variable->depth != 0 || argument) {
                invalid(*nameNode, fmt::format("'{}' cannot be declared persistent: it is an input, an output or a "
                                               "variable of an enclosing function.",
                                               name));
            }
            LValue target;
            target.position = at(*nameNode);
            target.slot = variable->slot;
            target.name = name;
            stmt.targets.push_back(std::move(target));
            if (std::find(function.persistentSlots.begin(), function.persistentSlots.end(), variable->slot) ==
                function.persistentSlots.end()) {
                function.persistentSlots.push_back(variable->slot);
            }
        }
        if (!function.persistent) {
            function.persistent = std::make_unique<PersistentValues>();
        }
        function.persistent->values.resize(function.persistentSlots.size());
        return &stmt;
    }
    case NodeKind::ParforStatement:
        fail(node, "A parfor loop");
    case NodeKind::ArgumentsBlock:
        fail(node, "An arguments block");
    case NodeKind::FunctionDefinition:
        fail(node, "A function definition inside a block");
    case NodeKind::ShellEscape:
        fail(node, "A shell escape");
    case NodeKind::SpmdStatement:
        fail(node, "An spmd block");
    default:
        break;
    }
    fail(node, fmt::format("The statement kind {}", static_cast<int>(node.kind())));
}

// ===================================================================== expressions

Expr const* Compiler::compileNumber(Node const& node) {
    auto const text = textOf(node);
    double value = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X' || text[1] == 'b' || text[1] == 'B')) {
        bool const hex = text[1] == 'x' || text[1] == 'X';
        std::size_t i = 2;
        for (; i < text.size(); ++i) {
            char const c = text[i];
            int digit = -1;
            if (c >= '0' && c <= '9') {
                digit = c - '0';
            } else if (hex && c >= 'a' && c <= 'f') {
                digit = c - 'a' + 10;
            } else if (hex && c >= 'A' && c <= 'F') {
                digit = c - 'A' + 10;
            }
            if (digit < 0 || digit >= (hex ? 16 : 2)) {
                break;
            }
            value = value * (hex ? 16 : 2) + digit;
        }
        if (i != text.size()) {
            fail(node, fmt::format("The integer-typed literal '{}'", text));
        }
    } else {
        char* end = nullptr;
        value = std::strtod(text.c_str(), &end);
        if (end != text.c_str() + text.size()) {
            fail(node, fmt::format("The number literal '{}'", text));
        }
    }
    auto& expr = newExpr(ExprKind::Constant, node);
    expr.constant = qxArray::share(qxArray::createScalar(value));
    return &expr;
}

Expr const* Compiler::compileIdentifier(Node const& node, Scope& scope) {
    auto const name = textOf(node);
    if (auto const variable = resolveVariable(scope, name)) {
        auto& expr = newExpr(variable->depth == 0 ? ExprKind::Variable : ExprKind::Outer, node);
        expr.slot = variable->slot;
        expr.depth = variable->depth;
        expr.name = name;
        // Used before it has a value, the name is called instead: a local function too.
        expr.function = findLocalFunction(scope, name);
        return &expr;
    }
    if ((name == "nargin" || name == "nargout") && current_ != nullptr && !current_->isAnonymous && !file_.isScript) {
        return &newExpr(name == "nargin" ? ExprKind::Nargin : ExprKind::Nargout, node);
    }
    auto& expr = newExpr(ExprKind::Name, node);
    expr.name = name;
    expr.function = findLocalFunction(scope, name);
    return &expr;
}

void Compiler::compileArguments(std::span<Node const* const> nodes, Scope& scope, std::vector<Expr const*>& args) {
    for (auto const* argument : nodes) {
        if (argument->kind() == NodeKind::Assignment) {
            // f(Name=value) passes 'Name', value.
            auto const& nameNode = *argument->child(slot::Assignment::target);
            auto& name = newExpr(ExprKind::Constant, nameNode);
            name.constant = qxArray::share(qxArray::createString(nameNode.identifier().getString()));
            args.push_back(&name);
            args.push_back(compileExpr(*argument->child(slot::Assignment::value), scope));
            continue;
        }
        args.push_back(compileExpr(*argument, scope));
    }
}

Clause Compiler::compileClause(Node const& clause, Scope& scope) {
    Clause compiled;
    compiled.position = at(clause);
    if (auto const* test = clauseTest(clause)) {
        compiled.condition = compileExpr(*test, scope);
    }
    compiled.body = compileBlock(clauseBody(clause), scope);
    return compiled;
}

Accessor Compiler::compileAccessor(Node const& step, Scope& scope) {
    Accessor accessor;
    accessor.position = at(step);
    switch (step.kind()) {
    case NodeKind::ParenIndex:
        accessor.kind = AccessorKind::Paren;
        compileArguments(step.list(slot::ParenIndex::arguments), scope, accessor.args);
        break;
    case NodeKind::BraceIndex:
        accessor.kind = AccessorKind::Brace;
        compileArguments(step.list(slot::BraceIndex::arguments), scope, accessor.args);
        break;
    case NodeKind::FieldAccess:
        accessor.kind = AccessorKind::Field;
        accessor.name = textOf(*step.child(slot::FieldAccess::field));
        break;
    default:
        accessor.kind = AccessorKind::DynamicField;
        accessor.nameExpr = compileExpr(*step.child(slot::DynamicField::fieldName), scope);
        break;
    }
    return accessor;
}

Expr const* Compiler::compileChain(Node const& node, Scope& scope) {
    std::vector<Node const*> path;
    Node const* base = &node;
    while (auto const* next = stepBase(*base)) {
        path.push_back(base);
        base = next;
    }
    auto& expr = newExpr(ExprKind::Chain, node);
    expr.base = compileExpr(*base, scope);
    // A chain on a name that is not a variable may name a package or class:
    // pkg.sub.f(x), pkg.Class.Constant. The dotted prefix becomes the name.
    std::size_t next = path.size();
    if (expr.base->kind == ExprKind::Name) {
        auto& name = const_cast<Expr&>(*expr.base);
        while (next > 0 && path[next - 1]->kind() == NodeKind::FieldAccess) {
            --next;
            name.name += "." + textOf(*path[next]->child(slot::FieldAccess::field));
        }
        if (name.name.find('.') != std::string::npos) {
            name.function = nullptr;
            std::size_t start = 0;
            for (auto dot = name.name.find('.'); dot != std::string::npos; dot = name.name.find('.', start)) {
                name.parts.push_back(name.name.substr(start, dot - start));
                start = dot + 1;
            }
            name.parts.push_back(name.name.substr(start));
        }
    }
    for (auto i = next; i > 0; --i) {
        Node const& step = *path[i - 1];
        expr.accessors.push_back(compileAccessor(step, scope));
    }
    if (expr.accessors.empty()) {
        return expr.base;  // a dotted name alone
    }
    return &expr;
}

Expr const* Compiler::compileAnonymous(Node const& node, Scope& scope) {
    auto& function = file_.functions.emplace_back();
    function.file = &file_;
    function.position = at(node);
    function.isAnonymous = true;
    function.owner = current_ != nullptr ? current_->owner : nullptr;
    function.name = current_ != nullptr ? current_->name + "/@" : "@";
    function.text = sourceOf(node);
    function.outputSlots.clear();
    auto& expr = newExpr(ExprKind::AnonFunction, node);
    Scope own;
    own.function = &function;
    own.enclosing = &scope;
    own.anonymous = true;
    own.captures = &expr.captures;
    for (auto const* parameter : node.list(slot::AnonymousFunction::parameters)) {
        if (auto const* identifier = parameter->child(slot::InputArgument::identifier)) {
            auto const name = textOf(*identifier);
            function.inputSlots.push_back(own.addSlot(name));
            function.varargin = name == "varargin";
        } else {
            function.inputSlots.push_back(-1);
        }
    }
    auto* saved = std::exchange(current_, &function);
    auto const& bodyNode = *node.child(slot::AnonymousFunction::body);
    auto& body = newStmt(StmtKind::Expression, bodyNode);
    body.expr = compileExpr(bodyNode, own);
    current_ = saved;
    function.body.push_back(&body);
    expr.function = &function;
    return &expr;
}

Expr const* Compiler::compileSuperCall(Node const& node, Scope& scope) {
    auto& expr = newExpr(ExprKind::SuperCall, node);
    expr.name = textOf(*node.child(slot::SuperclassCall::member));
    expr.superclass = textOf(*node.child(slot::SuperclassCall::superclass));
    if (expr.name.find('.') != std::string::npos) {
        fail(node, fmt::format("The superclass call '{}@{}'", expr.name, expr.superclass));
    }
    if (current_ == nullptr || current_->owner == nullptr) {
        invalid(node, "A superclass member can only be called from a method of a subclass.");
    }
    compileArguments(node.list(slot::SuperclassCall::arguments), scope, expr.args);
    if (current_->isConstructor && !current_->outputSlots.empty() &&
        current_->slotNames[current_->outputSlots.front()] == expr.name) {
        current_->explicitSuperConstructors.push_back(expr.superclass);
    }
    return &expr;
}

Expr const* Compiler::compileExpr(Node const& node, Scope& scope) {
    switch (node.kind()) {
    case NodeKind::Identifier:
        return compileIdentifier(node, scope);
    case NodeKind::Number:
        return compileNumber(node);
    case NodeKind::CharacterString: {
        auto& expr = newExpr(ExprKind::Constant, node);
        auto const text = node.identifier().getString();
        // '' is a 0-by-0 char array.
        expr.constant = qxArray::share(text.empty() ? qxArray::createChar({0, 0}) : qxArray::createString(text));
        return &expr;
    }
    case NodeKind::String: {
        auto& expr = newExpr(ExprKind::Constant, node);
        expr.constant = qxArray::share(qxArray::createStringScalar(node.identifier().getString()));
        return &expr;
    }
    case NodeKind::Colon:
        return &newExpr(ExprKind::Colon, node);
    case NodeKind::End:
        return &newExpr(ExprKind::End, node);
    case NodeKind::Parenthesized:
        return compileExpr(*node.child(slot::Parenthesized::expression), scope);
    case NodeKind::BinaryOperation:
    case NodeKind::Comparison: {
        static_assert(slot::BinaryOperation::left == slot::Comparison::left &&
                      slot::BinaryOperation::right == slot::Comparison::right);
        auto& expr = newExpr(node.kind() == NodeKind::Comparison ? ExprKind::Compare : ExprKind::Binary, node);
        expr.op = node.op();
        expr.args = {compileExpr(*node.child(slot::BinaryOperation::left), scope),
                     compileExpr(*node.child(slot::BinaryOperation::right), scope)};
        return &expr;
    }
    case NodeKind::ShortCircuit: {
        auto& expr = newExpr(node.op() == Operator::AndAnd ? ExprKind::AndAnd : ExprKind::OrOr, node);
        expr.args = {compileExpr(*node.child(slot::ShortCircuit::left), scope),
                     compileExpr(*node.child(slot::ShortCircuit::right), scope)};
        return &expr;
    }
    case NodeKind::UnaryOperation: {
        auto& expr = newExpr(ExprKind::Unary, node);
        expr.op = node.op();
        expr.args = {compileExpr(*node.child(slot::UnaryOperation::operand), scope)};
        return &expr;
    }
    case NodeKind::PostfixOperation: {
        auto& expr = newExpr(ExprKind::Postfix, node);
        expr.op = node.op();
        expr.args = {compileExpr(*node.child(slot::PostfixOperation::operand), scope)};
        return &expr;
    }
    case NodeKind::Range: {
        auto& expr = newExpr(ExprKind::Range, node);
        auto const* step = node.child(slot::Range::step);
        expr.args = {compileExpr(*node.child(slot::Range::start), scope),
                     step != nullptr ? compileExpr(*step, scope) : nullptr,
                     compileExpr(*node.child(slot::Range::end), scope)};
        return &expr;
    }
    case NodeKind::Matrix:
    case NodeKind::Cell: {
        auto& expr = newExpr(node.kind() == NodeKind::Matrix ? ExprKind::Matrix : ExprKind::Cell, node);
        auto const rows = node.kind() == NodeKind::Matrix ? node.list(slot::Matrix::rows) : node.list(slot::Cell::rows);
        for (auto const* row : rows) {
            std::vector<Expr const*> elements;
            compileArguments(row->list(slot::Row::elements), scope, elements);
            expr.rows.push_back(std::move(elements));
        }
        expr.literalEmpty = node.kind() == NodeKind::Matrix && expr.rows.empty();
        return &expr;
    }
    case NodeKind::ParenIndex:
    case NodeKind::BraceIndex:
    case NodeKind::FieldAccess:
    case NodeKind::DynamicField:
        return compileChain(node, scope);
    case NodeKind::AnonymousFunction:
        return compileAnonymous(node, scope);
    case NodeKind::FunctionHandle: {
        auto& expr = newExpr(ExprKind::Handle, node);
        expr.name = textOf(*node.child(slot::FunctionHandle::name));
        if (expr.name.find('.') == std::string::npos) {
            expr.function = findLocalFunction(scope, expr.name);
        }
        return &expr;
    }
    case NodeKind::DottedName: {
        auto& expr = newExpr(ExprKind::Name, node);
        expr.name = textOf(node);
        std::size_t start = 0;
        for (auto dot = expr.name.find('.'); dot != std::string::npos; dot = expr.name.find('.', start)) {
            expr.parts.push_back(expr.name.substr(start, dot - start));
            start = dot + 1;
        }
        expr.parts.push_back(expr.name.substr(start));
        return &expr;
    }
    case NodeKind::ImaginaryNumber:
        fail(node, "A complex number");
    case NodeKind::MetaclassQuery:
        fail(node, "A metaclass query");
    case NodeKind::Ignored:
        invalid(node, "'~' is only allowed as an input or output placeholder.");
    case NodeKind::SuperclassCall:
        return compileSuperCall(node, scope);
    default:
        break;
    }
    fail(node, fmt::format("The expression kind {}", static_cast<int>(node.kind())));
}

}  // namespace qlang::detail::compiling

#include "platform/host/lang/detail/Compiler.hpp"

#include "platform/host/lang/detail/Values.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>

namespace qlang::detail {

using ca::astapi::Node;
using ca::astapi::NodeKind;
namespace slot = ca::astapi::slot;
using AttributeQueries = lf::astapi::NodeCustomization<lf::astapi::Attribute<ca::astapi::CA>>;

std::string narrow(std::u16string_view text) {
    return boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
}

std::u16string widen(std::string_view text) {
    return boost::locale::conv::utf_to_utf<char16_t>(text.data(), text.data() + text.size());
}

void unsupported(std::string const& file, Position position, std::string const& what) {
    qcos::HostError error("qlang:unsupported", what + " is not supported.");
    error.addFrame({file, "", position.line, position.column});
    throw error;
}

namespace {

Position at(Node const& node) {
    return {node.line(), node.column()};
}

std::string textOf(Node const& node) {
    return narrow(node.identifier().getString());
}

// The expression an indexing or field step applies to: x in x(1), x{1}, x.f and x.(n); nullptr for other kinds.
Node const* stepBase(Node const& step) {
    switch (step.kind()) {
    case NodeKind::ParenIndex:
        return step.child(slot::ParenIndex::indexed);
    case NodeKind::BraceIndex:
        return step.child(slot::BraceIndex::indexed);
    case NodeKind::FieldAccess:
        return step.child(slot::FieldAccess::structure);
    case NodeKind::DynamicField:
        return step.child(slot::DynamicField::structure);
    default:
        return nullptr;
    }
}

// The test of an if, elseif or case clause; nullptr for else and otherwise.
Node const* clauseTest(Node const& clause) {
    switch (clause.kind()) {
    case NodeKind::IfClause:
        return clause.child(slot::IfClause::condition);
    case NodeKind::ElseifClause:
        return clause.child(slot::ElseifClause::condition);
    case NodeKind::CaseClause:
        return clause.child(slot::CaseClause::value);
    default:
        return nullptr;
    }
}

// The statements of any clause of an if or switch statement.
std::span<Node const* const> clauseBody(Node const& clause) {
    switch (clause.kind()) {
    case NodeKind::IfClause:
        return clause.list(slot::IfClause::body);
    case NodeKind::ElseifClause:
        return clause.list(slot::ElseifClause::body);
    case NodeKind::CaseClause:
        return clause.list(slot::CaseClause::body);
    case NodeKind::ElseClause:
        return clause.list(slot::ElseClause::body);
    case NodeKind::OtherwiseClause:
        return clause.list(slot::OtherwiseClause::body);
    default:
        return {};
    }
}

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
    // An if or case clause; the `unconditional` kind (else, otherwise) has no condition.
    Clause compileClause(Node const& clause, Scope& scope);
    Expr const* compileNumber(Node const& node);
    Expr const* compileAnonymous(Node const& node, Scope& scope);
    Expr const* compileSuperCall(Node const& node, Scope& scope);

    CompiledFile& file_;
    int loopDepth_ = 0;
    Function* current_ = nullptr;
};

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

// ===================================================================== declarations

Function& Compiler::declareFunction(Node const& definition, Function const* parent, ClassSyntax const* owner) {
    auto& function = file_.functions.emplace_back();
    function.file = &file_;
    function.position = at(definition);
    function.parent = parent;
    function.owner = owner;
    auto const* nameNode = definition.child(slot::FunctionDefinition::name);
    function.shortName = textOf(*nameNode);
    if (function.shortName.find('.') != std::string::npos) {
        fail(*nameNode, fmt::format("The property access method '{}'", function.shortName));
    }
    if (owner != nullptr) {
        function.name = owner->name + "." + function.shortName;
    } else if (parent != nullptr) {
        function.name = parent->name + "/" + function.shortName;
    } else {
        function.name = function.shortName;
    }
    for (auto const* nested : definition.list(slot::FunctionDefinition::nestedFunctions)) {
        function.nested.push_back(&declareFunction(*nested, &function, owner));
    }
    return function;
}

void Compiler::collectAssignedIn(Node const& statement, std::set<std::string>& names) const {
    auto baseName = [&](Node const* target) {
        while (target != nullptr && target->kind() != NodeKind::Identifier) {
            target = stepBase(*target);
        }
        if (target != nullptr) {
            names.insert(textOf(*target));
        }
    };
    switch (statement.kind()) {
    case NodeKind::ExpressionStatement:
    case NodeKind::CommandStatement:
        names.insert("ans");
        break;
    case NodeKind::Assignment:
        baseName(statement.child(slot::Assignment::target));
        break;
    case NodeKind::MultipleAssignment:
        for (auto const* target : statement.list(slot::MultipleAssignment::targets)) {
            if (target->kind() != NodeKind::Ignored) {
                baseName(target);
            }
        }
        break;
    case NodeKind::ForStatement:
        names.insert(textOf(*statement.child(slot::ForStatement::variable)));
        collectAssigned(statement.list(slot::ForStatement::body), names);
        break;
    case NodeKind::WhileStatement:
        collectAssigned(statement.list(slot::WhileStatement::body), names);
        break;
    case NodeKind::IfStatement:
        for (auto const* clause : statement.list(slot::IfStatement::clauses)) {
            collectAssigned(clauseBody(*clause), names);
        }
        break;
    case NodeKind::SwitchStatement:
        for (auto const* clause : statement.list(slot::SwitchStatement::clauses)) {
            collectAssigned(clauseBody(*clause), names);
        }
        break;
    case NodeKind::TryStatement:
        collectAssigned(statement.list(slot::TryStatement::body), names);
        if (auto const* handler = statement.child(slot::TryStatement::catchClause)) {
            if (auto const* variable = handler->child(slot::CatchClause::variable)) {
                names.insert(textOf(*variable));
            }
            collectAssigned(handler->list(slot::CatchClause::body), names);
        }
        break;
    default:
        break;
    }
}

void Compiler::collectAssigned(std::span<Node const* const> statements, std::set<std::string>& names) const {
    for (auto const* statement : statements) {
        collectAssignedIn(*statement, names);
    }
}

void Compiler::prepareScope(Scope& scope, Node const& definition) {
    auto& function = *scope.function;
    std::set<std::string> own;
    using Definition = slot::FunctionDefinition;  // methods too
    for (auto const* output : definition.list(Definition::outputs)) {
        auto const name = textOf(*output);
        if (own.contains(name)) {
            invalid(*output, fmt::format("The output '{}' is named twice.", name));
        }
        own.insert(name);
        function.outputSlots.push_back(scope.addSlot(name));
    }
    if (!function.outputSlots.empty() && function.slotNames[function.outputSlots.back()] == "varargout") {
        function.varargout = true;
    }
    auto const inputs = definition.list(Definition::inputs);
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        auto const* identifier = inputs[i]->child(slot::InputArgument::identifier);
        if (identifier == nullptr) {
            function.inputSlots.push_back(-1);
            continue;
        }
        auto const name = textOf(*identifier);
        if (name == "varargin" && i + 1 != inputs.size()) {
            invalid(*identifier, "varargin must be the last input.");
        }
        function.inputSlots.push_back(scope.addSlot(name));
        own.insert(name);
        function.varargin = name == "varargin";
    }
    if (function.varargout) {
        for (std::size_t i = 0; i + 1 < function.outputSlots.size(); ++i) {
            if (function.slotNames[function.outputSlots[i]] == "varargout") {
                invalid(definition, "varargout must be the last output.");
            }
        }
    }
    std::set<std::string> assigned;
    collectAssigned(definition.list(Definition::body), assigned);
    for (auto const& name : assigned) {
        if (own.contains(name)) {
            continue;
        }
        // A nested function shares the variables of the functions around it.
        if (scope.enclosing != nullptr && resolveVariable(*scope.enclosing, name, true)) {
            continue;
        }
        scope.addSlot(name);
    }
}

void Compiler::compileFunction(Function& function, Node const& definition, Scope* enclosing) {
    Scope scope;
    scope.function = &function;
    scope.enclosing = enclosing;
    prepareScope(scope, definition);
    using Definition = slot::FunctionDefinition;  // methods too
    auto const body = definition.list(Definition::body);
    for (auto const* statement : body) {
        if (statement->kind() == NodeKind::ArgumentsBlock) {
            fail(*statement, "An arguments block");
        }
    }
    auto* saved = std::exchange(current_, &function);
    auto const savedLoops = std::exchange(loopDepth_, 0);
    function.body = compileBlock(body, scope);
    loopDepth_ = savedLoops;
    current_ = saved;
    auto const nested = definition.list(Definition::nestedFunctions);
    for (std::size_t i = 0; i < nested.size(); ++i) {
        compileFunction(const_cast<Function&>(*function.nested[i]), *nested[i], &scope);
    }
}

std::optional<VariableRef> Compiler::resolveVariable(Scope& scope, std::string const& name, bool fromInner) {
    if (auto const found = scope.slots.find(name); found != scope.slots.end()) {
        if (fromInner) {
            auto& shared = scope.function->sharedSlots;
            auto const slot = static_cast<std::size_t>(found->second);
            if (shared.size() <= slot) {
                shared.resize(slot + 1, false);
            }
            shared[slot] = true;
        }
        return VariableRef{0, found->second};
    }
    if (scope.enclosing == nullptr) {
        return std::nullopt;
    }
    auto const outer = resolveVariable(*scope.enclosing, name, true);
    if (!outer) {
        return std::nullopt;
    }
    if (scope.anonymous) {
        // Anonymous functions copy the value when they are made.
        auto const own = scope.addSlot(name);
        scope.captures->push_back(Capture{outer->depth, outer->slot, own});
        return VariableRef{0, own};
    }
    return VariableRef{outer->depth + 1, outer->slot};
}

Function const* Compiler::findLocalFunction(Scope const& scope, std::string_view name) const {
    for (auto const* current = &scope; current != nullptr; current = current->enclosing) {
        if (current->anonymous) {
            continue;
        }
        for (auto const* nested : current->function->nested) {
            if (nested->shortName == name) {
                return nested;
            }
        }
        if (current->function->shortName == name && current->function->parent != nullptr) {
            return current->function;
        }
    }
    if (auto const found = file_.locals.find(name); found != file_.locals.end()) {
        return found->second;
    }
    return nullptr;
}

// ===================================================================== classes

Visibility visibilityOf(Node const& attribute, std::string const& file) {
    auto const* operand = AttributeQueries::getOperand(attribute);
    std::u16string_view text;
    if (operand != nullptr && (operand->kind() == NodeKind::Identifier ||
                               operand->kind() == NodeKind::CharacterString || operand->kind() == NodeKind::String)) {
        text = operand->identifier().getString();
    }
    if (text == u"public") {
        return Visibility::Public;
    }
    if (text == u"protected") {
        return Visibility::Protected;
    }
    if (text == u"private") {
        return Visibility::Private;
    }
    unsupported(file, at(attribute),
                fmt::format("The access value of attribute '{}' (only public, protected and private are)",
                            narrow(AttributeQueries::getName(attribute))));
}

bool flagOf(Node const& attribute, std::string const& file) {
    if (AttributeQueries::isAttributeWithGivenLogicalValue(attribute, true)) {
        return true;
    }
    if (AttributeQueries::isAttributeWithGivenLogicalValue(attribute, false)) {
        return false;
    }
    unsupported(file, at(attribute),
                fmt::format("A computed value of attribute '{}'", narrow(AttributeQueries::getName(attribute))));
}

void Compiler::compileClass(Node const& definition) {
    auto syntax = std::make_unique<ClassSyntax>();
    auto& cls = *syntax;
    cls.position = at(definition);
    using Class = slot::ClassDefinition;
    auto const* nameNode = definition.child(Class::name);
    auto const ownName = textOf(*nameNode);
    auto const expected = file_.qualifiedName.substr(file_.qualifiedName.rfind('.') + 1);
    if (!file_.qualifiedName.empty() && ownName != expected) {
        invalid(*nameNode, fmt::format("The class '{}' must be defined in a file named '{}.qx'.", ownName, ownName));
    }
    cls.name = file_.qualifiedName.empty() ? ownName : file_.qualifiedName;
    for (auto const* attribute : definition.list(Class::attributes)) {
        auto const name = AttributeQueries::getName(*attribute);
        if (name == u"Abstract") {
            cls.isAbstract = flagOf(*attribute, file_.displayName);
        } else if (name == u"Sealed") {
            cls.isSealed = flagOf(*attribute, file_.displayName);
        } else if (name != u"Hidden") {
            fail(*attribute, fmt::format("The class attribute '{}'", narrow(name)));
        }
    }
    for (auto const* super : definition.list(Class::superclasses)) {
        cls.superclasses.emplace_back(textOf(*super), at(*super));
    }

    // Methods are declared first so that their bodies can refer to each other.
    struct PendingMethod {
        Function* function;
        Node const* definition;
    };
    std::vector<PendingMethod> pending;
    std::set<std::string> memberNames;
    for (auto const* block : definition.list(Class::blocks)) {
        switch (block->kind()) {
        case NodeKind::PropertiesBlock: {
            bool constant = false;
            Visibility getAccess = Visibility::Public;
            Visibility setAccess = Visibility::Public;
            for (auto const* attribute : block->list(slot::PropertiesBlock::attributes)) {
                auto const name = AttributeQueries::getName(*attribute);
                if (name == u"Constant") {
                    constant = flagOf(*attribute, file_.displayName);
                } else if (name == u"Access") {
                    getAccess = setAccess = visibilityOf(*attribute, file_.displayName);
                } else if (name == u"GetAccess") {
                    getAccess = visibilityOf(*attribute, file_.displayName);
                } else if (name == u"SetAccess") {
                    setAccess = visibilityOf(*attribute, file_.displayName);
                } else if (name != u"Hidden") {
                    fail(*attribute, fmt::format("The property attribute '{}'", narrow(name)));
                }
            }
            for (auto const* property : block->list(slot::PropertiesBlock::properties)) {
                if (property->child(slot::Property::size) != nullptr ||
                    property->child(slot::Property::className) != nullptr ||
                    !property->list(slot::Property::validators).empty()) {
                    fail(*property, "A property size, class or validator declaration");
                }
                PropertySyntax syntax;
                syntax.name = textOf(*property->child(slot::Property::name));
                syntax.position = at(*property);
                syntax.constant = constant;
                syntax.getAccess = getAccess;
                syntax.setAccess = setAccess;
                if (!memberNames.insert(syntax.name).second) {
                    invalid(*property, fmt::format("The class already has a member named '{}'.", syntax.name));
                }
                if (auto const* value = property->child(slot::Property::defaultValue)) {
                    // Defaults are evaluated once, when the class is defined, in a frame of their own.
                    auto& holder = file_.functions.emplace_back();
                    holder.file = &file_;
                    holder.name = cls.name + "." + syntax.name;
                    holder.position = syntax.position;
                    holder.owner = &cls;
                    Scope none;
                    none.function = &holder;
                    syntax.defaultValue = compileExpr(*value, none);
                    syntax.frame = &holder;
                } else if (constant) {
                    invalid(*property, fmt::format("The constant property '{}' needs a value.", syntax.name));
                }
                cls.properties.push_back(std::move(syntax));
            }
            break;
        }
        case NodeKind::MethodsBlock: {
            bool isStatic = false;
            bool isAbstract = false;
            bool isSealed = false;
            Visibility access = Visibility::Public;
            for (auto const* attribute : block->list(slot::MethodsBlock::attributes)) {
                auto const name = AttributeQueries::getName(*attribute);
                if (name == u"Static") {
                    isStatic = flagOf(*attribute, file_.displayName);
                } else if (name == u"Abstract") {
                    isAbstract = flagOf(*attribute, file_.displayName);
                } else if (name == u"Sealed") {
                    isSealed = flagOf(*attribute, file_.displayName);
                } else if (name == u"Access") {
                    access = visibilityOf(*attribute, file_.displayName);
                } else if (name != u"Hidden") {
                    fail(*attribute, fmt::format("The method attribute '{}'", narrow(name)));
                }
            }
            for (auto const* member : block->list(slot::MethodsBlock::members)) {
                Function* function = nullptr;
                if (member->kind() == NodeKind::MethodSignature) {
                    if (!isAbstract) {
                        fail(*member, "A method declared without a body outside an Abstract methods block");
                    }
                    function = &file_.functions.emplace_back();
                    function->file = &file_;
                    function->position = at(*member);
                    function->shortName = textOf(*member->child(slot::MethodSignature::name));
                    function->name = cls.name + "." + function->shortName;
                    function->owner = &cls;
                    function->isAbstract = true;
                } else {
                    if (isAbstract) {
                        fail(*member, "A method with a body in an Abstract methods block");
                    }
                    function = &declareFunction(*member, nullptr, &cls);
                    pending.push_back({function, member});
                }
                function->isStatic = isStatic;
                function->isSealed = isSealed;
                function->access = access;
                function->isConstructor = function->shortName == ownName;
                if (function->isConstructor && (isStatic || isAbstract)) {
                    invalid(*member, "A constructor cannot be Static or Abstract.");
                }
                if (!memberNames.insert(function->shortName).second) {
                    invalid(*member, fmt::format("The class already has a member named '{}'.", function->shortName));
                }
                cls.methods.push_back(function);
            }
            break;
        }
        case NodeKind::EventsBlock:
            fail(*block, "An events block");
        case NodeKind::EnumerationBlock:
            fail(*block, "An enumeration block");
        default:
            fail(*block, "This class block");
        }
    }
    file_.classSyntax = std::move(syntax);
    for (auto const& [function, member] : pending) {
        if (function->isConstructor && (member->list(slot::MethodDefinition::outputs).size() != 1)) {
            invalid(*member, "A constructor returns exactly one output: the object.");
        }
        compileFunction(*function, *member, nullptr);
    }
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
    case NodeKind::PersistentStatement:
        fail(node, "A persistent declaration");
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

// ===================================================================== files

void Compiler::compileRoot(Node const& root, bool allowScript) {
    auto const items = root.list(slot::File::items);
    std::vector<Node const*> statements;
    std::vector<Node const*> functions;
    Node const* classDefinition = nullptr;
    for (auto const* item : items) {
        if (item->kind() == NodeKind::ClassDefinition) {
            classDefinition = item;
        } else if (item->kind() == NodeKind::FunctionDefinition) {
            functions.push_back(item);
        } else if (item->kind() != NodeKind::EmptyStatement) {
            if (!functions.empty() || classDefinition != nullptr) {
                fail(*item, "A statement after the functions of a file");
            }
            statements.push_back(item);
        }
    }
    bool const isScript = classDefinition == nullptr && (!statements.empty() || functions.empty());
    if (isScript && !allowScript) {
        Position where = items.empty() ? Position{1, 1} : at(*items.front());
        unsupported(file_.displayName, where, "A script file on the search path (only function and class files are)");
    }
    file_.isScript = isScript;
    std::vector<Function*> fileFunctions;
    for (auto const* definition : functions) {
        auto& function = declareFunction(*definition, nullptr, nullptr);
        if (!file_.locals.emplace(function.shortName, &function).second) {
            invalid(*definition, fmt::format("The function '{}' is defined twice in this file.", function.shortName));
        }
        fileFunctions.push_back(&function);
    }
    if (!isScript && classDefinition == nullptr && !fileFunctions.empty()) {
        // The file's main function is known by the file's name.
        auto& main = *fileFunctions.front();
        if (!file_.qualifiedName.empty()) {
            main.name = file_.qualifiedName;
        }
        file_.main = &main;
    }
    if (classDefinition != nullptr) {
        compileClass(*classDefinition);
    }
    for (std::size_t i = 0; i < functions.size(); ++i) {
        compileFunction(*fileFunctions[i], *functions[i], nullptr);
    }
    if (isScript) {
        auto& script = file_.functions.emplace_back();
        script.file = &file_;
        script.name = file_.displayName;
        script.shortName = file_.displayName;
        script.position = Position{1, 1};
        Scope scope;
        scope.function = &script;
        std::set<std::string> assigned;
        collectAssigned(statements, assigned);
        for (auto const& name : assigned) {
            scope.addSlot(name);
        }
        current_ = &script;
        script.body = compileBlock(statements, scope);
        current_ = nullptr;
        file_.main = &script;
    }
}

}  // namespace

std::shared_ptr<CompiledFile const> compileFile(std::shared_ptr<ca::AnalysisResult const> tree,
                                                std::filesystem::path path, std::string displayName,
                                                std::string qualifiedName, bool allowScript) {
    auto file = std::make_shared<CompiledFile>();
    file->path = std::move(path);
    file->displayName = std::move(displayName);
    file->qualifiedName = std::move(qualifiedName);
    file->tree = std::move(tree);
    if (file->tree->hasErrors()) {
        auto const& first = file->tree->getErrors().front();
        qcos::HostError error("qlang:syntax", first.message);
        error.addFrame({file->displayName, "", first.line, first.column});
        throw error;
    }
    Compiler compiler(*file);
    compiler.compileRoot(file->tree->getRootNode(), allowScript);
    return file;
}

}  // namespace qlang::detail

// Compiles files, functions and classes; the statements and expressions of their bodies are compiled in
// CompilerBodies.cpp.

#include "platform/host/lang/detail/Compiling.hpp"
#include "platform/host/lang/detail/Values.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>

namespace qlang::detail {

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

namespace compiling {

namespace {

using AttributeQueries = lf::astapi::NodeCustomization<lf::astapi::Attribute<ca::astapi::CA>>;

}  // namespace

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
    case NodeKind::PersistentStatement:
        for (auto const* name : statement.list(slot::PersistentStatement::names)) {
            names.insert(textOf(*name));
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

}  // namespace compiling

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
    compiling::Compiler compiler(*file);
    compiler.compileRoot(file->tree->getRootNode(), allowScript);
    return file;
}

}  // namespace qlang::detail

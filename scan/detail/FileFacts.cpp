#include "scan/detail/FileFacts.hpp"

#include "scan/detail/NameTable.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace depattr::scan::detail {

using ca::astapi::Node;
using ca::astapi::NodeKind;

namespace {

constexpr std::array<std::u16string_view, 16> fileReaders = {
    u"fileread",   u"load",    u"fopen",   u"readtable",  u"readmatrix", u"readcell",  u"readlines", u"readvars",
    u"readstruct", u"csvread", u"dlmread", u"importdata", u"imread",     u"audioread", u"xmlread",   u"textread",
};

// Built-ins that make variables the code does not show.
bool makesHiddenVariables(std::u16string_view name) noexcept {
    return name == u"eval" || name == u"evalin" || name == u"evalc" || name == u"assignin" || name == u"load" ||
           name == u"importdata" || name == u"uiimport";
}

bool isText(Node const* node) noexcept {
    return node != nullptr && (node->kind() == NodeKind::CharacterString || node->kind() == NodeKind::String);
}

std::u16string_view textOf(Node const* node) noexcept {
    return node == nullptr ? std::u16string_view{} : node->identifier().getString();
}

Position at(Node const& node) noexcept {
    return {node.line(), node.column()};
}

// The name an assignment target stores into: `x` of `x`, `x(2).f{3}`.
Node const* targetBase(Node const* target) noexcept {
    while (target != nullptr) {
        switch (target->kind()) {
        case NodeKind::Identifier:
            return target;
        case NodeKind::ParenIndex:
        case NodeKind::BraceIndex:
        case NodeKind::FieldAccess:
        case NodeKind::DynamicField:
            target = target->child(0);
            break;
        default:
            return nullptr;
        }
    }
    return nullptr;
}

using Names = NameTable;

// Whether the node calls a built-in that makes variables the code cannot show (eval, load, ...).
bool makesHiddenVariablesHere(Node const& node) noexcept {
    switch (node.kind()) {
    case NodeKind::CommandStatement:
        return node.child(0) != nullptr && makesHiddenVariables(node.child(0)->identifier().getString());
    case NodeKind::ExpressionStatement: {
        Node const* e = node.child(0);
        if (e != nullptr && e->kind() == NodeKind::ParenIndex) {
            e = e->child(0);
        }
        return e != nullptr && e->kind() == NodeKind::Identifier && makesHiddenVariables(e->identifier().getString());
    }
    case NodeKind::ParenIndex: {
        if (node.child(0) == nullptr || node.child(0)->kind() != NodeKind::Identifier) {
            return false;
        }
        auto const n = node.child(0)->identifier().getString();
        return n == u"eval" || n == u"evalin" || n == u"evalc" || n == u"assignin";
    }
    default:
        return false;
    }
}

// Whether any node of the sub-tree makes hidden variables.
bool anyHidden(Node const& node) noexcept {
    if (makesHiddenVariablesHere(node)) {
        return true;
    }
    for (auto const* c : node.children()) {
        if (anyHidden(*c)) {
            return true;
        }
    }
    return false;
}

// Every name a function (with the functions nested in it) assigns or declares, and whether any of its nodes calls
// a built-in that makes variables it cannot show: one walk of the tree for both.
void collectVariables(Node const& node, Names& vars, bool& hidden) {
    auto addName = [&](Node const* n) {
        if (n != nullptr && n->kind() == NodeKind::Identifier) {
            vars.insert(n->identifier().getString());
        }
    };
    // The parts of the tree the variables skip still count for hidden variables.
    auto skipped = [&](Node const* n) {
        if (!hidden && n != nullptr && n->kind() != NodeKind::Identifier) {
            hidden = anyHidden(*n);
        }
    };
    if (!hidden) {
        hidden = makesHiddenVariablesHere(node);
    }
    switch (node.kind()) {
    case NodeKind::FunctionDefinition:
    case NodeKind::MethodDefinition:
        for (auto const* out : node.list(5, 6)) {
            addName(out);
        }
        for (auto const* in : node.list(8, 9)) {
            addName(in->child(0));
        }
        for (auto const* s : node.list(11, 12)) {
            collectVariables(*s, vars, hidden);
        }
        for (auto const* s : node.list(13, 14)) {
            collectVariables(*s, vars, hidden);
        }
        return;
    case NodeKind::Assignment:
        addName(targetBase(node.child(0)));
        skipped(node.child(0));
        if (node.child(1) != nullptr) {
            collectVariables(*node.child(1), vars, hidden);
        }
        return;
    case NodeKind::MultipleAssignment:
        for (auto const* t : node.list(0, 1)) {
            addName(targetBase(t));
            skipped(t);
        }
        if (node.child(2) != nullptr) {
            collectVariables(*node.child(2), vars, hidden);
        }
        return;
    case NodeKind::ForStatement:
    case NodeKind::ParforStatement:
        addName(node.child(0));
        break;
    case NodeKind::GlobalStatement:
    case NodeKind::PersistentStatement:
        for (auto const* n : node.list(0, 1)) {
            addName(n);
            skipped(n);
        }
        return;
    case NodeKind::CatchClause:
        addName(node.child(0));
        break;
    case NodeKind::AnonymousFunction:
        for (auto const* p : node.list(0, 1)) {
            addName(p->child(0));
        }
        break;
    case NodeKind::ParenIndex:
        // Name=value arguments name no variable.
        if (node.child(0) != nullptr) {
            collectVariables(*node.child(0), vars, hidden);
        }
        for (auto const* a : node.list(1, 2)) {
            if (a->kind() == NodeKind::Assignment && a->child(1) != nullptr) {
                skipped(a->child(0));
                collectVariables(*a->child(1), vars, hidden);
            } else {
                collectVariables(*a, vars, hidden);
            }
        }
        return;
    default:
        break;
    }
    for (auto const* c : node.children()) {
        collectVariables(*c, vars, hidden);
    }
}

class Extractor {
public:
    explicit Extractor(FileFacts& facts) : facts_(facts) {}

    void run(Node const& root) {
        std::vector<Node const*> script;
        for (auto const* item : root.list(0, 1)) {
            switch (item->kind()) {
            case NodeKind::FunctionDefinition:
                function(*item, false, false);
                break;
            case NodeKind::ClassDefinition:
                classDefinition(*item);
                break;
            case NodeKind::EmptyStatement:
                break;
            default:
                script.push_back(item);
                break;
            }
        }
        auto const items = root.list(0, 1);
        auto const firstDefinition = std::find_if(
            items.begin(), items.end(), [](Node const* item) { return item->kind() != NodeKind::EmptyStatement; });
        facts_.isScript = !script.empty() && firstDefinition != items.end() &&
                          (*firstDefinition)->kind() != NodeKind::FunctionDefinition &&
                          (*firstDefinition)->kind() != NodeKind::ClassDefinition;
        if (facts_.isScript) {
            Names vars;
            vars.insert(u"ans");
            hidden_ = false;
            for (auto const* s : script) {
                collectVariables(*s, vars, hidden_);
            }
            vars_ = &vars;
            // A script runs in its caller's workspace: a name it does not define may be the caller's variable.
            reportable_ = false;
            for (auto const* s : script) {
                walk(*s);
            }
            vars_ = nullptr;
        }
    }

private:
    void define(Node const& fn, bool method, bool isStatic) {
        auto const* name = fn.child(7);
        if (name != nullptr) {
            facts_.functions.push_back({std::u16string(name->identifier().getString()), at(*name), method, isStatic});
        }
    }
    void defineNested(Node const& fn) {
        for (auto const* nested : fn.list(13, 14)) {
            define(*nested, false, false);
            defineNested(*nested);
        }
    }

    // One top-level function or method with the functions nested in it: one set of variables.
    void function(Node const& fn, bool method, bool isStatic) {
        define(fn, method, isStatic);
        defineNested(fn);
        Names vars;
        vars.insert(u"ans");
        hidden_ = false;
        collectVariables(fn, vars, hidden_);
        vars_ = &vars;
        reportable_ = !hidden_;
        walkFunction(fn);
        vars_ = nullptr;
    }

    void walkFunction(Node const& fn) {
        for (auto const* s : fn.list(11, 12)) {
            walk(*s);
        }
        for (auto const* nested : fn.list(13, 14)) {
            walkFunction(*nested);
        }
    }

    void classDefinition(Node const& cls) {
        facts_.isClass = true;
        if (auto const* name = cls.child(8)) {
            facts_.className = std::u16string(name->identifier().getString());
            facts_.classAt = at(*name);
        }
        for (auto const* super : cls.list(9, 10)) {
            facts_.superclasses.push_back(
                {std::u16string(super->identifier().getString()), at(*super), UseKind::Call, true});
        }
        Names none;
        none.insert(u"ans");
        for (auto const* block : cls.list(11, 12)) {
            switch (block->kind()) {
            case NodeKind::MethodsBlock:
                for (auto const* member : block->list(2, 3)) {
                    bool isStatic = false;
                    for (auto const* attribute : block->list(0, 1)) {
                        if (attribute->child(0) != nullptr &&
                            attribute->child(0)->identifier().getString() == u"Static" &&
                            attribute->child(1) == nullptr && attribute->logicalValue()) {
                            isStatic = true;
                            break;
                        }
                    }
                    if (member->kind() == NodeKind::MethodDefinition) {
                        function(*member, true, isStatic);
                    } else if (member->kind() == NodeKind::MethodSignature && member->child(2) != nullptr) {
                        facts_.functions.push_back({std::u16string(member->child(2)->identifier().getString()),
                                                    at(*member->child(2)), true, isStatic});
                    }
                }
                break;
            case NodeKind::PropertiesBlock:
                vars_ = &none;
                reportable_ = true;
                for (auto const* property : block->list(2, 3)) {
                    for (auto const* v : property->list(3, 4)) {
                        walk(*v);
                    }
                    if (property->child(5) != nullptr) {
                        walk(*property->child(5));
                    }
                }
                vars_ = nullptr;
                break;
            case NodeKind::EnumerationBlock:
                vars_ = &none;
                reportable_ = true;
                for (auto const* member : block->list(2, 3)) {
                    for (auto const* a : member->list(1, 2)) {
                        walk(*a);
                    }
                }
                vars_ = nullptr;
                break;
            default:
                break;
            }
        }
    }

    bool isVariable(std::u16string_view name) const { return vars_->contains(name); }

    void use(std::u16string name, Node const& node, UseKind kind) {
        if (name == u"import") {
            return;  // a declaration of the language, not a function
        }
        bool const reportable = reportable_ || kind == UseKind::Handle || kind == UseKind::Literal ||
                                (kind == UseKind::Command && !hidden_);
        facts_.uses.push_back({std::move(name), at(node), kind, reportable});
    }

    // A call of a name with literal arguments: feval and str2func name functions, file readers name files,
    // import names packages.
    void literalArguments(std::u16string_view callee, std::span<Node const* const> args) {
        if (args.empty()) {
            return;
        }
        Node const* first = args.front();
        if ((callee == u"feval" || callee == u"str2func") && isText(first) && !textOf(first).empty()) {
            auto text = textOf(first);
            if (callee == u"str2func" && text.starts_with(u"@")) {
                return;  // an anonymous function's text
            }
            use(std::u16string(text), *first, UseKind::Literal);
        } else if (isFileReader(callee) && isText(first) && !textOf(first).empty()) {
            facts_.references.push_back({std::u16string(textOf(first)), at(*first)});
        } else if (callee == u"import") {
            for (auto const* a : args) {
                if (isText(a)) {
                    facts_.imports.emplace_back(textOf(a));
                }
            }
        }
    }

    // a.b.c: a variable's fields, or a package function, class, static method or a function's result.
    void dotted(Node const& node) {
        auto& fields = fields_;  // no walk below runs while the fields are still needed
        fields.clear();
        Node const* base = &node;
        while (base->kind() == NodeKind::FieldAccess) {
            auto const* field = base->child(1);
            if (field == nullptr || field->kind() != NodeKind::Identifier || base->child(0) == nullptr) {
                fields.clear();
                break;
            }
            fields.push_back(field->identifier().getString());
            base = base->child(0);
        }
        if (fields.empty()) {
            if (base->child(0) != nullptr) {
                walk(*base->child(0));
            }
            return;
        }
        if (base->kind() != NodeKind::Identifier) {
            walk(*base);  // s(1).f, f(x).g, s.(n).g: the structure part holds the names
            return;
        }
        auto const first = base->identifier().getString();
        if (isVariable(first)) {
            return;  // obj.m(...), s.f: through an object, not resolved
        }
        std::u16string name(first);
        for (auto it = fields.rbegin(); it != fields.rend(); ++it) {
            name += u'.';
            name += *it;
        }
        use(std::move(name), *base, UseKind::Call);
    }

    void walkTarget(Node const& target) {
        switch (target.kind()) {
        case NodeKind::Identifier:
            return;
        case NodeKind::ParenIndex:
        case NodeKind::BraceIndex:
            if (target.child(0) != nullptr) {
                walkTarget(*target.child(0));
            }
            for (auto const* a : target.list(1, 2)) {
                walk(*a);
            }
            return;
        case NodeKind::FieldAccess:
            if (target.child(0) != nullptr) {
                walkTarget(*target.child(0));
            }
            return;
        case NodeKind::DynamicField:
            if (target.child(0) != nullptr) {
                walkTarget(*target.child(0));
            }
            if (target.child(1) != nullptr) {
                walk(*target.child(1));
            }
            return;
        default:
            walk(target);
            return;
        }
    }

    void walk(Node const& node) {
        switch (node.kind()) {
        case NodeKind::Identifier: {
            auto const name = node.identifier().getString();
            if (!isVariable(name)) {
                use(std::u16string(name), node, UseKind::Call);
            }
            return;
        }
        case NodeKind::ParenIndex: {
            Node const* callee = node.child(0);
            auto const args = node.list(1, 2);
            if (callee != nullptr && callee->kind() == NodeKind::Identifier) {
                auto const name = callee->identifier().getString();
                if (!isVariable(name)) {
                    use(std::u16string(name), *callee, UseKind::Call);
                    literalArguments(name, args);
                }
            } else if (callee != nullptr && callee->kind() == NodeKind::FieldAccess) {
                dotted(*callee);
            } else if (callee != nullptr) {
                walk(*callee);
            }
            for (auto const* a : args) {
                if (a->kind() == NodeKind::Assignment) {
                    if (a->child(1) != nullptr) {
                        walk(*a->child(1));  // Name=value
                    }
                } else {
                    walk(*a);
                }
            }
            return;
        }
        case NodeKind::FieldAccess:
            dotted(node);
            return;
        case NodeKind::FunctionHandle:
            if (auto const* name = node.child(0)) {
                use(std::u16string(name->identifier().getString()), *name, UseKind::Handle);
            }
            return;
        case NodeKind::MetaclassQuery:
            use(std::u16string(node.identifier().getString()), node, UseKind::Metaclass);
            return;
        case NodeKind::CommandStatement: {
            auto const* command = node.child(0);
            if (command == nullptr) {
                return;
            }
            auto const name = command->identifier().getString();
            auto const args = node.list(1, 2);
            if (isVariable(name)) {
                return;
            }
            use(std::u16string(name), *command, UseKind::Command);
            if (name == u"import") {
                for (auto const* a : args) {
                    facts_.imports.emplace_back(textOf(a));
                }
            } else if ((isFileReader(name) || name == u"feval") && !args.empty() && !textOf(args.front()).empty() &&
                       !textOf(args.front()).starts_with(u"-")) {
                literalArguments(name == u"feval" ? u"feval" : name, std::span<Node const* const>(args.data(), 1));
            }
            return;
        }
        case NodeKind::Assignment:
            if (node.child(0) != nullptr) {
                walkTarget(*node.child(0));
            }
            if (node.child(1) != nullptr) {
                walk(*node.child(1));
            }
            return;
        case NodeKind::MultipleAssignment:
            for (auto const* t : node.list(0, 1)) {
                walkTarget(*t);
            }
            if (node.child(2) != nullptr) {
                walk(*node.child(2));
            }
            return;
        case NodeKind::ForStatement:
        case NodeKind::ParforStatement:
        case NodeKind::CatchClause:
            for (auto const* c : node.children()) {
                if (c != node.child(0)) {
                    walk(*c);
                }
            }
            return;
        case NodeKind::GlobalStatement:
        case NodeKind::PersistentStatement:
        case NodeKind::Attribute:
        case NodeKind::ShellEscape:
        case NodeKind::DottedName:
        case NodeKind::FunctionDefinition:  // nested functions are walked with their parent
            return;
        case NodeKind::SuperclassCall:
            for (auto const* a : node.list(2, 3)) {
                walk(*a);
            }
            return;
        case NodeKind::ArgumentsBlock:
            for (auto const* declaration : node.list(2, 3)) {
                for (auto const* v : declaration->list(3, 4)) {
                    walk(*v);
                }
                if (declaration->child(5) != nullptr) {
                    walk(*declaration->child(5));
                }
            }
            return;
        default:
            for (auto const* c : node.children()) {
                walk(*c);
            }
            return;
        }
    }

    FileFacts& facts_;
    Names const* vars_ = nullptr;
    std::vector<std::u16string_view> fields_;
    bool reportable_ = true;
    bool hidden_ = false;
};

}  // namespace

bool isFileReader(std::u16string_view name) noexcept {
    // Most callees are none of them: the first letter rules out nearly all quickly.
    if (name.size() < 4) {
        return false;
    }
    switch (name.front()) {
    case u'a':
    case u'c':
    case u'd':
    case u'f':
    case u'i':
    case u'l':
    case u'r':
    case u't':
    case u'x':
        break;
    default:
        return false;
    }
    return std::find(fileReaders.begin(), fileReaders.end(), name) != fileReaders.end();
}

FileFacts extractFacts(Node const& root) {
    FileFacts facts;
    facts.uses.reserve(64);
    Extractor(facts).run(root);
    return facts;
}

}  // namespace depattr::scan::detail

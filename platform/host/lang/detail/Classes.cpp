// Classes of class files: the class-object system's script classes whose
// methods run compiled code.

#include "platform/host/lang/detail/Interpreter.hpp"
#include "platform/host/lang/detail/Runtime.hpp"

namespace qlang::detail {

namespace {

[[noreturn]] void classError(CompiledFile const& file, Position position, std::string identifier,
                             std::string const& message) {
    qcos::HostError error(std::move(identifier), message);
    error.addFrame({file.displayName, "", position.line, position.column});
    throw error;
}

qcos::Access accessOf(Visibility visibility) {
    return visibility == Visibility::Public ? qcos::Access::Public : qcos::Access::Private;
}

constexpr std::string_view analyzerBase = "dependencies.internal.attribute.AttributeAnalyzer";

// Whether analyze(obj, node, graph) can be called with three inputs and give
// one output.
bool fitsAnalyzeCall(Function const& method) {
    auto const inputs = method.inputSlots.size();
    bool const takesThree = method.varargin ? inputs - 1 <= 3 : inputs == 3;
    bool const givesOne = !method.outputSlots.empty();
    return !method.isStatic && takesThree && givesOne;
}

}  // namespace

// An analyzer class is checked when it is defined rather than when its first
// node is analysed: it must have an analyze method of its own or from a class
// file it derives from (the bound base class has none that could run on it),
// and that method must take (obj, node, graph) and return the findings. An
// abstract class may leave analyze to its subclasses.
void CodeRuntime::checkAnalyzerClass(ClassRecord const& record) const {
    auto const& syntax = *record.syntax;
    bool derives = false;
    for (auto const& super : record.superclasses) {
        derives = derives || super == analyzerBase || qcos::omIsA(super, analyzerBase);
    }
    if (!derives) {
        return;
    }
    Function const* analyze = nullptr;
    if (auto const own = record.methods.find("analyze"); own != record.methods.end()) {
        analyze = own->second;
    }
    std::vector<std::string> pending(record.superclasses.rbegin(), record.superclasses.rend());
    while (analyze == nullptr && !pending.empty()) {
        auto const name = std::move(pending.back());
        pending.pop_back();
        auto const found = classes_.find(name);
        if (found == classes_.end()) {
            continue;
        }
        if (auto const inherited = found->second->methods.find("analyze"); inherited != found->second->methods.end()) {
            analyze = inherited->second;
        }
        pending.insert(pending.end(), found->second->superclasses.rbegin(), found->second->superclasses.rend());
    }
    if (analyze == nullptr) {
        if (!syntax.isAbstract) {
            classError(*record.file, syntax.position, "qlang:class:analyzeMethod",
                       fmt::format("The analyzer class '{}' derives from AttributeAnalyzer but has no method "
                                   "'analyze(obj, node, graph)'.",
                                   syntax.name));
        }
        return;
    }
    if (!fitsAnalyzeCall(*analyze)) {
        auto const inputs = analyze->inputSlots.size() - (analyze->varargin ? 1 : 0);
        classError(*analyze->file, analyze->position, "qlang:class:analyzeMethod",
                   fmt::format("The method 'analyze' of the analyzer class '{}' must be an ordinary method taking "
                               "(obj, node, graph) and returning the findings; it {}takes {} input{} and returns "
                               "{} output{}.",
                               syntax.name, analyze->isStatic ? "is static, " : "", inputs, inputs == 1 ? "" : "s",
                               analyze->outputSlots.size(), analyze->outputSlots.size() == 1 ? "" : "s"));
    }
}

ClassRecord const* CodeRuntime::defineClass(std::shared_ptr<CompiledFile const> const& file) {
    std::lock_guard lock(mutex_);
    auto const& syntax = *file->classSyntax;
    if (auto const found = classes_.find(syntax.name); found != classes_.end()) {
        if (!found->second->defined) {
            classError(*file, syntax.position, "qlang:class:cyclic",
                       fmt::format("The class '{}' inherits from itself.", syntax.name));
        }
        return found->second.get();
    }
    if (qcos::omFindClass(syntax.name)) {
        classError(*file, syntax.position, "qcos:namespace:duplicateClass",
                   fmt::format("Class '{}' is already registered.", syntax.name));
    }
    auto owned = std::make_unique<ClassRecord>();
    auto* record = owned.get();
    record->name = syntax.name;
    record->file = file;
    record->syntax = &syntax;
    classes_.emplace(syntax.name, std::move(owned));
    try {
        for (auto const& [super, position] : syntax.superclasses) {
            if (super == syntax.name) {
                classError(*file, position, "qlang:class:cyclic",
                           fmt::format("The class '{}' inherits from itself.", syntax.name));
            }
            ClassRecord const* superRecord = nullptr;
            try {
                superRecord = classRecord(super);
            } catch (qcos::HostError& error) {
                if (error.identifier() == "qlang:class:cyclic") {
                    classError(*file, position, "qlang:class:cyclic",
                               fmt::format("The class '{}' inherits from itself.", syntax.name));
                }
                throw;
            }
            if (superRecord != nullptr && !superRecord->defined) {
                // The superclass is being defined further up: the classes inherit from each other.
                classError(*file, position, "qlang:class:cyclic",
                           fmt::format("The class '{}' inherits from itself.", syntax.name));
            }
            if (superRecord == nullptr && !qcos::omFindClass(super)) {
                classError(*file, position, "qlang:class:undefinedSuperclass",
                           fmt::format("The superclass '{}' of '{}' is not defined.", super, syntax.name));
            }
            if (superRecord != nullptr && superRecord->syntax->isSealed) {
                classError(*file, position, "qlang:class:sealed",
                           fmt::format("The class '{}' cannot derive from the sealed class '{}'.", syntax.name, super));
            }
            record->superclasses.push_back(super);
            record->isHandle = record->isHandle || isHandleClass(super);
        }
        // Sealed methods of superclasses cannot be defined again.
        for (auto const* method : syntax.methods) {
            if (method->isConstructor) {
                continue;
            }
            std::vector<std::string> pending(record->superclasses.begin(), record->superclasses.end());
            while (!pending.empty()) {
                auto const name = std::move(pending.back());
                pending.pop_back();
                auto const found = classes_.find(name);
                if (found == classes_.end()) {
                    continue;
                }
                auto const inherited = found->second->methods.find(method->shortName);
                if (inherited != found->second->methods.end() && inherited->second->isSealed) {
                    classError(*file, method->position, "qlang:method:sealed",
                               fmt::format("The method '{}' is sealed in '{}' and cannot be defined again in '{}'.",
                                           method->shortName, name, syntax.name));
                }
                pending.insert(pending.end(), found->second->superclasses.begin(), found->second->superclasses.end());
            }
        }
        for (auto const& property : syntax.properties) {
            record->properties.emplace(property.name, &property);
        }
        for (auto const* method : syntax.methods) {
            if (method->isConstructor) {
                record->constructor = method;
            } else {
                record->methods.emplace(method->shortName, method);
            }
        }
        checkAnalyzerClass(*record);

        // Defaults are evaluated once, in order; constants may use the ones before them.
        std::vector<std::pair<PropertySyntax const*, Value>> defaults;
        for (auto const& property : syntax.properties) {
            Value value = makeEmpty();
            if (property.defaultValue != nullptr) {
                value = evaluateExpression(*property.frame, *property.defaultValue);
            }
            if (property.constant) {
                record->constants.emplace(property.name, value);
            }
            defaults.emplace_back(&property, std::move(value));
        }

        qcos::ScriptClassBuilder builder(syntax.name);
        for (auto const& super : record->superclasses) {
            builder.superclass(super);
        }
        for (auto const& [property, value] : defaults) {
            if (property->constant) {
                builder.constantProperty(property->name, qxArray::unshare(value));
            } else {
                builder.property(property->name, qxArray::unshare(value));
            }
        }
        for (auto const& [name, function] : record->methods) {
            auto implementation = [function = function](std::span<qxArray const* const> inputs, int nargout) {
                return arraysOf(callFunction(*function, nullptr, valuesOf(inputs), nargout));
            };
            if (function->isStatic) {
                builder.staticMethod(name, std::move(implementation));
            } else {
                builder.method(name, std::move(implementation), accessOf(function->access));
            }
        }
        auto const shortName = syntax.name.substr(syntax.name.rfind('.') + 1);
        builder.staticMethod(shortName, [record](std::span<qxArray const* const> inputs, int nargout) {
            return arraysOf(constructObject(*record, valuesOf(inputs), nargout));
        });
        builder.define();
        record->defined = true;
    } catch (...) {
        classes_.erase(syntax.name);
        throw;
    }
    return record;
}

}  // namespace qlang::detail

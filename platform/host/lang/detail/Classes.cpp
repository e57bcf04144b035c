// Classes: class files become the class-object system's script classes whose methods run compiled code; members
// are found in classes and their superclasses; objects are constructed; methods, properties and superclass members
// are reached from the evaluator; and caught errors become error objects.

#include "platform/host/detail/Runtime.hpp"
#include "platform/host/lang/detail/Evaluation.hpp"
#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Operations.hpp"
#include "platform/host/lang/detail/Runtime.hpp"

#include <algorithm>
#include <mutex>
#include <unordered_map>

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

// Whether the method can be called with `inputs` inputs and give one output.
bool fitsCall(Function const& method, std::size_t inputs) {
    auto const declared = method.inputSlots.size();
    bool const takes = method.varargin ? declared - 1 <= inputs : declared == inputs;
    bool const givesOne = !method.outputSlots.empty();
    return !method.isStatic && takes && givesOne;
}

}  // namespace

// A class deriving from a base with a required method is checked when it is
// defined rather than when the method is first called: it must have the
// method, its own or from a class file it derives from (a bound base class has
// none that could run on it), callable as required. An abstract class may
// leave the method to its subclasses.
void CodeRuntime::checkRequiredMethods(ClassRecord const& record) const {
    auto const& syntax = *record.syntax;
    for (auto const& rule : qcos::omRequiredMethods()) {
        bool derives = false;
        for (auto const& super : record.superclasses) {
            derives = derives || super == rule.baseClass || qcos::omIsA(super, rule.baseClass);
        }
        if (!derives) {
            continue;
        }
        Function const* method = nullptr;
        if (auto const own = record.methods.find(rule.method); own != record.methods.end()) {
            method = own->second;
        }
        std::vector<std::string> pending(record.superclasses.rbegin(), record.superclasses.rend());
        while (method == nullptr && !pending.empty()) {
            auto const name = std::move(pending.back());
            pending.pop_back();
            auto const found = classes_.find(name);
            if (found == classes_.end()) {
                continue;
            }
            if (auto const inherited = found->second->methods.find(rule.method);
                inherited != found->second->methods.end()) {
                method = inherited->second;
            }
            pending.insert(pending.end(), found->second->superclasses.rbegin(), found->second->superclasses.rend());
        }
        auto const identifier = "qlang:class:" + rule.method + "Method";
        auto const base = rule.baseClass.substr(rule.baseClass.rfind('.') + 1);
        std::string inputs;
        for (auto const& input : rule.inputs) {
            inputs += (inputs.empty() ? "" : ", ") + input;
        }
        if (method == nullptr) {
            if (!syntax.isAbstract) {
                classError(*record.file, syntax.position, identifier,
                           fmt::format("The class '{}' derives from {} but has no method '{}({})'.", syntax.name, base,
                                       rule.method, inputs));
            }
            continue;
        }
        if (!fitsCall(*method, rule.inputs.size())) {
            auto const taken = method->inputSlots.size() - (method->varargin ? 1 : 0);
            classError(*method->file, method->position, identifier,
                       fmt::format("The method '{}' of the class '{}' must be an ordinary method taking ({}) and "
                                   "returning a result; it {}takes {} input{} and returns {} output{}.",
                                   rule.method, syntax.name, inputs, method->isStatic ? "is static, " : "", taken,
                                   taken == 1 ? "" : "s", method->outputSlots.size(),
                                   method->outputSlots.size() == 1 ? "" : "s"));
        }
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
        checkRequiredMethods(*record);

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

// ===================================================================== the error object

namespace {

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

}  // namespace

Member const& findMember(std::string const& className, std::string_view name) {
    thread_local std::unordered_map<MemberKey, Member, MemberKeyHash, MemberKeyEqual> cache;
    auto const generation = CodeRuntime::get().generation();
    // A class may gain a member when a superclass is registered later, so what
    // was found (or not found) holds while no class file is compiled and no
    // class registered.
    auto const classGeneration = qcos::detail::currentClassGeneration();
    auto found = cache.find(MemberKeyView{className, name});
    if (found != cache.end() && found->second.generation == generation &&
        found->second.classGeneration == classGeneration) {
        return found->second;
    }
    auto member = lookUpMember(className, name);
    member.generation = generation;
    member.classGeneration = classGeneration;
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

Value constructInto(ClassRecord const& record, Value object, std::span<Value const> args) {
    if (record.constructor != nullptr) {
        auto results = callCompiled(*record.constructor, nullptr, args, 1, ConstructorCall{record, object});
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

// ----- members in the evaluator

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

// ===================================================================== entry points

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

}  // namespace qlang::detail

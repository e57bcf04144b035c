#pragma once
// The host's class-object system: namespaces, class descriptors, host objects,
// method dispatch, and the binding registry through which native objects
// (dependency::services::Shareable) become host objects.
//
// Classes are found by their dotted, fully qualified name at the moment they
// are needed (dispatch, type checks, evaluation), so a class may name a
// superclass that is registered later or by someone else.

#include "platform/host/Array.hpp"
#include "platform/host/HostError.hpp"
#include "platform/services/Shareable.hpp"

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qcos {

class COSClassInfo;

// ---------------------------------------------------------------------------
// Methods and properties

enum class Access { Public, Private };

struct MethodAttributes {
    bool isStatic = false;
    Access access = Access::Public;
};

// A method implementation over host arrays. Instance methods receive the
// object array as inputs[0]. Returns the outputs it produced (at least
// outputCount of them when it can; surplus outputs are dropped by the caller).
using MethodFunction = std::function<std::vector<qxArrayPtr>(std::span<qxArray const* const> inputs, int outputCount)>;

// Declared output and input type names, e.g. {"logical scalar"} and
// {"dependencies.internal.attribute.Attribute"}. Recognised type names:
// "any", "void" (outputs only), "double", "logical", "char",
// "QcosFactoryString" (a char row), or a host class name, each optionally
// followed by " scalar" or " vector". An untyped signature accepts any inputs.
struct Signature {
    std::vector<std::string> outputTypes;
    std::vector<std::string> inputTypes;
    bool untyped = false;
};

Signature createSignatureImpl(std::vector<std::string> outputTypes, std::vector<std::string> inputTypes);
Signature createUntypedSignature();

// One method name with one or more signatures, each with its own
// implementation. A call picks the first signature whose input count and
// input types match.
class QcosMethod {
public:
    struct Overload {
        Signature signature;
        MethodFunction function;
    };

    explicit QcosMethod(std::string name, MethodAttributes attributes = {});

    // Throws std::invalid_argument for an empty function.
    QcosMethod& addSignature(Signature signature, MethodFunction function);

    std::string const& getName() const noexcept { return name_; }
    MethodAttributes const& getAttributes() const noexcept { return attributes_; }
    std::vector<Overload> const& getOverloads() const noexcept { return overloads_; }

private:
    std::string name_;
    MethodAttributes attributes_;
    std::vector<Overload> overloads_;
};

class COSInterface;
using PropertyGetter = std::function<qxArrayPtr(COSInterface const& self)>;

// A property is one of three kinds: computed by a getter from the object (native
// bindings), a constant of the class, read through the class itself (script
// classes), or a value stored in each object, starting from a default (script
// classes).
struct QcosProperty {
    enum class Kind { Getter, Constant, Stored };

    static QcosProperty withGetter(std::string name, std::string type, PropertyGetter getter);
    static QcosProperty constant(std::string name, qxArrayPtr value);
    static QcosProperty stored(std::string name, qxArrayPtr defaultValue);

    std::string name;
    std::string type = "any";
    Kind kind = Kind::Getter;
    PropertyGetter getter;
    qxArrayShared value;  // the constant, or the default of a stored property
};

// ---------------------------------------------------------------------------
// Class descriptors

// Describes one host class. Filled in by its constructor (or the script-class
// builder) and frozen when it is added to a namespace; from then on it is only
// read, from any thread.
class COSClassInfo {
public:
    explicit COSClassInfo(std::string qualifiedName);
    virtual ~COSClassInfo();

    COSClassInfo(COSClassInfo const&) = delete;
    COSClassInfo& operator=(COSClassInfo const&) = delete;

    // "dependencies.internal.attribute.Attribute"
    std::string const& getQualifiedName() const noexcept { return qualifiedName_; }
    // The class's own name without its namespace: "Attribute".
    std::string getName() const;
    std::vector<std::string> const& getSuperclassNames() const noexcept { return superclasses_; }
    std::vector<QcosProperty> const& getProperties() const noexcept { return properties_; }
    std::vector<QcosMethod> const& getMethods() const noexcept { return methods_; }
    QcosProperty const* findOwnProperty(std::string_view name) const noexcept;
    QcosMethod const* findOwnMethod(std::string_view name) const noexcept;

    // True for classes whose objects wrap a native Shareable.
    virtual bool isNativeBinding() const noexcept { return false; }
    virtual bool isEnumeration() const noexcept { return false; }
    std::vector<std::pair<std::string, std::int64_t>> const& getEnumerationMembers() const noexcept { return members_; }

    // Every declaration in the order it was made: superclasses, properties,
    // methods and enumeration members, interleaved as they were declared.
    enum class MemberKind { Superclass, Property, Method, EnumerationMember };
    struct Declaration {
        MemberKind kind;
        std::string name;
        friend bool operator==(Declaration const&, Declaration const&) = default;
    };
    std::vector<Declaration> const& getDeclarations() const noexcept { return declarations_; }

    // Declarations, in registration order. A second method or property of the
    // same name, or any declaration after the class was registered, is a HostError.
    void addSuperclass(std::string qualifiedName);
    void addProperty(QcosProperty property);
    void addMethod(QcosMethod method);

    void freeze() noexcept { frozen_.store(true, std::memory_order_release); }

protected:
    void addEnumerationMember(std::string name, std::int64_t value);

private:
    void checkNotFrozen() const;

    std::string qualifiedName_;
    std::vector<std::string> superclasses_;
    std::vector<QcosProperty> properties_;
    std::vector<QcosMethod> methods_;
    std::vector<std::pair<std::string, std::int64_t>> members_;
    std::vector<Declaration> declarations_;
    std::atomic<bool> frozen_{false};
};

// The base of classes whose objects wrap a native Shareable.
class QcosFactoryClassInfo : public COSClassInfo {
public:
    using COSClassInfo::COSClassInfo;
    bool isNativeBinding() const noexcept override { return true; }
};

namespace factory {

// An enumeration class. Its objects carry one member's number; E is the native
// enumeration it mirrors.
class EnumerationClassInfo : public COSClassInfo {
public:
    using COSClassInfo::COSClassInfo;
    bool isEnumeration() const noexcept override { return true; }
    using COSClassInfo::addEnumerationMember;
};

template <class E>
class EnumClassInfo : public EnumerationClassInfo {
public:
    using EnumerationClassInfo::EnumerationClassInfo;
    void addMember(std::string name, E value) {
        addEnumerationMember(std::move(name), static_cast<std::int64_t>(value));
    }
};

}  // namespace factory

// ---------------------------------------------------------------------------
// Namespaces

class Namespace {
public:
    explicit Namespace(std::string qualifiedName) : qualifiedName_(std::move(qualifiedName)) {}

    std::string const& getQualifiedName() const noexcept { return qualifiedName_; }
    // Registers a class whose qualified name lies directly in this namespace and
    // freezes it. A name already taken or outside this namespace is a HostError.
    void addClass(std::shared_ptr<COSClassInfo> classInfo);

private:
    friend Namespace& omGetInnerNamespace(Namespace& outer, std::string_view name);

    std::string qualifiedName_;
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<Namespace>, std::less<>> inner_;
};

// The top-level namespace of that name, made on first use; lives for the process.
Namespace& omGetNamespace(std::string_view name);
// The namespace `name` inside `outer`, made on first use.
Namespace& omGetInnerNamespace(Namespace& outer, std::string_view name);

// The registered class of that qualified name, or null.
std::shared_ptr<COSClassInfo const> omFindClass(std::string_view qualifiedName);
// True when `className` is `baseName` or (transitively) names it as a superclass.
// Superclasses that are not registered (yet) end the search on their branch.
bool omIsA(std::string_view className, std::string_view baseName);

// A method that every class deriving from `baseClass` must have, with one
// output and the inputs a call passes as `inputs` (the object first), e.g. the
// analyze(obj, node, graph) of an analyzer class. Code that defines classes
// (the host-language interpreter) checks a class file deriving from the base
// when it is defined: a concrete class without the method, or with one that
// cannot take those inputs and give an output, is the HostError
// "qlang:class:<method>Method". A library registers its rules when it is
// loaded; a rule for the same base and method replaces the earlier one.
struct RequiredMethod {
    std::string baseClass;            // qualified name of the base class
    std::string method;               // e.g. "analyze"
    std::vector<std::string> inputs;  // names for messages, e.g. {"obj", "node", "graph"}
};
void omRequireMethod(RequiredMethod rule);
// Every rule registered, in the order registered.
std::vector<RequiredMethod> omRequiredMethods();

// ---------------------------------------------------------------------------
// Host objects

// One host object: an object of a script class (with stored property values),
// an object that wraps a native Shareable, or an enumeration member. Handled
// through COSInterfacePtr; never copied.
class COSInterface {
public:
    std::string const& getClassName() const noexcept { return *className_; }
    // The object's class, looked up now. An unregistered class is a HostError.
    std::shared_ptr<COSClassInfo const> getClass() const;
    // The wrapped native object, or null for script objects and enumerations.
    std::shared_ptr<dependency::services::Shareable> const& getNative() const noexcept { return native_; }
    std::optional<std::int64_t> getEnumerationValue() const noexcept { return enumValue_; }
    // Number of owning references; for diagnostics and tests.
    std::size_t referenceCount() const noexcept { return references_.load(std::memory_order_acquire); }

private:
    friend struct ObjectAccess;
    friend void intrusive_ptr_add_ref(COSInterface const* object) noexcept;
    friend void intrusive_ptr_release(COSInterface const* object) noexcept;

    COSInterface(std::string const& className, std::shared_ptr<dependency::services::Shareable> native,
                 std::optional<std::int64_t> enumValue);

    std::string const* className_;  // lives for the process: interned, or a registered class's own name
    std::shared_ptr<dependency::services::Shareable> native_;
    std::optional<std::int64_t> enumValue_;
    mutable std::atomic<std::size_t> references_{0};
    mutable std::mutex propertiesMutex_;
    std::map<std::string, qxArrayShared, std::less<>> storedProperties_;
};

// A new object of a script class, with its stored properties at their defaults.
// Native bindings and enumerations cannot be made this way (HostError).
COSInterfacePtr omCreateObject(std::string_view className);
// The enumeration member of that number; HostError when there is none.
COSInterfacePtr omCreateEnumeration(std::string_view className, std::int64_t value);

// Property of an object: a stored value, a getter's result or a class constant,
// searched in the object's class and then its superclasses. HostError when the
// class chain has no such property.
qxArrayPtr omGetProperty(COSInterface const& object, std::string_view name);
// Sets a stored property of a script object (HostError for other kinds).
void omSetProperty(COSInterface& object, std::string_view name, qxArrayPtr value);
// A constant property (or enumeration member) read through the class.
qxArrayPtr omGetConstantProperty(std::string_view className, std::string_view name);
// The same reads without a copy: stored and constant values are shared with
// the object or class (they are not changed while shared).
qxArrayShared omGetPropertyShared(COSInterface const& object, std::string_view name);
void omSetPropertyShared(COSInterface& object, std::string_view name, qxArrayShared value);
qxArrayShared omGetConstantPropertyShared(std::string_view className, std::string_view name);
// A new object of the same script class with the same stored property values:
// how a value object is copied before it is changed. HostError
// "qcos:object:notCopyable" for objects that wrap a native object and for
// enumeration members.
COSInterfacePtr omCopyObject(COSInterface const& object);

// ---------------------------------------------------------------------------
// Object arrays

qxArrayPtr omCreateQCOSScalar(COSInterfacePtr const& object);
// An m-by-n object array of that class with empty slots, to be filled.
qxArrayPtr omCreateQCOSMatrix(std::size_t m, std::size_t n, std::string className);
// Stores an object; its class must be the array's class or a subclass of it.
void omSetArrayElement(qxArray& array, std::size_t index, COSInterfacePtr object);
// An owning reference to an element. HostError for non-object arrays, an index
// past the end or an empty slot.
COSInterfacePtr omGetArrayElement(qxArray const& array, std::size_t index);
// The same element borrowed: valid while the array holds it.
COSInterface* cosiGetArrayElement(qxArray const& array, std::size_t index);
// Settles an object array as a heterogeneous array of `className`: every
// element must be of that class or a subclass.
void omSetClassOfHeterogeneousArray(qxArray& array, std::string className);

// ---------------------------------------------------------------------------
// Calling methods

// On whose behalf a method is called: the public client may call public
// methods only; the internal client (script classes calling their own
// methods) may call private ones too.
class COSClient {
public:
    explicit constexpr COSClient(bool internal) noexcept : internal_(internal) {}
    bool mayCall(Access access) const noexcept { return internal_ || access == Access::Public; }

private:
    bool internal_;
};

COSClient const& COSGetPublicClient() noexcept;
COSClient const& COSGetInternalClient() noexcept;

// Calls method `methodName` of the most derived class of the object in
// prhs[0] (element 0 of that array). Outputs go to plhs[0 .. nlhs-1]. Returns
// false when the call failed; the error is kept for this thread and can be
// rethrown with computils::qcos::throwErrorCallingQorvexException.
bool omCallMethod(COSClient const& client, std::string_view methodName, int nlhs, qxArrayPtr* plhs, int nrhs,
                  qxArray const* const* prhs) noexcept;
// Calls a static method (a constructor is the static method named after the
// class's own name) of the class `className`.
bool omCallStaticMethod(COSClient const& client, std::string_view className, std::string_view methodName, int nlhs,
                        qxArrayPtr* plhs, int nrhs, qxArray const* const* prhs) noexcept;
// Calls the implementation of `methodName` found from class `className`
// upward (not from the object's own class): how a subclass calls the method
// of a superclass that it overrides. The object in prhs[0] must be a
// `className`.
bool omCallMethodOfClass(COSClient const& client, std::string_view className, std::string_view methodName, int nlhs,
                         qxArrayPtr* plhs, int nrhs, qxArray const* const* prhs) noexcept;
// The error of this thread's last failed call, or null.
std::exception_ptr omGetLastError() noexcept;

// ---------------------------------------------------------------------------
// The binding registry: native objects known to the host.

namespace internal {

// A class name stored once per process; copies compare by address.
class InternedName {
public:
    std::string const& str() const noexcept { return *name_; }
    friend bool operator==(InternedName a, InternedName b) noexcept { return a.name_ == b.name_; }

private:
    friend InternedName makeInterned(std::string_view name);
    explicit InternedName(std::string const* name) noexcept : name_(name) {}
    std::string const* name_;
};

InternedName makeInterned(std::string_view name);

}  // namespace internal

namespace factory::basic {

class BindingRegistry {
public:
    // Records `object` as a host-visible object of class `className` and marks
    // it published; when it is destroyed the services' withdraw hook removes it
    // again. Announcing again replaces the class.
    static void announce(std::shared_ptr<dependency::services::Shareable> const& object,
                         internal::InternedName className);
    static void announce(std::shared_ptr<dependency::services::Shareable> const& object, std::string_view className);
    // For objects made by a binding's constructor or read back from host
    // arrays: like announce, but an object already known keeps its class.
    static void announceForConstructor(std::shared_ptr<dependency::services::Shareable> const& object,
                                       std::string_view className);
    // The class an object was announced under, or nothing (never announced,
    // or already destroyed).
    static std::optional<std::string> announcedClassOf(dependency::services::Shareable const* object);
    static std::size_t size();
};

}  // namespace factory::basic

namespace factory::full {

// A new host object that shares ownership of an announced native object, so
// the native object lives as long as any host reference to it.
COSInterfacePtr acquireReference(std::shared_ptr<dependency::services::Shareable> const& object);

}  // namespace factory::full

namespace factory::impl {

// The native object of a binding object, checked: it must wrap a native object
// that is still announced (HostError "qcos:binding:invalidSelf"). The
// reference holds while the object does; no shared pointer is copied.
dependency::services::Shareable const& validateSelf(COSInterface const& object);
// The same as a shared pointer.
std::shared_ptr<dependency::services::Shareable> validateSelfPointer(COSInterface const& object);

// HostError "qcos:binding:wrongNativeClass" for `object`.
[[noreturn]] void throwWrongNativeClass(COSInterface const& object);

// The same, viewed as T; a native object of another class is a HostError
// ("qcos:binding:wrongNativeClass").
template <class T>
T const& validateSelf(COSInterface const& object) {
    auto const* typed = dynamic_cast<T const*>(&validateSelf(object));
    if (typed == nullptr) {
        throwWrongNativeClass(object);
    }
    return *typed;
}
template <class T>
std::shared_ptr<T> validateSelfPointer(COSInterface const& object) {
    auto typed = std::dynamic_pointer_cast<T>(validateSelfPointer(object));
    if (!typed) {
        throwWrongNativeClass(object);
    }
    return typed;
}

}  // namespace factory::impl

}  // namespace qcos

namespace computils::qcos {

// Throws the error kept by the last failed omCallMethod on this thread as a
// qcos::HostError carrying `context` (the identifier and message of a host
// error are kept; other exceptions become "qcos:call:nativeError").
[[noreturn]] void throwErrorCallingQorvexException(std::string const& context);

// Throws a qcos::HostError ("qcos:type:wrongClass") unless `array` is an object
// array of class `className` or of a subclass of it (empty arrays included).
void validateType(qxArray const& array, std::string_view className);

}  // namespace computils::qcos

namespace matrix {

// A scalar object array holding `object`.
qxArrayPtr to_qorvex(::qcos::COSInterfacePtr const& object);

// The native object wrapped by element 0 of an object array, as T.
template <class T>
std::shared_ptr<T> from_qorvex(qxArray const& array) {
    auto const* object = ::qcos::cosiGetArrayElement(array, 0);
    return ::qcos::factory::impl::validateSelfPointer<T>(*object);
}

}  // namespace matrix

namespace qcos {

// Defines a class of the host language: a name, superclasses, methods as C++
// callables over host arrays, constant and stored properties. define()
// registers it in its namespace (made on the way); a name without a dot is a
// class outside every namespace (the class files at the top of a folder).
class ScriptClassBuilder {
public:
    explicit ScriptClassBuilder(std::string qualifiedName);

    ScriptClassBuilder& superclass(std::string qualifiedName);
    ScriptClassBuilder& method(std::string name, MethodFunction function, Access access = Access::Public);
    ScriptClassBuilder& staticMethod(std::string name, MethodFunction function);
    ScriptClassBuilder& constantProperty(std::string name, qxArrayPtr value);
    ScriptClassBuilder& property(std::string name, qxArrayPtr defaultValue);

    std::shared_ptr<COSClassInfo const> define();

private:
    std::shared_ptr<COSClassInfo> classInfo_;
};

}  // namespace qcos

#include "platform/host/Qcos.hpp"

#include "platform/foundation/ViewHash.hpp"
#include "platform/host/detail/Runtime.hpp"

#include <fmt/format.h>

#include <boost/container/small_vector.hpp>

#include <algorithm>
#include <cctype>
#include <shared_mutex>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

namespace qcos {

// ---------------------------------------------------------------------------
// Process-wide tables. They are never destroyed: host objects may still be
// released while static destructors run.

namespace {

struct ClassTable {
    std::shared_mutex mutex;
    std::map<std::string, std::shared_ptr<COSClassInfo const>, std::less<>> classes;
};

// Counts registrations, so that lookups cached per thread know when to look again.
std::atomic<std::uint64_t>& classGeneration() {
    static std::atomic<std::uint64_t> generation{0};
    return generation;
}

ClassTable& rawClassTable() {
    static auto* table = new ClassTable;
    return *table;
}

ClassTable& classTable() {
    static std::once_flag platformClassesRegistered;
    std::call_once(platformClassesRegistered, [] { detail::registerPlatformClasses(); });
    return rawClassTable();
}

struct TopLevelNamespaces {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<Namespace>, std::less<>> byName;
};

TopLevelNamespaces& topLevelNamespaces() {
    static auto* namespaces = new TopLevelNamespaces;
    return *namespaces;
}

bool isIdentifier(std::string_view name) {
    if (name.empty() || !(std::isalpha(static_cast<unsigned char>(name.front())))) {
        return false;
    }
    for (auto const c : name) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') {
            return false;
        }
    }
    return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// Signatures, methods, properties

Signature createSignatureImpl(std::vector<std::string> outputTypes, std::vector<std::string> inputTypes) {
    return Signature{std::move(outputTypes), std::move(inputTypes), false};
}

Signature createUntypedSignature() {
    return Signature{{}, {}, true};
}

QcosMethod::QcosMethod(std::string name, MethodAttributes attributes)
    : name_(std::move(name)), attributes_(attributes) {}

QcosMethod& QcosMethod::addSignature(Signature signature, MethodFunction function) {
    if (!function) {
        throw std::invalid_argument("A method signature needs an implementation.");
    }
    overloads_.push_back(Overload{std::move(signature), std::move(function)});
    return *this;
}

QcosProperty QcosProperty::withGetter(std::string name, std::string type, PropertyGetter getter) {
    QcosProperty property;
    property.name = std::move(name);
    property.type = std::move(type);
    property.kind = Kind::Getter;
    property.getter = std::move(getter);
    return property;
}

QcosProperty QcosProperty::constant(std::string name, qxArrayPtr value) {
    QcosProperty property;
    property.name = std::move(name);
    property.kind = Kind::Constant;
    property.value = qxArray::share(std::move(value));
    return property;
}

QcosProperty QcosProperty::stored(std::string name, qxArrayPtr defaultValue) {
    QcosProperty property;
    property.name = std::move(name);
    property.kind = Kind::Stored;
    property.value = qxArray::share(std::move(defaultValue));
    return property;
}

// ---------------------------------------------------------------------------
// Class descriptors

COSClassInfo::COSClassInfo(std::string qualifiedName) : qualifiedName_(std::move(qualifiedName)) {}

COSClassInfo::~COSClassInfo() = default;

std::string COSClassInfo::getName() const {
    auto const dot = qualifiedName_.rfind('.');
    return dot == std::string::npos ? qualifiedName_ : qualifiedName_.substr(dot + 1);
}

QcosProperty const* COSClassInfo::findOwnProperty(std::string_view name) const noexcept {
    for (auto const& property : properties_) {
        if (property.name == name) {
            return &property;
        }
    }
    return nullptr;
}

QcosMethod const* COSClassInfo::findOwnMethod(std::string_view name) const noexcept {
    for (auto const& method : methods_) {
        if (method.getName() == name) {
            return &method;
        }
    }
    return nullptr;
}

void COSClassInfo::checkNotFrozen() const {
    if (frozen_.load(std::memory_order_acquire)) {
        throw HostError("qcos:class:frozen",
                        fmt::format("Class '{}' is registered and can no longer be changed.", qualifiedName_));
    }
}

void COSClassInfo::addSuperclass(std::string qualifiedName) {
    checkNotFrozen();
    declarations_.push_back({MemberKind::Superclass, qualifiedName});
    superclasses_.push_back(std::move(qualifiedName));
}

void COSClassInfo::addProperty(QcosProperty property) {
    checkNotFrozen();
    if (findOwnProperty(property.name) != nullptr) {
        throw HostError("qcos:class:duplicateMember",
                        fmt::format("Class '{}' already has a property '{}'.", qualifiedName_, property.name));
    }
    declarations_.push_back({MemberKind::Property, property.name});
    properties_.push_back(std::move(property));
}

void COSClassInfo::addMethod(QcosMethod method) {
    checkNotFrozen();
    if (findOwnMethod(method.getName()) != nullptr) {
        throw HostError("qcos:class:duplicateMember",
                        fmt::format("Class '{}' already has a method '{}'.", qualifiedName_, method.getName()));
    }
    declarations_.push_back({MemberKind::Method, method.getName()});
    methods_.push_back(std::move(method));
}

void COSClassInfo::addEnumerationMember(std::string name, std::int64_t value) {
    checkNotFrozen();
    declarations_.push_back({MemberKind::EnumerationMember, name});
    members_.emplace_back(std::move(name), value);
}

// ---------------------------------------------------------------------------
// Namespaces and class lookup

void detail::insertClass(std::shared_ptr<COSClassInfo> classInfo, bool skipIfPresent) {
    auto& table = rawClassTable();
    std::unique_lock lock(table.mutex);
    auto const& name = classInfo->getQualifiedName();
    if (table.classes.contains(name)) {
        if (skipIfPresent) {
            return;
        }
        throw HostError("qcos:namespace:duplicateClass", fmt::format("Class '{}' is already registered.", name));
    }
    classInfo->freeze();
    table.classes.emplace(name, std::move(classInfo));
    classGeneration().fetch_add(1, std::memory_order_acq_rel);
}

void Namespace::addClass(std::shared_ptr<COSClassInfo> classInfo) {
    if (!classInfo) {
        throw HostError("qcos:namespace:nullClass", "Cannot add a null class descriptor.");
    }
    auto const& name = classInfo->getQualifiedName();
    auto const shortName = classInfo->getName();
    if (name != qualifiedName_ + "." + shortName || !isIdentifier(shortName)) {
        throw HostError("qcos:namespace:wrongNamespace",
                        fmt::format("Class '{}' does not belong directly to namespace '{}'.", name, qualifiedName_));
    }
    detail::insertClass(std::move(classInfo), false);
}

Namespace& omGetNamespace(std::string_view name) {
    if (!isIdentifier(name)) {
        throw HostError("qcos:namespace:invalidName", fmt::format("'{}' is not a valid namespace name.", name));
    }
    auto& namespaces = topLevelNamespaces();
    std::lock_guard lock(namespaces.mutex);
    auto found = namespaces.byName.find(name);
    if (found == namespaces.byName.end()) {
        found = namespaces.byName.emplace(std::string(name), std::make_unique<Namespace>(std::string(name))).first;
    }
    return *found->second;
}

Namespace& omGetInnerNamespace(Namespace& outer, std::string_view name) {
    if (!isIdentifier(name)) {
        throw HostError("qcos:namespace:invalidName", fmt::format("'{}' is not a valid namespace name.", name));
    }
    std::lock_guard lock(outer.mutex_);
    auto found = outer.inner_.find(name);
    if (found == outer.inner_.end()) {
        auto inner = std::make_unique<Namespace>(outer.qualifiedName_ + "." + std::string(name));
        found = outer.inner_.emplace(std::string(name), std::move(inner)).first;
    }
    return *found->second;
}

std::shared_ptr<COSClassInfo const> omFindClass(std::string_view qualifiedName) {
    auto& table = classTable();
    // Lookups are many and registrations few: each thread keeps what it found
    // until the next class is registered.
    struct Cache {
        std::uint64_t generation = ~std::uint64_t{0};
        std::unordered_map<std::string, std::shared_ptr<COSClassInfo const>, foundation::ViewHash, std::equal_to<>>
            classes;
    };
    thread_local Cache cache;
    auto const generation = classGeneration().load(std::memory_order_acquire);
    if (cache.generation != generation) {
        cache.classes.clear();
        cache.generation = generation;
    }
    if (auto const cached = cache.classes.find(qualifiedName); cached != cache.classes.end()) {
        return cached->second;
    }
    std::shared_ptr<COSClassInfo const> result;
    {
        std::shared_lock lock(table.mutex);
        auto const found = table.classes.find(qualifiedName);
        result = found == table.classes.end() ? nullptr : found->second;
    }
    cache.classes.emplace(std::string(qualifiedName), result);
    return result;
}

namespace {

// Visits `className` and its registered superclasses depth-first, in declared
// order, each class once, until `visit` returns true. Superclasses are looked
// up now, so they may have been registered after the subclass.
template <class Visit>
bool visitClassChain(std::string_view className, Visit&& visit) {
    // Class chains are short: the work lists live on the stack.
    boost::container::small_vector<std::shared_ptr<COSClassInfo const>, 8> pending;
    boost::container::small_vector<COSClassInfo const*, 8> seen;
    if (auto root = omFindClass(className)) {
        pending.push_back(std::move(root));
    }
    while (!pending.empty()) {
        auto current = std::move(pending.back());
        pending.pop_back();
        if (std::find(seen.begin(), seen.end(), current.get()) != seen.end()) {
            continue;
        }
        seen.push_back(current.get());
        if (visit(*current)) {
            return true;
        }
        auto const& supers = current->getSuperclassNames();
        for (auto it = supers.rbegin(); it != supers.rend(); ++it) {
            if (auto super = omFindClass(*it)) {
                pending.push_back(std::move(super));
            }
        }
    }
    return false;
}

QcosProperty const* findProperty(std::string_view className, std::string_view name) {
    QcosProperty const* property = nullptr;
    visitClassChain(className, [&](COSClassInfo const& info) {
        property = info.findOwnProperty(name);
        return property != nullptr;
    });
    return property;
}

QcosProperty const& requireProperty(COSInterface const& object, std::string_view name) {
    auto const* property = findProperty(object.getClassName(), name);
    if (property == nullptr) {
        throw HostError("qcos:property:undefined",
                        fmt::format("No property '{}' for class '{}'.", name, object.getClassName()));
    }
    return *property;
}

qxArrayPtr getterValue(QcosProperty const& property, COSInterface const& object, std::string_view name) {
    auto value = property.getter(object);
    if (!value) {
        throw HostError("qcos:property:noValue",
                        fmt::format("Property '{}' of class '{}' produced no value.", name, object.getClassName()));
    }
    return value;
}

// An enumeration member named `name` as a scalar object, or null when the
// class has no such member.
qxArrayPtr enumerationMember(COSClassInfo const& classInfo, std::string_view className, std::string_view name) {
    for (auto const& [memberName, value] : classInfo.getEnumerationMembers()) {
        if (memberName == name) {
            return omCreateQCOSScalar(omCreateEnumeration(className, value));
        }
    }
    return nullptr;
}

QcosProperty const& requireConstant(std::string_view className, std::string_view name) {
    auto const* property = findProperty(className, name);
    if (property == nullptr || property->kind != QcosProperty::Kind::Constant) {
        throw HostError("qcos:property:undefined",
                        fmt::format("No constant property '{}' for class '{}'.", name, className));
    }
    return *property;
}

}  // namespace

std::shared_ptr<COSClassInfo const> detail::requireClass(std::string_view qualifiedName) {
    auto classInfo = omFindClass(qualifiedName);
    if (!classInfo) {
        throw HostError("qcos:class:undefined", fmt::format("Undefined class '{}'.", qualifiedName));
    }
    return classInfo;
}

std::uint64_t detail::currentClassGeneration() noexcept {
    return qcos::classGeneration().load(std::memory_order_acquire);
}

QcosMethod const* detail::findMethod(std::string_view className, std::string_view name) {
    QcosMethod const* method = nullptr;
    visitClassChain(className, [&](COSClassInfo const& info) {
        method = info.findOwnMethod(name);
        return method != nullptr;
    });
    return method;
}

namespace {
std::mutex requiredMethodsMutex;
std::vector<RequiredMethod> requiredMethods;  // guarded by requiredMethodsMutex
}  // namespace

void omRequireMethod(RequiredMethod rule) {
    std::lock_guard lock(requiredMethodsMutex);
    for (auto& existing : requiredMethods) {
        if (existing.baseClass == rule.baseClass && existing.method == rule.method) {
            existing = std::move(rule);
            return;
        }
    }
    requiredMethods.push_back(std::move(rule));
}

std::vector<RequiredMethod> omRequiredMethods() {
    std::lock_guard lock(requiredMethodsMutex);
    return requiredMethods;
}

bool omIsA(std::string_view className, std::string_view baseName) {
    if (className == baseName) {
        return true;
    }
    return visitClassChain(className, [&](COSClassInfo const& info) {
        for (auto const& super : info.getSuperclassNames()) {
            if (super == baseName) {
                return true;
            }
        }
        return false;
    });
}

// ---------------------------------------------------------------------------
// Host objects

COSInterfacePtr ObjectAccess::make(std::string const& className,
                                   std::shared_ptr<dependency::services::Shareable> native,
                                   std::optional<std::int64_t> enumValue) {
    return COSInterfacePtr(new COSInterface(className, std::move(native), enumValue));
}

void ObjectAccess::initialiseStored(COSInterface& object, COSClassInfo const& info) {
    for (auto const& property : info.getProperties()) {
        if (property.kind == QcosProperty::Kind::Stored) {
            object.storedProperties_.emplace(property.name, property.value);
        }
    }
}

qxArrayShared ObjectAccess::stored(COSInterface const& object, std::string_view name) {
    std::lock_guard lock(object.propertiesMutex_);
    auto const found = object.storedProperties_.find(name);
    return found == object.storedProperties_.end() ? nullptr : found->second;
}

void ObjectAccess::store(COSInterface& object, std::string_view name, qxArrayShared value) {
    std::lock_guard lock(object.propertiesMutex_);
    if (auto const found = object.storedProperties_.find(name); found != object.storedProperties_.end()) {
        found->second = std::move(value);
        return;
    }
    object.storedProperties_.emplace(std::string(name), std::move(value));
}

COSInterfacePtr ObjectAccess::copy(COSInterface const& object) {
    auto copied = make(*object.className_, nullptr, std::nullopt);
    std::lock_guard lock(object.propertiesMutex_);
    copied->storedProperties_ = object.storedProperties_;
    return copied;
}

COSInterface::COSInterface(std::string const& className, std::shared_ptr<dependency::services::Shareable> native,
                           std::optional<std::int64_t> enumValue)
    : className_(&className), native_(std::move(native)), enumValue_(enumValue) {}

std::shared_ptr<COSClassInfo const> COSInterface::getClass() const {
    return detail::requireClass(*className_);
}

void intrusive_ptr_add_ref(COSInterface const* object) noexcept {
    object->references_.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(COSInterface const* object) noexcept {
    if (object->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete object;
    }
}

COSInterfacePtr detail::makeScriptObject(COSClassInfo const& classInfo) {
    auto object = ObjectAccess::make(classInfo.getQualifiedName(), nullptr, std::nullopt);
    ObjectAccess::initialiseStored(*object, classInfo);
    return object;
}

COSInterfacePtr omCreateObject(std::string_view className) {
    auto const classInfo = detail::requireClass(className);
    if (classInfo->isNativeBinding() || classInfo->isEnumeration()) {
        throw HostError("qcos:object:notConstructible",
                        fmt::format("Objects of class '{}' cannot be created directly.", className));
    }
    auto object = ObjectAccess::make(classInfo->getQualifiedName(), nullptr, std::nullopt);
    // Superclasses first, so that a subclass's default wins.
    std::vector<COSClassInfo const*> chain;
    visitClassChain(className, [&](COSClassInfo const& info) {
        chain.push_back(&info);
        return false;
    });
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        ObjectAccess::initialiseStored(*object, **it);
    }
    return object;
}

COSInterfacePtr omCreateEnumeration(std::string_view className, std::int64_t value) {
    auto const classInfo = detail::requireClass(className);
    for (auto const& [name, memberValue] : classInfo->getEnumerationMembers()) {
        if (memberValue == value) {
            return ObjectAccess::make(classInfo->getQualifiedName(), nullptr, value);
        }
    }
    throw HostError("qcos:enumeration:noSuchMember",
                    fmt::format("Enumeration '{}' has no member with value {}.", className, value));
}

qxArrayPtr omGetProperty(COSInterface const& object, std::string_view name) {
    if (auto value = ObjectAccess::stored(object, name)) {
        return value->clone();
    }
    auto const& property = requireProperty(object, name);
    if (property.kind == QcosProperty::Kind::Getter) {
        return getterValue(property, object, name);
    }
    return property.value->clone();
}

void omSetProperty(COSInterface& object, std::string_view name, qxArrayPtr value) {
    omSetPropertyShared(object, name, value ? qxArray::share(std::move(value)) : qxArrayShared());
}

void omSetPropertyShared(COSInterface& object, std::string_view name, qxArrayShared value) {
    auto const& property = requireProperty(object, name);
    if (property.kind != QcosProperty::Kind::Stored || object.getNative()) {
        throw HostError("qcos:property:readOnly",
                        fmt::format("Property '{}' of class '{}' is read-only.", name, object.getClassName()));
    }
    if (!value) {
        throw HostError("qcos:property:noValue", fmt::format("Cannot set property '{}' to no value.", name));
    }
    ObjectAccess::store(object, name, std::move(value));
}

qxArrayShared omGetPropertyShared(COSInterface const& object, std::string_view name) {
    // Objects that wrap a native object store no values of their own.
    if (!object.getNative()) {
        if (auto value = ObjectAccess::stored(object, name)) {
            return value;
        }
    }
    auto const& property = requireProperty(object, name);
    if (property.kind == QcosProperty::Kind::Getter) {
        return qxArray::share(getterValue(property, object, name));
    }
    return property.value;
}

qxArrayShared omGetConstantPropertyShared(std::string_view className, std::string_view name) {
    if (auto member = enumerationMember(*detail::requireClass(className), className, name)) {
        return qxArray::share(std::move(member));
    }
    return requireConstant(className, name).value;
}

COSInterfacePtr omCopyObject(COSInterface const& object) {
    if (object.getNative() || object.getEnumerationValue()) {
        throw HostError(
            "qcos:object:notCopyable",
            fmt::format("An object of class '{}' is a handle and cannot be copied.", object.getClassName()));
    }
    return ObjectAccess::copy(object);
}

qxArrayPtr omGetConstantProperty(std::string_view className, std::string_view name) {
    if (auto member = enumerationMember(*detail::requireClass(className), className, name)) {
        return member;
    }
    return requireConstant(className, name).value->clone();
}

// ---------------------------------------------------------------------------
// Object arrays

qxArrayPtr omCreateQCOSScalar(COSInterfacePtr const& object) {
    if (!object) {
        throw HostError("qcos:array:nullObject", "Cannot make a host array of a null object.");
    }
    return qxArray::createObjectScalar(object, object->getClassName());
}

qxArrayPtr omCreateQCOSMatrix(std::size_t m, std::size_t n, std::string className) {
    return qxArray::createObjects({m, n}, std::move(className));
}

void omSetArrayElement(qxArray& array, std::size_t index, COSInterfacePtr object) {
    if (array.classID() != qxClassID::Object) {
        throw HostError("qcos:array:notObjectArray",
                        fmt::format("Cannot store an object in an array of class '{}'.", array.getClassName()));
    }
    if (!object) {
        throw HostError("qcos:array:nullObject", "Cannot store a null object in a host array.");
    }
    if (!omIsA(object->getClassName(), array.getClassName())) {
        throw HostError("qcos:array:wrongElementClass",
                        fmt::format("Cannot store an object of class '{}' in an array of class '{}'.",
                                    object->getClassName(), array.getClassName()));
    }
    array.setObject(index, std::move(object));
}

COSInterface* cosiGetArrayElement(qxArray const& array, std::size_t index) {
    if (array.classID() != qxClassID::Object) {
        throw HostError("qcos:array:notObjectArray",
                        fmt::format("An array of class '{}' holds no objects.", array.getClassName()));
    }
    auto* object = array.getObject(index).get();
    if (object == nullptr) {
        throw HostError("qcos:array:emptySlot", fmt::format("Element {} of the array holds no object.", index + 1));
    }
    return object;
}

COSInterfacePtr omGetArrayElement(qxArray const& array, std::size_t index) {
    return COSInterfacePtr(cosiGetArrayElement(array, index));
}

void omSetClassOfHeterogeneousArray(qxArray& array, std::string className) {
    if (array.classID() != qxClassID::Object) {
        throw HostError("qcos:array:notObjectArray",
                        fmt::format("An array of class '{}' cannot be heterogeneous.", array.getClassName()));
    }
    for (std::size_t index = 0; index < array.getNumberOfElements(); ++index) {
        auto const& object = array.getObject(index);
        if (object && !omIsA(object->getClassName(), className)) {
            throw HostError("qcos:array:wrongElementClass", fmt::format("Element {} of class '{}' is not a '{}'.",
                                                                        index + 1, object->getClassName(), className));
        }
    }
    array.setObjectClass(std::move(className), true);
}

// ---------------------------------------------------------------------------
// Script classes

ScriptClassBuilder::ScriptClassBuilder(std::string qualifiedName)
    : classInfo_(std::make_shared<COSClassInfo>(std::move(qualifiedName))) {}

ScriptClassBuilder& ScriptClassBuilder::superclass(std::string qualifiedName) {
    classInfo_->addSuperclass(std::move(qualifiedName));
    return *this;
}

ScriptClassBuilder& ScriptClassBuilder::method(std::string name, MethodFunction function, Access access) {
    QcosMethod method(std::move(name), MethodAttributes{false, access});
    method.addSignature(createUntypedSignature(), std::move(function));
    classInfo_->addMethod(std::move(method));
    return *this;
}

ScriptClassBuilder& ScriptClassBuilder::staticMethod(std::string name, MethodFunction function) {
    QcosMethod method(std::move(name), MethodAttributes{true, Access::Public});
    method.addSignature(createUntypedSignature(), std::move(function));
    classInfo_->addMethod(std::move(method));
    return *this;
}

ScriptClassBuilder& ScriptClassBuilder::constantProperty(std::string name, qxArrayPtr value) {
    classInfo_->addProperty(QcosProperty::constant(std::move(name), std::move(value)));
    return *this;
}

ScriptClassBuilder& ScriptClassBuilder::property(std::string name, qxArrayPtr defaultValue) {
    classInfo_->addProperty(QcosProperty::stored(std::move(name), std::move(defaultValue)));
    return *this;
}

std::shared_ptr<COSClassInfo const> ScriptClassBuilder::define() {
    auto const& name = classInfo_->getQualifiedName();
    std::vector<std::string_view> parts;
    std::string_view rest = name;
    for (auto dot = rest.find('.'); dot != std::string_view::npos; dot = rest.find('.')) {
        parts.push_back(rest.substr(0, dot));
        rest.remove_prefix(dot + 1);
    }
    for (auto const part : parts) {
        if (!isIdentifier(part)) {
            throw HostError("qcos:class:invalidName", fmt::format("'{}' is not a valid class name.", name));
        }
    }
    if (!isIdentifier(rest)) {
        throw HostError("qcos:class:invalidName", fmt::format("'{}' is not a valid class name.", name));
    }
    if (parts.empty()) {
        // A class outside every namespace.
        std::shared_ptr<COSClassInfo const> defined = classInfo_;
        detail::insertClass(std::move(classInfo_), false);
        return defined;
    }
    Namespace* space = &omGetNamespace(parts.front());
    for (std::size_t i = 1; i < parts.size(); ++i) {
        space = &omGetInnerNamespace(*space, parts[i]);
    }
    std::shared_ptr<COSClassInfo const> defined = classInfo_;
    space->addClass(std::move(classInfo_));
    return defined;
}

}  // namespace qcos

namespace matrix {

qxArrayPtr to_qorvex(::qcos::COSInterfacePtr const& object) {
    return ::qcos::omCreateQCOSScalar(object);
}

}  // namespace matrix

// The binding registry: which native objects the host knows, under which host
// class, and the host objects that share ownership of them.

#include "platform/host/Qcos.hpp"

#include "platform/host/detail/Runtime.hpp"

#include <fmt/format.h>

#include <mutex>
#include <unordered_map>
#include <unordered_set>

namespace qcos {

// The table is never destroyed: native objects may still be withdrawn while
// static destructors run.
namespace {

struct Binding {
    internal::InternedName className;
};

struct BindingTable {
    std::mutex mutex;
    std::unordered_map<dependency::services::Shareable const*, Binding> bindings;
};

void withdrawFromBindingTable(dependency::services::Shareable const* object) noexcept;

BindingTable& bindingTable() {
    static auto* table = [] {
        auto* created = new BindingTable;
        dependency::services::setWithdrawHook(&withdrawFromBindingTable);
        return created;
    }();
    return *table;
}

void withdrawFromBindingTable(dependency::services::Shareable const* object) noexcept {
    auto& table = bindingTable();
    std::lock_guard lock(table.mutex);
    table.bindings.erase(object);
}

}  // namespace

namespace internal {

InternedName makeInterned(std::string_view name) {
    return InternedName(&qxInternName(name));
}

}  // namespace internal

namespace factory::basic {

namespace {

void record(std::shared_ptr<dependency::services::Shareable> const& object, internal::InternedName className,
            bool keepExisting) {
    if (!object) {
        throw HostError("qcos:binding:nullObject", "Cannot announce a null native object.");
    }
    auto& table = bindingTable();
    {
        std::lock_guard lock(table.mutex);
        auto const [found, inserted] = table.bindings.try_emplace(object.get(), Binding{className});
        if (!inserted && !keepExisting) {
            found->second.className = className;
        }
    }
    object->markPublished();
}

}  // namespace

void BindingRegistry::announce(std::shared_ptr<dependency::services::Shareable> const& object,
                               internal::InternedName className) {
    record(object, className, false);
}

void BindingRegistry::announce(std::shared_ptr<dependency::services::Shareable> const& object,
                               std::string_view className) {
    record(object, internal::makeInterned(className), false);
}

void BindingRegistry::announceForConstructor(std::shared_ptr<dependency::services::Shareable> const& object,
                                             std::string_view className) {
    record(object, internal::makeInterned(className), true);
}

std::optional<std::string> BindingRegistry::announcedClassOf(dependency::services::Shareable const* object) {
    auto& table = bindingTable();
    std::lock_guard lock(table.mutex);
    auto const found = table.bindings.find(object);
    if (found == table.bindings.end()) {
        return std::nullopt;
    }
    return found->second.className.str();
}

std::size_t BindingRegistry::size() {
    auto& table = bindingTable();
    std::lock_guard lock(table.mutex);
    return table.bindings.size();
}

}  // namespace factory::basic

namespace factory::full {

COSInterfacePtr acquireReference(std::shared_ptr<dependency::services::Shareable> const& object) {
    if (!object) {
        throw HostError("qcos:binding:nullObject", "Cannot make a host reference to a null native object.");
    }
    std::string const* className = nullptr;
    {
        auto& table = bindingTable();
        std::lock_guard lock(table.mutex);
        auto const found = table.bindings.find(object.get());
        if (found != table.bindings.end()) {
            className = &found->second.className.str();
        }
    }
    if (className == nullptr) {
        throw HostError("qcos:binding:notAnnounced",
                        fmt::format("The native object of host class '{}' was not announced to the binding registry.",
                                    object->getFullyQualifiedQcosTypeName()));
    }
    return ObjectAccess::make(*className, object, std::nullopt);
}

}  // namespace factory::full

namespace factory::impl {

dependency::services::Shareable const& validateSelf(COSInterface const& object) {
    auto const& native = object.getNative();
    if (!native) {
        throw HostError("qcos:binding:invalidSelf",
                        fmt::format("The object of class '{}' does not wrap a native object.", object.getClassName()));
    }
    // An object is in the table from its announcement, which marks it
    // published, until its destructor withdraws it; `native` keeps it alive,
    // so its own mark answers without the table's lock.
    if (!native->isPublished()) {
        throw HostError("qcos:binding:invalidSelf",
                        fmt::format("The native object of this '{}' object is not known to the binding registry.",
                                    object.getClassName()));
    }
    return *native;
}

std::shared_ptr<dependency::services::Shareable> validateSelfPointer(COSInterface const& object) {
    (void)validateSelf(object);
    return object.getNative();
}

void throwWrongNativeClass(COSInterface const& object) {
    throw HostError("qcos:binding:wrongNativeClass",
                    "The object of class '" + object.getClassName() + "' wraps a native object of another class.");
}

}  // namespace factory::impl

}  // namespace qcos

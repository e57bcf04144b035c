#pragma once
// Internals shared by the host runtime's translation units; not for users.

#include "platform/host/Qcos.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qcos {

// The one way into COSInterface's private parts (it befriends this).
struct ObjectAccess {
    // `className` must live for the process (interned, or a registered class's name).
    static COSInterfacePtr make(std::string const& className, std::shared_ptr<dependency::services::Shareable> native,
                                std::optional<std::int64_t> enumValue);
    static void initialiseStored(COSInterface& object, COSClassInfo const& info);
    static qxArrayShared stored(COSInterface const& object, std::string_view name);
    static void store(COSInterface& object, std::string_view name, qxArrayShared value);
    static COSInterfacePtr copy(COSInterface const& object);
};

}  // namespace qcos

namespace qcos::detail {

// The registered class of that name; HostError "qcos:class:undefined" if none.
std::shared_ptr<COSClassInfo const> requireClass(std::string_view qualifiedName);

// The method `name` of `className` or, depth-first, of its registered
// superclasses; null when there is none.
QcosMethod const* findMethod(std::string_view className, std::string_view name);

// Counts the classes registered so far: what was looked up under one count
// holds until the count changes (classes are never taken out).
std::uint64_t currentClassGeneration() noexcept;

// Adds a class to the process-wide class table without triggering the
// platform's own class registration (which itself uses this). With
// skipIfPresent a class of that name already registered is left alone.
void insertClass(std::shared_ptr<COSClassInfo> classInfo, bool skipIfPresent);

// A new object of `classInfo` with its stored properties at their defaults;
// looks nothing up, so the platform's registration can use it.
COSInterfacePtr makeScriptObject(COSClassInfo const& classInfo);

// Registers the classes the platform provides (graph, node, dependency,
// analyzer registry). Defined beside them; run once, on the first class lookup.
void registerPlatformClasses();

}  // namespace qcos::detail

#include "services/Initialize.hpp"

#include "attribute/analyzers/Registry.hpp"
#include "services/AttributeAnalyzerQCOS.hpp"
#include "services/AttributeIdentityQCOS.hpp"
#include "services/AttributeQCOS.hpp"
#include "services/GraphAttributesQCOS.hpp"
#include "services/HostClassNames.hpp"
#include "services/SeverityQCOS.hpp"

#include <cstdlib>
#include <mutex>
#include <new>

namespace {

// Descriptors are allocated zero-filled, then constructed in place; they live
// as long as the class table holds them.
template <class Descriptor>
std::shared_ptr<Descriptor> makeDescriptor() {
    void* memory = std::calloc(1, sizeof(Descriptor));
    if (memory == nullptr) {
        throw qcos::HostError("qorvex:outOfMemory", "Out of memory.");
    }
    Descriptor* descriptor = nullptr;
    try {
        descriptor = new (memory) Descriptor();
    } catch (...) {
        std::free(memory);
        throw;
    }
    return std::shared_ptr<Descriptor>(descriptor, [](Descriptor* created) {
        created->~Descriptor();
        std::free(created);
    });
}

void registerClasses() {
    auto& attributeNamespace = qcos::omGetInnerNamespace(
        qcos::omGetInnerNamespace(qcos::omGetNamespace("dependencies"), "internal"), "attribute");
    attributeNamespace.addClass(makeDescriptor<dependency::services::AttributeAnalyzerQCOS>());
    attributeNamespace.addClass(makeDescriptor<dependency::services::AttributeIdentityQCOS>());
    attributeNamespace.addClass(makeDescriptor<dependency::services::AttributeQCOS>());
    attributeNamespace.addClass(makeDescriptor<dependency::services::GraphAttributesQCOS>());
    attributeNamespace.addClass(makeDescriptor<dependency::services::SeverityQCOS>());
    // An analyzer class written in the host language is checked when it is
    // defined: analyze(obj, node, graph) returning the findings.
    qcos::omRequireMethod(
        {std::string(dependency::services::AttributeAnalyzerClassName), "analyze", {"obj", "node", "graph"}});
}

}  // namespace

extern "C" void QLInitialize_depattr() {
    static std::once_flag registered;
    std::call_once(registered, registerClasses);
}

extern "C" void QLTerminate_depattr() {}

// The gateways the host may call by name: one per built-in analyzer, from the
// analyzer registry, then the two the host-language classes use.
extern "C" char const* const* QLGateways_depattr() {
#define DEPATTR_GATEWAY_NAME(Stem) "create" #Stem "Analyzer",
    static char const* const gateways[] = {DEPATTR_BUILT_IN_ANALYZERS(DEPATTR_GATEWAY_NAME) "analyzeInQorvex",
                                           "createAttribute", nullptr};
#undef DEPATTR_GATEWAY_NAME
    return gateways;
}

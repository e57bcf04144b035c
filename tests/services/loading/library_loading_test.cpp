// The host loads the library into a process that holds only the runtime: the
// library's classes land in the runtime's one class table, and its gateways
// become callable by name.

#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "support/HostCalls.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

TEST(LibraryLoading, ClassesAndGatewaysOfALoadedLibraryAreTheRuntimesOwn) {
    EXPECT_FALSE(qcos::omFindClass("dependencies.internal.attribute.AttributeAnalyzer"));
    EXPECT_FALSE(qvm::findHostFunction("createMissingFileAnalyzer"));

    qvm::loadLibrary(DEPATTR_LIBRARY);
    qvm::loadLibrary(DEPATTR_LIBRARY);  // a second load changes nothing

    for (auto const* name : {"AttributeAnalyzer", "AttributeIdentity", "Attribute", "GraphAttributes", "Severity"}) {
        EXPECT_TRUE(qcos::omFindClass(std::string("dependencies.internal.attribute.") + name)) << name;
    }
    // Through the VM, as host code calls it: the gateway runs on the command
    // thread and hands back an analyzer object the runtime knows.
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto const outputs = vm->feval("createMissingFileAnalyzer", {}, 1, vm->createRequestID(),
                                   cmddistributor::RunOptions(nullptr, nullptr, {}, {}))
                             .get();
    ASSERT_EQ(outputs.size(), 1u);
    auto const* object = qcos::cosiGetArrayElement(*outputs[0], 0);
    EXPECT_EQ(object->getClassName(), "dependencies.internal.attribute.AttributeAnalyzer");
    EXPECT_EQ(qcos::factory::basic::BindingRegistry::announcedClassOf(object->getNative().get()),
              "dependencies.internal.attribute.AttributeAnalyzer");
    // analyzeInQorvex has C linkage and plain output slots.
    EXPECT_TRUE(qvm::findHostFunction("analyzeInQorvex"));
    // Nothing else of the library, nor of the C library it links to, is
    // callable by name: calling abort or exit would end the host.
    for (auto const* name : {"strcat", "strtok", "sscanf", "atoi", "time", "abort", "exit", "getpid",
                             "QLInitialize_depattr", "QLGateways_depattr", "dlopen"}) {
        EXPECT_FALSE(qvm::findHostFunction(name)) << name;
        EXPECT_EQ(depattr_test::hostErrorIdentifier([&] { (void)qvm::callHostFunction(name, {}, 1); }),
                  "qvm:feval:undefinedFunction")
            << name;
    }

    EXPECT_EQ(depattr_test::hostErrorIdentifier([] { qvm::loadLibrary("libdepattr_no_such_library.so"); }),
              "qvm:library:cannotLoad");
}

}  // namespace

namespace {

// Each test runs in a process of its own: here the library is opened but not
// yet initialised, and eight threads race to initialise it.
TEST(LibraryLoading, InitialisationFromManyThreadsRegistersEachClassOnce) {
    void* library = dlopen(DEPATTR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto* initialize = reinterpret_cast<void (*)()>(dlsym(library, "QLInitialize_depattr"));
    ASSERT_NE(initialize, nullptr);
    std::atomic<bool> go{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            while (!go.load()) {
            }
            try {
                initialize();
            } catch (...) {
                ++failures;
            }
        });
    }
    go = true;
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
    auto const severity = qcos::omFindClass("dependencies.internal.attribute.Severity");
    ASSERT_TRUE(severity);
    initialize();
    EXPECT_EQ(qcos::omFindClass("dependencies.internal.attribute.Severity"), severity);
}

}  // namespace

#pragma once
// Calling the library the way host code does: through gateways, host methods
// and host properties, with analyzers written as script classes.

#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "services/Gateways.hpp"
#include "services/Initialize.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

namespace depattr_test {

// Every test starts from an initialised library and an empty registry.
class HostTest : public ::testing::Test {
protected:
    void SetUp() override {
        // As the host does: load the library (already linked, so found by its
        // name), which initialises it and makes its gateways callable by name.
        qvm::loadLibrary("libdepattr.so");
        qcos::registry::clearAttributeAnalyzers();
    }
    void TearDown() override { qcos::registry::clearAttributeAnalyzers(); }
};

// Calls a host method; failures are rethrown as the host error.
inline std::vector<qxArrayPtr> callMethod(std::string_view method, std::vector<qxArray const*> inputs,
                                          int outputCount = 1) {
    std::vector<qxArrayPtr> outputs(static_cast<std::size_t>(outputCount));
    if (!qcos::omCallMethod(qcos::COSGetPublicClient(), method, outputCount, outputs.data(),
                            static_cast<int>(inputs.size()), inputs.data())) {
        computils::qcos::throwErrorCallingQorvexException(std::string(method));
    }
    return outputs;
}

inline qxArrayPtr callOne(std::string_view method, std::vector<qxArray const*> inputs) {
    return std::move(callMethod(method, std::move(inputs)).front());
}

inline qxArrayPtr property(qxArray const& object, std::string_view name) {
    return qcos::omGetProperty(*qcos::cosiGetArrayElement(object, 0), name);
}

// Calls a host function by name (a gateway of the library, say) on this thread.
inline std::vector<qxArrayPtr> feval(std::string_view name, std::vector<qxArray const*> inputs = {},
                                     int outputCount = 1) {
    return qvm::callHostFunction(name, inputs, outputCount);
}

inline qxArrayPtr text(std::u16string_view value) {
    return qxArray::createString(value);
}

inline qxArrayPtr severity(std::string_view member) {
    return qcos::omGetConstantProperty("dependencies.internal.attribute.Severity", member);
}

// identity = AttributeIdentity(id, name, severity)
inline qxArrayPtr makeIdentity(std::u16string_view id, std::u16string_view name, std::string_view level) {
    auto const idText = text(id);
    auto const nameText = text(name);
    auto const levelValue = severity(level);
    qxArray const* inputs[] = {idText.get(), nameText.get(), levelValue.get()};
    qxArrayPtr out[1];
    if (!qcos::omCallStaticMethod(qcos::COSGetPublicClient(), "dependencies.internal.attribute.AttributeIdentity",
                                  "AttributeIdentity", 1, out, 3, inputs)) {
        computils::qcos::throwErrorCallingQorvexException("AttributeIdentity");
    }
    return std::move(out[0]);
}

// attribute = createAttribute(identity)
inline qxArrayPtr makeAttribute(qxArray const& identity) {
    return std::move(feval("createAttribute", {&identity}).front());
}

// A script class deriving from AttributeAnalyzer whose analyze is `body`.
// Class names must be unique in the process; `uniqueClassName` makes one.
inline std::string uniqueClassName(std::string_view stem) {
    static std::atomic<int> counter{0};
    return "test.analyzers." + std::string(stem) + std::to_string(counter.fetch_add(1));
}

inline qcos::COSInterfacePtr defineAnalyzer(std::string_view stem, qcos::MethodFunction body) {
    auto const name = uniqueClassName(stem);
    qcos::ScriptClassBuilder(name)
        .superclass("dependencies.internal.attribute.AttributeAnalyzer")
        .method("analyze", std::move(body))
        .define();
    return qcos::omCreateObject(name);
}

inline std::vector<qxArrayPtr> one(qxArrayPtr value) {
    std::vector<qxArrayPtr> outputs;
    outputs.push_back(std::move(value));
    return outputs;
}

inline qxArrayPtr emptyAttributes() {
    return qcos::omCreateQCOSMatrix(1, 0, "dependencies.internal.attribute.Attribute");
}

// Three file nodes a, b, c; b depends on c.
inline std::shared_ptr<dependency::graph::Graph const> threeFiles() {
    dependency::graph::GraphBuilder builder;
    for (char16_t const* id : {u"a", u"b", u"c"}) {
        builder.addNode(id, dependency::graph::Type::FILE());
    }
    builder.addDependency(u"b", u"c", dependency::graph::Type::CALL());
    return builder.build();
}

inline qxArrayPtr graphValue(std::shared_ptr<dependency::graph::Graph const> graph) {
    return qcos::omCreateQCOSScalar(
        dependency::services::toGraphObject(std::make_shared<dependency::services::ImmutableGraph>(std::move(graph))));
}

inline qxArrayPtr nodeValue(std::shared_ptr<dependency::graph::Node> node) {
    return qcos::omCreateQCOSScalar(dependency::services::toNodeObject(std::move(node)));
}

// A host row of analyzer objects.
inline qxArrayPtr analyzerRow(std::vector<qcos::COSInterfacePtr> const& objects, std::size_t rows = 1) {
    auto array =
        qxArray::createObjects({rows, objects.size() / rows}, "dependencies.internal.attribute.AttributeAnalyzer");
    for (std::size_t i = 0; i < objects.size(); ++i) {
        qcos::omSetArrayElement(*array, i, objects[i]);
    }
    qcos::omSetClassOfHeterogeneousArray(*array, "dependencies.internal.attribute.AttributeAnalyzer");
    return array;
}

// Expects `action` to throw a host error with that identifier; returns it.
template <class Action>
qcos::HostError expectHostError(Action&& action, std::string_view identifier) {
    auto const error = thrown<qcos::HostError>(std::forward<Action>(action)).value_or(qcos::HostError("", ""));
    EXPECT_EQ(error.identifier(), identifier) << error.what();
    return error;
}

}  // namespace depattr_test

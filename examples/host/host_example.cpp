// A host that uses depattr: it loads the library into the host runtime, puts
// an analyzer of its own into the host-language registry next to two built-in
// analyzers made through their gateways, runs analyzeInQorvex and reads the
// result through the host methods of the GraphAttributes object.
//
// This program links the runtime only, never the library: everything it gets
// from depattr it gets the way host code does, by name.
//
//   host_example [LIBRARY] [GRAPH]
//
// LIBRARY defaults to the libdepattr.so of the build, GRAPH to the bundled
// example project.

#include "platform/graph/GraphFile.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"
#include "services/HostClassNames.hpp"

#include <boost/locale/encoding_utf.hpp>

#include <iostream>
#include <string>
#include <vector>

namespace {

using Outputs = std::vector<qxArrayPtr>;

std::string narrow(std::u16string const& text) {
    return boost::locale::conv::utf_to_utf<char>(text);
}

// Host work belongs on the VM's command thread: feval runs a host function
// there and this thread waits for its outputs.
Outputs feval(std::string const& name, std::vector<qxArrayPtr> arguments) {
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    cmddistributor::RunOptions const toConsole(nullptr, nullptr, {}, {});
    return vm->feval(name, std::move(arguments), 1, vm->createRequestID(), toConsole).get();
}

// Calls a host method; on the command thread, as host code would.
qxArrayPtr call(std::string_view method, std::vector<qxArray const*> inputs) {
    qxArrayPtr output;
    if (!qcos::omCallMethod(qcos::COSGetPublicClient(), method, 1, &output, static_cast<int>(inputs.size()),
                            inputs.data())) {
        computils::qcos::throwErrorCallingQorvexException(std::string(method));
    }
    return output;
}

qxArrayPtr property(qxArray const& array, std::size_t index, std::string_view name) {
    return qcos::omGetProperty(*qcos::cosiGetArrayElement(array, index), name);
}

// The host analyzer: a class deriving from AttributeAnalyzer whose "analyze"
// takes (analyzer, node, graph) and returns an array of Attribute objects. It
// reports every node that depends on a node that was not found.
void defineUnresolvedDependencyAnalyzer() {
    qcos::ScriptClassBuilder("example.analyzers.UnresolvedDependency")
        .superclass(dependency::services::AttributeAnalyzerClassName)
        .method("analyze",
                [](std::span<qxArray const* const> inputs, int) {
                    auto const& node = *inputs[1];
                    auto const& graph = *inputs[2];
                    auto const dependencies = call("getDownstreamDependencies", {&graph, &node});
                    for (std::size_t i = 0; i < dependencies->getNumberOfElements(); ++i) {
                        auto const target = property(*dependencies, i, "DownstreamNode");
                        if (!property(*target, 0, "IsResolved")->getLogical(0)) {
                            // identity = AttributeIdentity("Unresolved", "Depends on a missing node", Severity.Warning)
                            qxArrayPtr identity;
                            auto const id = qxArray::createString(u"Unresolved");
                            auto const name = qxArray::createString(u"Depends on a missing node");
                            auto const severity =
                                qcos::omGetConstantProperty("dependencies.internal.attribute.Severity", "Warning");
                            qxArray const* arguments[] = {id.get(), name.get(), severity.get()};
                            if (!qcos::omCallStaticMethod(qcos::COSGetPublicClient(),
                                                          "dependencies.internal.attribute.AttributeIdentity",
                                                          "AttributeIdentity", 1, &identity, 3, arguments)) {
                                computils::qcos::throwErrorCallingQorvexException("AttributeIdentity");
                            }
                            qxArray const* identityArgument[] = {identity.get()};
                            return qvm::callHostFunction("createAttribute", identityArgument, 1);
                        }
                    }
                    Outputs nothing;
                    nothing.push_back(qcos::omCreateQCOSMatrix(1, 0, "dependencies.internal.attribute.Attribute"));
                    return nothing;
                })
        .define();
}

}  // namespace

int main(int argc, char** argv) try {
    std::string const library = argc > 1 ? argv[1] : DEPATTR_LIBRARY;
    std::string const graphFile = argc > 2 ? argv[2] : DEPATTR_EXAMPLE_GRAPH;

    // 1. Load the library: its entry point registers the classes under
    //    dependencies.internal.attribute, and its gateways become host functions.
    qvm::loadLibrary(library);

    // 2. Fill the registry: two built-in analyzers from their gateways, then ours.
    defineUnresolvedDependencyAnalyzer();
    for (auto const* gateway : {"createMissingFileAnalyzer", "createInvalidFormatAnalyzer"}) {
        qcos::registry::addAttributeAnalyzer(qcos::omGetArrayElement(*feval(gateway, {}).front(), 0));
    }
    qcos::registry::addAttributeAnalyzer(qcos::omCreateObject("example.analyzers.UnresolvedDependency"));

    // 3. Analyze: one input, so the registry decides which analyzers run.
    auto const graph = dependency::graph::loadGraphFile(graphFile);
    std::vector<qxArrayPtr> arguments;
    arguments.push_back(qcos::omCreateQCOSScalar(
        dependency::services::toGraphObject(std::make_shared<dependency::services::ImmutableGraph>(graph))));
    auto const result = std::move(feval("analyzeInQorvex", std::move(arguments)).front());

    // 4. Read the result through its host methods, on the command thread.
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto task = std::make_shared<cmddistributor::PackagedTaskIIP<void>>(
        [&] {
            auto const identities = call("getAllProblemIdentities", {result.get()});
            for (std::size_t i = 0; i < identities->getNumberOfElements(); ++i) {
                auto const identity = qcos::omCreateQCOSScalar(qcos::omGetArrayElement(*identities, i));
                auto const nodes = call("getNodesWith", {result.get(), identity.get()});
                std::cout << narrow(property(*identity, 0, "ID")->getString()) << ": "
                          << narrow(property(*identity, 0, "Name")->getString()) << '\n';
                for (std::size_t n = 0; n < nodes->getNumberOfElements(); ++n) {
                    std::cout << "  " << narrow(property(*nodes, n, "ID")->getString()) << '\n';
                }
            }
        },
        "host example");
    vm->getCmdDistributor()
        ->enqueueWithFuture(std::make_shared<cmddistributor::Request<void>>(qvm::detail::createID(), task),
                            cmddistributor::RunOptions(nullptr, nullptr, {}, {}))
        .get();
    return 0;
} catch (std::exception const& error) {
    std::cerr << "host_example: " << error.what() << '\n';
    return 1;
}

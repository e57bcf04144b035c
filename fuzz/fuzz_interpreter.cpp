// Feeds arbitrary bytes to the host-language interpreter, in three ways chosen
// by the first byte (modulo 3): as a function file whose first function is
// called, as a script, and as the body of an analyzer class that is defined, made and run
// on a small graph with a cycle. Each input runs under a step budget, a
// recursion limit and an element limit, so every input must end, and end
// either normally or with a qcos::HostError: anything else (a crash, a
// sanitizer report, a hang, another exception) is a finding.

#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/HostError.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Vm.hpp"
#include "platform/host/lang/Language.hpp"
#include "platform/host/lang/detail/Compiler.hpp"
#include "platform/host/lang/detail/Interpreter.hpp"
#include "platform/host/lang/detail/Runtime.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

// Steps are loop iterations and calls; elements bound every array the code
// makes (10^7 doubles: 80 MB).
constexpr long long stepBudget = 20000;
constexpr int recursionLimit = 64;
constexpr std::size_t elementLimit = 10'000'000;

struct Setup {
    std::shared_ptr<dependency::graph::Graph const> graph;

    Setup() {
        // What host code prints goes nowhere; libFuzzer reports on standard error.
        if (std::freopen("/dev/null", "w", stdout) == nullptr) {
            std::abort();
        }
        qvm::loadLibrary("libdepattr.so");
        qlang::registerBuiltins();
        qlang::setRecursionLimit(recursionLimit);
        qxArray::setElementLimit(elementLimit);
        using dependency::graph::Type;
        dependency::graph::GraphBuilder builder;
        for (auto const* id : {u"a.qx", u"b", u"c"}) {
            builder.addNode(id, Type::FILE());
        }
        builder.addDependency(u"a.qx", u"b", Type::CALL());
        builder.addDependency(u"b", u"c", Type::CALL());
        builder.addDependency(u"c", u"a.qx", Type::CALL());
        graph = builder.build();
    }
};

Setup const& setup() {
    static Setup const instance;
    return instance;
}

// The bytes as a function file, whose first function is called with no inputs.
void runFunctionFile(std::string_view code) {
    auto const file = qlang::detail::compileFile(ca::analyzeText(code), "fuzz.qx", "fuzz.qx", "fuzz", false);
    if (file->main != nullptr && !file->classSyntax) {
        (void)qlang::detail::callFunction(*file->main, nullptr, {}, 0);
    }
}

// The bytes as script text: statements, then local functions.
void runScriptText(std::string_view code) {
    (void)qlang::runScript(code, "fuzz.qx");
}

// The bytes as the body of an analyzer class, under a name of its own: a
// class once defined stays defined.
void runAnalyzerClass(std::string_view body) {
    static std::uint64_t serial = 0;
    std::string const name = "FuzzAnalyzer" + std::to_string(++serial);
    std::string code = "classdef " + name + " < dependencies.internal.attribute.AttributeAnalyzer\n";
    code += body;
    auto const file = qlang::detail::compileFile(ca::analyzeText(code), name + ".qx", name + ".qx", name, false);
    if (!file->classSyntax) {
        return;
    }
    (void)qlang::detail::CodeRuntime::get().defineClass(file);
    auto const analyzer = std::move(qlang::callFunction(name, {}, 1).at(0));
    auto const graphObject = qcos::omCreateQCOSScalar(dependency::services::toNodeCachingGraphObject(setup().graph));
    for (auto const& node : setup().graph->getNodes()) {
        auto const nodeObject = qcos::omCreateQCOSScalar(
            dependency::services::nodeObjectIn(*qcos::cosiGetArrayElement(*graphObject, 0), node));
        qxArray const* inputs[] = {analyzer.get(), nodeObject.get(), graphObject.get()};
        (void)qlang::callFunction("analyze", inputs, 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    (void)setup();
    if (size == 0) {
        return 0;
    }
    std::string_view const code(reinterpret_cast<char const*>(data) + 1, size - 1);
    qvm::setStepBudget(stepBudget);
    try {
        switch (data[0] % 3) {
        case 0:
            runFunctionFile(code);
            break;
        case 1:
            runScriptText(code);
            break;
        default:
            runAnalyzerClass(code);
            break;
        }
    } catch (qcos::HostError const&) {
        // The language's own errors are the expected end of bad code.
    }
    qvm::setStepBudget(-1);
    return 0;
}

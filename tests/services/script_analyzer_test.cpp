// Analyzers written in the host language, run through QorvexAnalyzer on the
// VM's command thread.

#include "HostTestSupport.hpp"

#include "attribute/GraphAttributes.hpp"
#include "services/QorvexAnalyzer.hpp"

#include <iostream>
#include <sstream>
#include <thread>

namespace {

using namespace depattr_test;
using dependency::attribute::QorvexAnalyzer;

class ScriptAnalyzer : public HostTest {};

// Host code of an analyzer that reports "Marked" on nodes whose ID starts with
// "b" and prints a line on every call.
qxArrayPtr markNodesStartingWithB(std::span<qxArray const* const> inputs) {
    qvm::print(u"analyzing\n");
    qvm::warning(u"a warning");
    auto const id = property(*inputs[1], "ID")->getString();
    if (id.empty() || id.front() != u'b') {
        return emptyAttributes();
    }
    auto const identity = makeIdentity(u"Marked", u"Starts with b", "Warning");
    return makeAttribute(*identity);
}

TEST_F(ScriptAnalyzer, FindingsComeBackAndPrintedTextVanishes) {
    std::thread::id analyzedOn;
    auto const object = defineAnalyzer("Marker", [&](std::span<qxArray const* const> inputs, int) {
        analyzedOn = std::this_thread::get_id();
        EXPECT_EQ(inputs.size(), 3u);
        EXPECT_EQ(inputs[2]->getClassName(), "dependencies.internal.graph.Graph");
        return one(markNodesStartingWithB(inputs));
    });
    auto const analyzer = std::make_shared<QorvexAnalyzer>(object);
    EXPECT_EQ(analyzer->getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.AttributeAnalyzer");

    std::ostringstream captured;
    auto* const savedOut = std::cout.rdbuf(captured.rdbuf());
    auto* const savedErr = std::cerr.rdbuf(captured.rdbuf());
    auto const graph = threeFiles();
    auto const result = dependency::attribute::analyzeGraph(graph, {analyzer});
    std::cout.rdbuf(savedOut);
    std::cerr.rdbuf(savedErr);

    EXPECT_EQ(captured.str(), "");
    EXPECT_NE(analyzedOn, std::this_thread::get_id());
    EXPECT_TRUE(result->getAttributes(graph->findNode(u"a")).empty());
    auto const found = result->getAttributes(graph->findNode(u"b"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]->getID(), u"Marked");
    EXPECT_EQ(found[0]->getSeverity(), dependency::attribute::Severity::Warning);
}

TEST_F(ScriptAnalyzer, HostFailuresEndTheAnalysisWithTheHostError) {
    auto const graph = threeFiles();
    auto const node = graph->findNode(u"a");

    auto const failing =
        std::make_shared<QorvexAnalyzer>(defineAnalyzer("Failing", [](auto, int) -> std::vector<qxArrayPtr> {
            throw qcos::HostError("user:analyzer:broken", "The analyzer broke.");
        }));
    auto const error =
        expectHostError([&] { dependency::attribute::analyzeGraph(graph, {failing}); }, "user:analyzer:broken");
    EXPECT_STREQ(error.what(), "The analyzer broke.");
    EXPECT_EQ(error.context(), "AttributeAnalyzer.analyze");

    auto const wrongType = std::make_shared<QorvexAnalyzer>(
        defineAnalyzer("WrongType", [](auto, int) { return one(matrix::to_qorvex(1.0)); }));
    expectHostError([&] { wrongType->analyze(node, graph); }, "qcos:type:wrongClass");

    // A subclass without its own analyze reaches the binding's, which needs a native analyzer.
    auto const name = uniqueClassName("NoAnalyze");
    qcos::ScriptClassBuilder(name).superclass("dependencies.internal.attribute.AttributeAnalyzer").define();
    auto const noAnalyze = std::make_shared<QorvexAnalyzer>(qcos::omCreateObject(name));
    expectHostError([&] { noAnalyze->analyze(node, graph); }, "qcos:binding:invalidSelf");
}

TEST_F(ScriptAnalyzer, WithoutACommandDistributorNothingRuns) {
    std::atomic<int> calls{0};
    auto const analyzer = std::make_shared<QorvexAnalyzer>(defineAnalyzer("Counting", [&](auto, int) {
        ++calls;
        return one(emptyAttributes());
    }));
    auto const graph = threeFiles();
    auto const previous = qvm::Factory::getCurrentLocalQVM();
    qvm::Factory::setCurrentLocalQVM(qvm::QVM::create(false));
    try {
        analyzer->analyze(graph->findNode(u"a"), graph);
        ADD_FAILURE() << "no error";
    } catch (cmddistributor::RuntimeException const& error) {
        EXPECT_EQ(error.getExecutionStatus(), 2);
        EXPECT_EQ(error.getMessage(), "No CmdDistributor available");
    }
    qvm::Factory::setCurrentLocalQVM(previous);
    EXPECT_EQ(calls.load(), 0);
}

TEST_F(ScriptAnalyzer, TheAdapterKeepsItsHostObjectAlive) {
    auto object = defineAnalyzer("Kept", [](auto, int) { return one(emptyAttributes()); });
    auto const* raw = object.get();
    auto const analyzer = std::make_shared<QorvexAnalyzer>(object);
    object.reset();
    EXPECT_EQ(raw->referenceCount(), 1u);
    EXPECT_EQ(analyzer->getAnalyzerObject().get(), raw);
}

}  // namespace

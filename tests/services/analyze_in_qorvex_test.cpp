// The host's road into an analysis: gateways, analyzeInQorvex and the result's
// host methods.

#include "HostTestSupport.hpp"

#include "attribute/GraphAttributes.hpp"
#include "services/AnalyzeInQorvex.hpp"
#include "services/AnalyzerRegistry.hpp"

#include <thread>

namespace {

using namespace depattr_test;

class AnalyzeInQorvex : public HostTest {};

// An analyzer that reports "Seen" (Information) on every node and counts its calls.
struct CountingAnalyzer {
    std::shared_ptr<std::atomic<int>> calls = std::make_shared<std::atomic<int>>(0);
    qcos::COSInterfacePtr object = defineAnalyzer("Seen", [calls = calls](std::span<qxArray const* const>, int) {
        ++*calls;
        return one(makeAttribute(*makeIdentity(u"Seen", u"Was analyzed", "Information")));
    });
};

qxArrayPtr analyze(std::vector<qxArray const*> inputs, int outputCount = 1) {
    qxArray* slot[1] = {nullptr};
    dependency::services::analyzeInQorvex(outputCount, slot, static_cast<int>(inputs.size()), inputs.data());
    return qxArrayPtr(slot[0]);
}

std::u16string idsOf(qxArray const& row, std::string_view propertyName) {
    std::u16string ids;
    for (std::size_t i = 0; i < row.getNumberOfElements(); ++i) {
        ids += (i ? u"," : u"") + qcos::omGetProperty(*qcos::cosiGetArrayElement(row, i), propertyName)->getString();
    }
    return ids;
}

TEST_F(AnalyzeInQorvex, ArgumentCountsAreCheckedFirstAndRunNothing) {
    CountingAnalyzer counting;
    qcos::registry::addAttributeAnalyzer(counting.object);
    auto const graph = graphValue(threeFiles());
    auto const analyzers = analyzerRow({counting.object});
    expectHostError([&] { analyze({graph.get()}, 2); }, "qorvex:maxlhs");
    expectHostError([&] { analyze({graph.get(), analyzers.get(), analyzers.get()}, 2); }, "qorvex:maxlhs");
    expectHostError([&] { analyze({graph.get(), analyzers.get(), analyzers.get()}); }, "qorvex:maxrhs");
    expectHostError([&] { analyze({}); }, "qorvex:minrhs");
    auto const notGraph = matrix::to_qorvex(1.0);
    expectHostError([&] { analyze({notGraph.get()}); }, "qcos:array:notObjectArray");
    EXPECT_EQ(counting.calls->load(), 0);

    for (auto const* gateway : {"createMissingFileAnalyzer", "createCircularProjectReferenceAnalyzer"}) {
        auto const input = matrix::to_qorvex(1.0);
        expectHostError([&] { feval(gateway, {input.get()}); }, "qorvex:maxrhs");
        expectHostError([&] { feval(gateway, {}, 2); }, "qorvex:maxlhs");
    }
}

TEST_F(AnalyzeInQorvex, OneInputRunsTheRegistryTwoInputsExactlyTheGivenAnalyzers) {
    CountingAnalyzer registered;
    CountingAnalyzer given;
    qcos::registry::addAttributeAnalyzer(registered.object);
    auto const graph = graphValue(threeFiles());

    auto const fromRegistry = analyze({graph.get()});
    EXPECT_EQ(fromRegistry->getClassName(), "dependencies.internal.attribute.GraphAttributes");
    EXPECT_EQ(registered.calls->load(), 3);

    auto const onlyGiven = analyzerRow({given.object});
    analyze({graph.get(), onlyGiven.get()});
    EXPECT_EQ(registered.calls->load(), 3);
    EXPECT_EQ(given.calls->load(), 3);

    // No analyzers: an empty result whose queries all give 1-by-0 rows.
    auto const none = analyzerRow({});
    auto const empty = analyze({graph.get(), none.get()}, 0);
    auto const node = nodeValue(threeFiles()->findNode(u"a"));
    EXPECT_EQ(callOne("getAttributes", {empty.get(), node.get()})->getDimensions(), (qxArray::Dimensions{1, 0}));
    EXPECT_EQ(callOne("getAllProblemIdentities", {empty.get()})->getDimensions(), (qxArray::Dimensions{1, 0}));
}

TEST_F(AnalyzeInQorvex, TheResultAnswersThroughItsHostMethods) {
    CountingAnalyzer seen;
    auto const graphNative = threeFiles();
    auto const graph = graphValue(graphNative);
    auto const missingFile = std::move(feval("createMissingFileAnalyzer").front());
    auto const analyzers = analyzerRow({qcos::omGetArrayElement(*missingFile, 0), seen.object});
    auto const result = analyze({graph.get(), analyzers.get()});

    // Graph nodes are no files on disk: missing-file reports the Warning
    // "Missing", then the Information "Seen" follows.
    auto const b = nodeValue(graphNative->findNode(u"b"));
    EXPECT_EQ(idsOf(*callOne("getAttributes", {result.get(), b.get()}), "ID"), u"Missing,Seen");
    auto const warning = severity("Warning");
    EXPECT_EQ(idsOf(*callOne("getAttributes", {result.get(), b.get(), warning.get()}), "ID"), u"Missing");
    auto const elsewhere = nodeValue(threeFiles()->findNode(u"a"));
    EXPECT_EQ(callOne("getAttributes", {result.get(), elsewhere.get()})->getNumberOfElements(), 2u);
    auto const stranger = nodeValue(std::make_shared<dependency::graph::Node>(dependency::graph::NodeData{}));
    auto const nothing = callOne("getAttributes", {result.get(), stranger.get()});
    EXPECT_EQ(nothing->getDimensions(), (qxArray::Dimensions{1, 0}));
    EXPECT_EQ(nothing->getClassName(), "dependencies.internal.attribute.Attribute");

    auto const identity = makeIdentity(u"Seen", u"Was analyzed", "Information");
    EXPECT_EQ(idsOf(*callOne("getNodesWith", {result.get(), identity.get()}), "ID"), u"a,b,c");
    // Warning identities count as problems; Information ones never do.
    EXPECT_EQ(idsOf(*callOne("getAllProblemIdentities", {result.get()}), "ID"), u"Missing");

    auto const native = matrix::from_qorvex<dependency::attribute::GraphAttributes>(*result);
    EXPECT_EQ(native->getNodesWith(*matrix::from_qorvex<dependency::attribute::AttributeIdentity>(*identity)).size(),
              3u);
}

TEST_F(AnalyzeInQorvex, RunsFromTheCommandThreadAndFromAnyOther) {
    CountingAnalyzer registered;
    qcos::registry::addAttributeAnalyzer(registered.object);
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    std::vector<qxArrayPtr> arguments;
    arguments.push_back(graphValue(threeFiles()));
    // feval runs the gateway on the command thread, which then runs the
    // registry and the script analyzer nested instead of waiting for itself.
    auto const outputs = vm->feval("analyzeInQorvex", std::move(arguments), 1, vm->createRequestID(),
                                   cmddistributor::RunOptions(nullptr, nullptr, {}, {}))
                             .get();
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0]->getClassName(), "dependencies.internal.attribute.GraphAttributes");
    EXPECT_EQ(registered.calls->load(), 3);

    auto const graph = graphValue(threeFiles());
    std::thread other([&] { analyze({graph.get()}); });
    other.join();
    EXPECT_EQ(registered.calls->load(), 6);
}

TEST_F(AnalyzeInQorvex, AGatewayAnalyzerPassedBackRunsNativelyAsItself) {
    auto slot = qxArray::createScalar(0.0);
    qxArray* const previous = slot.get();
    qxArrayPtr slots[1] = {std::move(slot)};
    createMissingFileAnalyzer(0, slots, 0, nullptr);  // slot 1 is set even for zero outputs
    ASSERT_TRUE(slots[0]);
    EXPECT_NE(slots[0].get(), previous);
    auto const first = matrix::from_qorvex<dependency::attribute::AttributeAnalyzer>(*slots[0]);
    auto const second =
        matrix::from_qorvex<dependency::attribute::AttributeAnalyzer>(*feval("createMissingFileAnalyzer").front());
    EXPECT_NE(first, second);

    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto const back = dependency::attribute::fromAttributeAnalyzerQxArray(*slots[0], vm);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_EQ(back[0], first);
    auto const graph = graphValue(threeFiles());
    auto const result = analyze({graph.get(), slots[0].get()});
    auto const a = nodeValue(threeFiles()->findNode(u"a"));
    EXPECT_EQ(idsOf(*callOne("getAttributes", {result.get(), a.get()}), "Name"), u"File not found");
}

}  // namespace

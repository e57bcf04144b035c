#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/Vm.hpp"
#include "support/HostCalls.hpp"

#include <gtest/gtest.h>

namespace {

using dependency::graph::GraphBuilder;
using dependency::graph::NodeData;
using dependency::graph::Type;

using depattr_test::callMethod;
using depattr_test::hostErrorIdentifier;

qxArrayPtr property(qxArray const& object, std::string_view name) {
    return qcos::omGetProperty(*qcos::cosiGetArrayElement(object, 0), name);
}

std::shared_ptr<dependency::graph::Graph const> sampleGraph() {
    GraphBuilder builder;
    NodeData main;
    main.id = u"/p/main.qx";
    main.name = u"main";
    main.type = Type::FILE();
    main.path = u"/p/main.qx";
    main.location = {u"/p", u"main.qx"};
    main.isFile = true;
    main.properties = {{u"syntaxError", u"true"}};
    builder.addNode(std::move(main));
    builder.addNode(u"helper", Type::FUNCTION());
    builder.addNode(u"toolbox", Type::PRODUCT());
    builder.addDependency(u"/p/main.qx", u"helper", Type::CALL());
    builder.addDependency(u"/p/main.qx", u"toolbox", Type::REQUIREMENT());
    return builder.build();
}

TEST(HostClasses, NodeObjectsExposeWhatAHostAnalyzerReads) {
    auto const graph = sampleGraph();
    auto const native = graph->findNode(u"/p/main.qx");
    auto const node = qcos::omCreateQCOSScalar(dependency::services::toNodeObject(native));
    EXPECT_EQ(node->getClassName(), "dependencies.internal.graph.Node");
    EXPECT_EQ(property(*node, "ID")->getString(), u"/p/main.qx");
    EXPECT_EQ(property(*node, "Name")->getString(), u"main");
    EXPECT_EQ(property(*node, "Type")->getString(), u"file");
    EXPECT_EQ(property(*node, "Path")->getString(), u"/p/main.qx");
    EXPECT_TRUE(property(*node, "IsFile")->getLogical(0));
    EXPECT_TRUE(property(*node, "IsResolved")->getLogical(0));
    EXPECT_EQ(property(*node, "LocationCount")->getDouble(0), 2.0);

    auto const second = matrix::to_qorvex(2.0);
    auto const third = matrix::to_qorvex(3.0);
    EXPECT_EQ(callMethod("getLocation", {node.get(), second.get()})->getString(), u"main.qx");
    try {
        callMethod("getLocation", {node.get(), third.get()});
        FAIL() << "no error thrown";
    } catch (qcos::HostError const& error) {
        EXPECT_EQ(error.identifier(), "graph:node:locationIndex");
        EXPECT_EQ(error.context(), "getLocation");
    }

    auto const key = matrix::to_qorvex(std::u16string_view(u"syntaxError"));
    auto const absent = matrix::to_qorvex(std::u16string_view(u"futureRelease"));
    EXPECT_EQ(callMethod("getProperty", {node.get(), key.get()})->getString(), u"true");
    EXPECT_TRUE(callMethod("getProperty", {node.get(), absent.get()})->isEmpty());
    EXPECT_FALSE(callMethod("hasProperty", {node.get(), absent.get()})->getLogical(0));

    // Converting back yields the very same native node.
    EXPECT_EQ(dependency::services::fromScalarNodeQxArray(*node), native);
}

TEST(HostClasses, GraphObjectsListNodesAndDownstreamDependencies) {
    auto const graph = sampleGraph();
    auto const shared = std::make_shared<dependency::services::ImmutableGraph>(graph);
    auto const object = qcos::omCreateQCOSScalar(dependency::services::toGraphObject(shared));
    EXPECT_EQ(dependency::services::fromScalarGraphQxArray(*object), graph);
    EXPECT_EQ(property(*object, "NodeCount")->getDouble(0), 3.0);

    auto const nodes = callMethod("getNodes", {object.get()});
    EXPECT_EQ(nodes->getDimensions(), (qxArray::Dimensions{1, 3}));
    EXPECT_TRUE(nodes->isHeterogeneous());
    std::vector<std::u16string> ids;
    for (std::size_t i = 0; i < nodes->getNumberOfElements(); ++i) {
        ids.push_back(qcos::omGetProperty(*qcos::cosiGetArrayElement(*nodes, i), "ID")->getString());
    }
    EXPECT_EQ(ids, (std::vector<std::u16string>{u"/p/main.qx", u"helper", u"toolbox"}));

    auto const main = qcos::omCreateQCOSScalar(qcos::omGetArrayElement(*nodes, 0));
    auto const edges = callMethod("getDownstreamDependencies", {object.get(), main.get()});
    ASSERT_EQ(edges->getNumberOfElements(), 2u);
    auto const* requirement = qcos::cosiGetArrayElement(*edges, 1);
    EXPECT_EQ(qcos::omGetProperty(*requirement, "Relationship")->getString(), u"requirement");
    auto const downstream = qcos::omGetProperty(*requirement, "DownstreamNode");
    EXPECT_EQ(property(*downstream, "ID")->getString(), u"toolbox");
    auto const upstream = qcos::omGetProperty(*requirement, "UpstreamNode");
    EXPECT_EQ(dependency::services::fromScalarNodeQxArray(*upstream), graph->findNode(u"/p/main.qx"));

    // A leaf has no downstream dependencies: a 1-by-0 row.
    auto const leaf = qcos::omCreateQCOSScalar(qcos::omGetArrayElement(*nodes, 2));
    EXPECT_EQ(callMethod("getDownstreamDependencies", {object.get(), leaf.get()})->getDimensions(),
              (qxArray::Dimensions{1, 0}));
    // Arguments of the wrong class are refused by the signature check.
    EXPECT_EQ(hostErrorIdentifier([&] {
                  callMethod("getDownstreamDependencies", {object.get(), object.get()});
              }),
              "qcos:method:wrongArgumentType");
    EXPECT_THROW(dependency::services::fromScalarGraphQxArray(*main), qcos::HostError);
}

TEST(HostClasses, RegistryListsAddedAnalyzersThroughItsInstance) {
    qcos::ScriptClassBuilder("test.host.classes.CountingAnalyzer")
        .superclass("dependencies.internal.attribute.AttributeAnalyzer")
        .superclass("qorvex.mixin.Heterogeneous")
        .define();
    EXPECT_TRUE(qcos::omIsA("test.host.classes.CountingAnalyzer", "qorvex.mixin.Heterogeneous"));
    EXPECT_TRUE(qcos::omFindClass("qorvex.mixin.Heterogeneous") != nullptr);
    qcos::registry::clearAttributeAnalyzers();
    auto const read = [] {
        return qvm::evaluate(u"dependencies.internal.attribute.Registry.Instance.AttributeAnalyzers");
    };
    auto const initial = read();
    EXPECT_EQ(initial->getDimensions(), (qxArray::Dimensions{1, 0}));
    EXPECT_EQ(initial->getClassName(), "dependencies.internal.attribute.AttributeAnalyzer");

    auto const first = qcos::omCreateObject("test.host.classes.CountingAnalyzer");
    auto const second = qcos::omCreateObject("test.host.classes.CountingAnalyzer");
    qcos::registry::addAttributeAnalyzer(first);
    qcos::registry::addAttributeAnalyzer(second);
    auto listed = read();
    ASSERT_EQ(listed->getDimensions(), (qxArray::Dimensions{1, 2}));
    EXPECT_TRUE(listed->isHeterogeneous());
    EXPECT_EQ(listed->getObject(0), first);
    EXPECT_EQ(listed->getObject(1), second);

    // Only analyzers may be registered.
    qcos::ScriptClassBuilder("test.host.classes.NotAnAnalyzer").define();
    EXPECT_THROW(qcos::registry::addAttributeAnalyzer(qcos::omCreateObject("test.host.classes.NotAnAnalyzer")),
                 qcos::HostError);

    qcos::registry::clearAttributeAnalyzers();
    EXPECT_TRUE(read()->isEmpty());
    listed.reset();
    EXPECT_EQ(first->referenceCount(), 1u);  // the registry let go of it
}

}  // namespace

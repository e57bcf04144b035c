#include "attribute/GraphAttributes.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/TestGraphs.hpp"

#include <boost/range/adaptor/transformed.hpp>
#include <gtest/gtest.h>

#include <map>

using namespace dependency::attribute;
using depattr_test::makeNode;
using depattr_test::ScriptedAnalyzer;
using depattr_test::SequenceGraph;
using dependency::graph::Node;
using dependency::graph::NodeRange;

namespace {

using Attributes = std::vector<std::shared_ptr<Attribute>>;

std::shared_ptr<AttributeIdentity> identity(std::u16string id, Severity severity, std::u16string name = u"name") {
    return std::make_shared<AttributeIdentity>(id, name, severity);
}

std::shared_ptr<Attribute> attributeOf(std::shared_ptr<AttributeIdentity> const& identity) {
    return std::make_shared<Attribute>(identity, std::function<void()>{});
}

// An analyzer that returns fixed attributes per node ID.
std::shared_ptr<ScriptedAnalyzer> table(std::map<std::u16string, Attributes> byId) {
    return std::make_shared<ScriptedAnalyzer>([byId = std::move(byId)](Node const& node) {
        auto const it = byId.find(node.getID());
        return it == byId.end() ? Attributes{} : it->second;
    });
}

std::vector<std::u16string> idsOf(std::vector<std::shared_ptr<Node>> const& nodes) {
    std::vector<std::u16string> ids;
    for (auto const& node : nodes) {
        ids.push_back(node->getID());
    }
    return ids;
}

}  // namespace

TEST(AnalyzeGraphTest, EmptyAnalyzerListOrEmptyGraphGivesAnEmptyResult) {
    auto const a = makeNode(u"a");
    auto const graph = std::make_shared<SequenceGraph>(std::vector{a});
    auto const result = analyzeGraph(graph, {});
    EXPECT_TRUE(result->getAttributes(a).empty());
    EXPECT_TRUE(result->getAttributes(a, Severity::Information).empty());
    EXPECT_TRUE(result->getNodesWith(AttributeIdentity(u"x", u"y", Severity::Problem)).empty());
    EXPECT_TRUE(result->getAllProblemIdentities().empty());
    EXPECT_EQ(result->getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.GraphAttributes");

    auto const analyzer = table({});
    analyzeGraph(std::make_shared<SequenceGraph>(std::vector<std::shared_ptr<Node>>{}), {analyzer});
    EXPECT_TRUE(analyzer->calls.empty());
}

TEST(AnalyzeGraphTest, VisitsNodesInRangeOrderAndAnalyzersInListOrder) {
    auto const a = makeNode(u"a");
    auto const b = makeNode(u"b");
    auto const c = makeNode(u"c");
    auto const x = attributeOf(identity(u"X", Severity::Warning));
    auto const y = attributeOf(identity(u"Y", Severity::Problem));
    auto const z = attributeOf(identity(u"Z", Severity::Information));

    std::vector<std::u16string> order;
    auto const first = std::make_shared<ScriptedAnalyzer>([&](Node const& node) {
        order.push_back(u"A:" + node.getID());
        return node.getID() == u"b" ? Attributes{x, y} : Attributes{};
    });
    auto const second = std::make_shared<ScriptedAnalyzer>([&](Node const& node) {
        order.push_back(u"B:" + node.getID());
        return node.getID() == u"c" ? Attributes{} : Attributes{z};
    });
    // The range order, not the node order, drives the walk.
    auto const graph = std::make_shared<SequenceGraph>(std::vector{c, a, b});
    auto const result = analyzeGraph(graph, {first, second});

    EXPECT_EQ(order, (std::vector<std::u16string>{u"A:c", u"B:c", u"A:a", u"B:a", u"A:b", u"B:b"}));
    EXPECT_EQ(result->getAttributes(b), (Attributes{x, y, z}));  // A's findings, in A's order, then B's
    EXPECT_EQ(result->getAttributes(a), (Attributes{z}));
    EXPECT_TRUE(result->getAttributes(c).empty());  // a node without findings is absent
    EXPECT_TRUE(result->getNodesWith(*identity(u"Y", Severity::Problem)).size() == 1);
}

TEST(AnalyzeGraphTest, ANodeYieldedTwiceKeepsItsFirstVisitsFindings) {
    auto const a = makeNode(u"a");
    auto const aAgain = makeNode(u"a");  // a distinct but equivalent node object
    auto const first = attributeOf(identity(u"First", Severity::Warning));
    auto const second = attributeOf(identity(u"Second", Severity::Problem));
    int visits = 0;
    auto const analyzer = std::make_shared<ScriptedAnalyzer>(
        [&](Node const&) { return ++visits == 1 ? Attributes{first} : Attributes{second}; });
    auto const result = analyzeGraph(std::make_shared<SequenceGraph>(std::vector{a, aAgain}), {analyzer});
    EXPECT_EQ(visits, 2);
    EXPECT_EQ(result->getAttributes(aAgain), (Attributes{first}));
    EXPECT_TRUE(result->getNodesWith(*second->getIdentity()).empty());
    // The stored key is the pointer from the first visit.
    auto const nodes = result->getNodesWith(*first->getIdentity());
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_EQ(nodes[0], a);

    // An empty first visit stores nothing, so a later visit's findings do count.
    visits = 0;
    auto const emptyFirst = std::make_shared<ScriptedAnalyzer>(
        [&](Node const&) { return ++visits == 1 ? Attributes{} : Attributes{second}; });
    auto const later = analyzeGraph(std::make_shared<SequenceGraph>(std::vector{a, aAgain}), {emptyFirst});
    EXPECT_EQ(later->getAttributes(a), (Attributes{second}));
}

TEST(AnalyzeGraphTest, AnExceptionEndsTheAnalysisAtOnce) {
    auto const nodes = std::vector{makeNode(u"n1"), makeNode(u"n2"), makeNode(u"n3"), makeNode(u"n4")};
    auto const finding = attributeOf(identity(u"X", Severity::Problem));
    auto const before = table({{u"n1", {finding}}, {u"n3", {finding}}});
    auto const thrower = std::make_shared<ScriptedAnalyzer>([](Node const& node) -> Attributes {
        if (node.getID() == u"n3") {
            throw std::domain_error("third node");
        }
        return {};
    });
    auto const after = table({});
    std::shared_ptr<GraphAttributes> result;
    EXPECT_THROW(result = analyzeGraph(std::make_shared<SequenceGraph>(nodes), {before, thrower, after}),
                 std::domain_error);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(before->calls, (std::vector<std::u16string>{u"n1", u"n2", u"n3"}));
    EXPECT_EQ(thrower->calls, (std::vector<std::u16string>{u"n1", u"n2", u"n3"}));
    EXPECT_EQ(after->calls, (std::vector<std::u16string>{u"n1", u"n2"}));  // not run on the third node
    // The partial result died with the exception: nothing holds the finding but us.
    EXPECT_EQ(finding.use_count(), 1 + 2);  // ours and the table's two entries
}

namespace {

// A graph whose node range fails while it is walked.
class FailingRangeGraph : public dependency::graph::Graph {
public:
    struct Boom : std::runtime_error {
        Boom() : std::runtime_error("range failed") {}
    };
    NodeRange getNodes() const override { return NodeRange(nodes_ | boost::adaptors::transformed(Checked{})); }
    struct Checked {
        std::shared_ptr<Node> const& operator()(std::shared_ptr<Node> const& node) const {
            if (node->getID() == u"bad") {
                throw Boom();
            }
            return node;
        }
    };
    std::vector<std::shared_ptr<Node>> nodes_{makeNode(u"good"), makeNode(u"bad")};
};

}  // namespace

TEST(AnalyzeGraphTest, AFailingNodeRangePropagates) {
    auto const analyzer = table({{u"good", {attributeOf(identity(u"X", Severity::Warning))}}});
    EXPECT_THROW(analyzeGraph(std::make_shared<FailingRangeGraph>(), {analyzer}), FailingRangeGraph::Boom);
    EXPECT_EQ(analyzer->calls, (std::vector<std::u16string>{u"good"}));
}

TEST(GraphAttributesTest, SeverityThresholdKeepsListOrder) {
    auto const node = makeNode(u"n");
    auto const w = attributeOf(identity(u"W", Severity::Warning));
    auto const p1 = attributeOf(identity(u"P", Severity::Problem));
    auto const i = attributeOf(identity(u"I", Severity::Information));
    auto const p2 = attributeOf(identity(u"Q", Severity::Problem));
    auto const result =
        analyzeGraph(std::make_shared<SequenceGraph>(std::vector{node}), {table({{u"n", {w, p1, i, p2}}})});
    EXPECT_EQ(result->getAttributes(node, Severity::Problem), (Attributes{p1, p2}));
    EXPECT_EQ(result->getAttributes(node, Severity::Warning), (Attributes{w, p1, p2}));
    EXPECT_EQ(result->getAttributes(node, Severity::Information), (Attributes{w, p1, i, p2}));
    EXPECT_EQ(result->getAttributes(node), (Attributes{w, p1, i, p2}));
    EXPECT_TRUE(result->getAttributes(makeNode(u"stranger"), Severity::Warning).empty());
}

TEST(GraphAttributesTest, GetNodesWithListsEachNodeOnceInNodeOrderByIdentityValue) {
    auto const a = makeNode(u"a");
    auto const b = makeNode(u"b");
    auto const c = makeNode(u"c");
    auto const one = identity(u"Missing", Severity::Warning, u"File is missing");
    auto const equalTwin = identity(u"Missing", Severity::Warning, u"File is missing");
    auto const otherName = identity(u"Missing", Severity::Warning, u"Function is missing");
    // Range order c, b, a; b carries the identity twice, a through an equal twin object.
    auto const result = analyzeGraph(std::make_shared<SequenceGraph>(std::vector{c, b, a}),
                                     {table({{u"a", {attributeOf(equalTwin)}},
                                             {u"b", {attributeOf(one), attributeOf(one)}},
                                             {u"c", {attributeOf(otherName)}}})});
    auto const probe = AttributeIdentity(u"Missing", u"File is missing", Severity::Warning);
    EXPECT_EQ(idsOf(result->getNodesWith(probe)), (std::vector<std::u16string>{u"a", u"b"}));
    EXPECT_EQ(idsOf(result->getNodesWith(*otherName)), (std::vector<std::u16string>{u"c"}));
    EXPECT_TRUE(result->getNodesWith(AttributeIdentity(u"Missing", u"File is missing", Severity::Problem)).empty());
    // The returned pointers are the stored node objects.
    EXPECT_EQ(result->getNodesWith(probe)[0], a);
}

TEST(GraphAttributesTest, ProblemIdentitiesIncludeWarningsAreDistinctAndSorted) {
    auto const xWarning = identity(u"X", Severity::Warning);
    auto const xProblem = identity(u"X", Severity::Problem);
    auto const wProblem = identity(u"W", Severity::Problem);
    auto const xWarningTwin = identity(u"X", Severity::Warning);
    auto const info = identity(u"A", Severity::Information);
    auto const a = makeNode(u"a");
    auto const b = makeNode(u"b");
    auto const result =
        analyzeGraph(std::make_shared<SequenceGraph>(std::vector{b, a}),
                     {table({{u"a", {attributeOf(info), attributeOf(xWarning), attributeOf(xProblem)}},
                             {u"b", {attributeOf(xWarningTwin), attributeOf(wProblem), attributeOf(info)}}})});
    auto const identities = result->getAllProblemIdentities();
    ASSERT_EQ(identities.size(), 3u);
    EXPECT_EQ(identities[0], wProblem);
    EXPECT_EQ(identities[1], xWarning);  // the first met in node order (a before b), not the twin
    EXPECT_EQ(identities[2], xProblem);

    auto const onlyInformation =
        analyzeGraph(std::make_shared<SequenceGraph>(std::vector{a}), {table({{u"a", {attributeOf(info)}}})});
    EXPECT_TRUE(onlyInformation->getAllProblemIdentities().empty());
}

TEST(GraphAttributesTest, LookupsThroughEquivalentNodeObjectsAndResultsOutliveTheContainer) {
    auto const stored = makeNode(u"shared-id");
    auto const finding = attributeOf(identity(u"X", Severity::Problem));
    auto result =
        analyzeGraph(std::make_shared<SequenceGraph>(std::vector{stored}), {table({{u"shared-id", {finding}}})});
    auto const lookalike = makeNode(u"shared-id");
    auto const found = result->getAttributes(lookalike);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], finding);  // the same object, not a copy
    auto const nodes = result->getNodesWith(*finding->getIdentity());
    result.reset();
    EXPECT_EQ(found[0]->getID(), u"X");
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_EQ(nodes[0], stored);
}

TEST(GraphAttributesTest, TheSameAttributeObjectMayServeSeveralNodes) {
    auto const shared = attributeOf(identity(u"S", Severity::Warning));
    auto const a = makeNode(u"a");
    auto const b = makeNode(u"b");
    auto const result = analyzeGraph(std::make_shared<SequenceGraph>(std::vector{a, b}),
                                     {table({{u"a", {shared, shared}}, {u"b", {shared}}})});
    EXPECT_EQ(result->getAttributes(a), (Attributes{shared, shared}));
    EXPECT_EQ(idsOf(result->getNodesWith(*shared->getIdentity())), (std::vector<std::u16string>{u"a", u"b"}));
}

TEST(GraphAttributesTest, AStoredGraphAndTheSameNodesYieldedByAViewGiveTheSameResult) {
    // The stored graph's result is put in order by the graph's ID order, the
    // view's by comparing nodes: every query must agree, in node order.
    dependency::graph::GraphBuilder builder;
    std::vector<std::shared_ptr<Node>> nodes;
    std::map<std::u16string, Attributes> byId;
    auto const warning = identity(u"W", Severity::Warning);
    auto const problem = identity(u"P", Severity::Problem);
    auto const information = identity(u"I", Severity::Information);
    for (int i = 0; i < 300; ++i) {
        std::u16string id = u"n" + std::u16string(1, static_cast<char16_t>(u'a' + (i * 11) % 26)) +
                            std::u16string(static_cast<std::size_t>(i % 7), u'x') + std::u16string(1, char16_t(i));
        nodes.push_back(builder.addNode(id, dependency::graph::Type::FILE()));
        if (i % 3 == 0) {
            byId[id] = {attributeOf(i % 2 == 0 ? warning : problem), attributeOf(information)};
        } else if (i % 5 == 0) {
            byId[id] = {attributeOf(information)};
        }
    }
    auto const graph = builder.build();
    auto const analyzer = table(byId);
    auto const stored = analyzeGraph(graph, {analyzer});
    auto const viewed = analyzeGraph(std::make_shared<SequenceGraph>(nodes), {analyzer});

    std::vector<std::u16string> expected;
    for (auto const& [id, list] : byId) {
        if (list.size() == 2 && list[0]->getIdentity() == warning) {
            expected.push_back(id);  // std::map<std::u16string> iterates in code-unit order
        }
    }
    EXPECT_EQ(idsOf(stored->getNodesWith(*warning)), expected);
    for (auto const* probe : {warning.get(), problem.get(), information.get()}) {
        EXPECT_EQ(idsOf(stored->getNodesWith(*probe)), idsOf(viewed->getNodesWith(*probe)));
    }
    EXPECT_EQ(stored->getAllProblemIdentities().size(), 2u);
    for (auto const& node : nodes) {
        for (auto const& asked : {node, makeNode(node->getID())}) {
            EXPECT_EQ(stored->getAttributes(asked), viewed->getAttributes(asked));
            EXPECT_EQ(stored->getAttributes(asked, Severity::Warning), viewed->getAttributes(asked, Severity::Warning));
        }
    }
    EXPECT_TRUE(stored->getAttributes(makeNode(u"absent")).empty());
}

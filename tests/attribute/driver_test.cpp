#include "attribute/GraphAttributes.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/TestGraphs.hpp"

#include <boost/range/adaptor/transformed.hpp>
#include <gtest/gtest.h>

#include <map>
#include <set>

using namespace dependency::attribute;
using depattr_test::makeNode;
using depattr_test::ScriptedAnalyzer;
using depattr_test::SequenceGraph;
using dependency::graph::Node;
using dependency::graph::NodeRange;

namespace {

using Attributes = std::vector<std::shared_ptr<Attribute>>;
using Ids = std::vector<std::u16string>;
using Nodes = std::vector<std::shared_ptr<Node>>;

std::shared_ptr<AttributeIdentity> identity(std::u16string id, Severity severity, std::u16string name = u"name") {
    return std::make_shared<AttributeIdentity>(id, name, severity);
}

std::shared_ptr<Attribute> attributeOf(std::shared_ptr<AttributeIdentity> const& identity) {
    return std::make_shared<Attribute>(identity, std::function<void()>{});
}

std::shared_ptr<Attribute> attributeOf(std::u16string id, Severity severity) {
    return attributeOf(identity(std::move(id), severity));
}

// An analyzer that returns fixed attributes per node ID.
std::shared_ptr<ScriptedAnalyzer> table(std::map<std::u16string, Attributes> byId) {
    return std::make_shared<ScriptedAnalyzer>([byId = std::move(byId)](Node const& node) {
        auto const it = byId.find(node.getID());
        return it == byId.end() ? Attributes{} : it->second;
    });
}

// Analyzes the nodes yielded in the given order.
std::shared_ptr<GraphAttributes> analyzeSequence(Nodes nodes,
                                                 std::vector<std::shared_ptr<AttributeAnalyzer>> analyzers) {
    return analyzeGraph(std::make_shared<SequenceGraph>(std::move(nodes)), analyzers);
}

// A graph whose node range fails while it is walked.
class FailingRangeGraph : public dependency::graph::Graph {
public:
    struct Checked {
        std::shared_ptr<Node> const& operator()(std::shared_ptr<Node> const& node) const {
            return node->getID() == u"bad" ? throw std::range_error("range failed") : node;
        }
    };
    NodeRange getNodes() const override { return NodeRange(nodes_ | boost::adaptors::transformed(Checked{})); }
    Nodes nodes_{makeNode(u"good"), makeNode(u"bad")};
};

Ids idsOf(Nodes const& nodes) {
    Ids ids;
    for (auto const& node : nodes) {
        ids.push_back(node->getID());
    }
    return ids;
}

}  // namespace

TEST(AnalyzeGraphTest, EmptyAnalyzerListOrEmptyGraphGivesAnEmptyResult) {
    auto const a = makeNode(u"a");
    auto const result = analyzeSequence({a}, {});
    EXPECT_TRUE(result->getAttributes(a).empty());
    EXPECT_TRUE(result->getAttributes(a, Severity::Information).empty());
    EXPECT_TRUE(result->getNodesWith(AttributeIdentity(u"x", u"y", Severity::Problem)).empty());
    EXPECT_TRUE(result->getAllProblemIdentities().empty());
    EXPECT_EQ(result->getFullyQualifiedQcosTypeName(), "dependencies.internal.attribute.GraphAttributes");
    auto const analyzer = table({});
    analyzeSequence({}, {analyzer});
    EXPECT_TRUE(analyzer->calls.empty());
}

TEST(AnalyzeGraphTest, VisitsNodesInRangeOrderAndAnalyzersInListOrder) {
    auto const a = makeNode(u"a"), b = makeNode(u"b"), c = makeNode(u"c");
    auto const x = attributeOf(u"X", Severity::Warning), y = attributeOf(u"Y", Severity::Problem);
    auto const z = attributeOf(u"Z", Severity::Information);
    Ids order;
    auto const first = std::make_shared<ScriptedAnalyzer>([&](Node const& node) {
        order.push_back(u"A:" + node.getID());
        return node.getID() == u"b" ? Attributes{x, y} : Attributes{};
    });
    auto const second = std::make_shared<ScriptedAnalyzer>([&](Node const& node) {
        order.push_back(u"B:" + node.getID());
        return node.getID() == u"c" ? Attributes{} : Attributes{z};
    });
    auto const result = analyzeSequence({c, a, b}, {first, second});  // the range order, not the node order
    EXPECT_EQ(order, (Ids{u"A:c", u"B:c", u"A:a", u"B:a", u"A:b", u"B:b"}));
    EXPECT_EQ(result->getAttributes(b), (Attributes{x, y, z}));  // A's findings, in A's order, then B's
    EXPECT_EQ(result->getAttributes(a), (Attributes{z}));
    EXPECT_TRUE(result->getAttributes(c).empty());  // a node without findings is absent
    EXPECT_TRUE(result->getNodesWith(*identity(u"Y", Severity::Problem)).size() == 1);
}

TEST(AnalyzeGraphTest, ANodeYieldedTwiceKeepsItsFirstVisitsFindings) {
    auto const a = makeNode(u"a");
    auto const aAgain = makeNode(u"a");  // a distinct but equivalent node object
    auto const first = attributeOf(u"First", Severity::Warning), second = attributeOf(u"Second", Severity::Problem);
    int visits = 0;
    auto const result = analyzeSequence({a, aAgain}, {std::make_shared<ScriptedAnalyzer>([&](Node const&) {
                                            return ++visits == 1 ? Attributes{first} : Attributes{second};
                                        })});
    EXPECT_EQ(visits, 2);
    EXPECT_EQ(result->getAttributes(aAgain), (Attributes{first}));
    EXPECT_TRUE(result->getNodesWith(*second->getIdentity()).empty());
    EXPECT_EQ(result->getNodesWith(*first->getIdentity()), (Nodes{a}));  // the pointer from the first visit
    // An empty first visit stores nothing, so a later visit's findings do count.
    visits = 0;
    auto const later = analyzeSequence({a, aAgain}, {std::make_shared<ScriptedAnalyzer>([&](Node const&) {
                                           return ++visits == 1 ? Attributes{} : Attributes{second};
                                       })});
    EXPECT_EQ(later->getAttributes(a), (Attributes{second}));
}

TEST(AnalyzeGraphTest, AnExceptionEndsTheAnalysisAtOnce) {
    auto const finding = attributeOf(u"X", Severity::Problem);
    auto const before = table({{u"n1", {finding}}, {u"n3", {finding}}});
    auto const thrower = std::make_shared<ScriptedAnalyzer>(
        [](Node const& node) { return node.getID() == u"n3" ? throw std::domain_error("third node") : Attributes{}; });
    auto const after = table({});
    std::shared_ptr<GraphAttributes> result;
    EXPECT_THROW(result = analyzeSequence({makeNode(u"n1"), makeNode(u"n2"), makeNode(u"n3"), makeNode(u"n4")},
                                          {before, thrower, after}),
                 std::domain_error);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(before->calls, (Ids{u"n1", u"n2", u"n3"}));
    EXPECT_EQ(thrower->calls, (Ids{u"n1", u"n2", u"n3"}));
    EXPECT_EQ(after->calls, (Ids{u"n1", u"n2"}));  // not run on the third node
    // The partial result died with the exception: nothing holds the finding but us and the table's two entries.
    EXPECT_EQ(finding.use_count(), 1 + 2);
    // A node range that fails while it is walked ends it too.
    auto const analyzer = table({{u"good", {attributeOf(u"X", Severity::Warning)}}});
    EXPECT_THROW(analyzeGraph(std::make_shared<FailingRangeGraph>(), {analyzer}), std::range_error);
    EXPECT_EQ(analyzer->calls, (Ids{u"good"}));
}

TEST(GraphAttributesTest, QueriesKeepListOrderAndStoredObjects) {
    auto const node = makeNode(u"n"), a = makeNode(u"a"), b = makeNode(u"b");
    auto const w = attributeOf(u"W", Severity::Warning), p1 = attributeOf(u"P", Severity::Problem);
    auto const i = attributeOf(u"I", Severity::Information), p2 = attributeOf(u"Q", Severity::Problem);
    auto result = analyzeSequence({node}, {table({{u"n", {w, p1, i, p2}}})});
    EXPECT_EQ(result->getAttributes(node, Severity::Problem), (Attributes{p1, p2}));
    EXPECT_EQ(result->getAttributes(node, Severity::Warning), (Attributes{w, p1, p2}));
    EXPECT_EQ(result->getAttributes(node, Severity::Information), (Attributes{w, p1, i, p2}));
    EXPECT_EQ(result->getAttributes(node), (Attributes{w, p1, i, p2}));
    EXPECT_TRUE(result->getAttributes(makeNode(u"stranger"), Severity::Warning).empty());
    // An equivalent node object finds the stored findings, and what was returned outlives the container.
    auto const found = result->getAttributes(makeNode(u"n"));
    EXPECT_EQ(found, (Attributes{w, p1, i, p2}));  // the same objects, not copies
    auto const nodes = result->getNodesWith(*p2->getIdentity());
    result.reset();
    EXPECT_EQ(found[3]->getID(), u"Q");
    EXPECT_EQ(nodes, (Nodes{node}));
    // One attribute object may serve several nodes, and one node twice.
    auto const shared = attributeOf(u"S", Severity::Warning);
    auto const sharing = analyzeSequence({a, b}, {table({{u"a", {shared, shared}}, {u"b", {shared}}})});
    EXPECT_EQ(sharing->getAttributes(a), (Attributes{shared, shared}));
    EXPECT_EQ(idsOf(sharing->getNodesWith(*shared->getIdentity())), (Ids{u"a", u"b"}));
}

TEST(GraphAttributesTest, GetNodesWithListsEachNodeOnceInNodeOrderByIdentityValue) {
    auto const a = makeNode(u"a"), b = makeNode(u"b"), c = makeNode(u"c");
    auto const one = identity(u"Missing", Severity::Warning, u"File is missing");
    auto const equalTwin = identity(u"Missing", Severity::Warning, u"File is missing");
    auto const otherName = identity(u"Missing", Severity::Warning, u"Function is missing");
    // Range order c, b, a; b carries the identity twice, a through an equal twin object.
    auto const result = analyzeSequence({c, b, a}, {table({{u"a", {attributeOf(equalTwin)}},
                                                           {u"b", {attributeOf(one), attributeOf(one)}},
                                                           {u"c", {attributeOf(otherName)}}})});
    auto const probe = AttributeIdentity(u"Missing", u"File is missing", Severity::Warning);
    EXPECT_EQ(result->getNodesWith(probe), (Nodes{a, b}));  // the stored node objects
    EXPECT_EQ(idsOf(result->getNodesWith(*otherName)), (Ids{u"c"}));
    EXPECT_TRUE(result->getNodesWith(AttributeIdentity(u"Missing", u"File is missing", Severity::Problem)).empty());
}

TEST(GraphAttributesTest, ProblemIdentitiesIncludeWarningsAreDistinctAndSorted) {
    auto const xWarning = identity(u"X", Severity::Warning), xProblem = identity(u"X", Severity::Problem);
    auto const wProblem = identity(u"W", Severity::Problem), xWarningTwin = identity(u"X", Severity::Warning);
    auto const info = identity(u"A", Severity::Information);
    auto const a = makeNode(u"a");
    auto const result = analyzeSequence(
        {makeNode(u"b"), a}, {table({{u"a", {attributeOf(info), attributeOf(xWarning), attributeOf(xProblem)}},
                                     {u"b", {attributeOf(xWarningTwin), attributeOf(wProblem), attributeOf(info)}}})});
    // xWarning is the first met in node order (a before b), not the twin.
    EXPECT_EQ(result->getAllProblemIdentities(), (std::vector{wProblem, xWarning, xProblem}));
    EXPECT_TRUE(analyzeSequence({a}, {table({{u"a", {attributeOf(info)}}})})->getAllProblemIdentities().empty());
}

TEST(GraphAttributesTest, AStoredGraphAndTheSameNodesYieldedByAViewGiveTheSameResult) {
    // The stored graph's result is put in order by the graph's ID order, the
    // view's by comparing nodes: every query must agree, in node order.
    dependency::graph::GraphBuilder builder;
    Nodes nodes;
    std::map<std::u16string, Attributes> byId;
    auto const warning = identity(u"W", Severity::Warning), problem = identity(u"P", Severity::Problem);
    auto const information = identity(u"I", Severity::Information);
    std::set<std::u16string> warned;  // in code-unit order, as the result must be
    for (int i = 0; i < 300; ++i) {
        std::u16string id = u"n" + std::u16string(1, static_cast<char16_t>(u'a' + (i * 11) % 26)) +
                            std::u16string(static_cast<std::size_t>(i % 7), u'x') + std::u16string(1, char16_t(i));
        nodes.push_back(builder.addNode(id, dependency::graph::Type::FILE()));
        if (i % 6 == 0) {
            warned.insert(id);
        }
        if (i % 3 == 0) {
            byId[id] = {attributeOf(i % 2 == 0 ? warning : problem), attributeOf(information)};
        } else if (i % 5 == 0) {
            byId[id] = {attributeOf(information)};
        }
    }
    auto const analyzer = table(byId);
    auto const stored = analyzeGraph(builder.build(), {analyzer});
    auto const viewed = analyzeSequence(nodes, {analyzer});
    EXPECT_EQ(idsOf(stored->getNodesWith(*warning)), Ids(warned.begin(), warned.end()));
    for (auto const* probe : {warning.get(), problem.get(), information.get()}) {
        EXPECT_EQ(idsOf(stored->getNodesWith(*probe)), idsOf(viewed->getNodesWith(*probe)));
    }
    EXPECT_EQ(stored->getAllProblemIdentities().size(), 2u);
    // The same IDs stored in another graph, in reverse order: its node objects
    // stand at other places, and are found by value.
    dependency::graph::GraphBuilder reversed;
    std::map<std::u16string, std::shared_ptr<dependency::graph::Node>> elsewhere;
    for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) {
        elsewhere[(*node)->getID()] = reversed.addNode((*node)->getID(), dependency::graph::Type::FILE());
    }
    ASSERT_EQ(reversed.build()->nodeCount(), nodes.size());
    for (auto const& node : nodes) {
        for (auto const& asked : {node, makeNode(node->getID()), elsewhere.at(node->getID())}) {
            EXPECT_EQ(stored->getAttributes(asked), viewed->getAttributes(asked));
            EXPECT_EQ(stored->getAttributes(asked, Severity::Warning), viewed->getAttributes(asked, Severity::Warning));
        }
    }
    EXPECT_TRUE(stored->getAttributes(makeNode(u"absent")).empty());
}

#include "platform/graph/Graph.hpp"
#include "platform/graph/GraphBuilder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

using namespace dependency::graph;

namespace {

std::vector<std::u16string> idsOf(NodeRange const& range) {
    std::vector<std::u16string> ids;
    for (auto const& node : range) {
        ids.push_back(node->getID());
    }
    return ids;
}

}  // namespace

TEST(TypeTest, NamesRoundTripAndKindsAreDistinct) {
    for (auto const& type : Type::all()) {
        auto const back = Type::fromName(type.name());
        ASSERT_TRUE(back.has_value()) << type.name();
        EXPECT_EQ(*back, type);
    }
    EXPECT_FALSE(Type::fromName("File").has_value());
    EXPECT_FALSE(Type::fromName("").has_value());
    EXPECT_FALSE(Type::DERIVED() == Type::FILE());
    EXPECT_FALSE(Type::PRODUCT() == Type::PACKAGE());
    EXPECT_EQ(&Type::PROJECT(), &Type::PROJECT());
}

TEST(NodeTest, OrderingAndEqualityFollowTheIdAsCodeUnits) {
    NodeData first;
    first.id = u"abc";
    first.name = u"one";
    NodeData second = first;
    second.name = u"another name";
    Node const a(first);
    Node const b(second);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a < b);
    EXPECT_FALSE(b < a);

    auto const make = [](std::u16string id) {
        NodeData data;
        data.id = std::move(id);
        return Node(data);
    };
    EXPECT_TRUE(make(u"Z") < make(u"a"));
    EXPECT_TRUE(make(u"ab") < make(u"abc"));
    EXPECT_TRUE(make(u"") < make(u"a"));
    // Code units compare unsigned: U+FFFD is above a surrogate unit.
    EXPECT_TRUE(make(u"\xD800") < make(u"\xFFFD"));
    EXPECT_FALSE(make(u"b") == make(u"a"));
}

TEST(NodeTest, NameAndPathReadBackAsGivenHoweverTheNodeKeepsThem) {
    // A node keeps a name equal to its ID and a path equal to its first
    // location entry only once, any other name as bare code units, and a
    // path beside a location it does not open with the properties.
    struct Case {
        std::u16string id, name, path;
        std::vector<std::u16string> location;
        Properties properties;
    };
    std::u16string const withNul(u"a\0b\xD800\x00E9", 5);
    for (auto const& given :
         {Case{u"f", u"f", u"/p/f.qx", {}, {}}, Case{u"f", u"solve", u"/p/f.qx", {u"/p/f.qx", u"solve"}, {}},
          Case{u"f", withNul, u"/p/g.qx", {u"/p/f.qx"}, {{u"definedAt", u"3:1"}}}, Case{u"f", u"", u"", {}, {}},
          Case{u"", u"named", u"", {}, {{u"k", u""}}}, Case{u"f", std::u16string(300, u'n'), u"", {u"x"}, {}}}) {
        Node const node(NodeData{.id = given.id,
                                 .name = given.name,
                                 .path = given.path,
                                 .location = given.location,
                                 .properties = given.properties});
        EXPECT_EQ(node.getName(), given.name);
        EXPECT_EQ(node.getPath(), given.path);
        EXPECT_EQ(node.getLocation(), given.location);
        EXPECT_EQ(node.getProperties(), given.properties);
    }
    // A loader that found no path says that the first location entry is it.
    Node const located(NodeData{.id = u"h", .location = {u"/p/h.qx", u"h"}, .pathIsFirstLocation = true});
    EXPECT_EQ(located.getPath(), u"/p/h.qx");
    EXPECT_EQ(located.getLocation(), (std::vector<std::u16string>{u"/p/h.qx", u"h"}));
}

TEST(NodeTest, AbsentPropertyIsEmptyNotAnEmptyString) {
    NodeData data;
    data.id = u"n";
    data.properties[u"empty"] = u"";
    Node const node(data);
    EXPECT_FALSE(node.getProperty(u"missing").has_value());
    ASSERT_TRUE(node.getProperty(u"empty").has_value());
    EXPECT_EQ(*node.getProperty(u"empty"), u"");
}

TEST(GraphTest, EmptyGraphHasAnEmptyNodeRange) {
    auto const graph = GraphBuilder().build();
    auto const range = graph->getNodes();
    EXPECT_TRUE(range.begin() == range.end());
}

TEST(GraphTest, NodesInInsertionOrderAndEdgesPerNodeInOrder) {
    GraphBuilder builder;
    builder.addNode(u"c", Type::FILE());
    builder.addNode(u"a", Type::FILE());
    builder.addNode(u"b", Type::PRODUCT());
    builder.addDependency(u"c", u"b", Type::REQUIREMENT());
    builder.addDependency(u"c", u"a", Type::DERIVED());
    builder.addDependency(u"a", u"b", Type::REQUIREMENT());
    auto const graph = builder.build();

    EXPECT_EQ(idsOf(graph->getNodes()), (std::vector<std::u16string>{u"c", u"a", u"b"}));
    EXPECT_EQ(graph->nodeCount(), 3u);
    EXPECT_EQ(graph->dependencyCount(), 3u);

    // Looked up through a separate but equivalent node object.
    NodeData probe;
    probe.id = u"c";
    std::vector<std::pair<std::u16string, Type>> edges;
    for (auto const& dependency : graph->getDownstreamDependencies(Node(probe))) {
        EXPECT_EQ(dependency->getUpstreamNode()->getID(), u"c");
        EXPECT_EQ(dependency->getDownstreamType(), dependency->getDownstreamNode()->getType());
        edges.emplace_back(dependency->getDownstreamNode()->getID(), dependency->getRelationship());
    }
    ASSERT_EQ(edges.size(), 2u);
    EXPECT_EQ(edges[0].first, u"b");
    EXPECT_EQ(edges[0].second, Type::REQUIREMENT());
    EXPECT_EQ(edges[1].first, u"a");
    EXPECT_EQ(edges[1].second, Type::DERIVED());

    auto const leaf = graph->getDownstreamDependencies(*graph->findNode(u"b"));
    EXPECT_TRUE(leaf.begin() == leaf.end());

    // The graph's own node objects, and the same objects in another graph
    // that holds them elsewhere: each graph answers with its own edges.
    auto const c = graph->findNode(u"c");
    auto const a = graph->findNode(u"a");
    EXPECT_EQ(std::distance(graph->getDownstreamDependencies(*c).begin(), graph->getDownstreamDependencies(*c).end()),
              2);
    Graph const other({c, graph->findNode(u"b"), a}, {std::make_shared<Dependency>(a, c, Type::CALL())});
    auto const fromA = other.getDownstreamDependencies(*a);
    ASSERT_EQ(std::distance(fromA.begin(), fromA.end()), 1);
    EXPECT_EQ((*fromA.begin())->getDownstreamNode()->getID(), u"c");
    EXPECT_EQ((*fromA.begin())->getDownstreamType(), Type::FILE());
    EXPECT_EQ(Dependency(c, graph->findNode(u"b"), Type::REQUIREMENT()).getDownstreamType(), Type::PRODUCT());
    auto const fromC = other.getDownstreamDependencies(*c);
    EXPECT_TRUE(fromC.begin() == fromC.end());
    probe.id = u"stranger";
    auto const unknown = graph->getDownstreamDependencies(Node(probe));
    EXPECT_TRUE(unknown.begin() == unknown.end());
    EXPECT_EQ(graph->findNode(u"stranger"), nullptr);
}

TEST(GraphTest, BuilderRejectsDuplicateIdsAndDanglingEdges) {
    GraphBuilder builder;
    builder.addNode(u"a", Type::FILE());
    EXPECT_THROW(builder.addNode(u"a", Type::FUNCTION()), std::invalid_argument);
    EXPECT_THROW(builder.addDependency(u"a", u"nowhere", Type::CALL()), std::invalid_argument);
    EXPECT_THROW(builder.addDependency(u"nowhere", u"a", Type::CALL()), std::invalid_argument);
    // The refused node is taken back: the next one takes its place, also
    // when it was the first of a new block, and nodes (blocks of several
    // sizes, the largest ones in huge pages) outlive the builder and the graph.
    auto const idOf = [](int i) {
        return u"n" + std::u16string(1, static_cast<char16_t>(0x100 + i % 0xd000)) +
               std::u16string(1, static_cast<char16_t>(0x100 + i / 0xd000));
    };
    std::vector<std::shared_ptr<Node>> kept;
    int const count = 70000;
    for (int i = 0; i < count; ++i) {
        if (i == 4095 || i == 4096 + 8191) {  // the first and the second block are full
            EXPECT_THROW(builder.addNode(u"a", Type::FUNCTION()), DuplicateNodeError);
        }
        kept.push_back(builder.addNode(idOf(i), Type::FUNCTION()));
    }
    // The edges know their downstream nodes' types, the refused nodes' left out.
    builder.addNode(u"last", Type::PACKAGE());
    builder.addDependency(idOf(0), u"a", Type::CALL());
    builder.addDependency(u"a", u"last", Type::CALL());
    builder.addDependency(u"a", idOf(count - 1), Type::CALL());
    auto graph = builder.build();
    std::vector<Type> downstreamTypes;
    for (auto const& node : {graph->findNode(idOf(0)), graph->findNode(u"a")}) {
        for (auto const& dependency : graph->getDownstreamDependencies(*node)) {
            downstreamTypes.push_back(dependency->getDownstreamType());
        }
    }
    EXPECT_EQ(downstreamTypes, (std::vector<Type>{Type::FILE(), Type::PACKAGE(), Type::FUNCTION()}));
    EXPECT_EQ(graph->nodeCount(), count + 2u);
    EXPECT_EQ(graph->findNode(u"a")->getType(), Type::FILE());
    int position = -1;
    for (auto const& node : graph->getNodes()) {
        ASSERT_EQ(node->getID(), position < 0 ? u"a" : position == count ? u"last" : idOf(position)) << position;
        ++position;
    }
    graph.reset();
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(kept[static_cast<std::size_t>(i)]->getID(), idOf(i)) << i;
    }
    EXPECT_EQ(kept.front()->getType(), Type::FUNCTION());
}

TEST(GraphTest, GraphRejectsDuplicateIdsAndEdgesLeavingIt) {
    auto const a = std::make_shared<Node>(NodeData{.id = u"a"});
    auto const twin = std::make_shared<Node>(NodeData{.id = u"a"});
    auto const outsider = std::make_shared<Node>(NodeData{.id = u"x"});
    EXPECT_THROW(Graph({a, twin}, {}), std::invalid_argument);
    EXPECT_THROW(Graph({a}, {std::make_shared<Dependency>(a, outsider, Type::CALL())}), std::invalid_argument);
    EXPECT_THROW(Dependency(a, nullptr, Type::CALL()), std::invalid_argument);
}

TEST(GraphTest, BuilderDefaultsFileFlagByType) {
    GraphBuilder builder;
    EXPECT_TRUE(builder.addNode(u"f", Type::FILE())->isFile());
    EXPECT_TRUE(builder.addNode(u"d", Type::DERIVED())->isFile());
    EXPECT_FALSE(builder.addNode(u"g", Type::FUNCTION())->isFile());
    EXPECT_TRUE(builder.addNode(u"p", Type::PROJECT())->isResolved());
}

// The ID index grows from empty, keeps every key findable across growth,
// reports the first position of a repeated key and finds nothing it was not given.
TEST(NodeIndexTest, FindsEveryKeyAcrossGrowthAndRefusesRepeats) {
    dependency::graph::detail::NodeIndex index;
    EXPECT_FALSE(index.find(u"a"));
    std::vector<std::u16string> keys;
    for (int i = 0; i < 5000; ++i) {
        auto const number = std::to_string(i);
        keys.push_back(u"key " + std::u16string(number.begin(), number.end()));
    }
    keys.push_back(u"");
    for (std::size_t i = 0; i < keys.size(); ++i) {
        ASSERT_FALSE(index.insert(keys[i])) << i;
        if (i % 997 == 0) {
            for (std::size_t j = 0; j <= i; ++j) {
                ASSERT_EQ(index.find(keys[j]), j) << i << " " << j;
            }
        }
    }
    EXPECT_EQ(index.size(), keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(index.find(keys[i]), i);
        EXPECT_EQ(index.find(keys[i], dependency::graph::detail::NodeIndex::hashOf(keys[i])), i);
    }
    std::u16string const again = keys[1234];
    EXPECT_EQ(index.insert(again), 1234u);
    EXPECT_EQ(index.size(), keys.size());
    EXPECT_FALSE(index.find(u"key 5000"));
    EXPECT_FALSE(index.find(u"key"));
    index.clear();
    EXPECT_FALSE(index.find(keys[0]));
    EXPECT_FALSE(index.insert(keys[7]));
    EXPECT_EQ(index.find(keys[7]), 0u);
}

TEST(GraphTest, IdOrderEqualsSortingByNode) {
    // IDs that agree in long prefixes, end inside or at the edge of a run of
    // four code units, hold NUL and high code units, and come in no order.
    std::vector<std::u16string> ids = {u"b",
                                       u"a",
                                       u"ab",
                                       std::u16string(u"ab\0", 3),
                                       u"abcd",
                                       u"abc",
                                       u"abcde",
                                       std::u16string(u"abcd\0x", 6),
                                       u"abcdabcd",
                                       u"abcdabcda",
                                       u"abcdabcc",
                                       u"\xFFFF",
                                       u"\xD800",
                                       u"\xFFFD\x0001",
                                       u"Z",
                                       u"zzzzzzzzzzzzzzzzzzzzzzzzz",
                                       u"zzzzzzzzzzzzzzzzzzzzzzzzy"};
    for (int i = 0; i < 2000; ++i) {
        ids.push_back(u"f" + std::u16string(1, static_cast<char16_t>(u'0' + (i * 7) % 10)) +
                      std::u16string(static_cast<std::size_t>(i % 13), u'x') +
                      std::u16string(1, static_cast<char16_t>(i)));
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    auto shuffled = ids;
    std::reverse(shuffled.begin(), shuffled.end());
    std::rotate(shuffled.begin(), shuffled.begin() + 7, shuffled.end());

    GraphBuilder builder;
    for (auto const& id : shuffled) {
        builder.addNode(id, Type::FILE());
    }
    auto const graph = builder.build();
    ASSERT_TRUE(graph->yieldsStoredNodes());
    // The program makes the order on a second thread while the first may ask
    // for it too: both get the one order.
    std::vector<std::uint32_t> const* fromThread = nullptr;
    std::thread other([&] { fromThread = &graph->positionsInIdOrder(); });
    auto const* fromHere = &graph->positionsInIdOrder();
    other.join();
    EXPECT_EQ(fromThread, fromHere);
    std::vector<std::u16string> byPosition;
    for (auto const position : graph->positionsInIdOrder()) {
        byPosition.push_back(shuffled.at(position));
    }
    EXPECT_EQ(byPosition, ids);
    std::vector<std::u16string> byNode;
    for (auto const& node : graph->nodesInIdOrder()) {
        byNode.push_back(node->getID());
        // A stored node's place leads back to the very same node object.
        auto const place = graph->placeOf(*node);
        ASSERT_TRUE(place);
        EXPECT_EQ(graph->nodeAt(*place), node);
    }
    EXPECT_EQ(byNode, ids);
    auto const stranger = std::make_shared<Node>(NodeData{.id = ids.front()});
    EXPECT_FALSE(graph->placeOf(*stranger));  // the same ID, another object
}

// Trees built by hand: slot numbering, absent children, lists and references.

#include "platform/codeanalysis/SyntaxTree.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace ca::astapi;

NodeFields at(NodeKind kind, std::uint32_t line = 1, std::uint32_t column = 1, std::u16string_view text = {}) {
    return NodeFields{kind, line, column, Operator::None, false, text};
}

TEST(SyntaxTree, SlotsAreNumberedInOrderWithTwoNumbersPerList) {
    SyntaxTree tree;
    auto const& a = tree.make(at(NodeKind::Identifier, 1, 1, u"a"));
    auto const& b = tree.make(at(NodeKind::Identifier, 1, 3, u"b"));
    auto const& c = tree.make(at(NodeKind::Identifier, 2, 1, u"c"));
    std::vector<Node const*> const pair{&a, &b};
    std::vector<Node const*> const referenced{&c};
    // slot 0: a, slot 1: empty, slots 2-3: [a, b], slots 4-5: [] , slots 6-7: reference to [c]
    auto const& node = tree.make(at(NodeKind::Row), {Single{&a}, Single{}, List{pair}, List{}, Reference{referenced}});

    EXPECT_EQ(node.child(0), &a);
    EXPECT_EQ(node.child(1), nullptr);
    EXPECT_EQ(node.child(2), nullptr);  // a list bound is not a single slot
    EXPECT_EQ(node.child(99), nullptr);
    ASSERT_EQ(node.list(2, 3).size(), 2u);
    EXPECT_EQ(node.list(2, 3)[1], &b);
    EXPECT_TRUE(node.list(4, 5).empty());
    EXPECT_TRUE(node.list(0, 1).empty());  // single slots do not make a list
    EXPECT_TRUE(node.list(3, 4).empty());  // the two halves of different lists
    EXPECT_TRUE(node.list(2, 4).empty());
    ASSERT_EQ(node.list(6, 7).size(), 1u);
    EXPECT_EQ(node.list(6, 7)[0], &c);
    // children(): the sub-tree in slot order, without referenced nodes.
    ASSERT_EQ(node.children().size(), 3u);
    EXPECT_EQ(node.children()[0], &a);
    EXPECT_EQ(node.children()[2], &b);

    EXPECT_EQ(a.identifier().getString(), u"a");
    EXPECT_TRUE(node.identifier().getString().empty());
    EXPECT_EQ(c.line(), 2u);
    EXPECT_EQ(b.column(), 3u);
}

TEST(SyntaxTree, AnyKindCanBeBuiltButSlotsAreBounded) {
    SyntaxTree tree;
    auto const& invalid = tree.make(at(NodeKind::Invalid));
    auto const& unknown = tree.make(at(static_cast<NodeKind>(70)), {Single{&invalid}});
    tree.setRoot(unknown);
    EXPECT_EQ(tree.root(), &unknown);
    EXPECT_EQ(unknown.child(0)->kind(), NodeKind::Invalid);

    std::vector<Slot> tooMany(33, Single{});
    EXPECT_THROW(tree.make(at(NodeKind::File), tooMany), std::invalid_argument);
    std::vector<Slot> const enough(32, Single{});
    EXPECT_NO_THROW(tree.make(at(NodeKind::File), enough));
}

TEST(SyntaxTree, NodesAndTextsStayIntactAcrossStorageBlocksUpToTheLimit) {
    // Texts of every length between nodes, so that node after node starts at a new alignment, over many blocks.
    SyntaxTree tree(0);
    std::vector<Node const*> nodes;
    std::u16string const letters = u"abcdefghij";
    for (std::size_t i = 0; i < 20000; ++i) {
        auto const text = letters.substr(0, i % 10);
        auto const* previous = nodes.empty() ? nullptr : nodes.back();
        nodes.push_back(
            &tree.make(at(NodeKind::Identifier, 1, static_cast<std::uint32_t>(i), text), {Single{previous}}));
    }
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        ASSERT_EQ(nodes[i]->column(), i);
        ASSERT_EQ(nodes[i]->identifier().getString(), letters.substr(0, i % 10));
        ASSERT_EQ(nodes[i]->child(0), i == 0 ? nullptr : nodes[i - 1]);
    }
    EXPECT_GT(tree.memoryBytes(), nodes.size() * sizeof(Node));

    SyntaxTree limited(0, 64 << 10);
    EXPECT_THROW(
        for (int i = 0; i < 10000; ++i) { limited.make(at(NodeKind::Identifier, 1, 1, u"name")); }, TreeTooLarge);
    EXPECT_LE(limited.memoryBytes(), std::size_t{64} << 10);
}

}  // namespace

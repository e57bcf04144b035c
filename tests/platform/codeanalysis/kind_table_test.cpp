// The kind table: the numbers and slots analyzers rely on, its agreement with docs/syntax-tree.md, and the parser's
// nodes laid out as it says.

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace ca::astapi;

// The slots column of docs/syntax-tree.md for one kind: "0: expression", "list 1-2: body", consecutive reserved
// slots as one "0-4: reserved".
std::string slotsColumn(KindDescription const& row) {
    if (row.leaf) {
        return "leaf";
    }
    if (row.slots.empty()) {
        return "none";
    }
    std::string out;
    for (std::size_t i = 0; i < row.slots.size(); ++i) {
        auto const& slot = row.slots[i];
        auto const number = std::to_string(slot.first);
        std::string part;
        switch (slot.shape) {
        case SlotShape::Reserved: {
            auto last = i;
            while (last + 1 < row.slots.size() && row.slots[last + 1].shape == SlotShape::Reserved) {
                ++last;
            }
            part = last == i ? number : number + "-" + std::to_string(row.slots[last].first);
            part += ": reserved";
            i = last;
            break;
        }
        case SlotShape::Single:
            part = number + ": " + std::string(slot.name);
            break;
        case SlotShape::List:
        case SlotShape::Reference:
            part = "list " + number + "-" + std::to_string(slot.first + 1) + ": " + std::string(slot.name);
            part += slot.shape == SlotShape::Reference ? " (reference)" : "";
            break;
        }
        out += (out.empty() ? "" : ", ") + part;
    }
    return out;
}

TEST(KindTable, TheDocumentedKindsAreTheTable) {
    std::ifstream file(std::filesystem::path(DEPATTR_SOURCE_DIR) / "docs" / "syntax-tree.md");
    ASSERT_TRUE(file) << "docs/syntax-tree.md not found";
    std::regex const rowPattern(R"(^\| (\d+) \| (\w+) \| (.*?) \|.*\|$)");
    std::map<int, std::pair<std::string, std::string>> documented;
    std::string documentedLeaves;
    for (std::string line; std::getline(file, line);) {
        std::smatch match;
        if (std::regex_match(line, match, rowPattern)) {
            EXPECT_TRUE(documented.try_emplace(std::stoi(match[1]), match[2], match[3]).second)
                << "kind " << match[1] << " documented twice";
        } else if (auto const at = line.find("The leaf kinds are exactly "); at != std::string::npos) {
            documentedLeaves = line.substr(at);
        }
    }
    ASSERT_EQ(documented.size(), std::size(kindTable));
    std::vector<int> leaves;
    for (auto const& row : kindTable) {
        auto const code = static_cast<int>(row.kind);
        ASSERT_TRUE(documented.contains(code)) << "kind " << code << " is not documented";
        EXPECT_EQ(documented[code].first, row.name) << "kind " << code;
        EXPECT_EQ(documented[code].second, slotsColumn(row)) << "slots of " << row.name;
        if (row.leaf) {
            leaves.push_back(code);
        }
    }
    std::string leafSentence = "The leaf kinds are exactly ";
    for (std::size_t i = 0; i < leaves.size(); ++i) {
        leafSentence += std::to_string(leaves[i]) + (i + 2 < leaves.size()    ? ", "
                                                     : i + 2 == leaves.size() ? " and "
                                                                              : "");
    }
    EXPECT_EQ(documentedLeaves.substr(0, leafSentence.size()), leafSentence);
}

// What the missing-function analyzer and host-language analyzers were written against: renumbering any of it breaks
// them, whatever the rest of the table says.
TEST(KindTable, KeepsTheNumbersAndSlotsAnalyzersRelyOn) {
    std::vector<int> codes;
    for (auto const kind :
         {NodeKind::Invalid, NodeKind::ClassDefinition, NodeKind::FunctionDefinition, NodeKind::InputArgument,
          NodeKind::MethodDefinition, NodeKind::Attribute, NodeKind::ShortCircuit, NodeKind::SpmdStatement}) {
        codes.push_back(static_cast<int>(kind));
    }
    EXPECT_EQ(codes, (std::vector<int>{0, 15, 35, 41, 44, 60, 66, 69}));
    EXPECT_EQ(lastNodeKind, 69);

    using Function = slot::FunctionDefinition;
    using Class = slot::ClassDefinition;
    EXPECT_EQ(
        (std::vector<unsigned>{
            Function::outputs.first, Function::name.number, Function::inputs.first, Function::body.first,
            Function::nestedFunctions.first, slot::MethodDefinition::attributes.first, Class::attributes.first,
            Class::name.number, Class::superclasses.first, Class::blocks.first, slot::InputArgument::identifier.number,
            slot::InputArgument::ignored.number, slot::Attribute::name.number, slot::Attribute::operand.number}),
        (std::vector<unsigned>{5, 7, 8, 11, 13, 15, 6, 8, 9, 11, 0, 1, 0, 1}));

    std::set<int> leaves;
    for (int code = 0; code <= lastNodeKind + 1; ++code) {
        if (isLeaf(static_cast<NodeKind>(code))) {
            leaves.insert(code);
        }
    }
    EXPECT_EQ(leaves, (std::set<int>{2, 7, 10, 16, 19, 20, 21, 26, 27, 33, 37, 39, 48, 58, 64, 68}));

    std::ostringstream names;
    names << NodeKind::FunctionDefinition << ' ' << NodeKind::SpmdStatement << ' ' << static_cast<NodeKind>(70) << ' '
          << static_cast<NodeKind>(255);
    EXPECT_EQ(names.str(), "FunctionDefinition SpmdStatement 70 255");
}

TEST(KindTable, NamedSlotsFillTheNumberedSlots) {
    SyntaxTree tree;
    auto const& name = tree.makeLeaf({NodeKind::Identifier, 1, 10, Operator::None, false, {}}, "area");
    auto const& output = tree.makeLeaf({NodeKind::Identifier, 1, 1, Operator::None, false, {}}, "r");
    auto const& attribute = tree.make({NodeKind::Attribute, 1, 1, Operator::None, true, {}}, {Single{&name}, Single{}});
    std::vector<Node const*> const outputs{&output};
    std::vector<Node const*> const attributes{&attribute};
    using Method = slot::MethodDefinition;
    auto const& method = tree.make({NodeKind::MethodDefinition, 1, 1, Operator::None, false, {}},
                                   NamedSlots(NodeKind::MethodDefinition)
                                       .set(Method::name, &name)
                                       .set(Method::outputs, outputs)
                                       .set(Method::attributes, attributes));
    EXPECT_TRUE(method.hasLayoutOfItsKind());
    EXPECT_EQ(method.child(7), &name);
    ASSERT_EQ(method.list(5, 6).size(), 1u);
    EXPECT_EQ(method.list(5, 6)[0], &output);
    EXPECT_TRUE(method.list(8, 9).empty());
    ASSERT_EQ(method.list(15, 16).size(), 1u);
    EXPECT_EQ(method.list(15, 16)[0], &attribute);
    // The attributes are referred to, not owned: the sub-tree is the output and the name.
    EXPECT_EQ(method.children().size(), 2u);

    // The same slots under another kind's number do not have that kind's layout.
    auto const& misplaced = tree.make({NodeKind::ClassDefinition, 1, 1, Operator::None, false, {}},
                                      NamedSlots(NodeKind::FunctionDefinition).set(Method::name, &name).slots());
    EXPECT_FALSE(misplaced.hasLayoutOfItsKind());
    EXPECT_FALSE(tree.make({static_cast<NodeKind>(70), 1, 1, Operator::None, false, {}}).hasLayoutOfItsKind());
}

// Code that between the two files makes every kind the parser produces.
constexpr char const* classFile = R"(classdef (Sealed) Shape < handle & pkg.Base
    properties (Access = private)
        Width (1,:) double {mustBeFinite} = 0
    end
    methods
        function obj = Shape(x)
            obj = obj@pkg.Base(x);
        end
    end
    methods (Abstract)
        r = area(obj)
    end
    events
        Changed
    end
    enumeration
        Red (1, 0, 0)
    end
end
)";

constexpr char const* functionFile = R"(function [a, b] = f(x, ~, varargin)
arguments
    x (1,1) double
end
global g
persistent p
;
a = x.field + s.(name) - c{end} * m(1, :)';
[q, ~] = size(x);
if a > 1 && b
    hold on
elseif ~a, disp("s"), else, y = 'c'; end
for k = 1:2:10, break, end
parfor (k = 1:n, 4), continue, end
while true, return, end
switch a, case 1, otherwise, end
try, z = [1 2; 3 4]; catch err, end
h = @sin; w = @(t) (t + 3i); c = {1, 'x'}; q = ?pkg.Cls; u = @pkg.fn;
!ls -l
spmd, end
end
)";

TEST(KindTable, EveryNodeTheParserMakesHasTheLayoutOfItsKind) {
    std::set<int> seen;
    for (auto const* code : {classFile, functionFile}) {
        auto const result = ca::analyzeText(code);
        ASSERT_FALSE(result->hasErrors())
            << result->getErrors().front().line << ": " << result->getErrors().front().message;
        std::vector<Node const*> pending{&result->getRootNode()};
        while (!pending.empty()) {
            auto const* node = pending.back();
            pending.pop_back();
            seen.insert(static_cast<int>(node->kind()));
            EXPECT_TRUE(node->hasLayoutOfItsKind()) << node->kind() << " at " << node->line() << ":" << node->column();
            pending.insert(pending.end(), node->children().begin(), node->children().end());
        }
    }
    std::vector<int> missing;
    for (int code = 1; code <= lastNodeKind; ++code) {
        if (!seen.contains(code)) {
            missing.push_back(code);
        }
    }
    EXPECT_TRUE(missing.empty()) << "the sample code makes no node of kind " << static_cast<NodeKind>(missing.front());
}

}  // namespace

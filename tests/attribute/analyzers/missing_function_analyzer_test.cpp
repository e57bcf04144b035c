#include "AnalyzerTestSupport.hpp"

#include "attribute/analyzers/Analyzers.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace dependency::attribute::missing_function {
// The analyzer's tree search, exposed by MissingFunctionAnalyzer.cpp for these tests.
bool lacksDefinition(ca::astapi::Node const& root, std::u16string_view soughtName, std::u16string_view ownerName,
                     std::ostream& diagnostics);
}  // namespace dependency::attribute::missing_function

namespace {

using namespace analyzer_test;
using namespace ca::astapi;
using ca::astapi::Node;
using dependency::attribute::createMissingFunctionAnalyzer;
using dependency::attribute::Severity;
using dependency::attribute::missing_function::lacksDefinition;

class MissingFunctionAnalyzerTest : public ::testing::Test {
protected:
    void SetUp() override { useRepositoryResources(); }

    // A function node named `name` whose file holds `code` (a new file for every call, so no cached result of an
    // earlier case can answer).
    NodeData functionIn(std::string const& code, std::u16string const& name, bool resolved = true) {
        return functionAt(folder_.write("f" + std::to_string(files_++) + ".qx", code).u16string(), name, resolved);
    }

    static NodeData functionAt(std::u16string const& path, std::u16string const& name, bool resolved = true) {
        NodeData data = nodeData(name, Type::FUNCTION(), {}, resolved);
        data.path = path;
        data.location = {path, name};
        return data;
    }

    bool reported(NodeData data) const {
        auto const findings = analyzer_->analyze(node(std::move(data)), graph_);
        EXPECT_LE(findings.size(), 1u);
        return findings.size() == 1;
    }

    std::shared_ptr<dependency::attribute::AttributeAnalyzer> analyzer_ = createMissingFunctionAnalyzer();
    std::shared_ptr<Graph const> graph_ = emptyGraph();
    TempFolder folder_{"missing_function"};
    int files_ = 0;
};

constexpr char const* functionFile =
    "function main(a, ~)\n  x = helper(a);\n  function nestedOne\n  end\nend\nfunction helper(v)\nend\n";

constexpr char const* classFile =
    "classdef Shape < handle\n  methods\n    function area(obj)\n    end\n  end\n"
    "  methods (Static)\n    function create()\n    end\n  end\n"
    "  methods (Static = true)\n    function build()\n    end\n  end\n"
    "  methods (Static = false, Access = private)\n    function plain()\n    end\n  end\n"
    "  methods (Access = private, Static)\n    function late()\n    end\n  end\nend\n";

TEST_F(MissingFunctionAnalyzerTest, TheFindingIsOneWarningWithoutFixSharedByEveryAnalyzerOnFunctionsOnly) {
    auto const findings = analyzer_->analyze(node(functionIn(functionFile, u"absentName")), graph_);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0]->getID(), u"Missing");
    EXPECT_EQ(findings[0]->getSeverity(), Severity::Warning);
    EXPECT_EQ(findings[0]->getName(), englishText("MissingFunctionProblem"));
    EXPECT_FALSE(findings[0]->hasFix());
    auto const again = createMissingFunctionAnalyzer();
    EXPECT_NE(again, analyzer_);
    auto const other = again->analyze(node(functionAt(folder_.pathOf("absent.qx"), u"f")), graph_);
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(other[0]->getIdentity(), findings[0]->getIdentity());
    // Only function nodes are examined.
    for (Type const& type : {Type::FILE(), Type::PRODUCT(), Type::PACKAGE(), Type::PROJECT(), Type::DERIVED()}) {
        NodeData data = functionAt(folder_.pathOf("absent.qx"), u"f");
        data.type = type;
        EXPECT_TRUE(analyzer_->analyze(node(data), graph_).empty()) << type.name();
    }
}

TEST_F(MissingFunctionAnalyzerTest, DefinitionsAnywhereInTheFileCountAndStaticMethodsAreQualified) {
    // Superclass calls, shell escapes and spmd blocks make nodes of their own kinds, which the search walks.
    constexpr char const* newerConstructs =
        "classdef Circle < Shape\n  methods\n    function obj = Circle(r)\n      obj = obj@Shape(r);\n"
        "      !echo made\n      spmd (2), obj.setup@Shape(@() helper(r)); end\n    end\n  end\nend\n"
        "function helper(v)\nend\n";
    struct Case {
        char const* code;
        std::vector<std::u16string> defined, missing;
    };
    std::vector<Case> const cases{
        // Local and nested functions count, a variable does not, names compare exactly. Only the first slash
        // splits the location name: "a/b/helper" seeks "b/helper" and "helper/" seeks "".
        {functionFile,
         {u"main", u"helper", u"nestedOne", u"pkg/helper"},
         {u"x", u"Main", u"mai", u"a/b/helper", u"helper/"}},
        {"x = 1;\nfunction y = local(v)\n  y = v;\nend\n", {u"local"}, {}},  // a script
        // Static methods (also "Static = true" and Static after another attribute) are sought as Class.method.
        {classFile,
         {u"Shape", u"area", u"Shape.create", u"Shape.build", u"plain", u"Shape.late", u"pkg/Shape.create"},
         {u"Shape.area", u"create", u"Shape.plain"}},
        // A signature declares a method whose body lives elsewhere: not a definition in this file.
        {"classdef K\n  methods\n    r = sig(obj)\n  end\nend\n", {}, {u"sig"}},
        {newerConstructs, {u"Circle", u"helper"}, {u"setup"}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.code);
        for (bool const missing : {false, true}) {
            for (auto const& name : missing ? c.missing : c.defined) {
                EXPECT_EQ(reported(functionIn(c.code, name)), missing) << fl::i18n::to_string(name);
            }
        }
    }
}

TEST_F(MissingFunctionAnalyzerTest, OneAnalyzerSeesAFileChangeAndEachFileOfItsOwn) {
    // The analyzer remembers the names a file's tree defines; a new content of the file is another tree.
    auto const path = folder_.write("changing.qx", "function first\nend\n").u16string();
    auto const other = folder_.write("other.qx", "function second\nend\n").u16string();
    EXPECT_FALSE(reported(functionAt(path, u"first")));
    EXPECT_TRUE(reported(functionAt(path, u"second")));
    EXPECT_FALSE(reported(functionAt(other, u"second")));
    folder_.write("changing.qx", "function second\nend\nfunction third\nend\n");
    EXPECT_TRUE(reported(functionAt(path, u"first")));
    EXPECT_FALSE(reported(functionAt(path, u"second")));
    EXPECT_FALSE(reported(functionAt(path, u"third")));
    // A file the search cannot use counts every name as missing, and its repair is seen.
    folder_.write("changing.qx", "function broken(\n");
    EXPECT_TRUE(reported(functionAt(path, u"broken")));
    folder_.write("changing.qx", "function broken\nend\n");
    EXPECT_FALSE(reported(functionAt(path, u"broken")));
}

TEST_F(MissingFunctionAnalyzerTest, EveryFailureToLookIsReportedAsMissingAndANamelessLocationThrows) {
    EXPECT_TRUE(reported(functionIn(functionFile, u"main", /*resolved=*/false)));
    EXPECT_TRUE(reported(functionAt(folder_.pathOf("absent.qx"), u"main")));
    // Broken, unreadable and odd code files are in tests/hostile.
    // Only location element 0 is tested for existence; the analysed file is the node's path.
    NodeData mismatch = functionIn(functionFile, u"main");
    mismatch.path = folder_.pathOf("absent.qx");
    EXPECT_TRUE(reported(mismatch));
    NodeData rejected = functionIn(functionFile, u"main");
    rejected.location[0] += std::u16string(u"\0x", 2);  // the file system rejects the path
    EXPECT_TRUE(reported(rejected));
    // A location without a name is the caller's error.
    NodeData unnamed = functionIn(functionFile, u"main");
    unnamed.location.resize(1);
    EXPECT_THROW(analyzer_->analyze(node(unnamed), graph_), std::out_of_range);
}

// ----- the tree search on trees built by hand

NodeFields at(NodeKind kind, std::u16string_view text = {}, bool logicalValue = false) {
    return NodeFields{kind, 1, 1, Operator::None, logicalValue, text};
}

struct HandBuiltTree {
    ca::astapi::SyntaxTree tree;
    std::ostringstream diagnostics;

    bool lacks(Node const& root, std::u16string_view sought, std::u16string_view owner = u"") {
        return lacksDefinition(root, sought, owner, diagnostics);
    }
    Node const& name(std::u16string_view text) { return tree.make(at(NodeKind::Identifier, text)); }
    Node const& function(std::u16string_view functionName, std::vector<Node const*> const& inputs = {}) {
        return tree.make(at(NodeKind::FunctionDefinition),
                         {Single{}, Single{}, Single{}, Single{}, Single{}, List{}, Single{&name(functionName)},
                          List{inputs}, Single{}, List{}, List{}});
    }
    Node const& method(std::u16string_view methodName, std::vector<Node const*> const& attributes) {
        return tree.make(at(NodeKind::MethodDefinition),
                         {Single{}, Single{}, Single{}, Single{}, Single{}, List{}, Single{&name(methodName)}, List{},
                          Single{}, List{}, List{}, Reference{attributes}});
    }
    Node const& attribute(std::u16string_view attributeName, bool value, Node const* operand = nullptr) {
        return tree.make(at(NodeKind::Attribute, {}, value), {Single{&name(attributeName)}, Single{operand}});
    }
    Node const& file(std::vector<Node const*> const& items) { return tree.make(at(NodeKind::File), {List{items}}); }
};

TEST(MissingFunctionSearch, UnknownKindsEndTheSearchEvenAfterAMatch) {
    // Outside the numbering: 0 and every code past the last kind the parser makes.
    for (int code : {0, ca::astapi::lastNodeKind + 1, 200}) {
        HandBuiltTree built;
        auto const& root = built.file({&built.function(u"f"), &built.tree.make(at(static_cast<NodeKind>(code)))});
        EXPECT_EQ(depattr_test::whatOf<std::logic_error>([&] { built.lacks(root, u"f"); }),
                  "Unhandled node kind encountered in AstDispatcher")
            << code;
        std::ostringstream kindText;
        kindText << static_cast<NodeKind>(code);
        EXPECT_EQ(built.diagnostics.str(),
                  "Unhandled node kind \"" + kindText.str() + "\" encountered in AstDispatcher.");
    }
    std::ostringstream invalid;
    invalid << NodeKind::Invalid;
    EXPECT_EQ(invalid.str(), "Invalid");
}

TEST(MissingFunctionSearch, InputArgumentsNeedAnIdentifierOrAnIgnoredAndOnlyLeavesAreNotEntered) {
    HandBuiltTree built;
    auto const& named = built.tree.make(at(NodeKind::InputArgument), {Single{&built.name(u"x")}, Single{}});
    auto const& ignored =
        built.tree.make(at(NodeKind::InputArgument), {Single{}, Single{&built.tree.make(at(NodeKind::Ignored))}});
    auto const& empty = built.tree.make(at(NodeKind::InputArgument), {Single{}, Single{}});
    EXPECT_FALSE(built.lacks(built.file({&built.function(u"f", {&named, &ignored})}), u"f"));
    EXPECT_EQ(depattr_test::whatOf<std::logic_error>(
                  [&] { built.lacks(built.file({&built.function(u"f", {&empty})}), u"f"); }),
              "InputArgument has neither an Identifier nor an Ignored");
    EXPECT_TRUE(built.diagnostics.str().empty());
    // A leaf kind is never looked into, whatever it holds.
    auto const& leaf = built.tree.make(at(NodeKind::Number), {Single{&built.tree.make(at(NodeKind::Invalid))}});
    EXPECT_FALSE(built.lacks(built.file({&leaf, &built.function(u"f")}), u"f"));
    // Any other kind is entered: a definition deep inside an expression statement is found.
    auto const& statement = built.tree.make(at(NodeKind::ExpressionStatement), {Single{&built.function(u"g")}});
    EXPECT_FALSE(built.lacks(built.file({&statement}), u"g"));
    EXPECT_TRUE(built.lacks(built.file({&statement}), u"h"));
}

TEST(MissingFunctionSearch, TheFirstFlagStaticAttributeMakesAMethodStatic) {
    HandBuiltTree built;
    auto const& operand = built.name(u"true");
    auto const check = [&](std::vector<Node const*> const& attributes, std::u16string_view sought) {
        return !built.lacks(built.method(u"m", attributes), sought, u"Owner");
    };
    EXPECT_TRUE(check({}, u"m"));
    EXPECT_FALSE(check({}, u"Owner.m"));
    EXPECT_TRUE(check({&built.attribute(u"Static", true)}, u"Owner.m"));
    EXPECT_FALSE(check({&built.attribute(u"Static", true)}, u"m"));
    EXPECT_TRUE(check({&built.attribute(u"Static", false)}, u"m"));
    EXPECT_TRUE(check({&built.attribute(u"Static", true, &operand)}, u"m"));  // an operand disqualifies it
    EXPECT_TRUE(check({&built.attribute(u"static", true)}, u"m"));            // the name compares exactly
    EXPECT_TRUE(check({&built.attribute(u"Static", false), &built.attribute(u"Static", true)}, u"Owner.m"));
}

}  // namespace

// Parsing of the host language's constructs, checked on the tree's text form (see TreeDump.hpp).

#include "TreeDump.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <gtest/gtest.h>

#include <initializer_list>
#include <span>
#include <string>

namespace {

using ca::astapi::Node;
using ca::astapi::NodeKind;
using ca::testing::dump;

// The statements of a script, one text form per statement separated by " ; ", or "error L:C message".
std::string parsed(std::string_view code) {
    auto const result = ca::analyzeText(code);
    if (result->hasErrors()) {
        auto const& error = result->getErrors().front();
        return "error " + std::to_string(error.line) + ":" + std::to_string(error.column) + " " + error.message;
    }
    std::string text;
    for (auto const* statement : result->getRootNode().children()) {
        text += (text.empty() ? "" : " ; ") + dump(*statement);
    }
    return text;
}

// The right-hand side of the script's one assignment.
std::string value(std::string_view code) {
    auto const result = ca::analyzeText(code);
    if (result->hasErrors()) {
        return "error: " + result->getErrors().front().message;
    }
    auto const statements = result->getRootNode().children();
    if (statements.size() != 1 || statements[0]->kind() != NodeKind::Assignment) {
        return "not one assignment: " + parsed(code);
    }
    return dump(*statements[0]->child(1));
}

struct Case {
    std::string_view code;
    std::string_view text;
};

// Each case's code has, in the form given (parsed or value), the text beside it.
void expectTexts(std::string (*form)(std::string_view), std::span<Case const> cases) {
    for (auto const& [code, text] : cases) {
        EXPECT_EQ(form(code), text) << code;
    }
}

TEST(Parser, ExpressionsHaveTheirTrees) {
    Case const cases[] = {
        // A quote is a transpose only right after an operand, a keyword-like field name included.
        {"x = a';", "(PostfixOperation['] Identifier:a)"},
        {"x = a.';", "(PostfixOperation[.'] Identifier:a)"},
        {"x = a'';", "(PostfixOperation['] (PostfixOperation['] Identifier:a))"},
        {"x = 2' + (1)' + {3}' + [4]';",
         "(BinaryOperation[+] (BinaryOperation[+] (BinaryOperation[+] (PostfixOperation['] Number:2) "
         "(PostfixOperation['] (Parenthesized Number:1))) (PostfixOperation['] (Cell (Row Number:3)))) "
         "(PostfixOperation['] (Matrix (Row Number:4))))"},
        {"x = [a' 'b'];", "(Matrix (Row (PostfixOperation['] Identifier:a) CharacterString:b))"},
        {"x = 'it''s';", "CharacterString:it's"},
        {"x = \"say \"\"hi\"\"\";", "String:say \"hi\""},
        {"x = \"ab\"';", "(PostfixOperation['] String:ab)"},
        {"x = {'a', \"b\"};", "(Cell (Row CharacterString:a String:b))"},
        {"x = s.end';", "(PostfixOperation['] (FieldAccess Identifier:s Identifier:end))"},
        // White space separates matrix elements only before an operand.
        {"x = [1 -2];", "(Matrix (Row Number:1 (UnaryOperation[-] Number:2)))"},
        {"x = [1 - 2];", "(Matrix (Row (BinaryOperation[-] Number:1 Number:2)))"},
        {"x = [1 -2 + 3];", "(Matrix (Row Number:1 (BinaryOperation[+] (UnaryOperation[-] Number:2) Number:3)))"},
        {"x = [a (1)];", "(Matrix (Row Identifier:a (Parenthesized Number:1)))"},
        {"x = [a(1) b{2}];", "(Matrix (Row (ParenIndex Identifier:a Number:1) (BraceIndex Identifier:b Number:2)))"},
        {"x = [f(1 -2)];", "(Matrix (Row (ParenIndex Identifier:f (BinaryOperation[-] Number:1 Number:2))))"},
        {"x = f(1 -2);", "(ParenIndex Identifier:f (BinaryOperation[-] Number:1 Number:2))"},
        {"x = [1, 2\n 3 4; 5];", "(Matrix (Row Number:1 Number:2) (Row Number:3 Number:4) (Row Number:5))"},
        {"x = {@(v) v + 1, 2};",
         "(Cell (Row (AnonymousFunction (InputArgument Identifier:v) (BinaryOperation[+] Identifier:v "
         "Number:1)) Number:2))"},
        {"x = [];", "Matrix"},
        {"x = [1 2]' ;", "(PostfixOperation['] (Matrix (Row Number:1 Number:2)))"},
        {"x = {a @sin};", "(Cell (Row Identifier:a (FunctionHandle Identifier:sin)))"},
        // An operand right after a closing bracket starts the next element.
        {"x = [[1]2];", "(Matrix (Row (Matrix (Row Number:1)) Number:2))"},
        {"x = {a(1)b [2]\"c\"};",
         "(Cell (Row (ParenIndex Identifier:a Number:1) Identifier:b (Matrix (Row Number:2)) String:c))"},
        // end inside indexing is an expression.
        {"y = x(end);", "(ParenIndex Identifier:x End)"},
        {"y = x{end - 1};", "(BraceIndex Identifier:x (BinaryOperation[-] End Number:1))"},
        {"y = x([1 end]);", "(ParenIndex Identifier:x (Matrix (Row Number:1 End)))"},
        {"y = x(end:-1:1, :);", "(ParenIndex Identifier:x (Range End (UnaryOperation[-] Number:1) Number:1) Colon)"},
        // Operators bind by precedence.
        {"x = -2^2;", "(UnaryOperation[-] (BinaryOperation[^] Number:2 Number:2))"},
        {"x = 2^-1;", "(BinaryOperation[^] Number:2 (UnaryOperation[-] Number:1))"},
        {"x = a + b * c;", "(BinaryOperation[+] Identifier:a (BinaryOperation[*] Identifier:b Identifier:c))"},
        {"x = a - b - c;", "(BinaryOperation[-] (BinaryOperation[-] Identifier:a Identifier:b) Identifier:c)"},
        {"x = a:b:c + 1;", "(Range Identifier:a Identifier:b (BinaryOperation[+] Identifier:c Number:1))"},
        {"x = a < b & c || d && e;",
         "(ShortCircuit[||] (BinaryOperation[&] (Comparison[<] Identifier:a Identifier:b) Identifier:c) "
         "(ShortCircuit[&&] Identifier:d Identifier:e))"},
        {"x = ~a == b;", "(Comparison[==] (UnaryOperation[~] Identifier:a) Identifier:b)"},
        {"x = a | b & c;", "(BinaryOperation[|] Identifier:a (BinaryOperation[&] Identifier:b Identifier:c))"},
        {"x = a .* b ./ c .\\ d .^ e;",
         "(BinaryOperation[.\\] (BinaryOperation[./] (BinaryOperation[.*] Identifier:a Identifier:b) "
         "Identifier:c) (BinaryOperation[.^] Identifier:d Identifier:e))"},
        {"x = 1 < 2:3;", "(Comparison[<] Number:1 (Range Number:2 Number:3))"},
        {"x = s.a.(n){2}(3);",
         "(ParenIndex (BraceIndex (DynamicField (FieldAccess Identifier:s Identifier:a) Identifier:n) Number:2) "
         "Number:3)"},
        {"x = 1e-3 + .5i;", "(BinaryOperation[+] Number:1e-3 ImaginaryNumber:.5i)"},
        {"x = @pkg.fn;", "(FunctionHandle DottedName:pkg.fn)"},
        {"x = ?pkg.Cls;", "MetaclassQuery:pkg.Cls"},
        {"x = f(Name = 1);", "(ParenIndex Identifier:f (Assignment Identifier:Name Number:1))"},
        // Power and transpose share a level.
        {"x = a^b';", "(PostfixOperation['] (BinaryOperation[^] Identifier:a Identifier:b))"},
        {"x = a'^b.';", "(PostfixOperation[.'] (BinaryOperation[^] (PostfixOperation['] Identifier:a) Identifier:b))"},
        {"x = 2^-b';", "(PostfixOperation['] (BinaryOperation[^] Number:2 (UnaryOperation[-] Identifier:b)))"},
        {"x = a:b:c:d;", "(Range (Range Identifier:a Identifier:b Identifier:c) Identifier:d)"},
        // Binary and hexadecimal literals keep their text.
        {"x = [0b101, 0x1Fu8, 0XFFs16, 0B1u64];",
         "(Matrix (Row Number:0b101 Number:0x1Fu8 Number:0XFFs16 Number:0B1u64))"},
    };
    expectTexts(value, cases);
}

TEST(Parser, StatementsHaveTheirTrees) {
    Case const cases[] = {
        // Command form needs white space after the first word and no operator that white space follows.
        {"hold on", "(CommandStatement Identifier:hold CommandArgument:on)"},
        {"disp -x", "(CommandStatement Identifier:disp CommandArgument:-x)"},
        {"disp 'two words' x;", "(CommandStatement Identifier:disp CommandArgument:two words CommandArgument:x)"},
        {"format long % the rest is a comment", "(CommandStatement Identifier:format CommandArgument:long)"},
        {"hold on, x = 1",
         "(CommandStatement Identifier:hold CommandArgument:on) ; (Assignment Identifier:x Number:1)"},
        {"a - b", "(ExpressionStatement (BinaryOperation[-] Identifier:a Identifier:b))"},
        {"a == b", "(ExpressionStatement (Comparison[==] Identifier:a Identifier:b))"},
        {"a = b", "(Assignment Identifier:a Identifier:b)"},
        {"disp (1)", "(ExpressionStatement (ParenIndex Identifier:disp Number:1))"},
        {"a", "(ExpressionStatement Identifier:a)"},
        {"a ...", "(ExpressionStatement Identifier:a)"},
        // end outside indexing closes a block.
        {"if x(end) > 1, y = 1; end",
         "(IfStatement (IfClause (Comparison[>] (ParenIndex Identifier:x End) Number:1) "
         "(Assignment Identifier:y Number:1)))"},
        // Comments and continuations are white space; %{ with text after it on its line is a line comment.
        {"%{\nx = 1;\n%}\ny = 2;", "(Assignment Identifier:y Number:2)"},
        {"  %{  \n%{\ninner\n%}\nstill comment\n  %}\ny = 2;", "(Assignment Identifier:y Number:2)"},
        {"%{ not a block\ny = 2;", "(Assignment Identifier:y Number:2)"},
        {"y = 1 + ... the rest is a comment\n    2;",
         "(Assignment Identifier:y (BinaryOperation[+] Number:1 Number:2))"},
        {"y = [1, ... one row\n 2];", "(Assignment Identifier:y (Matrix (Row Number:1 Number:2)))"},
        {"y = 1; % 'quote' in a comment\r\nz = 2;",
         "(Assignment Identifier:y Number:1) ; (Assignment Identifier:z Number:2)"},
        {"\xEF\xBB\xBFx = 1;", "(Assignment Identifier:x Number:1)"},  // a leading byte order mark is skipped
                                                                       // Statements have their clauses.
        {"if a\n x = 1;\nelseif b\nelse\n y = 2;\nend",
         "(IfStatement (IfClause Identifier:a (Assignment Identifier:x Number:1)) (ElseifClause Identifier:b) "
         "(ElseClause (Assignment Identifier:y Number:2)))"},
        {"switch s\n case 1\n  a;\n case {2, 3}\n otherwise\n  b;\nend",
         "(SwitchStatement Identifier:s (CaseClause Number:1 (ExpressionStatement Identifier:a)) "
         "(CaseClause (Cell (Row Number:2 Number:3))) (OtherwiseClause (ExpressionStatement Identifier:b)))"},
        {"try\n a;\ncatch err\n b;\nend",
         "(TryStatement (ExpressionStatement Identifier:a) (CatchClause Identifier:err "
         "(ExpressionStatement Identifier:b)))"},
        {"try, a; catch disp(1), end",
         "(TryStatement (ExpressionStatement Identifier:a) (CatchClause (ExpressionStatement (ParenIndex "
         "Identifier:disp Number:1))))"},
        {"for k = 1:3, break; end", "(ForStatement Identifier:k (Range Number:1 Number:3) Break)"},
        {"parfor (k = 1:3, 4)\n continue\nend",
         "(ParforStatement Identifier:k (Range Number:1 Number:3) Number:4 Continue)"},
        {"while x, return, end", "(WhileStatement Identifier:x Return)"},
        {"global A B\npersistent C",
         "(GlobalStatement Identifier:A Identifier:B) ; (PersistentStatement Identifier:C)"},
        {"[a, ~, s.b] = f();",
         "(MultipleAssignment Identifier:a Ignored (FieldAccess Identifier:s Identifier:b) "
         "(ParenIndex Identifier:f))"},
        {";\nx = 1;;", "EmptyStatement ; (Assignment Identifier:x Number:1) ; EmptyStatement"},
        // Each of these is code that real projects contain.
        // superclass member calls
        {"obj = obj@Base(x, 2);",
         "(Assignment Identifier:obj (SuperclassCall Identifier:obj Identifier:Base Identifier:x Number:2))"},
        {"y = area@pkg.Shape(s)';",
         "(Assignment Identifier:y (PostfixOperation['] (SuperclassCall Identifier:area DottedName:pkg.Shape "
         "Identifier:s)))"},
        {"f(a, obj@Base)",
         "(ExpressionStatement (ParenIndex Identifier:f Identifier:a (SuperclassCall Identifier:obj "
         "Identifier:Base)))"},
        {"obj@Base(x);", "(ExpressionStatement (SuperclassCall Identifier:obj Identifier:Base Identifier:x))"},
        {"obj.setup@Base(c)",
         "(ExpressionStatement (SuperclassCall Identifier:obj.setup Identifier:Base Identifier:c))"},
        // a keyword directly followed by a quote opens text
        {"switch x\ncase'a'\notherwise'b'\nend",
         "(SwitchStatement Identifier:x (CaseClause CharacterString:a) (OtherwiseClause (ExpressionStatement "
         "CharacterString:b)))"},
        {"if'a'==x, end", "(IfStatement (IfClause (Comparison[==] CharacterString:a Identifier:x)))"},
        // the shell escape: the rest of the line, whatever it holds
        {"!make clean % all\nx = 1;", "ShellEscape:make clean % all ; (Assignment Identifier:x Number:1)"},
        {"x = 1; ! ls -l 'it", "(Assignment Identifier:x Number:1) ; ShellEscape:ls -l 'it"},
        {"!\r\n", "ShellEscape"},
        // command form: brackets hold blanks and commas, a comment ends the words, '...' joins lines
        {"declare x w(2, 1)", "(CommandStatement Identifier:declare CommandArgument:x CommandArgument:w(2, 1))"},
        {"variable X(n,n) symmetric",
         "(CommandStatement Identifier:variable CommandArgument:X(n,n) CommandArgument:symmetric)"},
        {"hold on% note", "(CommandStatement Identifier:hold CommandArgument:on)"},
        {"legend a ...\n b, x = 1",
         "(CommandStatement Identifier:legend CommandArgument:a CommandArgument:b) ; (Assignment Identifier:x "
         "Number:1)"},
        // spmd blocks
        {"spmd\n x = labindex;\nend", "(SpmdStatement (Assignment Identifier:x Identifier:labindex))"},
        {"spmd (4), end", "(SpmdStatement Number:4)"},
        {"spmd(2, n)\nend", "(SpmdStatement (Row Number:2 Identifier:n))"},
        // a name assigned earlier is a variable, not a command
        {"x = 5; x -1",
         "(Assignment Identifier:x Number:5) ; (ExpressionStatement (BinaryOperation[-] Identifier:x Number:1))"},
        {"for k = 1:2, end\nk -1",
         "(ForStatement Identifier:k (Range Number:1 Number:2)) ; (ExpressionStatement (BinaryOperation[-] "
         "Identifier:k Number:1))"},
        {"[a, ~] = f(); a -1\nb -1",
         "(MultipleAssignment Identifier:a Ignored (ParenIndex Identifier:f)) ; (ExpressionStatement "
         "(BinaryOperation[-] Identifier:a Number:1)) ; (CommandStatement Identifier:b CommandArgument:-1)"},
    };
    expectTexts(parsed, cases);
}

TEST(Parser, WhatTheLanguageRejectsIsAnErrorAtItsPlaceAndNothingThrows) {
    Case const cases[] = {
        {"x = a b", "error 1:7 expected the end of the statement but found 'b'"},  // only a first word is a command
        {"x = !y;", "error 1:5 unexpected '!' (a shell escape, which must start a statement)"},
        {"a != b",
         "error 1:3 expected the end of the statement but found '!=' (not an operator: inequality is written "
         "'~=')"},
        {"if a != b, end", "error 1:6 unexpected '!=' (not an operator: inequality is written '~=')"},
        {"x = 0b102;", "error 1:9 invalid number: '2' directly after digits"},
        {"x = 0x1Fu7;", "error 1:9 invalid number: 'u' directly after digits"},
        {"x = 0x1Fi;", "error 1:9 invalid number: 'i' directly after digits"},
        {"spmd (1, 2, 3)\nend", "error 1:6 'spmd' takes one or two worker counts in parentheses"},
        {"x = f(1)@Base;", "error 1:9 expected the end of the statement but found '@'"},
        {"x = [a b]c;", "error 1:10 expected the end of the statement but found 'c'"},
        {"obj@Base(1", "error 1:11 expected ',' or ')' but found end of file"},
        {"x = 1;\nend", "error 2:1 unexpected 'end'"},
        {"y = end;", "error 1:5 unexpected keyword 'end' in an expression"},
        {"x = 1;\n%{\nnever closed", "error 2:1 block comment '%{' is not closed by a line '%}'"},
        {"[a, 1] = f();", "error 1:1 invalid target in a multiple assignment"},
        {"f(x) + 1 = 2;", "error 1:1 the left side of '=' cannot be assigned to"},
        {"if a\n x = 1;\nelse if\nend", "error 3:8 unexpected end of line"},
        {std::string_view("x = 1;\n\0", 8), "error 2:1 unexpected character byte 0x00"},
        {"x = 1;\ny = a $ b;", "error 2:7 unexpected character '$'"},
        {"x = 'abc\ny = 1;", "error 1:5 character vector is not terminated before the end of the line"},
        {"x = \"abc", "error 1:5 string is not terminated before the end of the line"},
        {"x = 12abc;", "error 1:7 invalid number: 'a' directly after digits"},
        {"x = (1, 2);", "error 1:7 expected ')' but found ','"},
        {"x = f(1\n);", "error 1:8 expected ',' or ')' but found end of line"},
        {"y = 1;\nclassdef C\nend", "error 2:1 'classdef' must be the first statement of a file"},
    };
    expectTexts(parsed, cases);
    auto const survive = [](std::initializer_list<std::string_view> codes) {
        for (auto const code : codes) {
            EXPECT_NO_THROW(ca::analyzeText(code)) << code;
        }
    };
    survive({"(((", "]]]", "function", "classdef", "x = [1 2", "@", "?", "'", "%{", "function [a b = f", "x = a'''"});
    survive({"classdef C < ", "\xFF\xFE", "x.(", "s.", "a(:", "...", "\r", "\r\r\n", "case 1", "properties", "x = @("});
}

TEST(Parser, OnlyNamesAssignedEarlierInTheSameFunctionAreVariables) {
    // Inputs count; a nested function sees the names its parent assigned before it; another function does not.
    auto const result = ca::analyzeText(
        "x = 1;\n"
        "function f(v)\n  v -1\n  y = 2;\n  function g\n    y -1\n  end\n  x -1\nend\n"
        "function h\n  y -1\nend\n");
    ASSERT_FALSE(result->hasErrors()) << result->getErrors().front().message;
    auto const items = result->getRootNode().children();
    ASSERT_EQ(items.size(), 3u);
    auto const body = items[1]->list(11, 12);
    ASSERT_EQ(body.size(), 3u);
    EXPECT_EQ(dump(*body[0]), "(ExpressionStatement (BinaryOperation[-] Identifier:v Number:1))");
    EXPECT_EQ(dump(*body[2]), "(CommandStatement Identifier:x CommandArgument:-1)");
    EXPECT_EQ(dump(*items[1]->list(13, 14)[0]->list(11, 12)[0]),
              "(ExpressionStatement (BinaryOperation[-] Identifier:y Number:1))");
    EXPECT_EQ(dump(*items[2]->list(11, 12)[0]), "(CommandStatement Identifier:y CommandArgument:-1)");

    // After a nested function has looked its names up, its parent goes on with its own.
    auto const after = ca::analyzeText(
        "function f\n  a = 1;\n  function g\n    b = 2;\n    b -1\n  end\n"
        "  c = 3;\n  b -1\n  c -1\n  a -1\nend\n");
    ASSERT_FALSE(after->hasErrors()) << after->getErrors().front().message;
    auto const rest = after->getRootNode().children()[0]->list(11, 12);
    ASSERT_EQ(rest.size(), 5u);
    EXPECT_EQ(dump(*rest[2]), "(CommandStatement Identifier:b CommandArgument:-1)");
    EXPECT_EQ(dump(*rest[3]), "(ExpressionStatement (BinaryOperation[-] Identifier:c Number:1))");
    EXPECT_EQ(dump(*rest[4]), "(ExpressionStatement (BinaryOperation[-] Identifier:a Number:1))");
}

TEST(Parser, FunctionDefinitionsFillTheirSlots) {
    auto const result =
        ca::analyzeText("function [a, b] = f(x, ~, varargin)\n  a = x;\n  function g\n  end\n  b = 2;\nend\n");
    ASSERT_FALSE(result->hasErrors());
    auto const& function = *result->getRootNode().children()[0];
    ASSERT_EQ(function.kind(), NodeKind::FunctionDefinition);
    EXPECT_EQ(function.line(), 1u);
    EXPECT_EQ(function.column(), 1u);
    EXPECT_EQ(function.child(7)->identifier().getString(), u"f");
    ASSERT_EQ(function.list(5, 6).size(), 2u);
    EXPECT_EQ(function.list(5, 6)[1]->identifier().getString(), u"b");
    auto const inputs = function.list(8, 9);
    ASSERT_EQ(inputs.size(), 3u);
    EXPECT_EQ(dump(*inputs[0]), "(InputArgument Identifier:x)");
    EXPECT_EQ(dump(*inputs[1]), "(InputArgument Ignored)");
    EXPECT_EQ(inputs[1]->child(0), nullptr);
    EXPECT_EQ(inputs[1]->child(1)->kind(), NodeKind::Ignored);
    ASSERT_EQ(function.list(11, 12).size(), 2u);
    EXPECT_EQ(function.list(11, 12)[1]->line(), 5u);
    ASSERT_EQ(function.list(13, 14).size(), 1u);
    EXPECT_EQ(function.list(13, 14)[0]->child(7)->identifier().getString(), u"g");
    for (unsigned reserved : {0u, 1u, 2u, 3u, 4u, 10u}) {
        EXPECT_EQ(function.child(reserved), nullptr);
    }
    // get.Name and set.Name are one name.
    auto const accessor = ca::analyzeText("function v = get.Name(obj)\nv = 1;\n");
    ASSERT_FALSE(accessor->hasErrors());
    EXPECT_EQ(accessor->getRootNode().children()[0]->child(7)->identifier().getString(), u"get.Name");
}

TEST(Parser, FunctionsOfAFileEitherAllEndOrNoneDoes) {
    auto const names = [](std::string_view code) {
        auto const result = ca::analyzeText(code);
        if (result->hasErrors()) {
            return "error " + std::to_string(result->getErrors().front().line);
        }
        std::string text;
        for (auto const* item : result->getRootNode().children()) {
            text += ca::testing::narrow(item->child(7)->identifier().getString());
            text += "[" + std::to_string(item->list(13, 14).size()) + "] ";
        }
        return text;
    };
    EXPECT_EQ(names("function a\nx = 1;\nfunction b\nfunction c\ny = 2;\n"), "a[0] b[0] c[0] ");
    EXPECT_EQ(names("function a\nfunction b\nend\nend\nfunction c\nend\n"), "a[1] c[0] ");
    EXPECT_EQ(names("function a\nif x, y = 1; end\nend\nfunction b\nend"), "a[0] b[0] ");
    EXPECT_EQ(names("function a\nend\nfunction b\n"), "error 3");
    EXPECT_EQ(names("function a\nfunction b\nend\n"), "error 1");
    EXPECT_EQ(names("function a\nx = 1;\nend\nend\n"), "error 4");
}

TEST(Parser, ClassDefinitionsFillTheirSlotsAndMethodsSeeTheirBlocksAttributes) {
    auto const result = ca::analyzeText(
        "classdef (Sealed, ~Hidden) pkg_C < handle & pkg.Base\n"
        "  properties (Access = private)\n    P (1,:) double {mustBeFinite} = 3\n  end\n"
        "  methods (Static, Static = true, Static = false, Access = {?A}, Flag = 1)\n"
        "    function s()\n    end\n    sig(a)\n  end\n"
        "  events\n    E\n  end\n"
        "end\n");
    ASSERT_FALSE(result->hasErrors()) << result->getErrors().front().message;
    EXPECT_EQ(result->getOwnerName(), u"pkg_C");
    auto const& cls = *result->getRootNode().children()[0];
    ASSERT_EQ(cls.kind(), NodeKind::ClassDefinition);
    EXPECT_EQ(cls.child(8)->identifier().getString(), u"pkg_C");
    auto const classAttributes = cls.list(6, 7);
    ASSERT_EQ(classAttributes.size(), 2u);
    ASSERT_EQ(cls.list(9, 10).size(), 2u);
    EXPECT_EQ(dump(*cls.list(9, 10)[1]), "DottedName:pkg.Base");
    auto const blocks = cls.list(11, 12);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(dump(*blocks[0]),
              "(PropertiesBlock (Attribute Identifier:Access Identifier:private) (Property Identifier:P "
              "(Dimensions Number:1 Colon) Identifier:double Identifier:mustBeFinite Number:3))");
    EXPECT_EQ(dump(*blocks[2]), "(EventsBlock (Event Identifier:E))");

    using Methods = lf::astapi::NodeCustomization<lf::astapi::Method<ca::astapi::CA>>;
    using Attributes = lf::astapi::NodeCustomization<lf::astapi::Attribute<ca::astapi::CA>>;
    auto const members = blocks[1]->list(2, 3);
    ASSERT_EQ(members.size(), 2u);
    auto const& method = *members[0];
    ASSERT_EQ(method.kind(), NodeKind::MethodDefinition);
    EXPECT_EQ(members[1]->kind(), NodeKind::MethodSignature);
    auto const attributes = Methods::getAttributes(method);
    ASSERT_EQ(attributes.size(), 5u);
    EXPECT_EQ(attributes.data(), method.list(15, 16).data());
    // The attributes belong to the methods block's sub-tree, not to each method's.
    EXPECT_EQ(method.children().size(), 1u);
    EXPECT_EQ(attributes[0], blocks[1]->list(0, 1)[0]);

    EXPECT_EQ(Attributes::getName(*attributes[0]), u"Static");
    // Static, Static = true and Static = false have a logical value; Access = {?A} and Flag = 1 an operand.
    bool const isTrue[] = {true, true, false, false, false}, isFalse[] = {false, false, true, false, false};
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        EXPECT_EQ(Attributes::isAttributeWithGivenLogicalValue(*attributes[i], true), isTrue[i]) << i;
        EXPECT_EQ(Attributes::isAttributeWithGivenLogicalValue(*attributes[i], false), isFalse[i]) << i;
    }
    EXPECT_EQ(Attributes::getOperand(*attributes[1]), nullptr);
    ASSERT_NE(Attributes::getOperand(*attributes[3]), nullptr);
    EXPECT_EQ(dump(*Attributes::getOperand(*attributes[3])), "(Cell (Row MetaclassQuery:A))");
    EXPECT_TRUE(Attributes::isAttributeWithGivenLogicalValue(*classAttributes[1], false));  // ~Hidden
    EXPECT_TRUE(Methods::getAttributes(cls).empty());
    EXPECT_FALSE(Attributes::isAttributeWithGivenLogicalValue(cls, true));
}

TEST(Parser, ArgumentsBlocksAreRecognisedOnlyWhereTheyCanBe) {
    auto const result = ca::analyzeText(
        "function f(x, ~, opts)\n  arguments\n    x (1,1) double\n    ~\n    opts.Name string = \"n\"\n"
        "    opts.?pkg.Options\n  end\n"
        "  arguments (Output, Repeating)\n  end\n  arguments(1) = 2;\n  arguments (Input, x)\nend\n");
    ASSERT_FALSE(result->hasErrors()) << result->getErrors().front().message;
    auto const body = result->getRootNode().children()[0]->list(11, 12);
    ASSERT_EQ(body.size(), 4u);
    EXPECT_EQ(dump(*body[0]),
              "(ArgumentsBlock (ArgumentDeclaration Identifier:x (Dimensions Number:1 Number:1) Identifier:double) "
              "(ArgumentDeclaration Ignored) (ArgumentDeclaration DottedName:opts.Name Identifier:string String:n) "
              "(ArgumentDeclaration DottedName:opts.?pkg.Options))");
    EXPECT_EQ(dump(*body[1]), "(ArgumentsBlock (Attribute Identifier:Output) (Attribute Identifier:Repeating))");
    EXPECT_EQ(dump(*body[2]), "(Assignment (ParenIndex Identifier:arguments Number:1) Number:2)");
    // Only Input, Output and Repeating make a block: here a variable or function is called.
    EXPECT_EQ(dump(*body[3]), "(ExpressionStatement (ParenIndex Identifier:arguments Identifier:Input Identifier:x))");
}

TEST(Parser, TextIsDecodedToUtf16) {
    auto const text = [](std::string_view code) {
        auto const result = ca::analyzeText(code);
        return std::u16string(result->getRootNode().children()[0]->child(1)->identifier().getString());
    };
    EXPECT_EQ(text("x = 'h\xC3\xA9llo';"), u"h\u00E9llo");
    EXPECT_EQ(text("x = \"\xF0\x9F\x98\x80\";"), u"\U0001F600");
    EXPECT_EQ(text("x = '\xFF\xC3';"), u"\uFFFD\uFFFD");
}

}  // namespace

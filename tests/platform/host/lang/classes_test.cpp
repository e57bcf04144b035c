// Classes of class files: properties, methods, constructors, inheritance from
// class files and from bound classes, value and handle objects, object
// arrays, and the library's own classes.

#include "LangTest.hpp"

#include "attribute/Attribute.hpp"
#include "attribute/GraphAttributes.hpp"
#include "platform/codeanalysis/CodeAnalysis.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostClasses.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Qcos.hpp"
#include "platform/host/lang/detail/Compiler.hpp"
#include "platform/host/lang/detail/Runtime.hpp"
#include "services/AnalyzerRegistry.hpp"

namespace {

using qlang::testing::CodeFolder;
using qlang::testing::errorOf;
using qlang::testing::expectErrors;
using qlang::testing::expectValues;

// The classes of the library (AttributeIdentity, Severity, ...) and its gateways.
void loadLibrary() {
    qvm::loadLibrary("libdepattr.so");
}

TEST(LangClasses, PropertiesMethodsAndStaticMembers) {
    CodeFolder folder;
    folder.write("LcTally.qx", R"(classdef LcTally < handle
    properties
        Count = 0
        Label = 'tally'
    end
    properties (Constant)
        Step = 2
        Twice = LcTally.Step * 2
    end
    properties (SetAccess = private)
        History = {}
    end
    methods
        function obj = LcTally(start)
            if nargin > 0
                obj.Count = start;
            end
        end
        function add(obj, by)
            if nargin < 2
                by = obj.Step;
            end
            obj.Count = obj.Count + by;
            obj.History{end + 1} = by;
        end
        function text = describe(obj)
            text = sprintf('%s:%d', obj.Label, obj.Count);
        end
    end
    methods (Static)
        function t = startingAt(n)
            t = LcTally(n);
        end
    end
    methods (Access = private)
        function secret(~)
        end
    end
end
)");
    expectValues({
        {"t = LcTally(); t.add(); t.add(5); x = t.Count;", "x", "7"},
        // Both call forms reach the same method.
        {"t = LcTally(1); add(t, 3); x = describe(t);", "x", "'tally:4'"},
        {"t = LcTally(); t.add(1); t.add(2); x = t.History;", "x", "{1,2}"},
        {"x = LcTally.Twice;", "x", "4"},
        {"t = LcTally(); x = t.Step;", "x", "2"},
        {"t = LcTally.startingAt(9); x = t.Count;", "x", "9"},
        {"t = LcTally(); x = {class(t), isa(t, 'handle'), isobject(t)};", "x", "{'LcTally',true,true}"},
        {"x = fieldnames(LcTally());", "x", "{'Count';'Label';'Step';'Twice';'History'}"},
        {"x = size(LcTally.empty(0, 3));", "x", "[0 3]"},
        {"t = LcTally(); x = [ismethod(t, 'add'), isprop(t, 'Count'), ismethod(t, 'nope')];", "x", "[true true false]"},
    });
    expectErrors({
        {"t = LcTally(); t.History = {};", "qlang:property:access", "cannot be set here", "1:16"},
        {"t = LcTally(); t.secret();", "qlang:method:access", "cannot be called here", ""},
        {"t = LcTally(); t.Step = 3;", "qcos:property:readOnly", "constant property", ""},
        {"t = LcTally(); x = t.Missing;", "qlang:member:undefined", "'Missing'", ""},
        {"t = LcTally(); t.Missing = 1;", "qcos:property:undefined", "'Missing'", ""},
        {"x = LcTally.describe();", "qlang:method:notStatic", "not static", ""},
        {"x = LcTally(1, 2);", "qlang:call:tooManyInputs", "at most 1", ""},
        {"x = LcTally.empty(2, 2);", "qlang:class:emptyNotEmpty", "size of zero", ""},
    });
}

TEST(LangClasses, ValueObjectsAreCopiedHandleObjectsShared) {
    CodeFolder folder;
    folder.write("LcPoint.qx", R"(classdef LcPoint
    properties
        X = 0
    end
    methods
        function p = moveBy(p, dx)
            p.X = p.X + dx;
        end
        function r = plus(a, b)
            r = LcPoint();
            r.X = a.X + b.X;
        end
        function r = eq(a, b)
            r = a.X == b.X;
        end
    end
end
)");
    folder.write("LcBox.qx", "classdef LcBox < handle\n    properties\n        X = 0\n    end\nend\n");
    expectValues({
        {"a = LcPoint(); b = a; b.X = 5; x = [a.X b.X];", "x", "[0 5]"},
        {"a = LcPoint(); b = a.moveBy(3); x = [a.X b.X];", "x", "[0 3]"},
        {"a = LcBox(); b = a; b.X = 5; x = [a.X b.X];", "x", "[5 5]"},
        {"a = LcBox(); c = {a}; c{1}.X = 7; x = a.X;", "x", "7"},
        {"a = LcPoint(); s.p = a; s.p.X = 4; x = [a.X s.p.X];", "x", "[0 4]"},
        // Classes may define operators.
        {"a = LcPoint(); a.X = 1; b = a + a; x = b.X;", "x", "2"},
        {"a = LcPoint(); b = LcPoint(); x = a == b;", "x", "true"},
        // Handles compare by identity.
        {"a = LcBox(); b = LcBox(); x = [a == a, a == b];", "x", "[true false]"},
        {"a = LcPoint(); b = LcPoint(); x = isequal(a, b);", "x", "true"},
    });
}

TEST(LangClasses, DefaultsAreEvaluatedOnceAndAccessFollowsTheHierarchy) {
    CodeFolder folder;
    folder.write("LcCounterBox.qx", "classdef LcCounterBox < handle\n    properties\n        N = 0\n    end\nend\n");
    folder.write("LcHolder.qx", R"(classdef LcHolder
    properties
        Shared = LcCounterBox()
        Own = {}
        Limit = LcLimits.Maximum
    end
    properties (Access = protected)
        Secret = 'protected'
    end
    methods
        function obj = add(obj, item)
            obj.Own{end + 1} = item;
        end
        function n = bump(obj)
            obj.Shared.N = obj.Shared.N + 1;
            n = obj.Shared.N;
        end
        function touch(obj)
            obj.Own = {'changed'};
        end
    end
    methods (Static)
        function r = version()
            r = 3;
        end
    end
end
)");
    folder.write("LcLimits.qx", "classdef LcLimits\n    properties (Constant)\n        Maximum = 7\n    end\nend\n");
    folder.write("LcChildHolder.qx",
                 "classdef LcChildHolder < LcHolder\n    methods\n        function s = reveal(obj)\n"
                 "            s = obj.Secret;\n        end\n    end\nend\n");
    expectValues({
        // A handle default is made once, when the class is defined, and shared by every object.
        {"a = LcHolder(); b = LcHolder(); a.bump(); x = b.bump();", "x", "2"},
        // A value default is copied into each object.
        {"a = LcHolder(); b = LcHolder(); a = a.add(1); x = {numel(a.Own), numel(b.Own)};", "x", "{1,0}"},
        // A method of a value class changes its own copy unless it returns it.
        {"a = LcHolder(); a.touch(); x = numel(a.Own);", "x", "0"},
        {"x = LcHolder().Limit;", "x", "7"},
        {"h = LcHolder(); x = h.version();", "x", "3"},
        {"c = LcChildHolder(); x = c.reveal();", "x", "'protected'"},
    });
    expectErrors({{"h = LcHolder(); x = h.Secret;", "qlang:property:access", "cannot be read here", ""}});
}

TEST(LangClasses, InheritanceFromClassFiles) {
    CodeFolder folder;
    folder.write("LcShape.qx", R"(classdef (Abstract) LcShape < qorvex.mixin.Heterogeneous
    properties
        Name = 'shape'
    end
    methods
        function text = describe(obj)
            text = [obj.Name ' of area ' num2str(obj.area())];
        end
    end
    methods (Abstract)
        a = area(obj)
    end
end
)");
    folder.write("LcSquare.qx", R"(classdef LcSquare < LcShape
    properties
        Side = 1
    end
    methods
        function obj = LcSquare(side)
            obj.Name = 'square';
            if nargin > 0
                obj.Side = side;
            end
        end
        function a = area(obj)
            a = obj.Side ^ 2;
        end
    end
end
)");
    folder.write("LcCircle.qx", R"(classdef LcCircle < LcShape
    methods
        function a = area(~)
            a = 3;
        end
    end
end
)");
    expectValues({
        {"s = LcSquare(3); x = s.describe();", "x", "'square of area 9'"},
        {"c = LcCircle(); x = describe(c);", "x", "'shape of area 3'"},
        {"x = isa(LcSquare(), 'LcShape');", "x", "true"},
        // Objects of sibling classes share a heterogeneous array of their common superclass.
        {"a = [LcSquare(2), LcCircle()]; x = {class(a), numel(a), a(1).area(), a(2).area()};", "x",
         "{'LcShape',2,4,3}"},
        {"a = LcSquare.empty(); a(1) = LcSquare(1); a(2) = LcCircle(); x = class(a);", "x", "'LcShape'"},
        {"a = [LcSquare(2), LcSquare(3)]; x = [a.Side];", "x", "[2 3]"},
        {"a = [LcSquare(2), LcSquare(3)]; total = 0; for s = a, total = total + s.area(); end, x = total;", "x", "13"},
    });
    expectErrors({
        {"s = LcShape();", "qlang:class:abstract", "abstract class 'LcShape'", "1:1"},
        {"x = [LcSquare(), 5];", "qlang:concatenate:mixedClasses", "cannot be concatenated", ""},
    });
}

TEST(LangClasses, SuperclassMembersAreCalledWithAt) {
    CodeFolder folder;
    folder.write("LcBase.qx", R"(classdef LcBase < handle
    properties
        Log = {}
    end
    methods
        function obj = LcBase(first)
            obj.Log{end + 1} = ['base ' first];
        end
        function r = greet(obj, who)
            r = ['hello ' who];
        end
    end
end
)");
    folder.write("LcDerived.qx", R"(classdef LcDerived < LcBase
    methods
        function obj = LcDerived()
            obj = obj@LcBase('from derived');
            obj.Log{end + 1} = 'derived';
        end
        function r = greet(obj, who)
            r = [greet@LcBase(obj, who) '!'];
        end
    end
end
)");
    expectValues({
        {"d = LcDerived(); x = d.Log;", "x", "{'base from derived','derived'}"},
        {"d = LcDerived(); x = d.greet('you');", "x", "'hello you!'"},
    });
}

TEST(LangClasses, ImplicitSuperclassConstructorsRunFirst) {
    CodeFolder folder;
    folder.write("LcParent.qx",
                 "classdef LcParent < handle\n    properties\n        Trace = ''\n    end\n"
                 "    methods\n        function obj = LcParent()\n            obj.Trace = [obj.Trace 'P'];\n"
                 "        end\n    end\nend\n");
    folder.write("LcChild.qx",
                 "classdef LcChild < LcParent\n    methods\n        function obj = LcChild()\n"
                 "            obj.Trace = [obj.Trace 'C'];\n        end\n    end\nend\n");
    folder.write("LcGrandchild.qx", "classdef LcGrandchild < LcChild\nend\n");
    expectValues({
        {"x = LcChild().Trace;", "x", "'PC'"},
        {"g = LcGrandchild(); x = g.Trace;", "x", "'PC'"},
    });
}

TEST(LangClasses, ClassFileErrorsNameTheFile) {
    CodeFolder folder;
    folder.write("LcOrphan.qx", "classdef LcOrphan < NoSuchBase\nend\n");
    folder.write("LcLoopA.qx", "classdef LcLoopA < LcLoopB\nend\n");
    folder.write("LcLoopB.qx", "classdef LcLoopB < LcLoopA\nend\n");
    folder.write("LcWrongName.qx", "classdef Different\nend\n");
    folder.write("LcBadDefault.qx",
                 "classdef LcBadDefault\n    properties\n        P = undefinedThing()\n"
                 "    end\nend\n");
    folder.write("LcFinal.qx", "classdef (Sealed) LcFinal < handle\nend\n");
    folder.write("LcAfterFinal.qx", "classdef LcAfterFinal < LcFinal\nend\n");
    folder.write("LcFixedBase.qx",
                 "classdef LcFixedBase < handle\n    methods (Sealed)\n        function r = f(~)\n"
                 "            r = 1;\n        end\n    end\nend\n");
    folder.write("LcRedefines.qx",
                 "classdef LcRedefines < LcFixedBase\n    methods\n        function r = f(~)\n"
                 "            r = 2;\n        end\n    end\nend\n");
    auto const orphan = errorOf("x = LcOrphan();");
    ASSERT_TRUE(orphan);
    EXPECT_EQ(orphan->identifier(), "qlang:class:undefinedSuperclass");
    EXPECT_EQ(orphan->stack().front().file, (folder.path() / "LcOrphan.qx").string());
    EXPECT_EQ(orphan->stack().front().line, 1u);
    EXPECT_EQ(orphan->stack().front().column, 21u);
    expectErrors({
        {"x = LcLoopA();", "qlang:class:cyclic", "inherits from itself", ""},
        {"x = LcWrongName();", "qlang:invalidCode", "file named 'Different.qx'", ""},
        {"x = LcBadDefault();", "qlang:undefined", "undefinedThing", ""},
        {"x = LcAfterFinal();", "qlang:class:sealed", "sealed class 'LcFinal'", ""},
        {"x = LcRedefines();", "qlang:method:sealed", "'f' is sealed in 'LcFixedBase'", ""},
    });
}

TEST(LangClasses, LibraryClassesAndGateways) {
    loadLibrary();
    expectValues({
        {"s = dependencies.internal.attribute.Severity.Warning; x = char(s);", "x", "'Warning'"},
        {"s = dependencies.internal.attribute.Severity.Problem; "
         "x = s == dependencies.internal.attribute.Severity.Problem;",
         "x", "true"},
        {"id = dependencies.internal.attribute.AttributeIdentity('I', 'N', "
         "dependencies.internal.attribute.Severity.Warning); a = createAttribute(id); "
         "x = {a.ID, a.hasFix(), class(a), a.Identity.Name};",
         "x", "{'I',false,'dependencies.internal.attribute.Attribute','N'}"},
        {"a = createMissingFileAnalyzer(); x = class(a);", "x", "'dependencies.internal.attribute.AttributeAnalyzer'"},
        {"x = dependencies.internal.attribute.Attribute.empty(1, 0);", "x",
         "<1x0 dependencies.internal.attribute.Attribute>"},
    });
    // A fix is a function handle; applyFix runs it.
    CodeFolder folder;
    folder.write("LcFixLog.qx", "classdef LcFixLog < handle\n    properties\n        Fixed = false\n    end\nend\n");
    expectValues(
        {{"log = LcFixLog(); id = dependencies.internal.attribute.AttributeIdentity('I', 'N', "
          "dependencies.internal.attribute.Severity.Warning); a = createAttribute(id, @() markFixed(log)); "
          "before = log.Fixed; a.applyFix(); x = [before, a.hasFix(), log.Fixed];\n"
          "function markFixed(log)\n    log.Fixed = true;\nend\n",
          "x", "[false true true]"}});
    expectErrors({
        {"a = createAttribute(5);", "qcos:type:wrongClass", "AttributeIdentity", "1:1"},
        {"a = createMissingFileAnalyzer(1);", "qorvex:maxrhs", "Too many input arguments", ""},
    });
}

TEST(LangClasses, AnalyzerClassRunsThroughTheLibrary) {
    loadLibrary();
    CodeFolder folder;
    folder.write("LcUnresolved.qx", R"(classdef LcUnresolved < dependencies.internal.attribute.AttributeAnalyzer
    properties (Constant)
        Identity = dependencies.internal.attribute.AttributeIdentity('Unresolved', 'Unresolved node', ...
            dependencies.internal.attribute.Severity.Warning)
    end
    methods
        function attributes = analyze(obj, node, graph)
            attributes = dependencies.internal.attribute.Attribute.empty(1, 0);
            if ~node.IsResolved && graph.NodeCount > 0
                attributes(end + 1) = createAttribute(obj.Identity);
            end
        end
    end
end
)");
    dependency::graph::GraphBuilder builder;
    builder.addNode(u"here", dependency::graph::Type::FILE());
    dependency::graph::NodeData missing;
    missing.id = u"gone";
    missing.resolved = false;
    builder.addNode(std::move(missing));
    auto const graph = builder.build();

    qlang::defineClass("LcUnresolved");
    auto const analyzerObject = std::move(qlang::callFunction("LcUnresolved", {}, 1).at(0));
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto const analyzers = dependency::attribute::fromAttributeAnalyzerQxArray(*analyzerObject, vm);
    ASSERT_EQ(analyzers.size(), 1u);
    auto const result = dependency::attribute::analyzeGraph(graph, analyzers);
    std::vector<std::u16string> found;
    for (auto const& node : graph->getNodes()) {
        for (auto const& attribute : result->getAttributes(node)) {
            found.push_back(node->getID() + u":" + attribute->getID());
        }
    }
    EXPECT_EQ(found, (std::vector<std::u16string>{u"gone:Unresolved"}));
}

}  // namespace

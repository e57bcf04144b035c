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

// An object of the analyzer class file `name`.
qxArrayPtr makeAnalyzer(char const* name) {
    qlang::defineClass(name);
    return std::move(qlang::callFunction(name, {}, 1).at(0));
}

// Runs the analyzer object over `graph`; the attributes it found, as "node:attribute".
std::vector<std::u16string> analyze(std::shared_ptr<dependency::graph::Graph const> const& graph,
                                    qxArray const& analyzer) {
    auto const vm = qvm::Factory::getCurrentLocalQVM();
    auto const result =
        dependency::attribute::analyzeGraph(graph, dependency::attribute::fromAttributeAnalyzerQxArray(analyzer, vm));
    std::vector<std::u16string> found;
    for (auto const& node : graph->getNodes()) {
        for (auto const& attribute : result->getAttributes(node)) {
            found.push_back(node->getID() + u":" + attribute->getID());
        }
    }
    return found;
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
        // Appending to a property changes the one object every handle refers to; a value object's copy stays apart.
        {"a = LcBox(); a.X = []; b = a; for k = 1:5, a.X(end+1) = k; end; x = b.X;", "x", "[1 2 3 4 5]"},
        {"a = LcBox(); a.X = [1 2]; a.X(numel(a.X) + 1) = 9; a.X(a.X(1)) = 4; x = a.X;", "x", "[4 2 9]"},
        {"a = LcBox(); a.X = {}; a.X{end+1}.name = 'n'; x = a.X{1}.name;", "x", "'n'"},
        {"a = LcBox(); a.X = [1 2]; try, a.X(end+1) = LcBox(); catch, end; x = a.X;", "x", "[1 2]"},
        {"a = LcPoint(); a.X = 1; b = a; b.X(end+1) = 2; x = {a.X, b.X};", "x", "{1,[1 2]}"},
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

// Abstract and heterogeneous superclasses, superclass members called with @,
// and superclass constructors that run first when not called.
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
    folder.write("LcParent.qx",
                 "classdef LcParent < handle\n    properties\n        Trace = ''\n    end\n"
                 "    methods\n        function obj = LcParent()\n            obj.Trace = [obj.Trace 'P'];\n"
                 "        end\n    end\nend\n");
    folder.write("LcChild.qx",
                 "classdef LcChild < LcParent\n    methods\n        function obj = LcChild()\n"
                 "            obj.Trace = [obj.Trace 'C'];\n        end\n    end\nend\n");
    folder.write("LcGrandchild.qx", "classdef LcGrandchild < LcChild\nend\n");
    expectValues({
        {"s = LcSquare(3); x = s.describe();", "x", "'square of area 9'"},
        {"c = LcCircle(); x = describe(c);", "x", "'shape of area 3'"},
        {"x = isa(LcSquare(), 'LcShape');", "x", "true"},
        // Objects of sibling classes share a heterogeneous array of their common superclass.
        {"a = [LcSquare(2), LcCircle()]; x = {class(a), numel(a), a(1).area(), a(2).area()};", "x",
         "{'LcShape',2,4,3}"},
        {"a = LcSquare.empty(); a(1) = LcSquare(1); a(2) = LcCircle(); x = class(a);", "x", "'LcShape'"},
        {"a = [LcSquare(2), LcSquare(3)]; x = [a.Side];", "x", "[2 3]"},
        // An object of an unrelated class is refused and the array stays as it was.
        {"a = LcSquare(2); try, a(end+1) = containers.Map(); catch, end; x = {numel(a), class(a)};", "x",
         "{1,'LcSquare'}"},
        {"a = [LcSquare(2), LcSquare(3)]; total = 0; for s = a, total = total + s.area(); end, x = total;", "x", "13"},
        {"d = LcDerived(); x = d.Log;", "x", "{'base from derived','derived'}"},
        {"d = LcDerived(); x = d.greet('you');", "x", "'hello you!'"},
        {"x = LcChild().Trace;", "x", "'PC'"},
        {"g = LcGrandchild(); x = g.Trace;", "x", "'PC'"},
    });
    expectErrors({
        {"s = LcShape();", "qlang:class:abstract", "abstract class 'LcShape'", "1:1"},
        {"x = [LcSquare(), 5];", "qlang:concatenate:mixedClasses", "cannot be concatenated", ""},
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
    CodeFolder folder;
    folder.write("LcFixLog.qx", "classdef LcFixLog < handle\n    properties\n        Fixed = false\n    end\nend\n");
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
        // A fix is a function handle; applyFix runs it.
        {"log = LcFixLog(); id = dependencies.internal.attribute.AttributeIdentity('I', 'N', "
         "dependencies.internal.attribute.Severity.Warning); a = createAttribute(id, @() markFixed(log)); "
         "before = log.Fixed; a.applyFix(); x = [before, a.hasFix(), log.Fixed];\n"
         "function markFixed(log)\n    log.Fixed = true;\nend\n",
         "x", "[false true true]"},
    });
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
    EXPECT_EQ(analyze(graph, *makeAnalyzer("LcUnresolved")), (std::vector<std::u16string>{u"gone:Unresolved"}));
}

// Only the gateways the library declares are callable by name: functions of
// the C library the library links to are unknown names, from code and
// through feval, and an analyzer that calls one fails where it does so.
TEST(LangClasses, OnlyDeclaredGatewaysAreCallableByName) {
    loadLibrary();
    for (auto const* name : {"sscanf", "atoi", "time", "abort", "exit", "getpid", "printf", "dlsym", "malloc",
                             "QLInitialize_depattr", "QLTerminate_depattr", "QLGateways_depattr"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(qvm::findHostFunction(name));
        auto const direct = errorOf(std::string("x = 1;\ny = ") + name + "(3);");
        ASSERT_TRUE(direct);
        EXPECT_EQ(direct->identifier(), "qlang:undefined");
        EXPECT_NE(std::string(direct->what()).find(name), std::string::npos) << direct->what();
        EXPECT_EQ(direct->location(), "case.qx:2:1");
        for (auto const& code :
             {std::string("y = feval('") + name + "', 3);", std::string("f = str2func('") + name + "'); y = f(3);"}) {
            auto const error = errorOf(code);
            ASSERT_TRUE(error) << code;
            EXPECT_EQ(error->identifier(), "qlang:undefined") << code;
        }
    }
    // The names of the C library that are also built-ins run the built-in.
    expectValues({
        {"x = strcat('a', 'b');", "x", "'ab'"},
        {"x = feval('strcat', 'a', 'b');", "x", "'ab'"},
        {"[t, r] = strtok('one two');", "t", "'one'"},
        {"[t, r] = feval('strtok', 'one two');", "r", "' two'"},
    });
    // Every declared gateway is found.
    for (auto const* name :
         {"createMissingFileAnalyzer", "createMissingFunctionAnalyzer", "createMissingPackageDependencyAnalyzer",
          "createMissingProductAnalyzer", "createDerivedFileAnalyzer", "createInvalidFormatAnalyzer",
          "createCircularProjectReferenceAnalyzer", "createMissingProjectReferenceAnalyzer", "analyzeInQorvex",
          "createAttribute"}) {
        EXPECT_TRUE(qvm::findHostFunction(name)) << name;
    }

    CodeFolder folder;
    folder.write("LcCallsLibc.qx", R"(classdef LcCallsLibc < dependencies.internal.attribute.AttributeAnalyzer
    methods
        function attributes = analyze(obj, node, graph)
            attributes = dependencies.internal.attribute.Attribute.empty(1, 0);
            exit(3);
        end
    end
end
)");
    dependency::graph::GraphBuilder builder;
    builder.addNode(u"here", dependency::graph::Type::FILE());
    try {
        (void)analyze(builder.build(), *makeAnalyzer("LcCallsLibc"));
        ADD_FAILURE() << "no error";
    } catch (qcos::HostError const& error) {
        EXPECT_EQ(error.identifier(), "qlang:undefined");
        EXPECT_NE(std::string(error.what()).find("'exit'"), std::string::npos) << error.what();
        ASSERT_FALSE(error.stack().empty());
        EXPECT_EQ(error.stack().front().file, (folder.path() / "LcCallsLibc.qx").string());
        EXPECT_EQ(error.stack().front().line, 5u);
        EXPECT_EQ(error.stack().front().column, 13u);
    }
}

// An analyzer class without a usable analyze method is rejected when it is
// defined, at the class or at the method, not when its first node runs.
TEST(LangClasses, AnalyzerClassesNeedAnAnalyzeMethodTakingNodeAndGraph) {
    loadLibrary();
    CodeFolder folder;
    struct Rejected {
        char const* name;
        char const* methods;
        char const* location;
        char const* messagePart;
    };
    std::initializer_list<Rejected> const rejections = {
        {"LcNoAnalyze", "        function r = other(obj)\n            r = 1;\n", ":1:1",
         "has no method 'analyze(obj, node, graph)'"},
        {"LcTwoInputs", "        function a = analyze(obj, node)\n            a = [];\n", ":3:9",
         "takes 2 inputs and returns 1 output"},
        {"LcNoOutput", "        function analyze(obj, node, graph)\n", ":3:9", "takes 3 inputs and returns 0 outputs"},
        {"LcFourInputs", "        function a = analyze(obj, node, graph, extra)\n            a = [];\n", ":3:9",
         "takes 4 inputs"},
    };
    auto const writeAnalyzer = [&folder](std::string const& name, std::string const& methods) {
        folder.write(name + ".qx", "classdef " + name + " < dependencies.internal.attribute.AttributeAnalyzer\n" +
                                       "    methods\n" + methods + "        end\n    end\nend\n");
    };
    for (auto const& rejected : rejections) {
        writeAnalyzer(rejected.name, rejected.methods);
    }
    // Accepted: an abstract base without analyze, a subclass that inherits
    // analyze, ignored inputs and varargin.
    folder.write("LcAbstractBase.qx",
                 "classdef (Abstract) LcAbstractBase < dependencies.internal.attribute.AttributeAnalyzer\nend\n");
    folder.write("LcFromBase.qx",
                 "classdef LcFromBase < LcAbstractBase\n    methods\n"
                 "        function a = analyze(~, ~, ~)\n"
                 "            a = dependencies.internal.attribute.Attribute.empty(1, 0);\n"
                 "        end\n    end\nend\n");
    folder.write("LcInherits.qx", "classdef LcInherits < LcFromBase\nend\n");
    writeAnalyzer("LcVarargs", "        function varargout = analyze(obj, varargin)\n            varargout = {1};\n");
    for (auto const& rejected : rejections) {
        SCOPED_TRACE(rejected.name);
        try {
            qlang::defineClass(rejected.name);
            ADD_FAILURE() << "accepted";
        } catch (qcos::HostError const& error) {
            EXPECT_EQ(error.identifier(), "qlang:class:analyzeMethod");
            EXPECT_NE(std::string(error.what()).find(rejected.messagePart), std::string::npos) << error.what();
            EXPECT_EQ(error.location(), (folder.path() / rejected.name).string() + ".qx" + rejected.location);
        }
    }
    for (auto const* accepted : {"LcAbstractBase", "LcFromBase", "LcInherits", "LcVarargs"}) {
        EXPECT_NO_THROW(qlang::defineClass(accepted)) << accepted;
    }
}

// Graph and node objects have a stable identity: within one analysis the
// analyzer gets the same graph object on every call and the same node object
// for a node, whether from its node argument, getNodes() or DownstreamNode.
// A walk over a cycle that remembers visited nodes by object ends, and a
// cache kept per graph is filled once.
TEST(LangClasses, GraphAndNodeObjectsKeepTheirIdentity) {
    loadLibrary();
    CodeFolder folder;
    folder.write("LcCycleWalk.qx", R"(classdef LcCycleWalk < dependencies.internal.attribute.AttributeAnalyzer
    properties (Constant)
        Identity = dependencies.internal.attribute.AttributeIdentity('Reach', 'Reaches itself', ...
            dependencies.internal.attribute.Severity.Warning)
    end
    properties
        CachedGraph = []
        CacheFills = 0
        Checks = {}
    end
    methods
        function attributes = analyze(obj, node, graph)
            attributes = dependencies.internal.attribute.Attribute.empty(1, 0);
            if isempty(obj.CachedGraph) || obj.CachedGraph ~= graph
                obj.CachedGraph = graph;
                obj.CacheFills = obj.CacheFills + 1;
            end
            nodes = graph.getNodes();
            again = graph.getNodes();
            mine = nodes(strcmp({nodes.ID}, node.ID));
            obj.Checks{end + 1} = [mine == node, isequal(mine, node), eq(node, mine), ...
                nodes(1) == again(1), nodes(1) ~= nodes(2), isequal(nodes, again), ...
                graph == obj.CachedGraph, isequal(graph, obj.CachedGraph)];
            % Depth-first from the node; visited nodes are kept as objects.
            visited = node;
            pending = node;
            reachesItself = false;
            while ~isempty(pending)
                current = pending(end);
                pending(end) = [];
                for dependency = graph.getDownstreamDependencies(current)
                    next = dependency.DownstreamNode;
                    if next == node
                        reachesItself = true;
                    end
                    if ~any(visited == next)
                        visited(end + 1) = next;
                        pending(end + 1) = next;
                    end
                end
            end
            if reachesItself
                attributes = createAttribute(obj.Identity);
            end
        end
    end
end
)");
    using dependency::graph::Type;
    dependency::graph::GraphBuilder builder;
    for (auto const* id : {u"a", u"b", u"c", u"alone"}) {
        builder.addNode(id, Type::FILE());
    }
    builder.addDependency(u"a", u"b", Type::CALL());
    builder.addDependency(u"b", u"c", Type::CALL());
    builder.addDependency(u"c", u"a", Type::CALL());
    builder.addDependency(u"alone", u"a", Type::CALL());
    auto const graph = builder.build();
    auto const analyzerObject = makeAnalyzer("LcCycleWalk");
    EXPECT_EQ(analyze(graph, *analyzerObject), (std::vector<std::u16string>{u"a:Reach", u"b:Reach", u"c:Reach"}));
    auto const* object = qcos::cosiGetArrayElement(*analyzerObject, 0);
    EXPECT_EQ(qlang::describe(*qcos::omGetProperty(*object, "CacheFills")), u"1");
    EXPECT_EQ(qlang::describe(*qcos::omGetProperty(*object, "Checks")),
              u"{[true true true true true true true true],[true true true true true true true true],"
              u"[true true true true true true true true],[true true true true true true true true]}");

    // Objects made apart for the same node or graph are equal; for others not.
    auto const graphObject = qcos::omCreateQCOSScalar(dependency::services::toNodeCachingGraphObject(graph));
    auto const sameGraph = qcos::omCreateQCOSScalar(dependency::services::toNodeCachingGraphObject(graph));
    dependency::graph::GraphBuilder otherBuilder;
    otherBuilder.addNode(u"a", Type::FILE());
    auto const other = otherBuilder.build();
    auto const otherGraph = qcos::omCreateQCOSScalar(dependency::services::toNodeCachingGraphObject(other));
    std::vector<std::shared_ptr<dependency::graph::Node>> const nodes(graph->getNodes().begin(),
                                                                      graph->getNodes().end());
    auto const nodeA = nodes.at(0);
    auto const nodeObject = [&graphObject](auto const& node) {
        return dependency::services::nodeObjectIn(*qcos::cosiGetArrayElement(*graphObject, 0), node);
    };
    auto const first = nodeObject(nodeA);
    EXPECT_TRUE(first == nodeObject(nodeA));
    // Another graph's node of the same ID is another node: its own object, also kept.
    auto const foreignA = *other->getNodes().begin();
    auto const foreign = nodeObject(foreignA);
    EXPECT_FALSE(foreign == first);
    EXPECT_TRUE(foreign == nodeObject(foreignA));
    auto const cachedA = qcos::omCreateQCOSScalar(first);
    auto const freshA = qcos::omCreateQCOSScalar(dependency::services::toNodeObject(nodeA));
    auto const freshB = qcos::omCreateQCOSScalar(dependency::services::toNodeObject(nodes.at(1)));
    auto const compare = [](qxArray const& a, qxArray const& b) {
        qxArray const* inputs[] = {&a, &b};
        return qlang::describe(*qlang::callFunction("isequal", inputs, 1).at(0));
    };
    EXPECT_EQ(compare(*graphObject, *sameGraph), u"true");
    EXPECT_EQ(compare(*graphObject, *otherGraph), u"false");
    EXPECT_EQ(compare(*cachedA, *freshA), u"true");
    EXPECT_EQ(compare(*cachedA, *freshB), u"false");
    EXPECT_EQ(compare(*graphObject, *cachedA), u"false");
}

}  // namespace

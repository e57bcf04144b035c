// Functions: files on the search path, packages, local and nested functions,
// argument counts, varargin/varargout, handles, recursion.

#include "LangTest.hpp"

#include "platform/host/HostFunctions.hpp"

#include <thread>

namespace {

using qlang::testing::CodeFolder;
using qlang::testing::errorOf;
using qlang::testing::expectErrors;
using qlang::testing::expectValues;

TEST(LangFunctions, FilesPackagesLocalAndNestedFunctions) {
    CodeFolder folder;
    folder.write("addOne.qx",
                 "function y = addOne(x)\n    y = helper(x) + 1;\nend\nfunction y = helper(x)\n    y = x;\nend\n");
    folder.write("+tools/+inner/scale.qx", "function y = scale(x, k)\n    y = x * k;\nend\n");
    // A file's function is known by the file's name.
    folder.write("renamed.qx", "function r = otherName()\n    r = 'from renamed';\nend\n");
    // Functions without 'end'.
    folder.write("noEnds.qx", "function r = noEnds()\nr = twice(2);\nfunction t = twice(v)\nt = 2 * v;\n");
    // Nested functions share their parent's variables.
    folder.write("accumulate.qx",
                 "function total = accumulate(values)\n    total = 0;\n    for v = values\n        add(v);\n    end\n"
                 "    function add(x)\n        total = total + x;\n    end\nend\n");
    folder.write("makeCounter.qx",
                 "function [increment, get, snapshot] = makeCounter()\n    count = 0;\n    increment = @step;\n"
                 "    get = @current;\n    snapshot = @() count;\n    function step()\n        count = count + 1;\n"
                 "    end\n    function c = current()\n        c = count;\n    end\nend\n");
    expectValues({
        {"x = {addOne(1), tools.inner.scale(3, 4), renamed(), renamed, noEnds()};", "x",
         "{2,12,'from renamed','from renamed',4}"},
        // A variable hides a function of the same name.
        {"addOne = 5; x = addOne(1);", "x", "5"},
        // Until it has a value, the name still calls the function.
        {"x = twice(2); twice = 0; function r = twice(v), r = 2 * v; end", "x", "4"},
        // Local functions of one file are not visible from another.
        {"x = helper(1);", "x", "error qlang:undefined: Undefined function or variable 'helper'. at case.qx:1:1"},
        {"x = accumulate([1 2 3]);", "x", "6"},
        // A handle to a nested function keeps its parent's variables alive;
        // an anonymous function copied them when it was made.
        {"[inc, get, snap] = makeCounter(); inc(); inc(); x = [get() snap()];", "x", "[2 0]"},
    });
}

TEST(LangFunctions, ArgumentsOutputsAndHandles) {
    CodeFolder folder;
    folder.write("counts.qx",
                 "function [a, b, c] = counts(varargin)\n    a = nargin;\n    b = nargout;\n"
                 "    c = numel(varargin);\nend\n");
    folder.write("spread.qx",
                 "function varargout = spread(v)\n    for k = 1:nargout\n        varargout{k} = v(k);\n    end\nend\n");
    folder.write("pair.qx",
                 "function [x, y] = pair(~, second)\n    x = 1;\n    if nargin > 1\n        y = second;\n    end\n"
                 "end\n");
    folder.write("nothing.qx", "function nothing()\nend\n");
    folder.write("applyTwice.qx", "function y = applyTwice(f, x)\n    y = f(f(x));\nend\n");
    folder.write("withLocal.qx",
                 "function y = withLocal(v)\n    y = cellfun(@double2, v);\nend\nfunction d = double2(x)\n"
                 "    d = 2 * x;\nend\n");
    expectValues({
        {"[a, b, c] = counts(1, 2, 3); [~, d] = counts(); e = counts('x'); x = [a b c d e];", "x", "[3 3 3 2 1]"},
        {"[p, q, r] = spread([7 8 9]); [s, y] = pair(0, 5); [~, z] = pair(0, 6); x = [p q r s y z pair(0)];", "x",
         "[7 8 9 1 5 6 1]"},
        {"nothing();", "ans", "<unset>"},
        // A call without outputs leaves ans as it was.
        {"counts(1, 2); nothing();", "ans", "2"},
        {"k = 3; f = @(x) x + k; k = 100; g = @(a, b) a * b; h = @() 7; x = [f(1) g(3, 4) h()];", "x", "[4 12 7]"},
        {"f = @numel; g = @applyTwice; x = {applyTwice(@(v) v * 3, 2), f([1 2 3]), g(@(v) v + 1, 0),"
         " withLocal({1, 2})};",
         "x", "{18,3,2,[2 4]}"},
        {"f = @(x) x + 1; g = @upper; h = str2func('upper'); x = {func2str(f), func2str(g), h('a')};", "x",
         "{'@(x)x+1','upper','A'}"},
        {"x = [feval(@plusOne, 1) feval('numel', [1 2])]; function y = plusOne(v), y = v + 1; end", "x", "[2 2]"},
        {"g = @(v) @(w) v + w; h = g(10); f = @(varargin) numel(varargin); x = [h(5) f(1, 2, 3)];", "x", "[15 3]"},
    });
    expectErrors({
        {"[x, y] = pair(0);", "qlang:call:outputNotAssigned", "The output 'y' of 'pair' was not assigned", "1:1"},
        {"x = pair(1, 2, 3);", "qlang:call:tooManyInputs", "'pair' takes at most 2", ""},
        {"[a, b, c] = pair(1, 2);", "qlang:call:tooManyOutputs", "at most 2", ""},
        {"x = nothing();", "qlang:call:tooManyOutputs", "at most 0", ""},
        {"[a, b, c] = spread([1 2]);", "qlang:index:outOfBounds", "Index 3", ""},
        {"f = @(x) x; y = f(1, 2);", "qlang:call:tooManyInputs", "at most 1", ""},
    });
}

TEST(LangFunctions, PersistentVariablesLastAsLongAsTheFunction) {
    CodeFolder folder;
    folder.write("pcCounter.qx",
                 "function n = pcCounter()\n    persistent count\n    if isempty(count)\n        count = 0;\n"
                 "    end\n    count = count + 1;\n    n = count;\nend\n");
    // Each function keeps its own; a value changed before an error is kept too.
    folder.write("pcOther.qx",
                 "function n = pcOther(fail)\n    persistent count seen\n    if isempty(count)\n"
                 "        count = 100;\n    end\n    count = count + 1;\n    seen(end+1) = count;\n    if fail\n"
                 "        error('pc:fail', 'failed');\n    end\n    n = seen;\nend\n");
    folder.write("pcInput.qx", "function pcInput(x)\n    persistent x\nend\n");
    // Calls running at once each start from the stored value; the last to end stores its own.
    folder.write("pcRecursive.qx",
                 "function n = pcRecursive(depth)\n    persistent count\n    if isempty(count), count = 0; end\n"
                 "    count = count + 1;\n    if depth > 0, pcRecursive(depth - 1); end\n    n = count;\nend\n");
    expectValues({
        {"a = pcCounter(); b = pcCounter(); c = pcCounter(); x = [a b c];", "x", "[1 2 3]"},
        // The next run of code still sees the same variable.
        {"x = pcCounter();", "x", "4"},
        {"x = pcOther(false); try, pcOther(true); catch, end; x = [x pcOther(false)];", "x", "[101 101 102 103]"},
        {"x = pcCounter();", "x", "5"},
        {"x = [pcRecursive(2) pcRecursive(0)];", "x", "[1 2]"},
        // A local function of a script may keep one too.
        {"for k = 1:3, x = tick(); end\nfunction t = tick()\n    persistent n\n    if isempty(n), n = 10; end\n"
         "    n = n + 1; t = n;\nend\n",
         "x", "13"},
    });
    expectErrors({
        {"x = 1;\npersistent p", "qlang:unsupported", "A persistent declaration outside a function", "2:1"},
    });
    auto const input = errorOf("pcInput(1);");
    ASSERT_TRUE(input);
    EXPECT_EQ(input->identifier(), "qlang:invalidCode");
    EXPECT_EQ(input->location(), (folder.path() / "pcInput.qx").string() + ":2:16");
}

TEST(LangFunctions, HandlesAreCallableFromNativeCode) {
    // A handle made in host code, called as a qvm::FunctionHandle (as createAttribute's fix is).
    auto const variables = qlang::runScript("k = 5; f = @(x) x * k;");
    auto const& handle = variables.at("f")->getFunctionHandle();
    auto const input = qxArray::createScalar(2);
    qxArray const* inputs[] = {input.get()};
    auto const outputs = handle->call(inputs, 1);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0]->getDouble(0), 10.0);
    // Built-ins are host functions too.
    auto const text = qxArray::createString(u"abc");
    qxArray const* textInputs[] = {text.get()};
    EXPECT_EQ(qvm::callHostFunction("upper", textInputs, 1).at(0)->getString(), u"ABC");
}

TEST(LangFunctions, RecursionIsBoundedWithAClearError) {
    CodeFolder folder;
    folder.write("factorial.qx",
                 "function r = factorial(n)\n    if n <= 1\n        r = 1;\n    else\n"
                 "        r = n * factorial(n - 1);\n    end\nend\n");
    folder.write("forever.qx", "function r = forever(n)\n    r = forever(n + 1);\nend\n");
    expectValues({{"x = factorial(10);", "x", "3628800"}});
    auto const error = errorOf("x = forever(1);");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->identifier(), "qlang:recursionLimit");
    EXPECT_EQ(error->stack().front().function, "forever");
    EXPECT_EQ(error->stack().front().line, 2u);
    // Each call level is one frame of the stack; the script's own is the last.
    EXPECT_EQ(error->stack().back().file, "case.qx");

    // With the limit raised far beyond what a small stack holds, it runs out into the same error, not a crash; so
    // does an expression nested as deep as the parser allows, at the bottom of a deep recursion. Its file is
    // compiled here, on the main thread's large stack: the parser's own recursion is not what is tested.
    std::string nested = "function r = deep(n)\nif n > 0\n    r = deep(n - 1);\nelse\n    r = ";
    for (int i = 0; i < 250; ++i) {
        nested += "(1 + ";
    }
    nested += "1" + std::string(250, ')') + ";\nend\nend\n";
    (void)qlang::checkFile({folder.write("deep.qx", nested), "deep"});
    auto const limit = qlang::getRecursionLimit();
    qlang::setRecursionLimit(1000000);
    std::pair<std::optional<qcos::HostError>, std::string> onSmallStack;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 * 1024);
    pthread_t thread;
    auto body = [](void* result) -> void* {
        auto& outcome = *static_cast<std::pair<std::optional<qcos::HostError>, std::string>*>(result);
        outcome.first = errorOf("x = forever(1);");
        outcome.second = qlang::testing::valueOf("x = deep(40);", "x");
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, body, &onSmallStack), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    qlang::setRecursionLimit(limit);
    ASSERT_TRUE(onSmallStack.first);
    EXPECT_EQ(onSmallStack.first->identifier(), "qlang:recursionLimit");
    EXPECT_NE(std::string(onSmallStack.first->what()).find("stack"), std::string::npos);
    // Either the value or the clear error, never a crash.
    EXPECT_TRUE(onSmallStack.second == "251" || onSmallStack.second.starts_with("error qlang:recursionLimit"))
        << onSmallStack.second;
}

}  // namespace

// Errors: where they say they happened, constructs outside the subset,
// syntax errors, interrupts.

#include "LangTest.hpp"

#include "platform/host/Qcos.hpp"
#include "platform/host/Vm.hpp"

#include <chrono>
#include <future>
#include <thread>

namespace {

using qlang::testing::CodeFolder;
using qlang::testing::errorOf;
using qlang::testing::expectErrors;

TEST(LangErrors, StacksNameEveryCallFromTheFailingStatementOut) {
    CodeFolder folder;
    folder.write("outer.qx", "function outer()\n    x = 1;\n    inner(x);\nend\n");
    folder.write("inner.qx", "function inner(v)\n    y = v + 1;\n    error('test:inner', 'failed at %d', y);\nend\n");
    auto const error = errorOf("a = 1;\nouter();\n");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->identifier(), "test:inner");
    EXPECT_STREQ(error->what(), "failed at 2");
    ASSERT_EQ(error->stack().size(), 3u);
    EXPECT_EQ(error->stack()[0].function, "inner");
    EXPECT_EQ(error->stack()[0].line, 3u);
    EXPECT_EQ(error->stack()[0].column, 5u);
    EXPECT_EQ(error->stack()[0].file, (folder.path() / "inner.qx").string());
    EXPECT_EQ(error->stack()[1].function, "outer");
    EXPECT_EQ(error->stack()[1].line, 3u);
    EXPECT_EQ(error->stack()[2].file, "case.qx");
    EXPECT_EQ(error->stack()[2].line, 2u);

    // A caught and rethrown error keeps where it first happened, once per call.
    auto const rethrown = errorOf("try\n    outer();\ncatch e\n    rethrow(e);\nend\n");
    ASSERT_TRUE(rethrown);
    ASSERT_EQ(rethrown->stack().size(), 3u);
    EXPECT_EQ(rethrown->stack()[0].line, 3u);
    EXPECT_EQ(rethrown->stack()[2].line, 2u);
}

TEST(LangErrors, ConstructsOutsideTheSubsetAreNamedWithTheirPlace) {
    expectErrors({
        {"global g", "qlang:unsupported", "A global declaration", "1:1"},
        {"x = 1;\npersistent p", "qlang:unsupported", "A persistent declaration", "2:1"},
        {"parfor k = 1:2\nend", "qlang:unsupported", "A parfor loop", "1:1"},
        {"x = 3i;", "qlang:unsupported", "A complex number", "1:5"},
        {"x = ?Foo;", "qlang:unsupported", "A metaclass query", "1:5"},
        {"x = [1 2] \\ [1 2];", "qlang:unsupported", "matrix division", ""},
        {"fprintf(3, 'x');", "qlang:fprintf:badArgument", "files are not supported", ""},
        {"x = cellfun(@(v) v, {1}, 'ErrorHandler', @(e) 0);", "qlang:cellfun:badArgument", "ErrorHandler", ""},
    });
    CodeFolder folder;
    folder.write("LcEvents.qx", "classdef LcEvents < handle\n    events\n        Changed\n    end\nend\n");
    folder.write("LcTyped.qx", "classdef LcTyped\n    properties\n        P (1,1) double = 0\n    end\nend\n");
    folder.write("withArguments.qx", "function withArguments(x)\n    arguments\n        x double\n    end\nend\n");
    folder.write("scriptFile.qx", "x = 1;\n");
    expectErrors({
        {"x = LcEvents();", "qlang:unsupported", "An events block", ""},
        {"x = LcTyped();", "qlang:unsupported", "A property size, class or validator declaration", ""},
        {"withArguments(1);", "qlang:unsupported", "An arguments block", ""},
        {"scriptFile();", "qlang:unsupported", "A script file on the search path", ""},
    });
    auto const typed = errorOf("x = LcTyped();");
    ASSERT_TRUE(typed);
    EXPECT_EQ(typed->location(), (folder.path() / "LcTyped.qx").string() + ":3:9");
}

TEST(LangErrors, SyntaxErrorsGiveFileLineAndColumn) {
    CodeFolder folder;
    folder.write("broken.qx", "function broken()\n    x = (1 + ;\nend\n");
    auto const error = errorOf("broken();");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->identifier(), "qlang:syntax");
    EXPECT_EQ(error->stack().front().file, (folder.path() / "broken.qx").string());
    EXPECT_EQ(error->stack().front().line, 2u);
    auto const inScript = errorOf("x = 1;\ny = [1 2;\n");
    ASSERT_TRUE(inScript);
    EXPECT_EQ(inScript->identifier(), "qlang:syntax");
    EXPECT_EQ(inScript->stack().front().file, "case.qx");
}

TEST(LangErrors, CheckingAFileRunsNothingAndReportsItsErrors) {
    CodeFolder folder;
    auto const good = folder.write("+pkg/LcChecked.qx",
                                   "classdef LcChecked < handle & qorvex.mixin.Heterogeneous\n"
                                   "    methods\n        function r = f(~)\n            r = "
                                   "neverCalled();\n        end\n    end\nend\n");
    auto const summary = qlang::checkFile({good, "pkg.LcChecked"});
    EXPECT_TRUE(summary.isClass);
    EXPECT_EQ(summary.superclasses, (std::vector<std::string>{"handle", "qorvex.mixin.Heterogeneous"}));
    EXPECT_FALSE(qcos::omFindClass("pkg.LcChecked"));
    auto const bad = folder.write("bad.qx", "function bad()\n    x = 1 +\nend\n");
    try {
        qlang::checkFile({bad, "bad"});
        FAIL() << "no error";
    } catch (qcos::HostError const& error) {
        EXPECT_EQ(error.identifier(), "qlang:syntax");
        EXPECT_EQ(error.location().substr(error.location().rfind('/') + 1), "bad.qx:2:12");
    }
    auto const files = qlang::listCodeFiles(folder.path());
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].qualifiedName, "bad");
    EXPECT_EQ(files[1].qualifiedName, "pkg.LcChecked");
}

TEST(LangErrors, AnInterruptStopsARunawayLoop) {
    auto running = std::async(std::launch::async, [] { return errorOf("while true\nend\n"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    qvm::requestInterrupt();
    auto const status = running.wait_for(std::chrono::seconds(20));
    ASSERT_EQ(status, std::future_status::ready) << "the loop did not stop";
    qvm::clearInterrupt();
    auto const error = running.get();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->identifier(), "qlang:interrupted");
    EXPECT_EQ(error->location(), "case.qx:1:1");
    // try/catch does not catch an interrupt.
    qvm::requestInterrupt();
    auto const caught = errorOf("x = 0;\ntry\n    for k = 1:10\n        x = x + 1;\n    end\ncatch\nend\n");
    qvm::clearInterrupt();
    ASSERT_TRUE(caught);
    EXPECT_EQ(caught->identifier(), "qlang:interrupted");
}

}  // namespace

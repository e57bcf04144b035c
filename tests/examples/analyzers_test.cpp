// The example analyzers of examples/analyzers, written in the host language,
// each on a small graph made for it.

#include "attribute/GraphAttributes.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "platform/host/HostFunctions.hpp"
#include "platform/host/Vm.hpp"
#include "platform/host/lang/Language.hpp"
#include "services/AnalyzerRegistry.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

using dependency::graph::GraphBuilder;
using dependency::graph::NodeData;
using dependency::graph::Type;

class ExampleAnalyzers : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        qvm::loadLibrary("libdepattr.so");
        qlang::setSearchPath({std::filesystem::path(DEPATTR_SOURCE_DIR) / "examples" / "analyzers"});
    }

    // The IDs of the findings of the analyzer (made with the given inputs), as "node:ID".
    static std::vector<std::u16string> findings(std::string const& className,
                                                std::shared_ptr<dependency::graph::Graph const> const& graph,
                                                std::vector<double> const& constructorInputs = {}) {
        std::vector<qxArrayPtr> inputs;
        std::vector<qxArray const*> borrowed;
        for (auto const value : constructorInputs) {
            inputs.push_back(qxArray::createScalar(value));
            borrowed.push_back(inputs.back().get());
        }
        auto const object = std::move(qlang::callFunction(className, borrowed, 1).at(0));
        auto const analyzers =
            dependency::attribute::fromAttributeAnalyzerQxArray(*object, qvm::Factory::getCurrentLocalQVM());
        auto const result = dependency::attribute::analyzeGraph(graph, analyzers);
        std::vector<std::u16string> found;
        for (auto const& node : graph->getNodes()) {
            for (auto const& attribute : result->getAttributes(node)) {
                found.push_back(node->getID() + u":" + attribute->getID());
            }
        }
        return found;
    }

    static NodeData function(std::u16string id, std::u16string name) {
        NodeData data;
        data.id = std::move(id);
        data.type = Type::FUNCTION();
        data.location = {u"src/f.qx", std::move(name)};
        return data;
    }

    static NodeData codeFile(std::filesystem::path const& path, std::string const& text) {
        std::ofstream(path) << text;
        NodeData data;
        data.id = path.filename().u16string();
        data.path = path.u16string();
        data.isFile = true;
        return data;
    }

    std::filesystem::path folder() {
        auto const path =
            std::filesystem::temp_directory_path() / ("examples-test-" + std::to_string(::getpid()) + "-" +
                                                      ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(path);
        return path;
    }
};

TEST_F(ExampleAnalyzers, FunctionNamingReportsNamesThatAreNotLowerCamelCase) {
    GraphBuilder builder;
    builder.addNode(function(u"good", u"computeTotal"));
    builder.addNode(function(u"method", u"Shape.area"));
    builder.addNode(function(u"packaged", u"pkg/loadData"));
    builder.addNode(function(u"snake", u"load_data"));
    builder.addNode(function(u"upper", u"Shape.Area"));
    builder.addNode(u"file", Type::FILE());
    EXPECT_EQ(findings("FunctionNaming", builder.build()),
              (std::vector<std::u16string>{u"snake:FunctionName", u"upper:FunctionName"}));
}

TEST_F(ExampleAnalyzers, DependsOnUnresolvedReportsUsersOfUnresolvedNodes) {
    GraphBuilder builder;
    builder.addNode(u"app", Type::PROJECT());
    builder.addNode(u"lib", Type::PROJECT());
    NodeData missing;
    missing.id = u"vendor";
    missing.type = Type::PROJECT();
    missing.resolved = false;
    builder.addNode(std::move(missing));
    builder.addDependency(u"app", u"lib", Type::REFERENCE());
    builder.addDependency(u"app", u"vendor", Type::REFERENCE());
    builder.addDependency(u"lib", u"app", Type::REFERENCE());
    EXPECT_EQ(findings("DependsOnUnresolved", builder.build()),
              (std::vector<std::u16string>{u"app:DependsOnUnresolved"}));
}

TEST_F(ExampleAnalyzers, CodeFileSizeReportsLongFilesAndFilesWithManyFunctions) {
    auto const dir = folder();
    GraphBuilder builder;
    builder.addNode(codeFile(dir / "short.qx", "function a()\nend\n"));
    builder.addNode(codeFile(dir / "long.qx", "x = 1;\ny = 2;\nz = 3;\nw = 4;\n"));
    builder.addNode(codeFile(dir / "many.qx", "function a()\nend\n  function b()\nend\n"));
    builder.addNode(codeFile(dir / "notes.txt", std::string(1000, 'x')));
    auto const graph = builder.build();
    // At most 3 lines and 1 function.
    EXPECT_EQ(findings("CodeFileSize", graph, {3, 1}),
              (std::vector<std::u16string>{u"long.qx:LargeCodeFile", u"many.qx:LargeCodeFile"}));
    // The default limits leave small files alone.
    EXPECT_TRUE(findings("CodeFileSize", graph).empty());
    std::filesystem::remove_all(dir);
}

TEST_F(ExampleAnalyzers, TodoCommentsReportsMarkersInComments) {
    auto const dir = folder();
    GraphBuilder builder;
    builder.addNode(codeFile(dir / "todo.qx", "function a()\n% TODO: finish\nend\n"));
    builder.addNode(codeFile(dir / "fixme.qx", "x = 1; % FIXME later\n"));
    builder.addNode(codeFile(dir / "clean.qx", "function a()\n% nothing to do\nend\n"));
    builder.addNode(codeFile(dir / "word.qx", "% TODOS and FIXMEs are not markers\n"));
    EXPECT_EQ(findings("quality.TodoComments", builder.build()),
              (std::vector<std::u16string>{u"todo.qx:TodoComment", u"fixme.qx:TodoComment"}));
    std::filesystem::remove_all(dir);
}

}  // namespace

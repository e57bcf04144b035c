// The analysis session: choosing analyzers by name, the observer that follows
// an analysis node by node and may stop it, and failures that name their
// analyzer and node.
#include "services/AnalysisSession.hpp"

#include "attribute/analyzers/Registry.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/TestGraphs.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace {

using dependency::attribute::Attribute;
using dependency::attribute::AttributeIdentity;
using dependency::attribute::Severity;
using dependency::graph::GraphBuilder;
using dependency::graph::Type;
using dependency::services::AnalysisObserver;
using dependency::services::AnalysisSession;

// Writes down what it hears; stops once it has seen `stopAfter` nodes.
class Journal final : public AnalysisObserver {
public:
    bool stopRequested() override { return nodes.size() >= stopAfter; }
    void startingNode(dependency::graph::Node const& node) override {
        nodes.push_back(node.getID());
        events.push_back("node " + std::string(node.getID().begin(), node.getID().end()));
    }
    void reported(std::string_view analyzer, std::vector<std::shared_ptr<Attribute>> const& findings) override {
        events.push_back(std::string(analyzer) + " " + std::to_string(findings.size()));
    }

    std::size_t stopAfter = 1000;
    std::vector<std::u16string> nodes;
    std::vector<std::string> events;
};

std::shared_ptr<dependency::graph::Graph const> threeProjects() {
    GraphBuilder builder;
    for (auto const* id : {u"a", u"b", u"c"}) {
        builder.addNode({.id = id, .type = Type::PROJECT(), .resolved = false});
    }
    return builder.build();
}

}  // namespace

TEST(AnalysisSessionTest, ChoosesBuiltInAnalyzersByNameInTheOrderGiven) {
    AnalysisSession session;
    EXPECT_TRUE(session.hostAnalyzers().empty());
    std::vector<std::string> every;
    for (auto const* description : dependency::attribute::builtInAnalyzers()) {
        every.emplace_back(description->name);
    }
    EXPECT_EQ(session.selected(), every);  // nothing chosen: every built-in analyzer
    session.select(std::vector<std::string>{"missing-project-reference", "invalid-format"});
    EXPECT_EQ(session.selected(), (std::vector<std::string>{"missing-project-reference", "invalid-format"}));

    Journal journal;
    auto const result = session.analyze(threeProjects(), journal);
    // Each node is announced once, before its findings, in graph order.
    EXPECT_EQ(journal.events,
              (std::vector<std::string>{"node a", "missing-project-reference 1", "node b",
                                        "missing-project-reference 1", "node c", "missing-project-reference 1"}));
    EXPECT_EQ(result->getNodesWith(*result->getAllProblemIdentities().at(0)).size(), 3u);

    try {
        session.select(std::vector<std::string>{"missing-file", "no-such"});
        ADD_FAILURE() << "an unknown name was chosen";
    } catch (std::invalid_argument const& error) {
        EXPECT_NE(std::string(error.what()).find("unknown analyzer \"no-such\" (known: missing-file, "),
                  std::string::npos)
            << error.what();
    }
}

TEST(AnalysisSessionTest, TheObserverStopsTheAnalysisAndAFailureNamesAnalyzerAndNode) {
    AnalysisSession session;
    session.select(std::vector<std::string>{"missing-project-reference"});
    Journal stopping;
    stopping.stopAfter = 2;
    EXPECT_THROW(session.analyze(threeProjects(), stopping), dependency::services::AnalysisStopped);
    EXPECT_EQ(stopping.nodes, (std::vector<std::u16string>{u"a", u"b"}));  // c never started

    auto const failing = std::make_shared<depattr_test::ScriptedAnalyzer>(
        [](auto const& node) -> std::vector<std::shared_ptr<Attribute>> {
            if (node.getID() == u"b") {
                throw std::runtime_error("cannot read b");
            }
            return {};
        });
    session.select(std::vector<AnalysisSession::NamedAnalyzer>{{"mine", failing}});
    Journal journal;
    try {
        session.analyze(threeProjects(), journal);
        ADD_FAILURE() << "the failure was swallowed";
    } catch (dependency::services::AnalyzerFailure const& failure) {
        EXPECT_EQ(failure.analyzer(), "mine");
        EXPECT_EQ(failure.node()->getID(), u"b");
        EXPECT_STREQ(failure.what(), "cannot read b");
    }
    EXPECT_EQ(failing->calls, (std::vector<std::u16string>{u"a", u"b"}));
}

TEST(AnalysisSessionTest, HostAnalyzersAreChosenByClassNameAndDeclareTheirFindingIds) {
    AnalysisSession session({std::filesystem::path(DEPATTR_SOURCE_DIR "/examples/analyzers")});
    auto const& hosts = session.hostAnalyzers();
    auto const find = [&](std::string const& name) {
        return std::find_if(hosts.begin(), hosts.end(), [&](auto const& h) { return h.name == name; });
    };
    ASSERT_NE(find("FunctionNaming"), hosts.end());
    EXPECT_EQ(find("FunctionNaming")->findingIds, std::vector<std::string>{"FunctionName"});
    ASSERT_NE(find("quality.TodoComments"), hosts.end());
    EXPECT_EQ(find("quality.TodoComments")->findingIds, std::vector<std::string>{"TodoComment"});

    session.select(std::vector<std::string>{"DependsOnUnresolved"});
    Journal journal;
    auto const result = session.analyze(threeProjects(), journal);
    EXPECT_EQ(journal.nodes.size(), 3u);
    EXPECT_EQ(session.selected(), std::vector<std::string>{"DependsOnUnresolved"});
    EXPECT_TRUE(result->getAllProblemIdentities().empty());  // nothing depends on anything here
}

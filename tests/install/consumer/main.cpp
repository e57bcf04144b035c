// A program built against the installed package: one unresolved file node,
// analysed by the missing-file analyzer.
#include "attribute/GraphAttributes.hpp"
#include "attribute/analyzers/Analyzers.hpp"
#include "platform/graph/GraphBuilder.hpp"

#include <iostream>
#include <string>

int main() {
    using namespace dependency;
    graph::GraphBuilder builder;
    auto const node = builder.addNode(graph::NodeData{
        .id = u"gone.qx", .type = graph::Type::FILE(), .location = {u"gone.qx"}, .isFile = true, .resolved = false});
    auto const result = attribute::analyzeGraph(builder.build(), {attribute::createMissingFileAnalyzer()});
    for (auto const& finding : result->getAttributes(node)) {
        auto const narrow = [](std::u16string const& text) { return std::string(text.begin(), text.end()); };
        std::cout << narrow(finding->getID()) << ": " << narrow(finding->getName()) << '\n';
    }
}

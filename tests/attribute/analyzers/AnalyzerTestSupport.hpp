#pragma once
// Nodes, graphs, scratch folders and locale switching for analyzer tests.

#include "attribute/Attribute.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/Graph.hpp"
#include "platform/graph/GraphBuilder.hpp"
#include "support/Scratch.hpp"

#include <boost/locale/generator.hpp>

#include <cstdlib>
#include <filesystem>
#include <locale>
#include <memory>
#include <string>
#include <vector>

namespace analyzer_test {

using dependency::attribute::Attribute;
using dependency::graph::Graph;
using dependency::graph::Node;
using dependency::graph::NodeData;
using dependency::graph::Type;
using Findings = std::vector<std::shared_ptr<Attribute>>;

// Running a test binary directly (outside ctest) still finds the repository's catalogs.
inline void useRepositoryResources() {
    ::setenv("DEPATTR_RESOURCES", DEPATTR_SOURCE_DIR "/resources", 0);
}

// The English catalog text of a key of "QORVEX:dependency:attribute".
inline std::u16string englishText(char const* key, std::vector<resource_core::MessageArgument> args = {}) {
    useRepositoryResources();
    return fl::i18n::MessageCatalog::get_message(
        resource_core::BaseMsgID("QORVEX:dependency:attribute", key, std::move(args)), "en");
}

inline NodeData fileData(std::u16string id, std::u16string path, bool resolved = true) {
    NodeData data;
    data.id = id;
    data.name = std::move(id);
    data.type = Type::FILE();
    data.path = path;
    data.location = {std::move(path)};
    data.isFile = true;
    data.resolved = resolved;
    return data;
}

inline NodeData nodeData(std::u16string id, Type type, dependency::graph::Properties properties = {},
                         bool resolved = true) {
    NodeData data;
    data.id = id;
    data.name = std::move(id);
    data.type = type;
    data.resolved = resolved;
    data.properties = std::move(properties);
    return data;
}

inline std::shared_ptr<Node> node(NodeData data) {
    return std::make_shared<Node>(std::move(data));
}

inline std::shared_ptr<Graph const> emptyGraph() {
    return dependency::graph::GraphBuilder().build();
}

// A scratch folder whose files the tests name in UTF-16.
class TempFolder : public depattr_test::ScratchFolder {
public:
    explicit TempFolder(std::string const& tag) : ScratchFolder("depattr_" + tag) {}
    // Creates the file; returns its path.
    std::u16string create(std::string const& name) const { return write(name, "content").u16string(); }
    std::u16string pathOf(std::string const& name) const { return (path() / name).u16string(); }
};

// Makes the global locale Japanese for one scope (built by Boost.Locale, so no
// system locale is needed), then restores the classic locale.
class JapaneseGlobalLocale {
public:
    JapaneseGlobalLocale() { std::locale::global(boost::locale::generator()("ja_JP.UTF-8")); }
    ~JapaneseGlobalLocale() { std::locale::global(std::locale::classic()); }
    JapaneseGlobalLocale(JapaneseGlobalLocale const&) = delete;
    JapaneseGlobalLocale& operator=(JapaneseGlobalLocale const&) = delete;
};

}  // namespace analyzer_test

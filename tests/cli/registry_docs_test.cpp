// The registry of built-in analyzers against what is written elsewhere about
// them: the finding tables of docs/findings.md and the program's texts.
#include "attribute/analyzers/Registry.hpp"
#include "cli/AnalyzerCatalog.hpp"
#include "cli/Texts.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace da = dependency::attribute;

std::string fileText(std::string const& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The rows of the summary table: every line that starts with "| [".
std::vector<std::string> tableRows(std::string const& text) {
    std::vector<std::string> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("| [")) {
            rows.push_back(line);
        }
    }
    return rows;
}

std::string shownId(da::FindingDescription const& kind) {
    return std::string(kind.id) + (kind.idIsPrefix ? "<code>" : "");
}

}  // namespace

TEST(RegistryTest, FindingsDocumentMatchesTheRegistryRowForRowAndSectionForSection) {
    auto const text = fileText(DEPATTR_SOURCE_DIR "/docs/findings.md");
    ASSERT_FALSE(text.empty());
    std::vector<std::string> expectedRows;
    for (auto const* analyzer : da::builtInAnalyzers()) {
        for (auto const& kind : analyzer->findings) {
            std::string const name(kind.name);
            std::string const severity(da::toString(kind.severity));
            expectedRows.push_back("| [" + name + "](#" + name + ") | `" + shownId(kind) + "` | " +
                                   std::string(analyzer->name) + " | " + severity + " |");
            std::string const heading = "<a id=\"" + name + "\"></a>\n## " + name + ": `" + shownId(kind) + "` (" +
                                        std::string(analyzer->name) + ", " + severity + ")\n";
            EXPECT_NE(text.find(heading), std::string::npos) << "no section headed\n" << heading;
        }
    }
    EXPECT_EQ(tableRows(text), expectedRows);
}

TEST(RegistryTest, NamesAreUniqueAndEveryTextTheProgramShowsExists) {
    std::set<std::string_view> names;
    std::set<std::string_view> gateways;
    std::set<std::string_view> kindNames;
    for (auto const* analyzer : da::builtInAnalyzers()) {
        EXPECT_TRUE(names.insert(analyzer->name).second) << analyzer->name;
        EXPECT_TRUE(gateways.insert(analyzer->gateway).second) << analyzer->gateway;
        EXPECT_TRUE(analyzer->gateway.starts_with("create") && analyzer->gateway.ends_with("Analyzer"));
        EXPECT_EQ(da::findBuiltInAnalyzer(analyzer->name), analyzer);
        EXPECT_FALSE(depattr::cli::text(std::string(analyzer->descriptionKey).c_str()).empty());
        ASSERT_FALSE(analyzer->findings.empty()) << analyzer->name;
        for (auto const& kind : analyzer->findings) {
            EXPECT_TRUE(kindNames.insert(kind.name).second) << kind.name;
            for (char const* part : {"Short", "Full", "Fix"}) {
                EXPECT_FALSE(depattr::cli::text((std::string(kind.name) + part).c_str()).empty()) << kind.name << part;
            }
        }
        EXPECT_NE(analyzer->create(), nullptr);
    }
    EXPECT_EQ(da::findBuiltInAnalyzer("missing"), nullptr);
}

TEST(RegistryTest, AFindingMatchesItsKindByExactIdOrByPrefix) {
    auto const* product = da::findBuiltInAnalyzer("missing-product");
    ASSERT_NE(product, nullptr);
    auto const& prefixed = product->findings[0];
    EXPECT_TRUE(prefixed.matches(std::u16string_view(u"MissingProductOK")));
    EXPECT_TRUE(prefixed.matches(std::string_view("MissingProduct")));
    EXPECT_FALSE(prefixed.matches(std::string_view("MissingProduc")));
    auto const& exact = da::findBuiltInAnalyzer("missing-file")->findings[1];
    EXPECT_TRUE(exact.matches(std::u16string_view(u"Missing")));
    EXPECT_FALSE(exact.matches(std::u16string_view(u"MissingX")));
    EXPECT_FALSE(exact.matches(std::string_view("Missin")));
}

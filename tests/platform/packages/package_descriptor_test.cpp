#include "platform/packages/PackageDescriptor.hpp"
#include "support/Scratch.hpp"

#include <boost/lexical_cast.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;
using foundation::packages::GetPackageDescriptorFactory;
using foundation::packages::PackageDefinitionError;
using foundation::packages::PackageDefRelativeToRoot;

// A product root folder holding resources/pkgdef.json.
struct ProductRoot : depattr_test::ScratchFolder {
    ProductRoot() : ScratchFolder("depattr-pkgdef") { fs::create_directories(path() / "resources"); }
    void writeDefinition(std::string const& text) const { write("resources/pkgdef.json", text); }
    fs::path definitionPath() const { return path() / "resources" / "pkgdef.json"; }
    vfs::File definition() const {
        vfs::Folder const folder(vfs::toAbsoluteIRI(u"file", path().u16string()), vfs::GetStorageSystemReference());
        return vfs::File(folder, PackageDefRelativeToRoot);
    }
};

boost::uuids::uuid uuid(char const* text) {
    return boost::lexical_cast<boost::uuids::uuid>(std::string(text));
}

TEST(PackageDescriptorTest, ReadsNameIdVersionAndDependenciesInOrder) {
    ProductRoot root;
    root.writeDefinition(R"({
        "name": "signal_core",
        "id": "6F1C2A4E-0B7D-4E8A-9C3F-2D5B6A7C8E90",
        "version": "2.1.0",
        "dependencies": [
            {"name": "matrix_utils", "id": "11111111-2222-3333-4444-555555555555"},
            {"id": "aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee", "name": "pl\u00f6t"}
        ]
    })");
    auto const result = GetPackageDescriptorFactory().create(root.definition(), 0);
    ASSERT_TRUE(result.hasDescriptor());
    EXPECT_EQ(result->GetName(), u"signal_core");
    EXPECT_EQ(result->GetUniqueId(), uuid("6f1c2a4e-0b7d-4e8a-9c3f-2d5b6a7c8e90"));
    EXPECT_EQ(result->GetVersion(), u"2.1.0");
    auto const& dependencies = result->GetDependencyRanges();
    ASSERT_EQ(dependencies.size(), 2u);
    EXPECT_EQ(dependencies[0].GetName(), u"matrix_utils");
    EXPECT_EQ(dependencies[0].GetUniqueId(), uuid("11111111-2222-3333-4444-555555555555"));
    EXPECT_EQ(dependencies[1].GetName(), u"pl\u00f6t");
    EXPECT_EQ(dependencies[1].GetUniqueId(), uuid("aaaaaaaa-bbbb-cccc-dddd-eeeeeeeeeeee"));

    root.writeDefinition(R"({"name": "leaf", "id": "11111111-2222-3333-4444-555555555555", "version": "1"})");
    EXPECT_TRUE(GetPackageDescriptorFactory().create(root.definition(), 0)->GetDependencyRanges().empty());

    EXPECT_THROW(GetPackageDescriptorFactory().create(root.definition(), 1), std::invalid_argument);
}

TEST(PackageDescriptorTest, UnreadableDefinitionFailsWhenTheDescriptorIsTaken) {
    ProductRoot root;
    auto const result = GetPackageDescriptorFactory().create(root.definition(), 0);
    EXPECT_FALSE(result.hasDescriptor());
    EXPECT_FALSE(static_cast<bool>(result));
    auto const error = depattr_test::thrown<PackageDefinitionError>([&] { (void)result->GetName(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->file(), root.definitionPath().string());
    EXPECT_EQ(error->line(), 0u);
    EXPECT_THAT(error->reason(), ::testing::HasSubstr("cannot read"));
}

TEST(PackageDescriptorTest, MalformedDefinitionNamesFileAndPosition) {
    struct Case {
        std::string text;
        std::size_t line;
        std::size_t column;
        std::string reason;
    };
    std::string const head = R"({"name": "p", "id": "11111111-2222-3333-4444-555555555555", "version": "1")";
    std::vector<Case> const cases = {
        {head + ",\n \"dependencies\": [{\"name\": \"d\", \"id\": \"1111-2222\"}]}", 2, 39, "is not a UUID"},
        {head + ",\n \"dependencies\": [{\"name\": \"d\", \"id\": \"{11111111-2222-3333-4444-555555555555}\"}]}", 2, 39,
         "is not a UUID"},
        {head + ",\n \"dependencies\": [{\"name\": \"d\"}]}", 2, 19, "missing \"id\""},
        {head + ",\n \"dependencies\": {\"name\": \"d\"}}", 2, 18, "must be an array"},
        {head + ",\n \"dependencies\": [\"d\"]}", 2, 19, "must be an object"},
        {head + ",\n \"requires\": []}", 2, 2, "unknown key \"requires\""},
        {head + ",\n \"name\": \"q\"}", 2, 2, "duplicate key \"name\""},
        {R"({"name": "p", "version": "1"})", 1, 1, "missing key \"id\""},
        {R"({"name": "", "id": "11111111-2222-3333-4444-555555555555", "version": "1"})", 1, 10, "non-empty"},
        {head + "}\n{}", 2, 1, "unexpected text"},
        {head, 1, 1, "malformed JSON"},
        {"\"just a string\"", 1, 1, "must be a JSON object"},
    };
    ProductRoot root;
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        root.writeDefinition(c.text);
        auto const result = GetPackageDescriptorFactory().create(root.definition(), 0);
        ASSERT_FALSE(result.hasDescriptor());
        auto const error =
            depattr_test::thrown<PackageDefinitionError>([&] { std::rethrow_exception(result.failure()); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->file(), root.definitionPath().string());
        EXPECT_EQ(error->line(), c.line);
        EXPECT_EQ(error->column(), c.column);
        EXPECT_THAT(error->reason(), ::testing::HasSubstr(c.reason));
    }
}

TEST(PackageDescriptorTest, ExampleMappingPackageDeclaresGeometryOnly) {
    vfs::Folder const folder(
        vfs::toAbsoluteIRI(u"file", (fs::path(DEPATTR_SOURCE_DIR) / "examples/install/packages/mapping").u16string()),
        vfs::GetStorageSystemReference());
    auto const result = GetPackageDescriptorFactory().create(vfs::File(folder, PackageDefRelativeToRoot), 0);
    ASSERT_EQ(result->GetDependencyRanges().size(), 1u);
    EXPECT_EQ(result->GetDependencyRanges()[0].GetName(), u"geometry");
    EXPECT_EQ(result->GetDependencyRanges()[0].GetUniqueId(), uuid("7a1e5c2d-3b4f-4c6a-9d8e-1f2a3b4c5d6e"));
}

}  // namespace

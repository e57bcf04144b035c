#include "platform/storage/Vfs.hpp"
#include "support/Scratch.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;

using TempFolder = depattr_test::ScratchFolder;

TEST(VfsTest, AbsoluteIdentifiersAreNormalAndEncodeTheirPath) {
    auto const iri = vfs::toAbsoluteIRI(u"file", u"/opt/./kits/my kit/");
    EXPECT_EQ(iri.scheme(), u"file");
    EXPECT_EQ(iri.path(), u"/opt/kits/my kit");
    EXPECT_EQ(iri.toString(), "file:///opt/kits/my%20kit");
    EXPECT_EQ(vfs::toAbsoluteIRI(u"file", u"/opt/k\u00e9t").toString(), "file:///opt/k%C3%A9t");

    auto const relative = vfs::toAbsoluteIRI(u"file", u"some/where");
    EXPECT_EQ(relative.path(), (fs::current_path() / "some" / "where").u16string());

    EXPECT_THROW(vfs::toAbsoluteIRI(u"", u"/x"), std::invalid_argument);
    EXPECT_THROW(vfs::toAbsoluteIRI(u"file", u""), std::invalid_argument);
}

TEST(VfsTest, FilesStayInsideTheirFolder) {
    vfs::Folder const folder(vfs::toAbsoluteIRI(u"file", u"/opt/kit"), vfs::GetStorageSystemReference());
    EXPECT_EQ(vfs::File(folder, u"resources/pkgdef.json").identifier().path(), u"/opt/kit/resources/pkgdef.json");
    EXPECT_EQ(vfs::File(folder, u"a/../b.json").identifier().path(), u"/opt/kit/b.json");
    EXPECT_THROW(vfs::File(folder, u"/etc/passwd"), std::invalid_argument);
    EXPECT_THROW(vfs::File(folder, u"../other/x.json"), std::invalid_argument);
    EXPECT_THROW(vfs::File(folder, u"a/../../x.json"), std::invalid_argument);
    EXPECT_THROW(vfs::File(folder, u""), std::invalid_argument);

    EXPECT_THROW(vfs::Folder(vfs::toAbsoluteIRI(u"http", u"/x"), vfs::GetStorageSystemReference()),
                 std::invalid_argument);
}

TEST(VfsTest, ReadsLocalFilesAndNamesTheOnesItCannotRead) {
    TempFolder temp;
    fs::create_directories(temp.path() / "resources");
    std::ofstream(temp.path() / "resources" / "data.json", std::ios::binary) << "{\"x\": 1}\n";

    vfs::Folder const folder(vfs::toAbsoluteIRI(u"file", temp.path().u16string()), vfs::GetStorageSystemReference());
    vfs::File const present(folder, u"resources/data.json");
    EXPECT_TRUE(present.exists());
    EXPECT_EQ(present.readAll(), "{\"x\": 1}\n");
    EXPECT_EQ(present.displayName(), (temp.path() / "resources" / "data.json").string());

    vfs::File const missing(folder, u"resources/none.json");
    EXPECT_FALSE(missing.exists());
    auto const error = depattr_test::thrown<vfs::StorageError>([&] { missing.readAll(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->resource(), (temp.path() / "resources" / "none.json").string());
    EXPECT_THAT(error->what(), ::testing::HasSubstr("none.json"));
    EXPECT_THROW(present.readAll(8), vfs::StorageError);  // more than the bound, found before reading
    EXPECT_EQ(present.readAll(9), "{\"x\": 1}\n");
}

}  // namespace

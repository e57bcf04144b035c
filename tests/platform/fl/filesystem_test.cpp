#include "platform/fl/FileSystem.hpp"
#include "platform/fl/detail/FolderListings.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

class FileSystemTest : public ::testing::Test {
protected:
    std::u16string touch(std::string const& name) { return scratch_.write(name, "x").u16string(); }

    depattr_test::ScratchFolder scratch_{"fl_filesystem"};
    fs::path const& folder_ = scratch_.path();
};

TEST_F(FileSystemTest, ExistsAnswersForFilesFoldersAndAbsentPaths) {
    EXPECT_TRUE(fl::filesystem::exists(touch("present.qx")));
    EXPECT_TRUE(fl::filesystem::exists(folder_.u16string()));
    EXPECT_FALSE(fl::filesystem::exists((folder_ / "absent.qx").u16string()));
    // A path through a file cannot exist; the query answers false rather than failing.
    EXPECT_FALSE(fl::filesystem::exists((folder_ / "present.qx" / "inner").u16string()));
}

TEST_F(FileSystemTest, NonAsciiPathsAreFound) {
    std::u16string const path = touch("データ-ü.qx");
    EXPECT_TRUE(fl::filesystem::exists(path));
}

TEST_F(FileSystemTest, RejectedPathsThrowInvalidArgument) {
    std::u16string const withNul = folder_.u16string() + u"/a\0b"s;
    EXPECT_THROW(fl::filesystem::exists(withNul), std::invalid_argument);
    EXPECT_THROW(fl::filesystem::exists(u""), std::invalid_argument);
    EXPECT_THROW(fl::filesystem::status_express_light(withNul), std::invalid_argument);
    EXPECT_THROW(fl::filesystem::detail::make_native_form(withNul, false), std::invalid_argument);
}

TEST_F(FileSystemTest, StatusReportsTheModificationTimeToTheMicrosecond) {
    std::u16string const path = touch("timed.qx");
    // 2021-03-04 05:06:07.123456 UTC
    auto const when = std::chrono::file_clock::from_sys(std::chrono::sys_days{std::chrono::year(2021) / 3 / 4} +
                                                        std::chrono::hours(5) + std::chrono::minutes(6) +
                                                        std::chrono::seconds(7) + std::chrono::microseconds(123456));
    fs::last_write_time(folder_ / "timed.qx", when);

    fl::filesystem::Status const status = fl::filesystem::status_express_light(path);
    EXPECT_EQ(status.last_modified, boost::posix_time::time_from_string("2021-03-04 05:06:07.123456"));
    EXPECT_TRUE(status.is_regular_file);
    EXPECT_FALSE(status.is_directory);
    EXPECT_EQ(status.size, 1u);

    EXPECT_TRUE(fl::filesystem::status_express_light(folder_.u16string()).is_directory);
}

TEST_F(FileSystemTest, StatusOfAnAbsentPathThrowsNamingThePath) {
    std::u16string const absent = (folder_ / "absent.qx").u16string();
    auto const error =
        depattr_test::thrown<fl::filesystem::FileSystemError>([&] { fl::filesystem::status_express_light(absent); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->path(), absent);
    EXPECT_NE(std::string(error->what()).find("absent.qx"), std::string::npos);
}

TEST_F(FileSystemTest, SharedStatusAnswersEachPathOnceWhileItIsOpenOnThisThread) {
    using fl::filesystem::shared_exists;
    std::u16string const later = (folder_ / "later.qx").u16string();
    std::string const native = (folder_ / "later.qx").string();
    struct stat info {};
    // Without a scope every question goes to the system.
    EXPECT_EQ(fl::filesystem::shared_stat(native, info), ENOENT);
    EXPECT_FALSE(shared_exists(later));
    {
        fl::filesystem::SharedStatus const outer;
        EXPECT_FALSE(shared_exists(later));
        touch("later.qx");
        {
            fl::filesystem::SharedStatus const inner;
            EXPECT_EQ(fl::filesystem::shared_stat(native, info), ENOENT) << "the first answer stands";
        }
        EXPECT_FALSE(shared_exists(later)) << "an inner scope's end keeps the outer scope's answers";
        // The unshared query and another thread ask the system.
        EXPECT_TRUE(fl::filesystem::exists(later));
        bool seenElsewhere = false;
        std::thread([&] { seenElsewhere = shared_exists(later); }).join();
        EXPECT_TRUE(seenElsewhere);
        // A path first asked while present keeps its status, size included.
        std::string const grown = scratch_.write("grown.qx", "abc").string();
        ASSERT_EQ(fl::filesystem::shared_stat(grown, info), 0);
        std::ofstream(grown, std::ios::app) << "def";
        ASSERT_EQ(fl::filesystem::shared_stat(grown, info), 0);
        EXPECT_EQ(info.st_size, 3);
    }
    EXPECT_TRUE(shared_exists(later)) << "the answers go with the outermost scope";
    {
        // Past its bound the scope forgets every answer and asks again.
        fl::filesystem::SharedStatus const scope;
        std::string const comes = (folder_ / "comes.qx").string();
        EXPECT_EQ(fl::filesystem::shared_stat(comes, info), ENOENT);
        touch("comes.qx");
        EXPECT_EQ(fl::filesystem::shared_stat(comes, info), ENOENT);
        // Each path lies in a folder of its own, which the scope remembers too.
        auto const askAbout = [&](std::size_t from, std::size_t to) {
            for (std::size_t i = from; i < to; ++i) {
                fl::filesystem::shared_stat((folder_ / ("absent" + std::to_string(i)) / "x").string(), info);
            }
        };
        std::size_t const half = fl::filesystem::sharedStatusPaths / 2;
        askAbout(0, half);
        EXPECT_EQ(fl::filesystem::shared_stat(comes, info), ENOENT) << "still within the bound";
        askAbout(half, 2 * half);
        EXPECT_EQ(fl::filesystem::shared_stat(comes, info), 0);
    }
    EXPECT_EQ(fl::filesystem::shared_stat(native + std::string(1, '\0') + "x", info), ENOENT);
    EXPECT_THROW(shared_exists(u""), std::invalid_argument);
    EXPECT_THROW(shared_exists(u"a\0b"s), std::invalid_argument);
}

// A folder that enough questions fell under is read once; what it lacks is
// absent from then on without asking the system (seen here through files
// made after the reading), what it holds is asked as before.
TEST_F(FileSystemTest, SharedStatusReadsABusyFolderOnceAndAnswersFromItsNames) {
    using fl::filesystem::shared_exists;
    using fl::filesystem::detail::FolderListings;
    if (!FolderListings::readable(folder_.c_str())) {
        GTEST_SKIP() << folder_ << " is on a file system whose folders are not read for the shared answers";
    }
    auto const at = [&](std::string const& relative) { return (folder_ / relative).u16string(); };
    touch("a.qx");
    fs::create_directory(folder_ / "sub");
    fs::create_symlink(folder_ / "a.qx", folder_ / "link.qx");
    fs::create_symlink(folder_ / "nowhere", folder_ / "dangling.qx");
    fs::create_directory(folder_ / "closed");
    touch("closed/c.qx");
    struct stat info {};
    fl::filesystem::SharedStatus const scope;
    for (std::uint32_t i = 0; i < FolderListings::questionsBeforeReading; ++i) {
        EXPECT_FALSE(shared_exists(at("absent" + std::to_string(i))));
    }
    touch("late.qx");
    fs::create_directories(folder_ / "made" / "deeper");
    touch("made/deeper/x.qx");
    EXPECT_FALSE(shared_exists(at("late.qx"))) << "as when the folder was read";
    EXPECT_FALSE(shared_exists(at("made/deeper/x.qx"))) << "a folder the reading lacks holds nothing";
    EXPECT_EQ(fl::filesystem::shared_stat((folder_ / "made/deeper/x.qx").string(), info), ENOENT);
    EXPECT_TRUE(fl::filesystem::exists(at("made/deeper/x.qx")));
    EXPECT_TRUE(shared_exists(at("a.qx")));
    EXPECT_TRUE(shared_exists(at("sub")));
    EXPECT_TRUE(shared_exists(at("link.qx")));
    EXPECT_FALSE(shared_exists(at("dangling.qx"))) << "a link is followed";
    EXPECT_EQ(fl::filesystem::shared_stat((folder_ / "a.qx/inner").string(), info), ENOTDIR);
    ASSERT_EQ(fl::filesystem::shared_stat((folder_ / "a.qx").string(), info), 0);
    EXPECT_EQ(info.st_size, 1);
    // Paths that are not plain (a "..", a separator at the end) go to the system.
    EXPECT_TRUE(shared_exists(at("made/../late.qx")));
    EXPECT_EQ(fl::filesystem::shared_stat((folder_ / "late.qx").string() + "/", info), ENOTDIR);
    // A file in a folder that is not read yet is asked about as before.
    touch("sub/s.qx");
    EXPECT_TRUE(shared_exists(at("sub/s.qx")));
    // A folder that may be listed but not searched is not read: its files
    // are as unreachable as stat(2) finds them (the superuser reaches them all).
    fs::permissions(folder_ / "closed", fs::perms::owner_read);
    bool const reachable = fl::filesystem::exists(at("closed/c.qx"));
    for (std::uint32_t i = 0; i < FolderListings::questionsBeforeReading; ++i) {
        EXPECT_FALSE(shared_exists(at("closed/absent" + std::to_string(i))));
    }
    EXPECT_EQ(shared_exists(at("closed/c.qx")), reachable);
    fs::permissions(folder_ / "closed", fs::perms::owner_all);
}

// A mapped file reads as its content followed by zero padding, whatever
// pages were given back, and a file that shrinks under the mapping reads as
// zeros past its new end instead of faulting the process.
TEST_F(FileSystemTest, AMappedFileReadsAsItsContentThenZerosEvenWhenItShrinks) {
    std::size_t const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    std::string content(3 * page + 100, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>('a' + i % 26);
    }
    auto const path = scratch_.write("mapped.json", content).string();
    auto const readsAs = [](fl::filesystem::MappedFile const& mapped, std::string const& expected) {
        return std::string(mapped.data(), mapped.size()) == expected &&
               std::all_of(mapped.data() + mapped.size(), mapped.data() + mapped.capacity(),
                           [](char c) { return c == '\0'; });
    };
    {
        fl::filesystem::RegularFile const file(path, content.size());
        fl::filesystem::MappedFile mapped(file, 64);
        ASSERT_EQ(mapped.size(), content.size());
        EXPECT_EQ(mapped.capacity(), content.size() + 64);
        EXPECT_TRUE(readsAs(mapped, content));
        // What is written to the first page stays; released pages read from the file again.
        mapped.data()[1] = '!';
        mapped.releaseBefore(mapped.data() + mapped.size());
        EXPECT_EQ(mapped.data()[1], '!');
        mapped.data()[1] = content[1];
        EXPECT_TRUE(readsAs(mapped, content));
        EXPECT_FALSE(mapped.cutShort());

        ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(page + 10)), 0);
        EXPECT_EQ(std::string(mapped.data(), page + 10), content.substr(0, page + 10));
        EXPECT_TRUE(std::all_of(mapped.data() + page + 10, mapped.data() + mapped.capacity(),
                                [](char c) { return c == '\0'; }));
        EXPECT_TRUE(mapped.cutShort());
    }
    auto const empty = scratch_.write("empty.json", "").string();
    fl::filesystem::RegularFile const file(empty, 10);
    fl::filesystem::MappedFile const mapped(file, 32);
    EXPECT_TRUE(readsAs(mapped, ""));
    EXPECT_FALSE(mapped.cutShort());
}

TEST(MakeNativeForm, RemovesRedundantPartsAndMakesAbsoluteOnRequest) {
    using fl::filesystem::detail::make_native_form;
    EXPECT_EQ(make_native_form(u"/a//b/./c/", false), u"/a/b/c");
    EXPECT_EQ(make_native_form(u"/a/../b", false),
              u"/a/../b");  // ".." stays: symbolic links
    EXPECT_EQ(make_native_form(u"a/./b", false), u"a/b");
    EXPECT_EQ(make_native_form(u"./", false), u".");
    EXPECT_EQ(make_native_form(u"a/b", true), (fs::current_path() / "a" / "b").u16string());
    EXPECT_EQ(make_native_form(u"/x", true), u"/x");
    EXPECT_EQ(make_native_form(u"/", true), u"/");
    EXPECT_EQ(make_native_form(u"/a/b/", true), u"/a/b");
    EXPECT_EQ(make_native_form(u"/a/.b/..c/d", true), u"/a/.b/..c/d");
}

// The quick test of a path in native form never says yes where the full
// rules say no: every short path over an alphabet of the characters that
// matter is tried. A yes is a path that make_native_form returns as it is,
// with no "." or ".." component.
TEST(MakeNativeForm, TheQuickTestOfAPlainPathAgreesWithTheRules) {
    using fl::filesystem::detail::is_native_form;
    using fl::filesystem::detail::is_plain_absolute;
    std::u16string const alphabet = {u'/', u'.', u'a', u'\0', char16_t{0xD800}, char16_t{0xE9}};
    std::size_t plain = 0;
    for (std::size_t length = 0; length <= 6; ++length) {
        std::size_t combinations = 1;
        for (std::size_t i = 0; i < length; ++i) {
            combinations *= alphabet.size();
        }
        for (std::size_t code = 0; code < combinations; ++code) {
            std::u16string path;
            for (std::size_t rest = code, i = 0; i < length; ++i, rest /= alphabet.size()) {
                path += alphabet[rest % alphabet.size()];
            }
            if (!is_plain_absolute(path)) {
                continue;
            }
            ++plain;
            ASSERT_TRUE(is_native_form(path)) << "path of " << path.size() << " units, code " << code;
            EXPECT_EQ(path.find(u"/."), std::u16string::npos);
            EXPECT_EQ(fl::filesystem::detail::make_native_form(path, false), path);
        }
    }
    EXPECT_GT(plain, 100u);
    // A path long enough for the widened loop: each unfit piece, put at every
    // place after the first separator, is seen.
    std::u16string const plainPath = u"/usr/share/depattr/project/src/pkg/module.qx";
    EXPECT_TRUE(is_plain_absolute(plainPath));
    for (std::u16string const& unfit : {std::u16string(u"//"), std::u16string(u"/."), std::u16string(1, u'\0'),
                                        std::u16string(1, char16_t{0xDC00})}) {
        for (std::size_t at = 1; at <= plainPath.size(); ++at) {
            EXPECT_FALSE(is_plain_absolute(std::u16string(plainPath).insert(at, unfit))) << at;
        }
    }
}

}  // namespace

// Hostile files for every reader of files from outside: graph files, message catalogs, product descriptors, package
// definitions, configuration files and baselines. Each reader meets each kind of hostile file; the outcome is a clear
// error of the reader's own type naming the file (or, where the file is acceptable after all, a successful read),
// never a crash, a hang, another exception type or a text of a library we build on. docs/reliability.md lists the
// outcomes.
#include "cli/Baseline.hpp"
#include "cli/Config.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/graph/GraphFile.hpp"
#include "platform/packages/PackageDescriptor.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "platform/toolbox/detail/DescriptorReader.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <typeinfo>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// A reader's failure, whatever its own type, carried with its text.
struct ReadFailure {
    std::string text;
};

template <class Error, class Read>
void expectingOnly(Read const& read) {
    try {
        read();
    } catch (Error const& error) {
        throw ReadFailure{error.what()};
    }
}

enum class Format { Json, Toml, Xml };
using Path = fs::path const&;
namespace cli = depattr::cli;
namespace graph = dependency::graph;
namespace packages = foundation::packages;
namespace toolbox = dependency::toolbox;

struct Reader {
    char const* name;
    Format format;
    std::size_t maxBytes;
    fs::path place;  // where the file goes in a scratch folder
    // A valid file is `before`, one free-text string (already escaped for the format), then `after`.
    std::string before, after;
    std::function<void(Path file, Path scratch)> read;  // throws ReadFailure for the reader's own error
    std::string valid(std::string const& text) const { return before + text + after; }
};

std::vector<Reader> const& readers() {
    static std::vector<Reader> const all{
        {"graph file", Format::Json, graph::maxGraphFileBytes, "graph.json", R"({"nodes": [{"id": ")",
         R"(", "type": "file"}]})",
         [](Path file, Path) { expectingOnly<graph::GraphFileError>([&] { graph::loadGraphFile(file); }); }},
        {"message catalog", Format::Xml, fl::i18n::maxCatalogFileBytes, "resources/en/dependency/attribute.xml",
         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         R"(<catalog name="QORVEX:dependency:attribute"><message key="K">)",
         "</message></catalog>\n",
         [](Path, Path scratch) {
             ::setenv("DEPATTR_RESOURCES", (scratch / "resources").c_str(), 1);
             fl::i18n::MessageCatalog::clear_cache();
             resource_core::BaseMsgID const id("QORVEX:dependency:attribute", "K", {});
             expectingOnly<fl::i18n::MessageNotFound>([&] {
                 expectingOnly<fl::i18n::CatalogError>([&] { fl::i18n::MessageCatalog::get_message(id, "en"); });
             });
         }},
        {"product descriptor", Format::Json, toolbox::detail::maxDescriptorBytes, "root/products/p.json",
         R"({"name": ")", R"(", "baseCode": "B", "kind": 1, "installed": false})",
         [](Path, Path scratch) {
             expectingOnly<toolbox::ToolboxCatalogError>(
                 [&] { toolbox::ToolboxFinder::fromInstallRoot(scratch / "root"); });
         }},
        {"package definition", Format::Json, packages::maxPackageDefinitionBytes, "product/resources/pkgdef.json",
         R"({"name": ")", R"(", "id": "0f8fad5b-d9cb-469f-a165-70867728950e", "version": "1"})",
         [](Path, Path scratch) {
             namespace vfs = foundation::storage::vfs;
             vfs::Folder const root(vfs::toAbsoluteIRI(u"file", (scratch / "product").u16string()),
                                    vfs::GetStorageSystemReference());
             auto const result =
                 packages::GetPackageDescriptorFactory().create(vfs::File(root, packages::PackageDefRelativeToRoot), 0);
             expectingOnly<packages::PackageDefinitionError>([&] { (void)result.descriptor(); });
         }},
        {"configuration file", Format::Toml, cli::maxConfigFileBytes, "depattr.toml",
         "fail-on = \"warning\"\n[per-path-ignores]\n\"", "\" = []\n",
         [](Path file, Path) { expectingOnly<cli::ConfigError>([&] { cli::readConfigFile(file); }); }},
        {"baseline", Format::Json, cli::Baseline::maxBaselineBytes, "baseline.json",
         R"({"depattrBaseline": 1, "findings": [{"fingerprint": "0123456789abcdef", "node": ")", R"("}]})",
         [](Path file, Path) { expectingOnly<cli::BaselineError>([&] { cli::Baseline::read(file); }); }},
    };
    return all;
}

// How one kind of hostile file is made from a reader's valid file.
struct Hostility {
    char const* name;
    std::function<void(Reader const&, Path file)> make;
};

std::string nested(Format format) {
    constexpr int depth = 100'000;
    if (format == Format::Xml) {
        std::string text = R"(<catalog name="QORVEX:dependency:attribute"><message key="K">)";
        for (int i = 0; i < depth; ++i) {
            text += "<b>";
        }
        return text;
    }
    std::string const arrays = std::string(depth, '[') + std::string(depth, ']');
    return format == Format::Json ? R"({"x": )" + arrays + "}" : "x = " + arrays + "\n";
}

// Writes the text `text` makes for a reader.
template <class Text>
std::function<void(Reader const&, fs::path const&)> writing(Text text) {
    return [text](Reader const& reader, Path file) { depattr_test::writeBytes(file, text(reader)); };
}

std::vector<Hostility> const& hostilities() {
    using R = Reader const&;
    static std::vector<Hostility> const all{
        {"truncated", writing([](R r) { return r.valid("x").substr(0, r.valid("x").size() / 2); })},
        {"empty", writing([](R) { return ""s; })},
        // A sparse file one byte beyond the limit: no disk space, and never read.
        {"huge",
         [](R r, Path file) {
             depattr_test::writeBytes(file, "");
             fs::resize_file(file, r.maxBytes + 1);
         }},
        {"deeply nested", writing([](R r) { return nested(r.format); })},
        {"invalid UTF-8", writing([](R r) { return r.valid("a\xff\xfe"); })},
        {"encoded lone surrogate", writing([](R r) { return r.valid("a\xed\xa0\x80"); })},
        {"escaped lone surrogate",
         writing([](R r) { return r.valid(r.format == Format::Xml ? "&#xD800;" : "\\ud800"); })},
        {"NUL byte", writing([](R r) { return r.valid("a\0b"s); })},
        {"symbolic-link loop", [](R, Path file) { fs::create_symlink(file.filename(), file); }},
        // A link to nothing: the folder lists the entry, reading finds no file.
        {"removed after listing", [](R, Path file) { fs::create_symlink("gone.json", file); }},
        {"folder", [](R, Path file) { fs::create_directories(file); }},
        {"named pipe", [](R, Path file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); }},
    };
    return all;
}

// What each reader makes of a hostile file when it is not an error.
bool acceptable(std::string const& reader, std::string const& hostility) {
    static std::set<std::pair<std::string, std::string>> const accepted{
        {"configuration file", "empty"},               // no settings
        {"message catalog", "removed after listing"},  // no catalog in that language: MessageNotFound, below
        {"baseline", "escaped lone surrogate"},        // only fingerprints are read; the node's text is for people
    };
    return accepted.contains({reader, hostility});
}

class HostileFiles : public ::testing::Test {
protected:
    void SetUp() override {
        scratch_ = fs::temp_directory_path() / ("depattr_hostile_" + std::to_string(::getpid()));
        fs::remove_all(scratch_);
        if (char const* resources = std::getenv("DEPATTR_RESOURCES")) {
            savedResources_ = resources;
        }
    }
    void TearDown() override {
        std::error_code ignored;
        for (auto const& entry : fs::recursive_directory_iterator(scratch_, ignored)) {
            fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
        fs::remove_all(scratch_, ignored);
        ::setenv("DEPATTR_RESOURCES", savedResources_.c_str(), 1);
        fl::i18n::MessageCatalog::clear_cache();
    }

    // Makes a fresh scratch folder and the folders `reader`'s file goes in below `folder`; returns the file.
    fs::path prepare(Reader const& reader, fs::path const& folder) {
        fs::remove_all(scratch_);
        fs::create_directories((folder / reader.place).parent_path());
        return folder / reader.place;
    }

    // Reads the file the way `reader` does; returns the failure text, or nothing after a successful read.
    std::optional<std::string> outcome(Reader const& reader, fs::path const& file, fs::path const& folder) {
        try {
            reader.read(file, folder);
            return std::nullopt;
        } catch (ReadFailure const& failure) {
            return failure.text;
        } catch (std::exception const& other) {
            ADD_FAILURE() << reader.name << ": " << typeid(other).name() << ": " << other.what();
            return std::nullopt;
        }
    }

    fs::path scratch_;
    std::string savedResources_;
};

// Texts that would show a library's insides to the user.
void expectOwnWords(std::string const& text) {
    for (char const* internal : {"simdjson", "_ERROR", "pugi", "toml::", "std::", "boost", "basic_string",
                                 "vector::", "filesystem error", "bad_alloc", "TOML_"}) {
        EXPECT_EQ(text.find(internal), std::string::npos) << "\"" << internal << "\" in: " << text;
    }
}

TEST_F(HostileFiles, EveryReaderNamesTheFileOrReadsIt) {
    for (auto const& reader : readers()) {
        for (auto const& hostility : hostilities()) {
            SCOPED_TRACE(std::string(reader.name) + ", " + hostility.name);
            fs::path const file = prepare(reader, scratch_);
            hostility.make(reader, file);

            auto const failure = outcome(reader, file, scratch_);
            bool const accepted = acceptable(reader.name, hostility.name);
            ASSERT_TRUE(failure || accepted) << "read without an error";
            if (failure) {
                EXPECT_NE(failure->find(file.string()), std::string::npos) << *failure;
            }
            if (failure && !accepted) {
                expectOwnWords(*failure);
                EXPECT_TRUE(hostility.name != "huge"s || failure->find("more than the") != std::string::npos)
                    << *failure;
            }
        }
    }
}

TEST_F(HostileFiles, UnreadableFilesAreNamedWithTheSystemsReason) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "running as root, which reads files without read permission";
    }
    for (auto const& reader : readers()) {
        SCOPED_TRACE(reader.name);
        fs::path const file = prepare(reader, scratch_);
        depattr_test::writeBytes(file, reader.valid("x"));
        fs::permissions(file, fs::perms::none);
        auto const failure = outcome(reader, file, scratch_);
        ASSERT_TRUE(failure.has_value());
        EXPECT_NE(failure->find(file.string()), std::string::npos) << *failure;
        EXPECT_NE(failure->find("Permission denied"), std::string::npos) << *failure;
    }
}

TEST_F(HostileFiles, PathsWithOddCharactersAreRead) {
    for (auto const& reader : readers()) {
        SCOPED_TRACE(reader.name);
        // Odd characters in the folder every reader's file lives in.
        fs::path const odd = scratch_ / "sp ace 'q' \"dq\" $(x) \\ \t\n-é😀";
        fs::path const file = prepare(reader, odd);
        depattr_test::writeBytes(file, reader.valid("x"));
        EXPECT_EQ(outcome(reader, file, odd), std::nullopt);
    }
}

}  // namespace

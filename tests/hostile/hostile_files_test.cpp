// Hostile files for every reader of files from outside: graph files, message
// catalogs, product descriptors, package definitions, configuration files and
// baselines. Each reader meets each kind of hostile file; the outcome is a
// clear error of the reader's own type naming the file (or, where the file is
// acceptable after all, a successful read), never a crash, a hang, another
// exception type or a text of a library we build on. docs/reliability.md lists
// the outcomes.
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
#include <fstream>
#include <functional>
#include <map>
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

struct Reader {
    char const* name;
    Format format;
    std::size_t maxBytes;
    // A valid file whose one free-text string is `text` (already escaped for the format).
    std::function<std::string(std::string const& text)> valid;
    // Where the file goes in a scratch folder (the folder is made).
    std::function<fs::path(fs::path const& scratch)> place;
    // Reads it; throws ReadFailure for the reader's own error.
    std::function<void(fs::path const& file, fs::path const& scratch)> read;
};

std::vector<Reader> const& readers() {
    static std::vector<Reader> const all{
        {"graph file", Format::Json, dependency::graph::maxGraphFileBytes,
         [](std::string const& text) { return R"({"nodes": [{"id": ")" + text + R"(", "type": "file"}]})"; },
         [](fs::path const& scratch) { return scratch / "graph.json"; },
         [](fs::path const& file, fs::path const&) {
             expectingOnly<dependency::graph::GraphFileError>([&] { dependency::graph::loadGraphFile(file); });
         }},
        {"message catalog", Format::Xml, fl::i18n::maxCatalogFileBytes,
         [](std::string const& text) {
             return R"(<?xml version="1.0" encoding="UTF-8"?>
<catalog name="QORVEX:dependency:attribute"><message key="K">)" +
                    text + "</message></catalog>\n";
         },
         [](fs::path const& scratch) { return scratch / "resources" / "en" / "dependency" / "attribute.xml"; },
         [](fs::path const&, fs::path const& scratch) {
             ::setenv("DEPATTR_RESOURCES", (scratch / "resources").c_str(), 1);
             fl::i18n::MessageCatalog::clear_cache();
             resource_core::BaseMsgID const id("QORVEX:dependency:attribute", "K", {});
             try {
                 fl::i18n::MessageCatalog::get_message(id, "en");
             } catch (fl::i18n::CatalogError const& error) {
                 throw ReadFailure{error.what()};
             } catch (fl::i18n::MessageNotFound const& error) {
                 throw ReadFailure{error.what()};
             }
         }},
        {"product descriptor", Format::Json, dependency::toolbox::detail::maxDescriptorBytes,
         [](std::string const& text) {
             return R"({"name": ")" + text + R"(", "baseCode": "B", "kind": 1, "installed": false})";
         },
         [](fs::path const& scratch) { return scratch / "root" / "products" / "p.json"; },
         [](fs::path const&, fs::path const& scratch) {
             expectingOnly<dependency::toolbox::ToolboxCatalogError>(
                 [&] { dependency::toolbox::ToolboxFinder::fromInstallRoot(scratch / "root"); });
         }},
        {"package definition", Format::Json, foundation::packages::maxPackageDefinitionBytes,
         [](std::string const& text) {
             return R"({"name": ")" + text + R"(", "id": "0f8fad5b-d9cb-469f-a165-70867728950e", "version": "1"})";
         },
         [](fs::path const& scratch) { return scratch / "product" / "resources" / "pkgdef.json"; },
         [](fs::path const&, fs::path const& scratch) {
             namespace vfs = foundation::storage::vfs;
             vfs::Folder const root(vfs::toAbsoluteIRI(u"file", (scratch / "product").u16string()),
                                    vfs::GetStorageSystemReference());
             auto const result = foundation::packages::GetPackageDescriptorFactory().create(
                 vfs::File(root, foundation::packages::PackageDefRelativeToRoot), 0);
             expectingOnly<foundation::packages::PackageDefinitionError>([&] { (void)result.descriptor(); });
         }},
        {"configuration file", Format::Toml, depattr::cli::maxConfigFileBytes,
         [](std::string const& text) { return "fail-on = \"warning\"\n[per-path-ignores]\n\"" + text + "\" = []\n"; },
         [](fs::path const& scratch) { return scratch / "depattr.toml"; },
         [](fs::path const& file, fs::path const&) {
             expectingOnly<depattr::cli::ConfigError>([&] { depattr::cli::readConfigFile(file); });
         }},
        {"baseline", Format::Json, depattr::cli::Baseline::maxBaselineBytes,
         [](std::string const& text) {
             return R"({"depattrBaseline": 1, "findings": [{"fingerprint": "0123456789abcdef", "node": ")" + text +
                    R"("}]})";
         },
         [](fs::path const& scratch) { return scratch / "baseline.json"; },
         [](fs::path const& file, fs::path const&) {
             expectingOnly<depattr::cli::BaselineError>([&] { depattr::cli::Baseline::read(file); });
         }},
    };
    return all;
}

// How one kind of hostile file is made from a reader's valid file.
struct Hostility {
    char const* name;
    std::function<void(Reader const&, fs::path const& file)> make;
};

std::string nested(Format format) {
    constexpr int depth = 100'000;
    switch (format) {
    case Format::Json:
        return R"({"x": )" + std::string(depth, '[') + std::string(depth, ']') + "}";
    case Format::Toml:
        return "x = " + std::string(depth, '[') + std::string(depth, ']') + "\n";
    case Format::Xml: {
        std::string text = R"(<catalog name="QORVEX:dependency:attribute"><message key="K">)";
        for (int i = 0; i < depth; ++i) {
            text += "<b>";
        }
        return text;
    }
    }
    return {};
}

std::string loneSurrogate(Format format) {
    return format == Format::Xml ? "&#xD800;" : "\\ud800";
}

std::vector<Hostility> const& hostilities() {
    static std::vector<Hostility> const all{
        {"truncated",
         [](Reader const& reader, fs::path const& file) {
             auto const text = reader.valid("x");
             depattr_test::writeBytes(file, text.substr(0, text.size() / 2));
         }},
        {"empty", [](Reader const&, fs::path const& file) { depattr_test::writeBytes(file, ""); }},
        {"huge",
         [](Reader const& reader, fs::path const& file) {
             // A sparse file one byte beyond the limit: no disk space, and never read.
             depattr_test::writeBytes(file, "");
             fs::resize_file(file, reader.maxBytes + 1);
         }},
        {"deeply nested",
         [](Reader const& reader, fs::path const& file) { depattr_test::writeBytes(file, nested(reader.format)); }},
        {"invalid UTF-8",
         [](Reader const& reader, fs::path const& file) { depattr_test::writeBytes(file, reader.valid("a\xff\xfe")); }},
        {"encoded lone surrogate",
         [](Reader const& reader, fs::path const& file) {
             depattr_test::writeBytes(file, reader.valid("a\xed\xa0\x80"));
         }},
        {"escaped lone surrogate",
         [](Reader const& reader, fs::path const& file) {
             depattr_test::writeBytes(file, reader.valid(loneSurrogate(reader.format)));
         }},
        {"NUL byte",
         [](Reader const& reader, fs::path const& file) { depattr_test::writeBytes(file, reader.valid("a\0b"s)); }},
        {"symbolic-link loop", [](Reader const&, fs::path const& file) { fs::create_symlink(file.filename(), file); }},
        {"removed after listing",
         // A link to nothing: the folder lists the entry, reading finds no file.
         [](Reader const&, fs::path const& file) { fs::create_symlink("gone.json", file); }},
        {"folder", [](Reader const&, fs::path const& file) { fs::create_directories(file); }},
        {"named pipe", [](Reader const&, fs::path const& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); }},
    };
    return all;
}

// What each reader makes of a hostile file when it is not an error.
bool acceptable(std::string const& reader, std::string const& hostility) {
    static std::multimap<std::string, std::string> const accepted{
        {"configuration file", "empty"},               // no settings
        {"message catalog", "removed after listing"},  // no catalog in that language: MessageNotFound, below
        {"baseline", "escaped lone surrogate"},        // only fingerprints are read; the node's text is for people
    };
    auto const [begin, end] = accepted.equal_range(reader);
    return std::any_of(begin, end, [&](auto const& entry) { return entry.second == hostility; });
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
            fs::remove_all(scratch_);
            fs::path const file = reader.place(scratch_);
            fs::create_directories(file.parent_path());
            hostility.make(reader, file);

            auto const failure = outcome(reader, file, scratch_);
            if (acceptable(reader.name, hostility.name)) {
                if (failure) {
                    EXPECT_NE(failure->find(file.string()), std::string::npos) << *failure;
                }
                continue;
            }
            ASSERT_TRUE(failure.has_value()) << "read without an error";
            EXPECT_NE(failure->find(file.string()), std::string::npos) << *failure;
            expectOwnWords(*failure);
            if (std::string(hostility.name) == "huge") {
                EXPECT_NE(failure->find("more than the"), std::string::npos) << *failure;
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
        fs::remove_all(scratch_);
        fs::path const file = reader.place(scratch_);
        fs::create_directories(file.parent_path());
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
        fs::remove_all(scratch_);
        // Odd characters in the folder every reader's file lives in.
        fs::path const odd = scratch_ / "sp ace 'q' \"dq\" $(x) \\ \t\n-é😀";
        fs::path const file = reader.place(odd);
        fs::create_directories(file.parent_path());
        depattr_test::writeBytes(file, reader.valid("x"));
        EXPECT_EQ(outcome(reader, file, odd), std::nullopt);
    }
}

}  // namespace

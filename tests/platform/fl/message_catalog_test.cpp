#include "platform/fl/MessageCatalog.hpp"
#include "platform/fl/detail/BuiltInCatalogs.hpp"
#include "support/Scratch.hpp"

#include <gtest/gtest.h>

#include <boost/locale/generator.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <locale>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <vector>

namespace {

namespace fs = std::filesystem;
using fl::i18n::MessageCatalog;
using resource_core::BaseMsgID;

// Points DEPATTR_RESOURCES at a scratch resources folder for one test and
// restores the previous value (and the global locale) afterwards.
class CatalogFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (char const* previous = std::getenv("DEPATTR_RESOURCES")) {
            previous_ = previous;
        }
        ::setenv("DEPATTR_RESOURCES", scratch_.path().c_str(), 1);
        MessageCatalog::clear_cache();
    }
    void TearDown() override {
        std::locale::global(std::locale::classic());
        if (previous_) {
            ::setenv("DEPATTR_RESOURCES", previous_->c_str(), 1);
        } else {
            ::unsetenv("DEPATTR_RESOURCES");
        }
        MessageCatalog::clear_cache();
    }

    static std::string catalog(std::string const& name, std::string const& messages) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalog name=\"" + name + "\">\n" + messages +
               "</catalog>\n";
    }

    // Write the catalog "QORVEX:test:one" of a language, and read a message of it.
    fs::path writeOne(std::string const& language, std::string const& messages) {
        return scratch_.write(fs::path(language) / "test/one.xml", catalog("QORVEX:test:one", messages));
    }
    static std::u16string one(std::string const& key, std::string const& language) {
        return MessageCatalog::get_message(BaseMsgID("QORVEX:test:one", key), language);
    }

    depattr_test::ScratchFolder scratch_{"fl_catalog"};
    std::optional<std::string> previous_;
};

TEST_F(CatalogFolderTest, FillsPlaceholdersAndFallsBackToEnglishPerKey) {
    writeOne("en", R"(<message key="Mixed">{2} has {0} of {1}; {3} and {x} stay</message>)"
                   R"(<message key="Both">both-en</message><message key="OnlyEn">only-en</message>)");
    writeOne("ja", R"(<message key="Both">両方</message>)");
    BaseMsgID const id("QORVEX:test:one", "Mixed", {42L, std::string("caf\xc3\xa9"), std::u16string(u"ファイル")});
    EXPECT_EQ(MessageCatalog::get_message(id, "en"), u"ファイル has 42 of café; {3} and {x} stay");
    EXPECT_EQ(one("Both", "ja"), u"両方");
    EXPECT_EQ(one("OnlyEn", "ja"), u"only-en");
    EXPECT_EQ(one("Both", "de"), u"both-en");
    EXPECT_EQ(one("Both", "JA"), u"両方");
    EXPECT_EQ(one("Both", "../ja"), u"both-en");  // a language that is not a plain code cannot reach another folder
}

TEST_F(CatalogFolderTest, UnknownKeysAndCatalogsNameCatalogAndKey) {
    writeOne("en", R"(<message key="Known">known</message>)");
    for (BaseMsgID const& id : {BaseMsgID("QORVEX:test:one", "Unknown"), BaseMsgID("QORVEX:test:none", "Known"),
                                BaseMsgID("QORVEX:../test:one", "Known")}) {
        auto const error =
            depattr_test::thrown<fl::i18n::MessageNotFound>([&] { MessageCatalog::get_message(id, "en"); });
        ASSERT_TRUE(error) << id.catalog() << " " << id.key();
        EXPECT_EQ(error->catalog(), id.catalog());
        EXPECT_EQ(error->key(), id.key());
        std::string const what = error->what();
        EXPECT_NE(what.find(id.catalog()), std::string::npos) << what;
        EXPECT_NE(what.find(id.key()), std::string::npos) << what;
    }
}

TEST_F(CatalogFolderTest, MalformedCatalogsNameTheFileAndPosition) {
    std::vector<std::pair<std::string, std::string>> const cases{
        {"<?xml version=\"1.0\"?>\n<catalog name=\"QORVEX:test:bad\">\n<message "
         "key=\"A\">a</mesage>\n</catalog>\n",
         "line 3"},
        {catalog("QORVEX:test:bad", "<message>no key</message>\n"), "without a key"},
        {catalog("QORVEX:test:bad", "<message key=\"A\">a</message>\n<message key=\"A\">b</message>\n"), "twice"},
        {catalog("QORVEX:test:bad", "<text key=\"A\">a</text>\n"), "unexpected element <text>"},
        {catalog("QORVEX:test:other", "<message key=\"A\">a</message>\n"), "QORVEX:test:other"},
        {"<messages/>", "root element"},
    };
    for (auto const& [content, expectedDetail] : cases) {
        fs::path const file = scratch_.write("en/test/bad.xml", content);
        MessageCatalog::clear_cache();
        auto const error = depattr_test::thrown<fl::i18n::CatalogError>(
            [] { MessageCatalog::get_message(BaseMsgID("QORVEX:test:bad", "A"), "en"); });
        ASSERT_TRUE(error) << content;
        std::string const what = error->what();
        EXPECT_EQ(error->file(), file.string());
        EXPECT_NE(what.find(file.string()), std::string::npos) << what;
        EXPECT_NE(what.find(expectedDetail), std::string::npos) << what;
    }
}

TEST_F(CatalogFolderTest, CatalogsAreParsedOnceAndCached) {
    writeOne("en", R"(<message key="Key">first</message>)");
    EXPECT_EQ(one("Key", "en"), u"first");
    writeOne("en", R"(<message key="Key">second</message>)");
    EXPECT_EQ(one("Key", "en"), u"first");
    MessageCatalog::clear_cache();
    EXPECT_EQ(one("Key", "en"), u"second");
}

TEST_F(CatalogFolderTest, TheGlobalLocaleChoosesTheLanguage) {
    writeOne("en", R"(<message key="Key">english</message>)");
    writeOne("ja", R"(<message key="Key">日本語</message>)");
    BaseMsgID const id("QORVEX:test:one", "Key");
    EXPECT_EQ(MessageCatalog::current_language(), "en");
    EXPECT_EQ(MessageCatalog::get_message(id), u"english");
    // The machine need not have a Japanese C library locale; Boost.Locale makes one on its own.
    std::locale::global(boost::locale::generator()("ja_JP.UTF-8"));
    EXPECT_EQ(MessageCatalog::current_language(), "ja");
    EXPECT_EQ(MessageCatalog::get_message(id), u"日本語");
    std::locale::global(boost::locale::generator()("fr_FR.UTF-8"));
    EXPECT_EQ(MessageCatalog::get_message(id), u"english");
}

TEST(LanguageOfLocaleName, TakesTheLanguagePartOrEnglish) {
    for (auto const& [name, language] :
         std::vector<std::pair<std::string, std::string>>{{"ja_JP.UTF-8", "ja"},
                                                          {"de_DE@euro", "de"},
                                                          {"fr", "fr"},
                                                          {"EN_us", "en"},
                                                          {"C", "en"},
                                                          {"C.UTF-8", "en"},
                                                          {"POSIX", "en"},
                                                          {"*", "en"},
                                                          {"", "en"},
                                                          {"LC_CTYPE=ja_JP.UTF-8;LC_NUMERIC=C", "en"}}) {
        EXPECT_EQ(fl::i18n::language_of_locale_name(name), language) << name;
    }
    EXPECT_EQ(fl::i18n::language_of_locale_name("LC_CTYPE=en_US.UTF-8;LC_NUMERIC=C;LC_MESSAGES=ja_JP.UTF-8;LC_PAPER=C"),
              "ja");
}

// The catalogs built into the library are the resources folder's files, and
// every catalog has the same keys and placeholders in English and Japanese.
TEST_F(CatalogFolderTest, BuiltInCatalogsAreTheResourceFilesAndServeWithoutAFolder) {
    auto const builtIn = fl::i18n::detail::builtInCatalogFiles();
    auto const files = std::count_if(fs::recursive_directory_iterator(DEPATTR_SOURCE_DIR "/resources"), {},
                                     [](auto const& entry) { return entry.path().extension() == ".xml"; });
    EXPECT_EQ(builtIn.size(), static_cast<std::size_t>(files));
    auto const read = [](fs::path const& relative) {
        std::ifstream in(fs::path(DEPATTR_SOURCE_DIR "/resources") / relative, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    };
    for (auto const& file : builtIn) {
        EXPECT_EQ(read(file.path), file.text) << file.path;
    }
    auto const keysAndPlaceholders = [&](std::string const& path) {
        std::map<std::string, std::set<std::string>> keys;
        std::regex const message(R"re(<message key="([^"]+)">([^<]*)</message>)re");
        std::regex const placeholder(R"(\{[0-9]\})");
        std::string const text = read(path);
        for (std::sregex_iterator it(text.begin(), text.end(), message), end; it != end; ++it) {
            auto& placeholders = keys[(*it)[1]];
            std::string const body = (*it)[2];
            for (std::sregex_iterator p(body.begin(), body.end(), placeholder); p != end; ++p) {
                placeholders.insert(p->str());
            }
        }
        return keys;
    };
    for (auto const& [catalog, keys] : std::vector<std::pair<std::string, std::size_t>>{
             {"cli.xml", 100}, {"dependency/attribute.xml", 12}, {"dependency/analysis.xml", 2}}) {
        auto const english = keysAndPlaceholders("en/" + catalog);
        EXPECT_GE(english.size(), keys) << catalog;
        EXPECT_EQ(english, keysAndPlaceholders("ja/" + catalog)) << catalog;
    }
    ::unsetenv("DEPATTR_RESOURCES");
    MessageCatalog::clear_cache();
    EXPECT_EQ(MessageCatalog::get_message(BaseMsgID("QORVEX:dependency:attribute", "MissingFileProblem"), "ja"),
              u"ファイルが見つかりません");
    auto const what = depattr_test::whatOf<fl::i18n::MessageNotFound>(
        [] { MessageCatalog::get_message(BaseMsgID("QORVEX:dependency:attribute", "NoSuchKey"), "ja"); });
    EXPECT_NE(what.find("(searched built-in ja/dependency/attribute.xml, built-in en/dependency/attribute.xml)"),
              std::string::npos)
        << what;
}

TEST(Utf, ConvertsBothWaysAndRepairsIllFormedInput) {
    using fl::i18n::to_string;
    using fl::i18n::to_ustring;
    std::u16string const text = u"a\u00e9\u30d5\U0001F600z";
    EXPECT_EQ(to_string(text), "a\xc3\xa9\xe3\x83\x95\xf0\x9f\x98\x80z");
    EXPECT_EQ(to_ustring(to_string(text)), text);
    EXPECT_EQ(fl::i18n::ustring_to_utf8(text), to_string(text));
    EXPECT_EQ(to_string(u""), "");
    EXPECT_EQ(to_string(std::u16string(u"/plain\0ascii\x7f", 13)), std::string("/plain\0ascii\x7f", 13));
    EXPECT_EQ(to_string(u"\u00e9t\u00e9"), "\xc3\xa9t\xc3\xa9");
    EXPECT_EQ(to_string(std::u16string{u'a', char16_t(0xD800), u'b'}), std::string("a\xef\xbf\xbd") + "b");
    EXPECT_EQ(to_string(std::u16string{char16_t(0xDC00)}), "\xef\xbf\xbd");
    EXPECT_EQ(to_ustring(std::string("a\xff") + "b"), u"a\uFFFDb");
    EXPECT_EQ(to_ustring("\xc3"), u"\uFFFD");                      // truncated sequence
    EXPECT_EQ(to_ustring("\xc0\xaf"), u"\uFFFD\uFFFD");            // overlong form
    EXPECT_EQ(to_ustring("\xed\xa0\x80"), u"\uFFFD\uFFFD\uFFFD");  // an encoded surrogate
    EXPECT_EQ(to_ustring(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
}

}  // namespace

#pragma once
// Localised message texts and the UTF conversions that go with them.
//
// Catalogs are XML files, one per catalog and language (docs/catalogs.md),
// built into the library from the repository's resources/ folder. When the
// environment variable DEPATTR_RESOURCES names a folder, the catalogs are read
// from that folder instead (an override for translators and tests).

#include "platform/foundation/BaseMsgID.hpp"

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace fl::i18n {

// No catalog of the requested language or of "en" has the key. what() names
// the catalog, the key and every place searched.
class MessageNotFound : public std::runtime_error {
public:
    MessageNotFound(std::string const& catalog, std::string const& key, std::vector<std::string> const& searched = {});
    std::string const& catalog() const noexcept { return catalog_; }
    std::string const& key() const noexcept { return key_; }

private:
    std::string catalog_;
    std::string key_;
};

// A catalog file exists but cannot be used: it cannot be read (no permission,
// a folder, a link loop, larger than maxCatalogFileBytes), or it is malformed:
// bad XML, a wrong root element, a message without key, a key given twice.
// what() names the file and, where known, the line and byte offset.
class CatalogError : public std::runtime_error {
public:
    CatalogError(std::string const& file, std::string const& detail);
    std::string const& file() const noexcept { return file_; }

private:
    std::string file_;
};

// The largest catalog file read; a larger one is an error, found before it is read.
inline constexpr std::size_t maxCatalogFileBytes = 16 << 20;

class MessageCatalog {
public:
    // Text of the message with placeholders {0}, {1}... filled from the
    // arguments, in the language of the process's global C++ locale (falling back
    // to "en"). Throws MessageNotFound when no catalog has the key, CatalogError
    // when a catalog file that had to be read is malformed.
    static std::u16string get_message(resource_core::BaseMsgID const& id);
    static std::u16string get_message(resource_core::BaseMsgID const& id, std::string const& language);

    // The language whose catalogs get_message(id) consults: that of the global
    // C++ locale (see language_of_locale_name), or of a Boost.Locale locale's
    // info facet when the global locale carries one.
    static std::string current_language();

    // The folder the catalogs are read from: DEPATTR_RESOURCES when set; empty
    // when the built-in catalogs are used.
    static std::string resources_folder();

    // Whether a catalog exists in this language (no fallback to "en"); throws
    // CatalogError when it exists but is malformed.
    static bool has_catalog(std::string const& catalog, std::string const& language);

    // Forgets every parsed catalog, so that files are read again; for tools and
    // tests that change the files or the resources folder.
    static void clear_cache();
};

// Language part of a locale name: "ja_JP.UTF-8" -> "ja", "de" -> "de". "C",
// "POSIX", "*", empty and anything that is not a language code give "en". A
// composite name ("LC_CTYPE=...;LC_MESSAGES=...") uses its LC_MESSAGES entry.
std::string language_of_locale_name(std::string const& localeName);

// UTF-16 <-> UTF-8. Ill-formed input (unpaired surrogates, invalid UTF-8
// bytes) becomes U+FFFD instead of failing.
std::string to_string(std::u16string const& text);        // UTF-16 -> UTF-8
std::u16string to_ustring(std::string const& text);       // UTF-8 -> UTF-16
std::string ustring_to_utf8(std::u16string const& text);  // same as to_string
// The byte offset of the first byte of `text` that does not begin a valid
// UTF-8 sequence (overlong forms, encoded surrogates and values beyond U+10FFFF
// are not valid), or nothing when all of it is valid.
std::optional<std::size_t> first_invalid_utf8(std::string_view text);
// Appends the UTF-8 form of one code point (a lone surrogate is encoded as it
// is).
void append_utf8(std::string& out, char32_t c);

}  // namespace fl::i18n

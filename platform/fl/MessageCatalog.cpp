#include "platform/fl/MessageCatalog.hpp"

#include "platform/fl/FileSystem.hpp"
#include "platform/fl/detail/BuiltInCatalogs.hpp"
#include "platform/fl/detail/CatalogText.hpp"
#include "platform/foundation/MessageText.hpp"
#include "platform/foundation/SourceText.hpp"

#include <boost/locale/info.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace fl::i18n {

namespace {

constexpr char const* fallbackLanguage = "en";

using Messages = detail::CatalogMessages;

// ASCII-only character tests: names and language codes are ASCII whatever the C
// locale says.
bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isAsciiLetterOrDigit(char c) {
    return isAsciiLetter(c) || (c >= '0' && c <= '9');
}

std::string lowerAscii(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

// The foundation's exceptions take their texts from these catalogs, from the
// moment this library is loaded.
[[maybe_unused]] bool const catalogsGiveExceptionTexts = [] {
    foundation::core::except::setMessageTextSource(
        [](resource_core::BaseMsgID const& id) { return MessageCatalog::get_message(id); });
    return true;
}();

std::string position(std::string_view text, std::ptrdiff_t offset) {
    auto const line =
        foundation::source::positionAt(text, static_cast<std::size_t>(std::max<std::ptrdiff_t>(offset, 0))).line;
    return "malformed at line " + std::to_string(line) + ", offset " + std::to_string(offset);
}

// "QORVEX:dependency:attribute" -> "dependency/attribute.xml": the leading
// product component names no folder; every further component is one level.
std::filesystem::path relativeCatalogFile(std::string const& catalog) {
    std::vector<std::string> components;
    std::size_t begin = 0;
    while (true) {
        std::size_t const end = catalog.find(':', begin);
        components.push_back(catalog.substr(begin, end - begin));
        if (end == std::string::npos) {
            break;
        }
        begin = end + 1;
    }
    if (components.size() > 1) {
        components.erase(components.begin());
    }
    std::filesystem::path file;
    for (auto const& component : components) {
        // Only plain names: a catalog name must never reach outside the resources
        // folder.
        bool const plain = !component.empty() && std::all_of(component.begin(), component.end(), [](char c) {
            return isAsciiLetterOrDigit(c) || c == '_' || c == '-';
        });
        if (!plain) {
            return {};
        }
        file /= component;
    }
    file += ".xml";
    return file;
}

// The text of a <message>: its character data and CDATA sections in order. An
// element inside the text is an error rather than being dropped silently.
std::u16string messageText(std::string const& file, std::string_view source, pugi::xml_node const& message,
                           std::string const& key) {
    std::string text;
    for (pugi::xml_node const& part : message.children()) {
        if (part.type() == pugi::node_pcdata || part.type() == pugi::node_cdata) {
            text += part.value();
        } else if (part.type() == pugi::node_element) {
            throw CatalogError(file, position(source, part.offset_debug()) + ": unexpected element <" + part.name() +
                                         "> inside message '" + key + "'");
        }
    }
    // A character reference to a surrogate (&#xD800;) decodes to bytes that are not UTF-8.
    if (first_invalid_utf8(text)) {
        throw CatalogError(file, position(source, message.offset_debug()) + ": message '" + key +
                                     "' refers to a character that does not exist (a lone surrogate)");
    }
    return to_ustring(text);
}

}  // namespace

std::shared_ptr<Messages const> detail::parseCatalogText(std::string const& file, std::string_view source,
                                                         std::string const& catalog) {
    // The XML reader takes text as it is: bytes that are not UTF-8, and a NUL
    // that would end its strings early, are refused here with their place.
    if (auto const nul = source.find('\0'); nul != std::string_view::npos) {
        throw CatalogError(file, position(source, static_cast<std::ptrdiff_t>(nul)) + ": a NUL byte");
    }
    if (auto const invalid = first_invalid_utf8(source)) {
        throw CatalogError(file,
                           position(source, static_cast<std::ptrdiff_t>(*invalid)) + ": the text is not valid UTF-8");
    }
    pugi::xml_document document;
    pugi::xml_parse_result const parsed =
        document.load_buffer(source.data(), source.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!parsed) {
        throw CatalogError(file, position(source, parsed.offset) + ": " + parsed.description());
    }
    pugi::xml_node const root = document.document_element();
    if (std::string(root.name()) != "catalog") {
        throw CatalogError(file, position(source, root.offset_debug()) + ": the root element must be <catalog>, not <" +
                                     root.name() + ">");
    }
    // The parser also accepts a document fragment; a catalog has exactly one root
    // element.
    for (pugi::xml_node sibling = root.next_sibling(); sibling; sibling = sibling.next_sibling()) {
        if (sibling.type() == pugi::node_element || sibling.type() == pugi::node_pcdata ||
            sibling.type() == pugi::node_cdata) {
            throw CatalogError(file,
                               position(source, sibling.offset_debug()) + ": content after the <catalog> element");
        }
    }
    if (std::string const name = root.attribute("name").value(); name != catalog) {
        throw CatalogError(file, position(source, root.offset_debug()) + ": the catalog is named '" + name +
                                     "' but the file holds catalog '" + catalog + "'");
    }
    auto messages = std::make_shared<Messages>();
    for (pugi::xml_node const& element : root.children()) {
        if (element.type() != pugi::node_element) {
            continue;  // comments and processing instructions
        }
        if (std::string(element.name()) != "message") {
            throw CatalogError(file, position(source, element.offset_debug()) + ": unexpected element <" +
                                         element.name() + ">, expected <message>");
        }
        std::string const key = element.attribute("key").value();
        if (key.empty()) {
            throw CatalogError(file, position(source, element.offset_debug()) + ": <message> without a key");
        }
        if (!messages->emplace(key, messageText(file, source, element, key)).second) {
            throw CatalogError(file,
                               position(source, element.offset_debug()) + ": message key '" + key + "' appears twice");
        }
    }
    return messages;
}

namespace {

std::optional<std::string_view> builtInText(std::string const& relative) {
    auto const files = detail::builtInCatalogFiles();
    auto const found = std::lower_bound(files.begin(), files.end(), relative,
                                        [](auto const& file, std::string const& path) { return file.path < path; });
    if (found == files.end() || found->path != relative) {
        return std::nullopt;
    }
    return found->text;
}

// Parsed catalogs by where they came from (a file path, or "built-in " and the
// relative path); a catalog that does not exist is remembered as null.
class CatalogCache {
public:
    std::shared_ptr<Messages const> fromFile(std::string const& file, std::string const& catalog) {
        return get(file, [&]() -> std::shared_ptr<Messages const> {
            std::string text;
            try {
                text = filesystem::read_file(file, maxCatalogFileBytes);
            } catch (filesystem::FileSystemError const& error) {
                if (error.errorNumber() == ENOENT) {
                    return nullptr;  // no catalog of this language
                }
                throw CatalogError(file, "cannot be read: " + error.reason());
            }
            return detail::parseCatalogText(file, text, catalog);
        });
    }

    std::shared_ptr<Messages const> builtIn(std::string const& name, std::string const& relative,
                                            std::string const& catalog) {
        return get(name, [&]() -> std::shared_ptr<Messages const> {
            auto const text = builtInText(relative);
            return text ? detail::parseCatalogText(name, *text, catalog) : nullptr;
        });
    }

    void clear() {
        std::lock_guard const lock(mutex_);
        catalogs_.clear();
    }

private:
    template <class Load>
    std::shared_ptr<Messages const> get(std::string const& source, Load const& load) {
        std::lock_guard const lock(mutex_);
        if (auto const found = catalogs_.find(source); found != catalogs_.end()) {
            return found->second;
        }
        auto messages = load();  // parse errors are not cached: the next call reports again
        catalogs_.emplace(source, messages);
        return messages;
    }

    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Messages const>> catalogs_;
};

CatalogCache& cache() {
    static CatalogCache instance;
    return instance;
}

std::u16string argumentText(resource_core::MessageArgument const& argument) {
    switch (argument.index()) {
    case 0:
        return to_ustring(std::to_string(std::get<0>(argument)));
    case 1:
        return to_ustring(std::get<1>(argument));
    default:
        return std::get<2>(argument);
    }
}

// Replaces each {n} whose n names an argument by that argument's text. Any
// other brace is ordinary text, so texts need no escaping.
std::u16string fillPlaceholders(std::u16string const& text, std::vector<resource_core::MessageArgument> const& args) {
    std::u16string out;
    out.reserve(text.size());
    std::size_t pos = 0;
    while (pos < text.size()) {
        if (text[pos] == u'{') {
            std::size_t end = pos + 1;
            std::size_t index = 0;
            while (end < text.size() && text[end] >= u'0' && text[end] <= u'9' && end - pos <= 4) {
                index = index * 10 + static_cast<std::size_t>(text[end] - u'0');
                ++end;
            }
            if (end > pos + 1 && end < text.size() && text[end] == u'}' && index < args.size()) {
                out += argumentText(args[index]);
                pos = end + 1;
                continue;
            }
        }
        out.push_back(text[pos++]);
    }
    return out;
}

// The catalog of one language: from the DEPATTR_RESOURCES folder when that is
// set (it replaces the built-in texts), else the one built into the library.
// `searched` collects where it was looked for.
std::shared_ptr<Messages const> catalogFor(std::string const& language, std::string const& catalog,
                                           std::vector<std::string>& searched) {
    std::filesystem::path const relative = relativeCatalogFile(catalog);
    if (relative.empty()) {
        return nullptr;
    }
    std::string const relativeText = (std::filesystem::path(language) / relative).generic_string();
    std::string const folder = MessageCatalog::resources_folder();
    if (!folder.empty()) {
        std::string const file = (std::filesystem::path(folder) / relativeText).string();
        searched.push_back(file);
        return cache().fromFile(file, catalog);
    }
    std::string const name = "built-in " + relativeText;
    searched.push_back(name);
    return cache().builtIn(name, relativeText, catalog);
}

std::string joined(std::vector<std::string> const& places) {
    std::string text;
    for (auto const& place : places) {
        text += (text.empty() ? "" : ", ") + place;
    }
    return text.empty() ? "nowhere: the catalog name is not a valid file name" : text;
}

}  // namespace

MessageNotFound::MessageNotFound(std::string const& catalog, std::string const& key,
                                 std::vector<std::string> const& searched)
    : std::runtime_error("message '" + key + "' not found in catalog '" + catalog + "' (searched " + joined(searched) +
                         ")"),
      catalog_(catalog),
      key_(key) {}

CatalogError::CatalogError(std::string const& file, std::string const& detail)
    : std::runtime_error("message catalog " + file + ": " + detail), file_(file) {}

std::u16string MessageCatalog::get_message(resource_core::BaseMsgID const& id) {
    return get_message(id, current_language());
}

std::u16string MessageCatalog::get_message(resource_core::BaseMsgID const& id, std::string const& language) {
    std::string requested = lowerAscii(language);
    if (requested.empty()) {
        requested = fallbackLanguage;
    }
    // A requested language that is not a plain language code cannot name a
    // folder.
    bool const plain = std::all_of(requested.begin(), requested.end(), isAsciiLetter);
    std::vector<std::string> searched;
    if (plain && requested != fallbackLanguage) {
        if (auto const messages = catalogFor(requested, id.catalog(), searched)) {
            if (auto const found = messages->find(id.key()); found != messages->end()) {
                return fillPlaceholders(found->second, id.args());
            }
        }
    }
    if (auto const messages = catalogFor(fallbackLanguage, id.catalog(), searched)) {
        if (auto const found = messages->find(id.key()); found != messages->end()) {
            return fillPlaceholders(found->second, id.args());
        }
    }
    throw MessageNotFound(id.catalog(), id.key(), searched);
}

std::string MessageCatalog::current_language() {
    std::locale const global;
    // A locale made by Boost.Locale is named "*" by the standard library but
    // knows its language.
    if (std::has_facet<boost::locale::info>(global)) {
        std::string const language = lowerAscii(std::use_facet<boost::locale::info>(global).language());
        return language_of_locale_name(language);
    }
    return language_of_locale_name(global.name());
}

std::string MessageCatalog::resources_folder() {
    if (char const* fromEnvironment = std::getenv("DEPATTR_RESOURCES"); fromEnvironment && *fromEnvironment) {
        return fromEnvironment;
    }
    return {};
}

bool MessageCatalog::has_catalog(std::string const& catalog, std::string const& language) {
    std::vector<std::string> searched;
    return catalogFor(lowerAscii(language), catalog, searched) != nullptr;
}

void MessageCatalog::clear_cache() {
    cache().clear();
}

std::string language_of_locale_name(std::string const& localeName) {
    std::string name = localeName;
    // Composite names list each category; messages follow LC_MESSAGES.
    if (std::size_t const category = name.find("LC_MESSAGES="); category != std::string::npos) {
        std::size_t const begin = category + std::string("LC_MESSAGES=").size();
        name = name.substr(begin, name.find(';', begin) - begin);
    } else if (name.find('=') != std::string::npos) {
        return fallbackLanguage;
    }
    std::string const language = lowerAscii(name.substr(0, name.find_first_of("_.@-")));
    bool const isCode =
        (language.size() == 2 || language.size() == 3) && std::all_of(language.begin(), language.end(), isAsciiLetter);
    if (!isCode) {
        return fallbackLanguage;  // "C", "POSIX", "*", "" and the like
    }
    return language;
}

}  // namespace fl::i18n

#include "platform/fl/MessageCatalog.hpp"

#include <boost/locale/info.hpp>
#include <pugixml.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <locale>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace fl::i18n {

namespace {

constexpr char const* fallbackLanguage = "en";

using Messages = std::unordered_map<std::string, std::u16string>;

// ASCII-only character tests: names and language codes are ASCII whatever the C locale says.
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

bool isDirectory(std::filesystem::path const& path) {
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

// 1-based line of a byte offset, for error messages; 0 when the file cannot be read again.
std::size_t lineOfOffset(std::string const& file, std::ptrdiff_t offset) {
    std::ifstream in(file, std::ios::binary);
    if (!in || offset < 0) {
        return 0;
    }
    std::size_t line = 1;
    char c = 0;
    for (std::ptrdiff_t i = 0; i < offset && in.get(c); ++i) {
        line += c == '\n' ? 1 : 0;
    }
    return line;
}

std::string position(std::string const& file, std::ptrdiff_t offset) {
    return "line " + std::to_string(lineOfOffset(file, offset)) + ", offset " + std::to_string(offset);
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
        // Only plain names: a catalog name must never reach outside the resources folder.
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
std::u16string messageText(std::string const& file, pugi::xml_node const& message, std::string const& key) {
    std::string text;
    for (pugi::xml_node const& part : message.children()) {
        if (part.type() == pugi::node_pcdata || part.type() == pugi::node_cdata) {
            text += part.value();
        } else if (part.type() == pugi::node_element) {
            throw CatalogError(file, position(file, part.offset_debug()) + ": unexpected element <" + part.name() +
                                         "> inside message '" + key + "'");
        }
    }
    return to_ustring(text);
}

std::shared_ptr<Messages const> parseCatalogFile(std::string const& file, std::string const& catalog) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        throw CatalogError(file, "not a regular file");
    }
    pugi::xml_document document;
    pugi::xml_parse_result const parsed = document.load_file(file.c_str(), pugi::parse_default, pugi::encoding_utf8);
    if (!parsed) {
        throw CatalogError(file, position(file, parsed.offset) + ": " + parsed.description());
    }
    pugi::xml_node const root = document.document_element();
    if (std::string(root.name()) != "catalog") {
        throw CatalogError(file, position(file, root.offset_debug()) + ": the root element must be <catalog>, not <" +
                                     root.name() + ">");
    }
    // The parser also accepts a document fragment; a catalog has exactly one root element.
    for (pugi::xml_node sibling = root.next_sibling(); sibling; sibling = sibling.next_sibling()) {
        if (sibling.type() == pugi::node_element || sibling.type() == pugi::node_pcdata ||
            sibling.type() == pugi::node_cdata) {
            throw CatalogError(file, position(file, sibling.offset_debug()) + ": content after the <catalog> element");
        }
    }
    if (std::string const name = root.attribute("name").value(); name != catalog) {
        throw CatalogError(file, position(file, root.offset_debug()) + ": the catalog is named '" + name +
                                     "' but the file holds catalog '" + catalog + "'");
    }
    auto messages = std::make_shared<Messages>();
    for (pugi::xml_node const& element : root.children()) {
        if (element.type() != pugi::node_element) {
            continue;  // comments and processing instructions
        }
        if (std::string(element.name()) != "message") {
            throw CatalogError(file, position(file, element.offset_debug()) + ": unexpected element <" +
                                         element.name() + ">, expected <message>");
        }
        std::string const key = element.attribute("key").value();
        if (key.empty()) {
            throw CatalogError(file, position(file, element.offset_debug()) + ": <message> without a key");
        }
        if (!messages->emplace(key, messageText(file, element, key)).second) {
            throw CatalogError(file,
                               position(file, element.offset_debug()) + ": message key '" + key + "' appears twice");
        }
    }
    return messages;
}

// Parsed catalogs by file path; a file that does not exist is remembered as null.
class CatalogCache {
public:
    std::shared_ptr<Messages const> get(std::string const& file, std::string const& catalog) {
        std::lock_guard const lock(mutex_);
        if (auto const found = catalogs_.find(file); found != catalogs_.end()) {
            return found->second;
        }
        std::shared_ptr<Messages const> messages;
        std::error_code error;
        if (std::filesystem::exists(file, error)) {
            messages = parseCatalogFile(file,
                                        catalog);  // parse errors are not cached: the next call reports again
        }
        catalogs_.emplace(file, messages);
        return messages;
    }

    void clear() {
        std::lock_guard const lock(mutex_);
        catalogs_.clear();
    }

private:
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

std::shared_ptr<Messages const> catalogFor(std::string const& language, std::string const& catalog) {
    std::string const folder = MessageCatalog::resources_folder();
    std::filesystem::path const relative = relativeCatalogFile(catalog);
    if (folder.empty() || relative.empty()) {
        return nullptr;
    }
    return cache().get((std::filesystem::path(folder) / language / relative).string(), catalog);
}

}  // namespace

MessageNotFound::MessageNotFound(std::string const& catalog, std::string const& key)
    : std::runtime_error("message '" + key + "' not found in catalog '" + catalog + "'"),
      catalog_(catalog),
      key_(key) {}

CatalogError::CatalogError(std::string const& file, std::string const& detail)
    : std::runtime_error("malformed message catalog " + file + ": " + detail), file_(file) {}

std::u16string MessageCatalog::get_message(resource_core::BaseMsgID const& id) {
    return get_message(id, current_language());
}

std::u16string MessageCatalog::get_message(resource_core::BaseMsgID const& id, std::string const& language) {
    std::string requested = lowerAscii(language);
    if (requested.empty()) {
        requested = fallbackLanguage;
    }
    // A requested language that is not a plain language code cannot name a folder.
    bool const plain = std::all_of(requested.begin(), requested.end(), isAsciiLetter);
    if (plain && requested != fallbackLanguage) {
        if (auto const messages = catalogFor(requested, id.catalog())) {
            if (auto const found = messages->find(id.key()); found != messages->end()) {
                return fillPlaceholders(found->second, id.args());
            }
        }
    }
    if (auto const messages = catalogFor(fallbackLanguage, id.catalog())) {
        if (auto const found = messages->find(id.key()); found != messages->end()) {
            return fillPlaceholders(found->second, id.args());
        }
    }
    throw MessageNotFound(id.catalog(), id.key());
}

std::string MessageCatalog::current_language() {
    std::locale const global;
    // A locale made by Boost.Locale is named "*" by the standard library but knows its language.
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
#ifdef DEPATTR_INSTALLED_RESOURCES
    if (isDirectory(DEPATTR_INSTALLED_RESOURCES)) {
        return DEPATTR_INSTALLED_RESOURCES;
    }
#endif
    std::error_code error;
    std::filesystem::path const executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        for (auto const& candidate : {executable.parent_path() / ".." / "share" / "depattr" / "resources",
                                      executable.parent_path() / "resources"}) {
            if (isDirectory(candidate)) {
                return candidate.lexically_normal().string();
            }
        }
    }
    return {};
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

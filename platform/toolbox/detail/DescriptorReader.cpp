#include "platform/toolbox/detail/DescriptorReader.hpp"

#include "platform/fl/FileSystem.hpp"
#include "platform/foundation/JsonReaderErrors.hpp"
#include "platform/toolbox/ToolboxFinder.hpp"
#include "platform/toolbox/detail/PathText.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <simdjson.h>

#include <algorithm>
#include <climits>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace dependency::toolbox::detail {

namespace {

namespace ondemand = simdjson::ondemand;

// Walks one descriptor and turns every failure into a ToolboxCatalogError with
// the file name and, where the text is known, the 1-based line and column.
class DescriptorParser {
public:
    DescriptorParser(std::filesystem::path const& file, simdjson::padded_string const& text)
        : fileName_(file.string()), text_(text) {}

    [[noreturn]] void fail(char const* at, std::string const& reason) const {
        foundation::source::SourcePosition where;
        std::string_view const whole(text_.data(), text_.size());
        if (at != nullptr && at >= whole.data() && at <= whole.data() + whole.size()) {
            where = foundation::source::positionAt(whole, static_cast<std::size_t>(at - whole.data()));
        }
        throw ToolboxCatalogError(fileName_, where, reason);
    }

    [[noreturn]] void failJson(simdjson::error_code error, char const* at) const {
        fail(at, std::string("malformed JSON: ") + foundation::json::describeReaderError(error));
    }

    // The first byte of `value` in the text, for error positions.
    static char const* where(ondemand::value& value) {
        std::string_view const token = value.raw_json_token();
        return token.data();
    }

    char const* documentLocation(ondemand::document& document) const {
        char const* at = nullptr;
        if (document.current_location().get(at) != simdjson::SUCCESS) {
            return nullptr;
        }
        return at;
    }

    std::u16string readString(ondemand::value& value, std::string_view key) const {
        std::string_view text;
        if (auto error = value.get_string().get(text)) {
            if (error != simdjson::INCORRECT_TYPE) {
                failJson(error, where(value));
            }
            fail(where(value), "\"" + std::string(key) + "\" must be a string");
        }
        return boost::locale::conv::utf_to_utf<char16_t>(text.data(), text.data() + text.size());
    }

    std::u16string readNonEmptyString(ondemand::value& value, std::string_view key) const {
        char const* at = where(value);
        std::u16string text = readString(value, key);
        if (text.empty()) {
            fail(at, "\"" + std::string(key) + "\" must not be empty");
        }
        return text;
    }

    int readKind(ondemand::value& value) const {
        char const* at = where(value);
        std::int64_t number = 0;
        if (value.get_int64().get(number) != simdjson::SUCCESS) {
            fail(at, "\"kind\" must be an integer");
        }
        if (number < INT_MIN || number > INT_MAX) {
            fail(at, "\"kind\" is out of range");
        }
        return static_cast<int>(number);
    }

    bool readInstalled(ondemand::value& value) const {
        bool installed = false;
        if (value.get_bool().get(installed) != simdjson::SUCCESS) {
            fail(where(value), "\"installed\" must be true or false");
        }
        return installed;
    }

    std::vector<std::u16string> readLocators(ondemand::value& value) const {
        char const* at = where(value);
        ondemand::array array;
        if (value.get_array().get(array) != simdjson::SUCCESS) {
            fail(at, "\"locators\" must be an array of strings");
        }
        std::vector<std::u16string> locators;
        for (auto element : array) {
            ondemand::value item;
            if (auto error = std::move(element).get(item)) {
                failJson(error, at);
            }
            char const* itemAt = where(item);
            std::string_view text;
            if (auto error = item.get_string().get(text); error && error != simdjson::INCORRECT_TYPE) {
                failJson(error, itemAt);
            }
            if (text.empty()) {
                fail(itemAt, "every entry of \"locators\" must be a non-empty string");
            }
            locators.push_back(boost::locale::conv::utf_to_utf<char16_t>(text.data(), text.data() + text.size()));
        }
        return locators;
    }

    std::shared_ptr<ProductInfo> parse(ondemand::parser& parser, std::filesystem::path const& absoluteRoot) {
        ondemand::document document;
        if (auto error = parser.iterate(text_).get(document)) {
            failJson(error, foundation::json::locateReaderError(error, {text_.data(), text_.size()}));
        }
        ondemand::object object;
        if (auto error = document.get_object().get(object)) {
            fail(documentLocation(document),
                 error == simdjson::INCORRECT_TYPE
                     ? "a product descriptor must be a JSON object"
                     : std::string("malformed JSON: ") + foundation::json::describeReaderError(error));
        }

        std::optional<std::u16string> name;
        std::optional<std::u16string> baseCode;
        std::optional<int> kind;
        std::optional<bool> installed;
        std::optional<std::u16string> versionFolder;
        char const* versionFolderAt = nullptr;
        std::vector<std::u16string> locators;
        std::set<std::string, std::less<>> seen;

        for (auto fieldResult : object) {
            ondemand::field field;
            if (auto error = std::move(fieldResult).get(field)) {
                failJson(error, documentLocation(document));
            }
            char const* keyAt = field.key().raw() - 1;  // raw() starts after the opening quote
            std::string_view key;
            if (auto error = field.unescaped_key().get(key)) {
                failJson(error, keyAt);
            }
            std::string const keyText(key);
            if (!seen.insert(keyText).second) {
                fail(keyAt, "duplicate key \"" + keyText + "\"");
            }
            ondemand::value value = field.value();
            if (keyText == "name") {
                name = readNonEmptyString(value, keyText);
            } else if (keyText == "baseCode") {
                baseCode = readNonEmptyString(value, keyText);
            } else if (keyText == "kind") {
                kind = readKind(value);
            } else if (keyText == "installed") {
                installed = readInstalled(value);
            } else if (keyText == "versionFolder") {
                versionFolderAt = where(value);
                versionFolder = readString(value, keyText);
            } else if (keyText == "locators") {
                locators = readLocators(value);
            } else {
                fail(keyAt, "unknown key \"" + keyText + "\"");
            }
        }
        // Past the closing brace the document must be exhausted: simdjson reports a
        // location only while there is still text to read.
        if (char const* trailing = documentLocation(document)) {
            fail(trailing, "unexpected text after the descriptor object");
        }

        char const* const objectStart = text_.data();
        for (auto const& [present, key] : {std::pair{name.has_value(), "name"},
                                           {baseCode.has_value(), "baseCode"},
                                           {kind.has_value(), "kind"},
                                           {installed.has_value(), "installed"}}) {
            if (!present) {
                fail(firstNonSpace(objectStart), std::string("missing key \"") + key + "\"");
            }
        }
        if (*installed && (!versionFolder || versionFolder->empty())) {
            fail(versionFolder ? versionFolderAt : firstNonSpace(objectStart),
                 "an installed product needs a non-empty \"versionFolder\"");
        }

        std::u16string verDir;
        if (versionFolder && !versionFolder->empty()) {
            std::filesystem::path folder = toPath(*versionFolder);
            if (folder.is_relative()) {
                folder = absoluteRoot / folder;
            }
            verDir = toText(normalizedAbsolute(folder));
        }
        return std::make_shared<ProductInfo>(std::move(*name), std::move(*baseCode), *kind, *installed,
                                             std::move(verDir), std::move(locators));
    }

private:
    char const* firstNonSpace(char const* from) const {
        char const* end = text_.data() + text_.size();
        while (from < end && (*from == ' ' || *from == '\t' || *from == '\n' || *from == '\r')) {
            ++from;
        }
        return from;
    }

    std::string fileName_;
    simdjson::padded_string const& text_;
};

}  // namespace

std::shared_ptr<ProductInfo> readProductDescriptor(std::filesystem::path const& file,
                                                   std::filesystem::path const& absoluteRoot) {
    std::string text;
    try {
        text = fl::filesystem::read_file(file.string(), maxDescriptorBytes);
    } catch (fl::filesystem::FileSystemError const& error) {
        throw ToolboxCatalogError(file.string(), 0, 0, "cannot read the descriptor: " + error.reason());
    }
    return parseProductDescriptor(text, file, absoluteRoot);
}

std::shared_ptr<ProductInfo> parseProductDescriptor(std::string_view text, std::filesystem::path const& file,
                                                    std::filesystem::path const& absoluteRoot) {
    simdjson::padded_string const padded(text);
    ondemand::parser parser;
    return DescriptorParser(file, padded).parse(parser, absoluteRoot);
}

}  // namespace dependency::toolbox::detail

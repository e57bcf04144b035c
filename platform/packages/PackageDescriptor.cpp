#include "platform/packages/PackageDescriptor.hpp"

#include "platform/foundation/JsonReaderErrors.hpp"

#include <boost/lexical_cast.hpp>
#include <boost/locale/encoding_utf.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <simdjson.h>

#include <algorithm>
#include <optional>
#include <set>

namespace foundation::packages {

namespace {

namespace ondemand = simdjson::ondemand;

std::u16string utf16(std::string_view text) {
    return boost::locale::conv::utf_to_utf<char16_t>(text.data(), text.data() + text.size());
}

// Walks one definition and turns every failure into a PackageDefinitionError
// with the file's name and, where the text is known, the 1-based line and column.
class DefinitionParser {
public:
    DefinitionParser(std::string fileName, simdjson::padded_string const& text)
        : fileName_(std::move(fileName)), text_(text) {}

    std::shared_ptr<PackageDescriptor const> parse() {
        ondemand::parser parser;
        ondemand::document document;
        if (auto error = parser.iterate(text_).get(document)) {
            failJson(error, foundation::json::locateReaderError(error, {text_.data(), text_.size()}));
        }
        ondemand::object object;
        if (auto error = document.get_object().get(object)) {
            fail(location(document),
                 error == simdjson::INCORRECT_TYPE
                     ? "a package definition must be a JSON object"
                     : std::string("malformed JSON: ") + foundation::json::describeReaderError(error));
        }

        std::optional<std::u16string> name;
        std::optional<boost::uuids::uuid> id;
        std::optional<std::u16string> version;
        std::vector<ComponentRangeIdentifier> dependencies;
        std::set<std::string, std::less<>> seen;
        for (auto fieldResult : object) {
            ondemand::field field;
            if (auto error = std::move(fieldResult).get(field)) {
                failJson(error, location(document));
            }
            auto [key, keyAt] = readKey(field, seen);
            ondemand::value value = field.value();
            if (key == "name") {
                name = readNonEmptyString(value, "\"name\"");
            } else if (key == "id") {
                id = readUuid(value, "\"id\"");
            } else if (key == "version") {
                version = readNonEmptyString(value, "\"version\"");
            } else if (key == "dependencies") {
                dependencies = readDependencies(value);
            } else {
                fail(keyAt, "unknown key \"" + key + "\"");
            }
        }
        // Past the closing brace the document must be exhausted: simdjson reports a
        // location only while there is still text to read.
        if (char const* trailing = location(document)) {
            fail(trailing, "unexpected text after the definition");
        }
        if (!name || !id || !version) {
            fail(firstNonSpace(), std::string("missing key \"") + (!name ? "name" : !id ? "id" : "version") + "\"");
        }
        return std::make_shared<PackageDescriptor const>(std::move(*name), *id, std::move(*version),
                                                         std::move(dependencies));
    }

private:
    [[noreturn]] void fail(char const* at, std::string const& reason) const {
        foundation::source::SourcePosition where;
        std::string_view const whole(text_.data(), text_.size());
        if (at != nullptr && at >= whole.data() && at <= whole.data() + whole.size()) {
            where = foundation::source::positionAt(whole, static_cast<std::size_t>(at - whole.data()));
        }
        throw PackageDefinitionError(fileName_, where, reason);
    }

    [[noreturn]] void failJson(simdjson::error_code error, char const* at) const {
        fail(at, std::string("malformed JSON: ") + foundation::json::describeReaderError(error));
    }

    static char const* where(ondemand::value& value) { return value.raw_json_token().data(); }

    static char const* location(ondemand::document& document) {
        char const* at = nullptr;
        return document.current_location().get(at) == simdjson::SUCCESS ? at : nullptr;
    }

    char const* firstNonSpace() const {
        char const* at = text_.data();
        char const* end = at + text_.size();
        while (at < end && (*at == ' ' || *at == '\t' || *at == '\n' || *at == '\r')) {
            ++at;
        }
        return at;
    }

    std::pair<std::string, char const*> readKey(ondemand::field& field, std::set<std::string, std::less<>>& seen) {
        char const* keyAt = field.key().raw() - 1;  // raw() starts after the opening quote
        std::string_view key;
        if (auto error = field.unescaped_key().get(key)) {
            failJson(error, keyAt);
        }
        std::string keyText(key);
        if (!seen.insert(keyText).second) {
            fail(keyAt, "duplicate key \"" + keyText + "\"");
        }
        return {std::move(keyText), keyAt};
    }

    std::u16string readNonEmptyString(ondemand::value& value, std::string const& what) const {
        char const* at = where(value);
        std::string_view text;
        if (auto error = value.get_string().get(text); error && error != simdjson::INCORRECT_TYPE) {
            failJson(error, at);
        }
        if (text.empty()) {
            fail(at, what + " must be a non-empty string");
        }
        return utf16(text);
    }

    boost::uuids::uuid readUuid(ondemand::value& value, std::string const& what) const {
        char const* at = where(value);
        std::string_view text;
        if (auto error = value.get_string().get(text)) {
            if (error != simdjson::INCORRECT_TYPE) {
                failJson(error, at);
            }
            fail(at, what + " must be a UUID string");
        }
        boost::uuids::uuid id;
        if (!boost::conversion::try_lexical_convert(std::string(text), id)) {
            fail(at, what + " is not a UUID (expected the form xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx): \"" +
                         std::string(text) + "\"");
        }
        return id;
    }

    std::vector<ComponentRangeIdentifier> readDependencies(ondemand::value& value) {
        char const* at = where(value);
        ondemand::array array;
        if (value.get_array().get(array) != simdjson::SUCCESS) {
            fail(at, "\"dependencies\" must be an array of objects");
        }
        std::vector<ComponentRangeIdentifier> dependencies;
        for (auto element : array) {
            ondemand::value item;
            if (auto error = std::move(element).get(item)) {
                failJson(error, at);
            }
            dependencies.push_back(readDependency(item));
        }
        return dependencies;
    }

    ComponentRangeIdentifier readDependency(ondemand::value& value) {
        char const* at = where(value);
        ondemand::object object;
        if (value.get_object().get(object) != simdjson::SUCCESS) {
            fail(at, "each dependency must be an object with \"name\" and \"id\"");
        }
        std::optional<std::u16string> name;
        std::optional<boost::uuids::uuid> id;
        std::set<std::string, std::less<>> seen;
        for (auto fieldResult : object) {
            ondemand::field field;
            if (auto error = std::move(fieldResult).get(field)) {
                failJson(error, at);
            }
            auto [key, keyAt] = readKey(field, seen);
            ondemand::value fieldValue = field.value();
            if (key == "name") {
                name = readNonEmptyString(fieldValue, "a dependency's \"name\"");
            } else if (key == "id") {
                id = readUuid(fieldValue, "a dependency's \"id\"");
            } else {
                fail(keyAt, "unknown key \"" + key + "\" in a dependency");
            }
        }
        if (!name || !id) {
            fail(at, std::string("a dependency is missing \"") + (!name ? "name" : "id") + "\"");
        }
        return ComponentRangeIdentifier(std::move(*name), *id);
    }

    std::string fileName_;
    simdjson::padded_string const& text_;
};

}  // namespace

ComponentRangeIdentifier::ComponentRangeIdentifier(std::u16string name, boost::uuids::uuid const& uniqueId)
    : name_(std::move(name)), uniqueId_(uniqueId) {}

PackageDescriptor::PackageDescriptor(std::u16string name, boost::uuids::uuid const& uniqueId, std::u16string version,
                                     std::vector<ComponentRangeIdentifier> dependencies)
    : name_(std::move(name)),
      uniqueId_(uniqueId),
      version_(std::move(version)),
      dependencies_(std::move(dependencies)) {}

PackageDescriptorResult::PackageDescriptorResult(std::shared_ptr<PackageDescriptor const> descriptor)
    : descriptor_(std::move(descriptor)) {
    if (!descriptor_) {
        throw std::invalid_argument("a package descriptor result needs a descriptor or a failure");
    }
}

PackageDescriptorResult::PackageDescriptorResult(std::exception_ptr failure) : failure_(std::move(failure)) {
    if (!failure_) {
        throw std::invalid_argument("a package descriptor result needs a descriptor or a failure");
    }
}

PackageDescriptor const& PackageDescriptorResult::descriptor() const {
    if (!descriptor_) {
        std::rethrow_exception(failure_);
    }
    return *descriptor_;
}

PackageDescriptorResult PackageDescriptorFactory::create(foundation::storage::vfs::File const& definition,
                                                         int options) const {
    if (options != 0) {
        throw std::invalid_argument("package descriptor options must be 0, got " + std::to_string(options));
    }
    std::string const fileName = definition.displayName();
    try {
        std::string content;
        try {
            content = definition.readAll(maxPackageDefinitionBytes);
        } catch (foundation::storage::vfs::StorageError const& failure) {
            throw PackageDefinitionError(fileName, 0, 0,
                                         std::string("cannot read the package definition: ") + failure.reason());
        }
        return PackageDescriptorResult(parsePackageDefinition(content, fileName));
    } catch (PackageDefinitionError const&) {
        return PackageDescriptorResult(std::current_exception());
    }
}

std::shared_ptr<PackageDescriptor const> parsePackageDefinition(std::string_view text, std::string const& fileName) {
    simdjson::padded_string const padded(text);
    return DefinitionParser(fileName, padded).parse();
}

PackageDescriptorFactory const& GetPackageDescriptorFactory() {
    static PackageDescriptorFactory const factory;
    return factory;
}

}  // namespace foundation::packages

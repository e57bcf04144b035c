#include "cli/Baseline.hpp"

#include "cli/Output.hpp"
#include "cli/Report.hpp"
#include "platform/fl/FileSystem.hpp"
#include "platform/fl/MessageCatalog.hpp"
#include "platform/foundation/JsonReaderErrors.hpp"

#include <fmt/compile.h>
#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace depattr::cli {

namespace {

namespace od = simdjson::ondemand;

constexpr std::u16string_view argumentMark = u"\uE000";

// One byte into an FNV-1a hash.
constexpr std::uint64_t fnv1aStep(std::uint64_t hash, unsigned char byte) noexcept {
    return (hash ^ byte) * 0x100000001b3ULL;
}

std::uint64_t fnv1a(std::uint64_t hash, std::string_view bytes) {
    for (char const c : bytes) {
        hash = fnv1aStep(hash, static_cast<unsigned char>(c));
    }
    return hash;
}

// fnv1a of the UTF-8 form of `text`: an ASCII text (nearly every one) is
// hashed as it stands, without converting it.
std::uint64_t fnv1aOfUtf8(std::uint64_t hash, std::u16string const& text) {
    if (std::any_of(text.begin(), text.end(), [](char16_t unit) { return unit >= 0x80; })) {
        return fnv1a(hash, toUtf8(text));
    }
    for (char16_t const unit : text) {
        hash = fnv1aStep(hash, static_cast<unsigned char>(unit));
    }
    return hash;
}

// A built-in name in the current language, split around its one argument.
struct NameTemplate {
    std::u16string before;
    std::u16string after;
    bool hasArgument = false;
};

NameTemplate localTemplate(FindingKind const& kind, std::string const& language) {
    auto const text = fl::i18n::MessageCatalog::get_message(
        resource_core::BaseMsgID("QORVEX:dependency:attribute", std::string(kind.messageKey),
                                 {std::u16string(argumentMark)}),
        language);
    auto const mark = text.find(argumentMark);
    if (mark == std::u16string::npos) {
        return {text, {}, false};
    }
    return {text.substr(0, mark), text.substr(mark + argumentMark.size()), true};
}

}  // namespace

std::uint64_t fingerprintValueOf(std::u16string const& nodeId, std::u16string const& findingId,
                                 std::string const& englishName) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    hash = fnv1aOfUtf8(hash, nodeId);
    hash = fnv1a(hash, std::string_view("\0", 1));
    hash = fnv1aOfUtf8(hash, findingId);
    hash = fnv1a(hash, std::string_view("\0", 1));
    hash = fnv1a(hash, englishName);
    return hash;
}

std::uint64_t fingerprintValueOf(std::uint64_t shared, std::string_view details, std::size_t ordinal) {
    std::uint64_t hash = fnv1a(0xcbf29ce484222325ULL, fingerprintText(shared));
    hash = fnv1a(hash, std::string_view("\0", 1));
    hash = fnv1a(hash, details);
    hash = fnv1a(hash, std::string_view("\0", 1));
    return fnv1a(hash, std::to_string(ordinal));
}

std::string fingerprintText(std::uint64_t fingerprint) {
    return fmt::format(FMT_COMPILE("{:016x}"), fingerprint);
}

std::string fingerprintOf(std::u16string const& nodeId, std::u16string const& findingId,
                          std::string const& englishName) {
    return fingerprintText(fingerprintValueOf(nodeId, findingId, englishName));
}

std::string englishNameOf(FindingKind const* kind, std::u16string const& name) {
    std::string const language = fl::i18n::MessageCatalog::current_language();
    if (kind == nullptr || language == "en") {
        return toUtf8(name);
    }
    static std::mutex mutex;
    static std::unordered_map<std::string, NameTemplate> templates;
    NameTemplate local;
    {
        std::lock_guard const lock(mutex);
        auto const key = language + "/" + std::string(kind->messageKey);
        auto found = templates.find(key);
        if (found == templates.end()) {
            found = templates.emplace(key, localTemplate(*kind, language)).first;
        }
        local = found->second;
    }
    auto const english = [&](std::vector<resource_core::MessageArgument> args) {
        return toUtf8(fl::i18n::MessageCatalog::get_message(
            resource_core::BaseMsgID("QORVEX:dependency:attribute", std::string(kind->messageKey), std::move(args)),
            "en"));
    };
    if (!local.hasArgument) {
        return name == local.before ? english({}) : toUtf8(name);
    }
    if (name.size() >= local.before.size() + local.after.size() && name.starts_with(local.before) &&
        name.ends_with(local.after)) {
        auto const argument = name.substr(local.before.size(), name.size() - local.before.size() - local.after.size());
        return english({argument});
    }
    return toUtf8(name);
}

namespace {

// Why a JSON text ends early, when it does: inside a string, or with brackets
// left open.
std::optional<std::string> endsEarly(std::string_view text) {
    std::size_t depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    if (inString) {
        return "the file ends early, inside a string (was it cut short?)";
    }
    if (depth > 0) {
        return "the file ends early, with " + std::to_string(depth) + (depth == 1 ? " bracket" : " brackets") +
               " not closed (was it cut short?)";
    }
    return std::nullopt;
}

}  // namespace

Baseline Baseline::read(std::filesystem::path const& file) {
    std::string text;
    try {
        text = fl::filesystem::read_file(file.string(), maxBaselineBytes);
    } catch (fl::filesystem::FileSystemError const& error) {
        throw BaselineError(file.string(), "cannot read the baseline: " + error.reason());
    }
    return parse(text, file);
}

Baseline Baseline::parse(std::string_view source, std::filesystem::path const& file) {
    simdjson::padded_string const content(source);
    std::string_view const text(content.data(), content.size());
    auto const fail = [&](char const* where, std::string const& reason) -> BaselineError {
        return BaselineError(file.string(),
                             where ? foundation::source::positionAt(text, static_cast<std::size_t>(where - text.data()))
                                   : foundation::source::SourcePosition{},
                             reason);
    };
    // A baseline cut short (a full disk, an interrupted copy) is told as
    // such, at its end, rather than as whatever the reader stumbles on.
    if (auto const reason = endsEarly(text)) {
        throw fail(text.data() + text.size(), *reason);
    }
    Baseline baseline;
    baseline.file_ = file;
    od::parser parser;
    od::document document;
    od::object top;
    if (auto const error = parser.iterate(content).get(document)) {
        throw fail(foundation::json::locateReaderError(error, text),
                   std::string("malformed JSON: ") + foundation::json::describeReaderError(error));
    }
    if (document.get_object().get(top) != simdjson::SUCCESS) {
        throw fail(nullptr, "not a baseline written by depattr --write-baseline (expected a JSON object)");
    }
    bool sawFindings = false;
    auto const malformed = [&](char const* where) {
        return fail(where,
                    "malformed baseline: expected {\"depattrBaseline\": 1, \"findings\": [{\"fingerprint\": "
                    "\"...\", ...}, ...]}");
    };
    for (auto fieldResult : top) {
        od::field field;
        std::string_view key;
        if (std::move(fieldResult).get(field) != simdjson::SUCCESS || field.unescaped_key().get(key)) {
            throw malformed(nullptr);
        }
        od::value value = field.value();
        char const* const where = value.raw_json_token().data();
        if (key == "depattrBaseline") {
            std::uint64_t version = 0;
            if (value.get_uint64().get(version) != simdjson::SUCCESS || version != 1) {
                throw fail(where, "unsupported baseline version (expected 1)");
            }
        } else if (key == "findings") {
            od::array findings;
            if (value.get_array().get(findings) != simdjson::SUCCESS) {
                throw malformed(where);
            }
            for (auto entryResult : findings) {
                od::value entry;
                od::object object;
                if (std::move(entryResult).get(entry) != simdjson::SUCCESS) {
                    throw malformed(nullptr);
                }
                char const* const entryStart = entry.raw_json_token().data();
                if (entry.get_object().get(object) != simdjson::SUCCESS) {
                    throw malformed(entryStart);
                }
                std::string_view fingerprint;
                if (object.find_field_unordered("fingerprint").get_string().get(fingerprint) != simdjson::SUCCESS ||
                    fingerprint.size() != 16) {
                    throw fail(entryStart, "a baseline entry needs a \"fingerprint\" of 16 hexadecimal digits");
                }
                ++baseline.remaining_[std::string(fingerprint)];
            }
            sawFindings = true;
        }
    }
    if (!sawFindings) {
        throw malformed(nullptr);
    }
    return baseline;
}

void Baseline::write(std::filesystem::path const& file, Report const& report, bool onlyHidden) {
    std::string out = "{\n  \"depattrBaseline\": 1,\n  \"findings\": [";
    bool first = true;
    for (auto const& entry : report.nodes) {
        for (auto const& finding : entry.findings) {
            if (onlyHidden && !finding.suppressed) {
                continue;
            }
            out += first ? "\n" : ",\n";
            first = false;
            out += fmt::format("    {{\"fingerprint\": {}, \"node\": {}, \"id\": {}, \"name\": {}}}",
                               jsonString(fingerprintText(finding.fingerprint)),
                               jsonString(toUtf8(entry.node->getID())), jsonString(toUtf8(finding.attribute->getID())),
                               jsonString(englishNameOf(finding.kind, finding.attribute->getName())));
        }
    }
    out += first ? "]\n}\n" : "\n  ]\n}\n";
    try {
        writeFile(file, out);
    } catch (OutputError const& error) {
        throw BaselineError::unwritable(file.string(), error.what());
    }
}

std::size_t Baseline::stale() const {
    std::size_t count = 0;
    for (auto const& [fingerprint, remaining] : remaining_) {
        count += remaining;
    }
    return count;
}

bool Baseline::take(std::string const& fingerprint) {
    auto const found = remaining_.find(fingerprint);
    if (found == remaining_.end() || found->second == 0) {
        return false;
    }
    --found->second;
    return true;
}

}  // namespace depattr::cli

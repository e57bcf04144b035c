#include "cli/Config.hpp"

#include "cli/AnalyzerCatalog.hpp"
#include "platform/fl/FileSystem.hpp"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <fnmatch.h>

namespace depattr::cli {

using dependency::attribute::Severity;

namespace {

// The TOML reader's description of an error, without the name of its own
// setting that some descriptions end with ("... depth of 256 (TOML_MAX_NESTED_VALUES)").
std::string ownWords(std::string_view description) {
    if (auto const setting = description.find(" (TOML_"); setting != std::string_view::npos) {
        description = description.substr(0, setting);
    }
    return std::string(description);
}

// What is wrong with a glob of per-path-ignores, empty when nothing is. The
// matcher would take an unclosed '[' or a trailing '\\' literally and an
// unknown character class as matching nothing, so that the ignore silently
// never applies; those are mistakes the user is told about instead.
std::string globMistake(std::string_view glob) {
    if (glob.empty()) {
        return "it is empty";
    }
    static constexpr std::array<std::string_view, 12> classes{"alnum", "alpha", "blank", "cntrl", "digit", "graph",
                                                              "lower", "print", "punct", "space", "upper", "xdigit"};
    for (std::size_t at = 0; at < glob.size(); ++at) {
        if (glob[at] == '\\') {
            if (++at == glob.size()) {
                return "it ends with a lone '\\'";
            }
            continue;
        }
        if (glob[at] != '[') {
            continue;
        }
        std::size_t const open = at++;
        if (at < glob.size() && (glob[at] == '!' || glob[at] == '^')) {
            ++at;
        }
        if (at < glob.size() && glob[at] == ']') {
            ++at;  // a ']' first in the set is one of its characters
        }
        while (at < glob.size() && glob[at] != ']') {
            if (glob.substr(at).starts_with("[:")) {
                auto const end = glob.find(":]", at + 2);
                if (end == std::string_view::npos) {
                    return "the '[' at character " + std::to_string(open + 1) + " is not closed by ']'";
                }
                auto const name = glob.substr(at + 2, end - at - 2);
                if (std::find(classes.begin(), classes.end(), name) == classes.end()) {
                    return "unknown character class \"[:" + std::string(name) + ":]\"";
                }
                at = end + 2;
                continue;
            }
            ++at;
        }
        if (at == glob.size()) {
            return "the '[' at character " + std::to_string(open + 1) + " is not closed by ']'";
        }
    }
    return {};
}

// Reads one file's table, failing at the place of each problem.
class ConfigReader {
public:
    ConfigReader(std::filesystem::path file, bool keepUnknownNames)
        : file_(std::move(file)), keepUnknownNames_(keepUnknownNames) {}

    ConfigFile read() {
        std::string text;
        try {
            text = fl::filesystem::read_file(file_.string(), maxConfigFileBytes);
        } catch (fl::filesystem::FileSystemError const& error) {
            throw ConfigError(file_, 0, 0, "cannot read the configuration file: " + error.reason());
        }
        return parse(text);
    }

    ConfigFile parse(std::string_view text) {
        toml::table table;
        try {
            table = toml::parse(text, file_.string());
        } catch (toml::parse_error const& error) {
            auto const& where = error.source().begin;
            throw ConfigError(file_, where.line, where.column, ownWords(error.description()));
        }
        ConfigFile config;
        config.file = file_;
        auto const folder = std::filesystem::absolute(file_).parent_path();
        for (auto&& [key, node] : table) {
            std::string_view const name = key.str();
            // An empty list would select nothing, yet reads as "all" once
            // merged; it is refused so that neither is assumed.
            if ((name == "analyzers" || name == "select") && node.is_array() && node.as_array()->empty()) {
                fail(node, "\"" + std::string(name) +
                               "\" is an empty list, which selects nothing; leave the key out to select all");
            }
            if (name == "analyzers") {
                config.analyzers = strings(node, name);
                for (std::size_t i = 0; i < config.analyzers->size(); ++i) {
                    if (findAnalyzer((*config.analyzers)[i]) == nullptr) {
                        unresolved(config, *node.as_array()->get(i), (*config.analyzers)[i], true,
                                   "unknown analyzer \"" + (*config.analyzers)[i] + "\"");
                    }
                }
            } else if (name == "select" || name == "ignore") {
                auto ids = strings(node, name);
                for (std::size_t i = 0; i < ids.size(); ++i) {
                    if (!isKnownFindingSelector(ids[i])) {
                        unresolved(config, *node.as_array()->get(i), ids[i], false,
                                   "unknown finding ID \"" + ids[i] + "\" (known: " + knownFindingIds() + ")");
                    }
                }
                (name == "select" ? config.select.emplace() : config.ignore) = std::move(ids);
            } else if (name == "fail-on" || name == "min-severity") {
                auto const severity = parseSeverity(string(node, name));
                if (!severity) {
                    fail(node, "\"" + std::string(name) + "\" must be \"information\", \"warning\" or \"problem\"");
                }
                (name == "fail-on" ? config.failOn : config.minimum) = *severity;
            } else if (name == "install-root") {
                config.installRoot = existingFolder(node, folder / string(node, name));
            } else if (name == "analyzer-paths") {
                auto const paths = strings(node, name);
                for (std::size_t i = 0; i < paths.size(); ++i) {
                    config.analyzerPaths.push_back(existingFolder(*node.as_array()->get(i), folder / paths[i]));
                }
            } else if (name == "per-path-ignores") {
                config.pathIgnores = pathIgnores(config, node, folder);
            } else if (name == "scan") {
                config.scan = scanTable(node, folder);
            } else {
                throw ConfigError(file_, key.source().begin.line, key.source().begin.column,
                                  "unknown key \"" + std::string(name) +
                                      "\" (known: analyzers, select, ignore, fail-on, min-severity, install-root, "
                                      "analyzer-paths, per-path-ignores, scan)");
            }
        }
        return config;
    }

private:
    // A name the built-in analyzers do not know may be a host-language
    // analyzer's, known only once those are loaded: its error waits until then.
    void unresolved(ConfigFile& config, toml::node const& node, std::string const& name, bool isAnalyzer,
                    std::string const& reason) const {
        if (!keepUnknownNames_) {
            fail(node, reason);
        }
        auto const& where = node.source().begin;
        config.unresolved.push_back(
            {name, isAnalyzer, std::make_exception_ptr(ConfigError(file_, where.line, where.column, reason))});
    }

    [[noreturn]] void fail(toml::node const& node, std::string const& reason) const {
        throw ConfigError(file_, node.source().begin.line, node.source().begin.column, reason);
    }

    std::string string(toml::node const& node, std::string_view name) const {
        auto const value = node.value<std::string>();
        if (!value || !node.is_string()) {
            fail(node, "\"" + std::string(name) + "\" must be a string");
        }
        return *value;
    }

    std::vector<std::string> strings(toml::node const& node, std::string_view name) const {
        auto const* array = node.as_array();
        if (array == nullptr) {
            fail(node, "\"" + std::string(name) + "\" must be an array of strings");
        }
        std::vector<std::string> values;
        for (auto const& element : *array) {
            if (!element.is_string()) {
                fail(element, "\"" + std::string(name) + "\" must be an array of strings");
            }
            values.push_back(*element.value<std::string>());
        }
        return values;
    }

    std::filesystem::path existingFolder(toml::node const& node, std::filesystem::path const& path) const {
        std::error_code error;
        if (!std::filesystem::is_directory(path, error)) {
            fail(node, "no such folder: " + path.lexically_normal().string());
        }
        return path.lexically_normal();
    }

    std::vector<PathIgnore> pathIgnores(ConfigFile& config, toml::node const& node,
                                        std::filesystem::path const& folder) const {
        auto const* table = node.as_table();
        if (table == nullptr) {
            fail(node, "\"per-path-ignores\" must be a table of globs, each with an array of finding IDs");
        }
        std::vector<PathIgnore> ignores;
        for (auto&& [glob, ids] : *table) {
            if (auto const mistake = globMistake(glob.str()); !mistake.empty()) {
                throw ConfigError(file_, glob.source().begin.line, glob.source().begin.column,
                                  "invalid glob \"" + std::string(glob.str()) + "\": " + mistake);
            }
            PathIgnore ignore{std::string(glob.str()), strings(ids, glob.str()), folder};
            for (std::size_t i = 0; i < ignore.ids.size(); ++i) {
                if (!isKnownFindingSelector(ignore.ids[i])) {
                    unresolved(config, *ids.as_array()->get(i), ignore.ids[i], false,
                               "unknown finding ID \"" + ignore.ids[i] + "\"");
                }
            }
            ignores.push_back(std::move(ignore));
        }
        return ignores;
    }

    // [scan]: path folders (relative to this file's folder), exclude globs,
    // derived-file rules ("output pattern" = "source pattern") and extra
    // built-in function names.
    ScanConfig scanTable(toml::node const& node, std::filesystem::path const& folder) const {
        auto const* table = node.as_table();
        if (table == nullptr) {
            fail(node, "\"scan\" must be a table");
        }
        ScanConfig scan;
        scan.base = folder;
        for (auto&& [key, value] : *table) {
            std::string_view const name = key.str();
            if (name == "path") {
                auto const paths = strings(value, name);
                for (std::size_t i = 0; i < paths.size(); ++i) {
                    scan.pathFolders.push_back(existingFolder(*value.as_array()->get(i), folder / paths[i]));
                }
            } else if (name == "exclude") {
                scan.exclude = strings(value, name);
            } else if (name == "known-functions") {
                scan.knownFunctions = strings(value, name);
            } else if (name == "derived") {
                auto const* rules = value.as_table();
                if (rules == nullptr) {
                    fail(value, "\"derived\" must be a table of output patterns, each with its source pattern");
                }
                for (auto&& [output, source] : *rules) {
                    auto const where = output.source().begin;
                    scan.derived.push_back(
                        {std::string(output.str()), string(source, output.str()), where.line, where.column});
                }
            } else {
                throw ConfigError(
                    file_, key.source().begin.line, key.source().begin.column,
                    "unknown key \"scan." + std::string(name) + "\" (known: path, exclude, derived, known-functions)");
            }
        }
        return scan;
    }

    std::filesystem::path file_;
    bool keepUnknownNames_;
};

}  // namespace

std::optional<std::filesystem::path> findConfigFile(std::filesystem::path const& folder) {
    std::error_code error;
    auto current = std::filesystem::absolute(folder, error).lexically_normal();
    while (!current.empty()) {
        auto const candidate = current / configFileName;
        if (std::filesystem::is_regular_file(candidate, error)) {
            return candidate;
        }
        if (current == current.parent_path()) {
            break;
        }
        current = current.parent_path();
    }
    return std::nullopt;
}

ConfigFile readConfigFile(std::filesystem::path const& file, bool keepUnknownNames) {
    return ConfigReader(file, keepUnknownNames).read();
}

ConfigFile readConfigText(std::string_view text, std::filesystem::path const& file, bool keepUnknownNames) {
    return ConfigReader(file, keepUnknownNames).parse(text);
}

std::optional<Severity> parseSeverity(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (lower == "information") {
        return Severity::Information;
    }
    if (lower == "warning") {
        return Severity::Warning;
    }
    if (lower == "problem") {
        return Severity::Problem;
    }
    return std::nullopt;
}

bool selectorMatches(std::string_view selector, std::string_view id, std::string_view analyzer) {
    auto const parts = splitSelector(selector);
    if (!parts.analyzer.empty() && parts.analyzer != analyzer) {
        return false;
    }
    if (selectorIdMatches(parts, id)) {
        return true;
    }
    if (parts.isPrefix) {
        return false;
    }
    // Only a kind whose IDs carry more text matches by its own ID.
    for (auto const* entry : builtInAnalyzers()) {
        if (!parts.analyzer.empty() && entry->name != parts.analyzer) {
            continue;
        }
        for (auto const& kind : entry->findings) {
            if (kind.idIsPrefix && kind.id == parts.id && id.starts_with(parts.id)) {
                return true;
            }
        }
    }
    return false;
}

FindingFilter::FindingFilter(ProgramOptions const& options)
    : select_(options.select), ignore_(options.ignore), pathIgnores_(options.pathIgnores) {}

bool FindingFilter::keeps(std::string_view id, std::filesystem::path const& nodePath) const {
    return keeps(id, {}, nodePath);
}

bool FindingFilter::keeps(std::string_view id, std::string_view analyzer, std::filesystem::path const& nodePath) const {
    auto const named = [&](std::vector<std::string> const& selectors) {
        return std::any_of(selectors.begin(), selectors.end(),
                           [&](auto const& s) { return selectorMatches(s, id, analyzer); });
    };
    if (!select_.empty() && !named(select_)) {
        return false;
    }
    if (named(ignore_)) {
        return false;
    }
    if (nodePath.empty()) {
        return true;
    }
    for (auto const& ignore : pathIgnores_) {
        auto const relative = nodePath.lexically_relative(ignore.baseFolder);
        bool const below = !relative.empty() && *relative.begin() != "..";
        std::string const subject = below ? relative.generic_string() : nodePath.generic_string();
        if (fnmatch(ignore.glob.c_str(), subject.c_str(), 0) == 0 && named(ignore.ids)) {
            return false;
        }
    }
    return true;
}

}  // namespace depattr::cli

#pragma once
// depattr.toml: the project's settings, found by walking up from the graph
// file's folder, and the filter they and the command line make.

#include "cli/Options.hpp"
#include "platform/foundation/SourceText.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace depattr::cli {

inline constexpr char const* configFileName = "depattr.toml";
// The largest configuration file read; a larger one is an error, found before it is read.
inline constexpr std::size_t maxConfigFileBytes = 16 << 20;

// A configuration file that cannot be used. what() reads
// "<file>:<line>:<column>: <reason>", or "<file>: <reason>" without a position.
class ConfigError : public foundation::source::FileError {
public:
    ConfigError(std::filesystem::path const& file, std::size_t line, std::size_t column, std::string const& reason)
        : FileError(file.string(), line, column, reason) {}
};

struct ConfigFile {
    std::filesystem::path file;
    std::optional<std::vector<std::string>> analyzers;
    std::optional<std::vector<std::string>> select;
    std::vector<std::string> ignore;
    std::optional<dependency::attribute::Severity> failOn;
    std::optional<dependency::attribute::Severity> minimum;
    std::optional<std::filesystem::path> installRoot;  // absolute
    std::vector<std::filesystem::path> analyzerPaths;  // absolute
    std::vector<PathIgnore> pathIgnores;
    std::optional<ScanConfig> scan;  // the [scan] table, when there is one
    // With keepUnknownNames: analyzer names and finding IDs that no built-in
    // analyzer knows, in the order met, each with the error that reports it.
    std::vector<UnresolvedName> unresolved;
};

// The nearest depattr.toml in `folder` or a folder above it.
std::optional<std::filesystem::path> findConfigFile(std::filesystem::path const& folder);

// Reads and checks a configuration file: unknown keys, values of the wrong
// type, unknown analyzers, finding IDs and severities, and folders that do not
// exist are errors naming the file, line and column. Relative paths are taken
// from the file's folder. With `keepUnknownNames`, analyzer names and finding
// IDs unknown to the built-in analyzers (which a host-language analyzer may
// know) are not thrown but kept, with their errors, in `unresolved`.
ConfigFile readConfigFile(std::filesystem::path const& file, bool keepUnknownNames = false);
// The same for the text of a file; `file` names it in errors and its folder
// anchors relative paths.
ConfigFile readConfigText(std::string_view text, std::filesystem::path const& file, bool keepUnknownNames = false);

// "information", "warning", "problem" (any case); nothing for anything else.
std::optional<dependency::attribute::Severity> parseSeverity(std::string_view text);

// Whether a selector names this finding ID of this analyzer: the same ID, or a
// kind whose IDs go on with more text ("MissingProduct" names
// "MissingProductOK"); a selector "analyzer/ID" names only that analyzer's
// findings ("missing-function/Missing").
bool selectorMatches(std::string_view selector, std::string_view id, std::string_view analyzer = {});

// Which findings a run keeps, by finding ID and node path.
class FindingFilter {
public:
    explicit FindingFilter(ProgramOptions const& options);
    bool keeps(std::string_view id, std::filesystem::path const& nodePath) const;
    // The same for a finding of a known analyzer, which selectors "analyzer/ID" may name.
    bool keeps(std::string_view id, std::string_view analyzer, std::filesystem::path const& nodePath) const;
    // Whether it has no rule at all, so that it keeps every finding.
    bool keepsEverything() const noexcept { return select_.empty() && ignore_.empty() && pathIgnores_.empty(); }

private:
    std::vector<std::string> select_;
    std::vector<std::string> ignore_;
    std::vector<PathIgnore> pathIgnores_;
};

}  // namespace depattr::cli

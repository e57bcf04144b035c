#pragma once
// Baselines: the findings a project has accepted for now, recorded by stable
// fingerprints so that later runs report only what is new.

#include "cli/AnalyzerCatalog.hpp"
#include "platform/foundation/SourceText.hpp"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace depattr::cli {

struct Report;

// A fingerprint of a finding: 16 hexadecimal digits from its node's ID, its
// ID and its name in English. No path, line or language enters it, so it is the
// same on every machine and in every locale.
std::uint64_t fingerprintValueOf(std::u16string const& nodeId, std::u16string const& findingId,
                                 std::string const& englishName);
// The fingerprint of a finding that shares `shared` with another finding of
// its node (same ID and name): that one with the finding's details and its
// number among those with the same details folded in.
std::uint64_t fingerprintValueOf(std::uint64_t shared, std::string_view details, std::size_t ordinal);
// A fingerprint as it is written: 16 lower-case hexadecimal digits.
std::string fingerprintText(std::uint64_t fingerprint);
// The same as its text.
std::string fingerprintOf(std::u16string const& nodeId, std::u16string const& findingId,
                          std::string const& englishName);

// The finding's name in English: built-in names are translated back through
// the catalogs; any other name is taken as it is.
std::string englishNameOf(FindingKind const* kind, std::u16string const& name);

// A baseline file that cannot be used; what() names the file and, where
// known, the line and column.
class BaselineError : public foundation::source::FileError {
public:
    using FileError::FileError;

    // A baseline that cannot be written; `text` is the whole message.
    static BaselineError unwritable(std::string file, std::string text) {
        return BaselineError(std::move(file), WrittenText{std::move(text)});
    }
};

class Baseline {
public:
    // The largest baseline file read (4 GiB less one byte, the JSON reader's
    // bound); a larger one is an error, found before it is read.
    static constexpr std::size_t maxBaselineBytes = 0xFFFF'FFFF;

    // Reads a baseline written by write().
    static Baseline read(std::filesystem::path const& file);
    // The same for the text of a baseline; `file` names it in errors.
    static Baseline parse(std::string_view text, std::filesystem::path const& file);
    // Writes the reported findings of `report` (with `onlyHidden`, only those
    // this baseline hid: the baseline without its stale entries). Throws
    // BaselineError naming the file and the system's reason when it cannot be
    // written.
    static void write(std::filesystem::path const& file, Report const& report, bool onlyHidden = false);

    // Whether the baseline holds one more finding with this fingerprint; each
    // recorded finding hides one finding of a run.
    bool take(std::string const& fingerprint);
    // The recorded findings that no finding of the run has taken: fixed, or
    // no longer made.
    std::size_t stale() const;

    std::filesystem::path const& file() const noexcept { return file_; }

private:
    std::filesystem::path file_;
    std::map<std::string, std::size_t> remaining_;
};

}  // namespace depattr::cli

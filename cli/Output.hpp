#pragma once
// Getting a report out: colour decisions and writes whose failures are reported.

#include "cli/Options.hpp"

#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string_view>

namespace depattr::cli {

// A report that could not be written; what() names the target and the system's reason.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Writes all of `data` to the file descriptor, retrying short writes; 0, or
// the errno of the write that failed.
int writeAll(int fd, std::string_view data);

// Writes `data` to standard output; throws OutputError with the reason.
void writeStandardOutput(std::string_view data);

// Creates or replaces `file` with `data`, whole or not at all (as ReportOutput
// does); throws OutputError with the reason.
void writeFile(std::filesystem::path const& file, std::string_view data);

// A report written as it is made, to standard output or to a file, through
// a buffer: a large report never has to be held in memory whole. The first
// failed write is remembered (later output is dropped) and reported by finish().
//
// A regular file is replaced whole or not at all: the report goes to a
// temporary file beside the target (".NAME.XXXXXX", with the target's
// permissions, or those a new file gets), which is renamed over the target
// only when every byte is written. A failure (a full disk) leaves the previous
// file untouched and removes the temporary one. A target that is a symbolic
// link is replaced where the link points; one that is not a regular file (a
// device such as /dev/null, a pipe) is written in place.
class ReportOutput {
public:
    // `file` empty: standard output. Otherwise the temporary file (or the
    // target that is written in place) is opened now; throws OutputError when
    // it cannot be.
    explicit ReportOutput(std::filesystem::path file);
    // Without a successful finish(), the temporary file is removed.
    ~ReportOutput();
    ReportOutput(ReportOutput const&) = delete;
    ReportOutput& operator=(ReportOutput const&) = delete;

    std::ostream& stream();
    // Writes what is buffered, closes a file and puts it in place; throws
    // OutputError naming the target and the system's reason, as
    // writeStandardOutput and writeFile do.
    void finish();

private:
    class Buffer;
    std::filesystem::path file_;     // the target as given (messages name it)
    std::filesystem::path target_;   // where the report lands (a link's target)
    std::filesystem::path partial_;  // the temporary file; empty when written in place
    int fd_;
    std::unique_ptr<Buffer> buffer_;
    std::unique_ptr<std::ostream> stream_;
};

// Colour on standard output: "always" and "never" as said; "auto" when it is
// a terminal, NO_COLOR is unset or empty, and TERM is not "dumb".
bool useColour(ColourChoice choice, bool isTerminal);

}  // namespace depattr::cli

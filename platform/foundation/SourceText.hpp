#pragma once
// Where a problem is in a file that was read as text: the line and column of a
// byte offset, and the one error type every reader of outside files throws, so
// that all of them name a place the same way.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation::source {

// A place in a text: a 1-based line and a 1-based column counted in bytes (a
// multi-byte UTF-8 character takes as many columns as it has bytes). Lines end
// at '\n'; the '\r' of a CRLF pair is the last byte of its line. Line 0 means
// that the place is not known.
struct SourcePosition {
    std::size_t line = 0;
    std::size_t column = 0;

    bool known() const noexcept { return line > 0; }
    friend bool operator==(SourcePosition const&, SourcePosition const&) = default;
};

// The place of the byte at `offset` of `text`; an offset past the end is taken
// as the end of the text (where a text that ends too early is reported).
SourcePosition positionAt(std::string_view text, std::size_t offset) noexcept;

// The place after reading `piece` from `from` (a known place): for texts read
// in parts, e.g. a file read in chunks up to an offset.
SourcePosition advance(SourcePosition from, std::string_view piece) noexcept;

// A file that cannot be used. what() reads "<file>:<line>:<column>: <reason>",
// or "<file>: <reason>" when the place is not known (line 0).
class FileError : public std::runtime_error {
public:
    FileError(std::string file, std::size_t line, std::size_t column, std::string reason);
    FileError(std::string file, SourcePosition where, std::string reason);
    FileError(std::string file, std::string reason);

    std::string const& file() const noexcept { return file_; }
    std::size_t line() const noexcept { return where_.line; }
    std::size_t column() const noexcept { return where_.column; }
    SourcePosition position() const noexcept { return where_; }
    std::string const& reason() const noexcept { return reason_; }

protected:
    // For an error whose whole text is already written (in the user's
    // language, say): what() is `text` as it is; the reason is the same text.
    struct WrittenText {
        std::string text;
    };
    FileError(std::string file, WrittenText text);

private:
    std::string file_;
    SourcePosition where_;
    std::string reason_;
};

}  // namespace foundation::source

#include "platform/foundation/SourceText.hpp"

#include <algorithm>
#include <utility>

namespace foundation::source {

namespace {

std::string describe(std::string const& file, SourcePosition where, std::string const& reason) {
    if (!where.known()) {
        return file + ": " + reason;
    }
    return file + ":" + std::to_string(where.line) + ":" + std::to_string(where.column) + ": " + reason;
}

}  // namespace

SourcePosition advance(SourcePosition from, std::string_view piece) noexcept {
    auto const breaks = static_cast<std::size_t>(std::count(piece.begin(), piece.end(), '\n'));
    if (breaks == 0) {
        return {from.line, from.column + piece.size()};
    }
    return {from.line + breaks, piece.size() - piece.rfind('\n')};
}

SourcePosition positionAt(std::string_view text, std::size_t offset) noexcept {
    return advance({1, 1}, text.substr(0, std::min(offset, text.size())));
}

FileError::FileError(std::string file, SourcePosition where, std::string reason)
    : std::runtime_error(describe(file, where, reason)),
      file_(std::move(file)),
      where_(where),
      reason_(std::move(reason)) {}

FileError::FileError(std::string file, std::size_t line, std::size_t column, std::string reason)
    : FileError(std::move(file), SourcePosition{line, column}, std::move(reason)) {}

FileError::FileError(std::string file, std::string reason)
    : FileError(std::move(file), SourcePosition{}, std::move(reason)) {}

FileError::FileError(std::string file, WrittenText text)
    : std::runtime_error(text.text), file_(std::move(file)), reason_(std::move(text.text)) {}

}  // namespace foundation::source

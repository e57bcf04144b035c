#pragma once
// UTF-16 path text <-> std::filesystem::path, shared by the finder and the
// descriptor reader.

#include <filesystem>
#include <string>

namespace dependency::toolbox::detail {

// Ill-formed UTF-16 (a lone surrogate) is dropped rather than thrown on: a path
// that cannot be spelled in UTF-8 names no folder of the catalogue anyway.
std::filesystem::path toPath(std::u16string const& text);
std::u16string toText(std::filesystem::path const& path);

// The absolute, lexically normal form of `path` without a trailing separator
// (the file-system root keeps its one separator).
std::u16string normalizedAbsolute(std::u16string const& path);
std::filesystem::path normalizedAbsolute(std::filesystem::path const& path);

}  // namespace dependency::toolbox::detail

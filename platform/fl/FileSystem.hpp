#pragma once
// The few file-system queries the dependency layer needs, on UTF-16 paths.

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace fl::filesystem {

// A path could not be queried; what() names the path and the system's reason.
class FileSystemError : public std::runtime_error {
public:
    FileSystemError(std::u16string const& path, std::string const& reason);
    std::u16string const& path() const noexcept { return path_; }

private:
    std::u16string path_;
};

// True when something (file, folder, ...) exists at the path; false when not or
// when it cannot be queried. Throws std::invalid_argument for a path it
// rejects: empty, or with an embedded NUL.
bool exists(std::u16string const& path);

struct Status {
    boost::posix_time::ptime last_modified;  // UTC, microsecond resolution
    std::uintmax_t size = 0;
    bool is_directory = false;
    bool is_regular_file = false;
};

// Status of what the path names (symbolic links followed). Throws
// std::invalid_argument for a rejected path and FileSystemError when the path cannot be stat'ed.
Status status_express_light(std::u16string const& path);

namespace detail {
// The path as the operating system takes it: separators as the system writes
// them, redundant separators and "." segments removed, and, when `absolute` is
// true, made absolute against the current folder. ".." is kept: resolving it
// lexically would be wrong across symbolic links. Throws std::invalid_argument for a rejected path.
std::u16string make_native_form(std::u16string const& path, bool absolute);
}  // namespace detail

}  // namespace fl::filesystem

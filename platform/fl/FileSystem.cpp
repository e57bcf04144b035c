#include "platform/fl/FileSystem.hpp"

#include "platform/fl/MessageCatalog.hpp"

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_duration.hpp>

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fl::filesystem {

namespace {

std::string narrowPath(std::u16string const& path) {
    if (path.empty()) {
        throw std::invalid_argument("fl::filesystem: empty path");
    }
    if (path.find(u'\0') != std::u16string::npos) {
        throw std::invalid_argument("fl::filesystem: path with an embedded NUL character: " +
                                    i18n::to_string(path.substr(0, path.find(u'\0'))));
    }
    return i18n::to_string(path);
}

boost::posix_time::ptime toPtime(struct timespec const& when) {
    // from_time_t covers whole seconds; the sub-second part is kept to the
    // microsecond, the resolution of the default ptime configuration.
    return boost::posix_time::from_time_t(when.tv_sec) + boost::posix_time::microseconds(when.tv_nsec / 1000);
}

}  // namespace

FileSystemError::FileSystemError(std::u16string const& path, std::string const& reason)
    : std::runtime_error("cannot query '" + i18n::to_string(path) + "': " + reason), path_(path) {}

bool exists(std::u16string const& path) {
    std::string const native = narrowPath(path);
    struct stat info {};
    return ::stat(native.c_str(), &info) == 0;
}

Status status_express_light(std::u16string const& path) {
    std::string const native = narrowPath(path);
    struct stat info {};
    if (::stat(native.c_str(), &info) != 0) {
        throw FileSystemError(path, std::strerror(errno));
    }
    Status status;
    status.last_modified = toPtime(info.st_mtim);
    status.size = static_cast<std::uintmax_t>(info.st_size);
    status.is_directory = S_ISDIR(info.st_mode);
    status.is_regular_file = S_ISREG(info.st_mode);
    return status;
}

namespace detail {

std::u16string make_native_form(std::u16string const& path, bool absolute) {
    std::filesystem::path native(narrowPath(path));
    if (absolute && native.is_relative()) {
        std::error_code error;
        std::filesystem::path const current = std::filesystem::current_path(error);
        if (error) {
            throw FileSystemError(path, "the current folder is unknown: " + error.message());
        }
        native = current / native;
    }
    std::filesystem::path cleaned = native.root_path();
    for (auto const& segment : native.relative_path()) {
        if (!segment.empty() && segment != ".") {
            cleaned /= segment;
        }
    }
    if (cleaned.empty()) {
        cleaned = ".";
    }
    return i18n::to_ustring(cleaned.make_preferred().string());
}

}  // namespace detail

}  // namespace fl::filesystem

#include "platform/fl/FileSystem.hpp"

#include "platform/fl/MessageCatalog.hpp"
#include "platform/fl/detail/FolderListings.hpp"
#include "platform/foundation/ViewHash.hpp"

#include <boost/date_time/posix_time/conversion.hpp>
#include <boost/date_time/posix_time/posix_time_duration.hpp>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <unordered_map>

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

// A path as the system takes it. Most paths are ASCII and short: they are
// narrowed into a buffer on the stack, so that a query costs the system call
// and little else. Any other path (non-ASCII, a NUL, empty, long) takes the
// general conversion, with its rejections.
class NativePath {
public:
    explicit NativePath(std::u16string const& path) {
        std::size_t const size = path.size();
        if (size > 0 && size < sizeof buffer_) {
            // One pass without early exits, which the compiler vectorises: narrow
            // every unit and gather their bits; then check for NULs and non-ASCII.
            char16_t bits = 0;
            for (std::size_t i = 0; i < size; ++i) {
                bits |= path[i];
                buffer_[i] = static_cast<char>(path[i]);
            }
            if (bits < 0x80 && std::memchr(buffer_, '\0', size) == nullptr) {
                buffer_[size] = '\0';
                text_ = std::string_view(buffer_, size);
                return;
            }
        }
        general_ = narrowPath(path);
        text_ = general_;
    }
    NativePath(NativePath const&) = delete;
    NativePath& operator=(NativePath const&) = delete;

    // Terminated by a NUL, and without one inside.
    char const* c_str() const noexcept { return text_.data(); }
    std::string_view view() const noexcept { return text_; }

private:
    char buffer_[512];
    std::string general_;
    std::string_view text_;
};

boost::posix_time::ptime toPtime(struct timespec const& when) {
    // from_time_t covers whole seconds; the sub-second part is kept to the
    // microsecond, the resolution of the default ptime configuration.
    return boost::posix_time::from_time_t(when.tv_sec) + boost::posix_time::microseconds(when.tv_nsec / 1000);
}

}  // namespace

FileSystemError::FileSystemError(std::u16string const& path, std::string const& reason, int errorNumber)
    : std::runtime_error("cannot query '" + i18n::to_string(path) + "': " + reason),
      path_(path),
      reason_(reason),
      errorNumber_(errorNumber) {}

bool exists(std::u16string const& path) {
    NativePath const native(path);
    struct stat info {};
    return ::stat(native.c_str(), &info) == 0;
}

Status status_express_light(std::u16string const& path) {
    std::string const native = narrowPath(path);
    struct stat info {};
    if (::stat(native.c_str(), &info) != 0) {
        throw FileSystemError(path, std::strerror(errno), errno);
    }
    Status status;
    status.last_modified = toPtime(info.st_mtim);
    status.size = static_cast<std::uintmax_t>(info.st_size);
    status.is_directory = S_ISDIR(info.st_mode);
    status.is_regular_file = S_ISREG(info.st_mode);
    return status;
}

RegularFile::RegularFile(std::string const& nativePath, std::size_t maxBytes) : path_(nativePath) {
    auto const fail = [&](std::string const& reason, int errorNumber = 0) {
        return FileSystemError(i18n::to_ustring(path_), reason, errorNumber);
    };
    if (path_.find('\0') != std::string::npos) {
        // The system would read the path only up to the NUL: another file.
        throw fail("the path contains a NUL character");
    }
    // Non-blocking, so that opening a pipe without a writer does not wait; a
    // regular file reads the same either way.
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd_ < 0) {
        throw fail(std::strerror(errno), errno);
    }
    struct stat info {};
    std::string problem;
    if (::fstat(fd_, &info) != 0) {
        problem = std::strerror(errno);
    } else if (S_ISDIR(info.st_mode)) {
        problem = "it is a folder";
    } else if (!S_ISREG(info.st_mode)) {
        problem = "it is not a regular file";
    } else if (static_cast<std::uintmax_t>(info.st_size) > maxBytes) {
        problem = "it holds " + std::to_string(info.st_size) + " bytes, more than the " + std::to_string(maxBytes) +
                  " bytes allowed";
    }
    if (!problem.empty()) {
        ::close(fd_);
        throw fail(problem);
    }
    size_ = static_cast<std::size_t>(info.st_size);
}

RegularFile::~RegularFile() {
    ::close(fd_);
}

void RegularFile::read(char* buffer) const {
    std::size_t done = 0;
    while (done < size_) {
        ssize_t const got = ::read(fd_, buffer + done, size_ - done);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw FileSystemError(i18n::to_ustring(path_), std::strerror(errno), errno);
        }
        if (got == 0) {
            throw detail::shrankWhileRead(path_);
        }
        done += static_cast<std::size_t>(got);
    }
}

namespace {

struct SharedAnswer {
    int error = 0;
    struct ::stat info {};
};

struct SharedAnswers {
    int depth = 0;
    std::unordered_map<std::string, SharedAnswer, foundation::ViewHash, std::equal_to<>> byPath;
    detail::FolderListings folders;
};

thread_local SharedAnswers sharedAnswers;

// `path` ends in a NUL and holds none.
int askSystem(std::string_view path, struct ::stat& info) {
    return ::stat(path.data(), &info) == 0 ? 0 : errno;
}

// The answer remembered for `path`, asking the system once; null when no
// scope is open. `folderAnswer` gets what the folders read tell of a path
// asked about for the first time (Unknown otherwise); the system is not asked
// when they tell it is absent.
SharedAnswer const* sharedAnswer(std::string_view path, detail::FolderListings::Answer& folderAnswer) {
    if (sharedAnswers.depth == 0) {
        return nullptr;
    }
    auto found = sharedAnswers.byPath.find(path);
    if (found != sharedAnswers.byPath.end()) {
        return &found->second;
    }
    if (sharedAnswers.byPath.size() + sharedAnswers.folders.size() >= sharedStatusPaths) {
        // A graph's file nodes name each path once: rather than hold them
        // all, start again; the few files that many nodes share come back.
        sharedAnswers.byPath.clear();
        sharedAnswers.folders.clear();
    }
    folderAnswer = sharedAnswers.folders.ask(path);
    return nullptr;
}

SharedAnswer const& remembered(std::string_view path) {
    SharedAnswer answer;
    answer.error = askSystem(path, answer.info);
    return sharedAnswers.byPath.emplace(std::string(path), answer).first->second;
}

int sharedStat(std::string_view path, struct ::stat& info) {
    using Known = detail::FolderListings::Answer::Known;
    detail::FolderListings::Answer folderAnswer;
    SharedAnswer const* answer = sharedAnswer(path, folderAnswer);
    if (answer == nullptr) {
        if (sharedAnswers.depth == 0) {
            return askSystem(path, info);
        }
        if (folderAnswer.known == Known::Absent) {
            return folderAnswer.error;
        }
        answer = &remembered(path);
    }
    info = answer->info;
    return answer->error;
}

bool sharedExists(std::string_view path) {
    using Known = detail::FolderListings::Answer::Known;
    detail::FolderListings::Answer folderAnswer;
    SharedAnswer const* answer = sharedAnswer(path, folderAnswer);
    if (answer == nullptr) {
        if (sharedAnswers.depth == 0) {
            struct ::stat info {};
            return askSystem(path, info) == 0;
        }
        if (folderAnswer.known == Known::Absent) {
            return false;
        }
        // An entry that is no link is there; a link may lead nowhere.
        if (folderAnswer.known == Known::Present && folderAnswer.type != DT_LNK && folderAnswer.type != DT_UNKNOWN) {
            return true;
        }
        answer = &remembered(path);
    }
    return answer->error == 0;
}

}  // namespace

SharedStatus::SharedStatus() {
    ++sharedAnswers.depth;
}

SharedStatus::~SharedStatus() {
    if (--sharedAnswers.depth == 0) {
        // Swapped out rather than cleared, so that the memory of a large analysis goes with it.
        std::unordered_map<std::string, SharedAnswer, foundation::ViewHash, std::equal_to<>>().swap(
            sharedAnswers.byPath);
        sharedAnswers.folders = detail::FolderListings();
    }
}

int shared_stat(std::string const& nativePath, struct ::stat& info) {
    if (nativePath.find('\0') != std::string::npos) {
        return ENOENT;
    }
    return sharedStat(nativePath, info);
}

bool shared_exists(std::u16string const& path) {
    NativePath const native(path);
    return sharedExists(native.view());
}

std::string read_file(std::string const& nativePath, std::size_t maxBytes) {
    RegularFile const file(nativePath, maxBytes);
    std::string content(file.size(), '\0');
    file.read(content.data());
    return content;
}

namespace detail {

FileSystemError shrankWhileRead(std::string const& nativePath) {
    return FileSystemError(i18n::to_ustring(nativePath), "it shrank while it was read");
}

// An absolute path that cleaning leaves as it is: no empty or "." component
// and no separator at the end (but for the root), and no NUL or surrogate
// code unit (which the conversion below refuses or treats on its own).
bool is_plain_absolute(std::u16string_view path) noexcept {
    std::size_t const size = path.size();
    if (size == 0 || path.front() != u'/') {
        return false;
    }
    if (size == 1) {
        return true;
    }
    // Counted without stopping early and without branches, so that the
    // compiler takes many code units at a time. A unit is unfit when it is a
    // NUL or a surrogate, or a separator followed by another or by a dot.
    char16_t const* const units = path.data();
    std::size_t unfit = 0;
    for (std::size_t i = 0; i + 1 < size; ++i) {
        unsigned const unit = units[i];
        unsigned const next = units[i + 1];
        unfit += static_cast<std::size_t>((unit == 0) | (unit - 0xD800U < 0x800U) |
                                          ((unit == u'/') & ((next == u'/') | (next == u'.'))));
    }
    unsigned const last = units[size - 1];
    return unfit == 0 && last != u'/' && last != 0 && last - 0xD800U >= 0x800U;
}

bool is_native_form(std::u16string const& path) noexcept {
    if (is_plain_absolute(path)) {
        return true;
    }
    if (path.empty() || path.front() != u'/') {
        return false;
    }
    if (path.size() == 1) {
        return true;
    }
    std::size_t componentStart = 1;
    for (std::size_t i = 1; i <= path.size(); ++i) {
        char16_t const unit = i < path.size() ? path[i] : u'/';
        if (unit == 0 || (unit >= 0xD800 && unit <= 0xDFFF)) {
            return false;
        }
        if (unit != u'/') {
            continue;
        }
        std::size_t const length = i - componentStart;
        if (length == 0 || (length == 1 && path[componentStart] == u'.')) {
            return false;
        }
        componentStart = i + 1;
    }
    return true;
}

std::u16string make_native_form(std::u16string const& path, bool absolute) {
    if (is_native_form(path)) {
        return path;  // what the steps below would make of it
    }
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

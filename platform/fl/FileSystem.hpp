#pragma once
// The few file-system queries the dependency layer needs, on UTF-16 paths.

#include <boost/date_time/posix_time/ptime.hpp>

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fl::filesystem {

// A path could not be queried; what() names the path and the system's reason.
class FileSystemError : public std::runtime_error {
public:
    FileSystemError(std::u16string const& path, std::string const& reason, int errorNumber = 0);
    std::u16string const& path() const noexcept { return path_; }
    // The system's reason (or ours, such as "it is a folder"), without the path.
    std::string const& reason() const noexcept { return reason_; }
    // The system's error number (errno), or 0 when the reason is ours.
    int errorNumber() const noexcept { return errorNumber_; }

private:
    std::u16string path_;
    std::string reason_;
    int errorNumber_ = 0;
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

// The answers of stat(2) shared by one analysis. Many nodes of a graph name
// the same file: every function a code file defines, and each file node is
// asked about by both file analyzers. While a SharedStatus is open on a
// thread, shared_stat and shared_exists on that thread ask the system once per
// path and answer later questions about it from memory, so the analysis sees
// each file as it was when first asked. A folder that many questions fall
// under is read whole once (on local file systems that list names exactly):
// a path whose name it lacks, or under a subfolder it lacks, is then absent
// without a system call, as it was when the folder was read. The memory is
// bounded: past sharedStatusPaths answers, folders and names they are all
// forgotten and asked again when next needed. Scopes nest (the outermost owns the answers); without one open, both
// ask the system every time, as the other queries of this header always do.
inline constexpr std::size_t sharedStatusPaths = 1U << 16U;

class SharedStatus {
public:
    SharedStatus();
    ~SharedStatus();
    SharedStatus(SharedStatus const&) = delete;
    SharedStatus& operator=(SharedStatus const&) = delete;
};

// stat(2) of a native path, symbolic links followed: 0 with `info` filled, or
// the system's error number (ENOENT for a path with a NUL, which names no file).
int shared_stat(std::string const& nativePath, struct ::stat& info);

// exists() through shared_stat, with the same rejections.
bool shared_exists(std::u16string const& path);

// A regular file opened to be read whole: checked and measured before a
// byte is read. The constructor throws FileSystemError, whose reason() is the
// system's reason when the file cannot be opened, "it is a folder", "it is not
// a regular file" (a pipe or a device, which is never waited on), or "it holds
// N bytes, more than the M bytes allowed" when it is larger than `maxBytes`.
class RegularFile {
public:
    RegularFile(std::string const& nativePath, std::size_t maxBytes);
    ~RegularFile();
    RegularFile(RegularFile const&) = delete;
    RegularFile& operator=(RegularFile const&) = delete;

    std::size_t size() const noexcept { return size_; }
    // Reads size() bytes into `buffer`. Throws FileSystemError with the
    // system's reason, or when the file shrank since it was measured.
    void read(char* buffer) const;

private:
    friend class MappedFile;
    std::string path_;
    int fd_ = -1;
    std::size_t size_ = 0;
};

// A regular file's content mapped into memory, followed by `padding` zero
// bytes, for reading a large file once from front to back. Its pages come
// from the system's file cache, so mapping costs neither a copy nor fresh
// memory, and the pages already read can be given back while the rest is
// read. The mapping is private: writing to it changes this copy only.
//
// A file that shrinks while it is mapped cannot fault the process: the pages
// past its new end read as zeros and cutShort() turns true, so a reader that
// checks it once it is done can report the file as it would a failed read.
class MappedFile {
public:
    // Throws FileSystemError with the system's reason when the file cannot be mapped.
    MappedFile(RegularFile const& file, std::size_t padding);
    ~MappedFile();
    MappedFile(MappedFile const&) = delete;
    MappedFile& operator=(MappedFile const&) = delete;

    char* data() noexcept { return data_; }
    char const* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    // The content and the padding.
    std::size_t capacity() const noexcept { return capacity_; }
    // Gives back the memory of the whole pages that lie before `position`,
    // except the first page. Reading them again is still correct (they are
    // read from the file again), but what was written to them is lost: a
    // caller that writes only to the first page can release freely.
    void releaseBefore(char const* position) noexcept;
    // Gives back the memory of every page but the first, as releaseBefore
    // does; a later releaseBefore gives back again the pages read since.
    void releaseAll() noexcept;
    // Whether the file shrank while it was mapped (some of it read as zeros).
    bool cutShort() const noexcept;
    // Throws the FileSystemError of RegularFile::read for a file that shrank
    // while it was read when cutShort().
    void checkWhole() const;

private:
    std::string path_;
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;  // size_ + padding
    std::size_t mapped_ = 0;    // capacity_ rounded up to whole pages
    std::size_t released_ = 0;  // bytes from data_ whose pages were given back since last read
    int guardSlot_ = -1;        // this mapping's entry among the guarded ones
};

// The whole content of a regular file, as RegularFile reads it.
std::string read_file(std::string const& nativePath, std::size_t maxBytes);

namespace detail {
// The error of a file that turned out shorter than it was measured.
FileSystemError shrankWhileRead(std::string const& nativePath);

// The path as the operating system takes it: separators as the system writes
// them, redundant separators and "." segments removed, and, when `absolute` is
// true, made absolute against the current folder. ".." is kept: resolving it
// lexically would be wrong across symbolic links. Throws std::invalid_argument for a rejected path.
std::u16string make_native_form(std::u16string const& path, bool absolute);
// Whether make_native_form(path, true) is `path` as it stands: an absolute
// path without empty or "." segments, a separator at the end (but for the
// root), NUL or surrogate code units. Tells so without a copy.
bool is_native_form(std::u16string const& path) noexcept;
// A quick test in one pass without branches, which the compiler widens: true
// when the path is absolute, no separator is followed by another or by a dot,
// it does not end in a separator (but for the root), and it holds no NUL or
// surrogate code unit. Such a path is in native form and has no "." or ".."
// component; a path for which it is false may still be either.
bool is_plain_absolute(std::u16string_view path) noexcept;
}  // namespace detail

}  // namespace fl::filesystem

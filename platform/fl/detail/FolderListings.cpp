#include "platform/fl/detail/FolderListings.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace fl::filesystem::detail {

namespace {

// Local file systems whose folders list every name they open, compared
// exactly (a folder of theirs may still compare without case: see below).
constexpr std::array<unsigned long, 9> exactListingFileSystems{
    0xEF53UL,      // ext2, ext3, ext4
    0x58465342UL,  // xfs
    0x9123683EUL,  // btrfs
    0x01021994UL,  // tmpfs
    0x858458F6UL,  // ramfs
    0x794C7630UL,  // overlay
    0xF2F52010UL,  // f2fs
    0x73717368UL,  // squashfs
    0xE0F5E1E2UL,  // erofs
};

bool listsExactly(int fd) {
    struct ::statfs info {};
    if (::fstatfs(fd, &info) != 0) {
        return false;
    }
    bool known = false;
    for (auto const type : exactListingFileSystems) {
        known = known || static_cast<unsigned long>(info.f_type) == type;
    }
    if (!known) {
        return false;
    }
#ifdef FS_CASEFOLD_FL
    int flags = 0;
    if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL) != 0) {
        return false;
    }
#endif
    return true;
}

// Absolute, without empty, "." or ".." components, no separator at the end.
bool isPlainAbsolute(std::string_view path) noexcept {
    if (path.size() < 2 || path.front() != '/' || path.back() == '/') {
        return false;
    }
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        std::string_view const component = path.substr(start, end - start);
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        start = end + 1;
    }
    return true;
}

}  // namespace

bool FolderListings::readable(char const* path) {
    int const fd = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    bool const exact = listsExactly(fd);
    ::close(fd);
    return exact;
}

void FolderListings::clear() noexcept {
    folders_.clear();
    held_ = 0;
}

FolderListings::Answer FolderListings::ask(std::string_view path) {
    using Known = Answer::Known;
    if (!isPlainAbsolute(path)) {
        return {};
    }
    // From the nearest folder up, to the first one that settles the question.
    std::size_t end = path.size();
    while (end > 0) {
        std::size_t const slash = path.rfind('/', end - 1);
        std::string_view const folderPath = slash == 0 ? std::string_view("/") : path.substr(0, slash);
        auto found = folders_.find(folderPath);
        if (found == folders_.end()) {
            found = folders_.emplace(std::string(folderPath), Folder{}).first;
            ++held_;
        }
        Folder& folder = found->second;
        if (folder.state == State::Unread && ++folder.asked >= questionsBeforeReading) {
            read(found->first.c_str(), folder);
        }
        switch (folder.state) {
        case State::Missing:
            return {Known::Absent, folder.error};
        case State::Unreadable:
            return {};
        case State::Listed: {
            auto const entry = folder.names.find(path.substr(slash + 1, end - slash - 1));
            if (entry == folder.names.end()) {
                return {Known::Absent, ENOENT};
            }
            if (end == path.size()) {
                return {Known::Present, 0, entry->second};
            }
            // A folder on the way that is not read yet: the system answers,
            // unless the entry cannot hold anything.
            bool const mayHold = entry->second == DT_DIR || entry->second == DT_LNK || entry->second == DT_UNKNOWN;
            return mayHold ? Answer{} : Answer{Known::Absent, ENOTDIR};
        }
        case State::Unread:
            break;
        }
        end = slash;
    }
    return {};
}

void FolderListings::read(char const* path, Folder& folder) {
    int const fd = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        // What stat(2) of a path inside it would give, for these two.
        folder.state = errno == ENOENT || errno == ENOTDIR ? State::Missing : State::Unreadable;
        folder.error = errno;
        return;
    }
    // A folder that can be listed but not searched (read permission without
    // execute) names files that stat(2) cannot reach: the system answers.
    if (!listsExactly(fd) || ::faccessat(fd, ".", X_OK, AT_EACCESS) != 0) {
        ::close(fd);
        folder.state = State::Unreadable;
        return;
    }
    DIR* const dir = ::fdopendir(fd);
    if (dir == nullptr) {
        ::close(fd);
        folder.state = State::Unreadable;
        return;
    }
    folder.state = State::Listed;
    while (true) {
        errno = 0;
        dirent const* const entry = ::readdir(dir);
        if (entry == nullptr) {
            if (errno != 0) {
                folder.state = State::Unreadable;
            }
            break;
        }
        std::string_view const name(entry->d_name);
        if (name == "." || name == "..") {
            continue;
        }
        if (folder.names.size() >= largestFolder) {
            folder.state = State::Unreadable;
            break;
        }
        folder.names.emplace(name, entry->d_type);
    }
    ::closedir(dir);
    if (folder.state == State::Listed) {
        held_ += folder.names.size();
    } else {
        decltype(folder.names)().swap(folder.names);
    }
}

}  // namespace fl::filesystem::detail

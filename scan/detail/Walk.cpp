#include "scan/detail/Walk.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include <algorithm>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace depattr::scan::detail {

bool globMatches(std::string const& pattern, std::string const& text) {
    return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

std::string relativeText(fs::path const& path, fs::path const& base) {
    auto const rel = path.lexically_relative(base);
    if (rel.empty() || *rel.begin() == "..") {
        return path.generic_string();
    }
    auto text = rel.generic_string();
    return text == "." ? std::string() : text;
}

namespace {

bool excluded(std::vector<std::string> const& exclude, std::string const& rel, std::string const& name) {
    return std::any_of(exclude.begin(), exclude.end(), [&](std::string const& pattern) {
        return globMatches(pattern, rel) || globMatches(pattern, name);
    });
}

bool insideAny(fs::path const& folder, std::vector<fs::path> const& skip) {
    return std::find(skip.begin(), skip.end(), folder) != skip.end();
}

}  // namespace

fs::path folderPath(Walk const& walk, int folder) {
    auto const rel = folderRel(walk, folder);
    return rel.empty() ? walk.root : walk.root / rel;
}

std::string folderRel(Walk const& walk, int folder) {
    std::vector<int> chain;
    for (int f = folder; f > 0; f = walk.folders[f].parent) {
        chain.push_back(f);
    }
    std::string rel;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if (!rel.empty()) {
            rel += '/';
        }
        rel += walk.folders[*it].name;
    }
    return rel;
}

int openPath(fs::path const& path, int flags) {
    std::string const& text = path.native();
    // Each call takes a path shorter than PATH_MAX; a longer one is cut at a '/' into parts that are.
    constexpr std::size_t limit = PATH_MAX - 1;
    int dir = AT_FDCWD;
    std::size_t start = 0;
    auto closeDir = [&] {
        if (dir != AT_FDCWD) {
            int const saved = errno;
            ::close(dir);
            errno = saved;
        }
    };
    while (text.size() - start >= limit) {
        auto const cut = text.rfind('/', start + limit - 1);
        if (cut == std::string::npos || cut <= start) {
            closeDir();
            errno = ENAMETOOLONG;
            return -1;
        }
        std::string const part = text.substr(start, cut - start);
        int const next = ::openat(dir, part.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        closeDir();
        if (next < 0) {
            return -1;
        }
        dir = next;
        start = cut + 1;
    }
    int const fd = ::openat(dir, text.c_str() + start, flags | O_CLOEXEC);
    closeDir();
    return fd;
}

namespace {

bool endsWith(std::string const& name, std::string_view suffix) {
    // As an extension: "x.qx" is code, ".qx" (a hidden file with no extension) is not.
    return name.size() > suffix.size() && name.ends_with(suffix);
}

std::string errnoText(int error) {
    return std::error_code(error, std::generic_category()).message();
}

}  // namespace

Walk walkFolder(fs::path const& root, std::vector<std::string> const& exclude, std::vector<fs::path> const& skip,
                std::vector<ScanDiagnostic>& diagnostics) {
    Walk walk;
    walk.root = root;
    std::set<std::pair<dev_t, ino_t>> seen;
    struct stat rootStat {};
    if (::stat(root.c_str(), &rootStat) == 0) {
        seen.insert({rootStat.st_dev, rootStat.st_ino});
    }
    walk.folders.push_back({"", -1, FolderKind::Ordinary, u"", true, -1, {}, {}});

    // Folders wait on a stack (no recursion, any depth). Each is listed whole and closed before the next is opened,
    // so no depth of nesting holds more than one folder open; a path longer than the system takes is opened a part
    // at a time (openPath).
    // A folder whose path is long stays open while its subfolders wait, so that each opens relative to it (a
    // whole long path costs the system a look-up per name, for every folder below).
    using SharedFd = std::shared_ptr<int const>;
    auto share = [](int fd) {
        return SharedFd(new int(fd), [](int const* f) {
            ::close(*f);
            delete f;
        });
    };
    struct Pending {
        int index;
        std::string path;  // absolute
        std::string rel;
        SharedFd parent;  // the parent folder, open, when the path is long
    };
    std::vector<Pending> pending{{0, root.native(), "", nullptr}};
    struct Entry {
        std::string name;
        unsigned char type;
    };
    std::vector<Entry> entries;
    while (!pending.empty()) {
        Pending const current = std::move(pending.back());
        pending.pop_back();
        int const index = current.index;

        int fd = -1;
        if (current.parent) {
            fd = ::openat(*current.parent, walk.folders[index].name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        }
        if (fd < 0) {
            fd = openPath(current.path, O_RDONLY | O_DIRECTORY);
        }
        DIR* const dir = fd < 0 ? nullptr : ::fdopendir(fd);
        if (dir == nullptr) {
            int const error = errno;
            if (fd >= 0) {
                ::close(fd);
            }
            diagnostics.push_back({current.path, 0, 0, "cannot read the folder: " + errnoText(error)});
            continue;
        }
        entries.clear();
        for (;;) {
            errno = 0;
            dirent const* const entry = ::readdir(dir);
            if (entry == nullptr) {
                if (errno != 0) {
                    diagnostics.push_back({current.path, 0, 0, "cannot read the whole folder: " + errnoText(errno)});
                }
                break;
            }
            std::string_view const name(entry->d_name);
            if (name == "." || name == "..") {
                continue;
            }
            entries.push_back({std::string(name), entry->d_type});
        }
        std::sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) { return a.name < b.name; });
        int const dirFd = ::dirfd(dir);
        SharedFd self;
        if (current.path.size() >= PATH_MAX / 2) {
            int const kept = ::fcntl(dirFd, F_DUPFD_CLOEXEC, 0);
            if (kept >= 0) {
                self = share(kept);  // when no descriptor is left, the subfolders open by their path
            }
        }

        std::vector<int> subfolders;
        for (auto const& entry : entries) {
            auto const& name = entry.name;
            std::string const rel = current.rel.empty() ? name : current.rel + "/" + name;
            if (!exclude.empty() && excluded(exclude, rel, name)) {
                continue;
            }
            // The entry's own type comes with the listing; only a symbolic link (or a file system that does not
            // give types) costs a look at its target.
            bool isLink = entry.type == DT_LNK;
            bool isFolder = entry.type == DT_DIR;
            bool isRegular = entry.type == DT_REG;
            struct stat target {};
            bool haveTarget = false;
            if (entry.type == DT_UNKNOWN) {
                struct stat own {};
                if (::fstatat(dirFd, name.c_str(), &own, AT_SYMLINK_NOFOLLOW) == 0) {
                    isLink = S_ISLNK(own.st_mode);
                    if (!isLink) {
                        target = own;
                        haveTarget = true;
                    }
                }
            }
            int linkError = 0;
            if (isLink || (entry.type == DT_UNKNOWN && !haveTarget)) {
                haveTarget = ::fstatat(dirFd, name.c_str(), &target, 0) == 0;
                linkError = haveTarget ? 0 : errno;
            }
            if (haveTarget) {
                isFolder = S_ISDIR(target.st_mode);
                isRegular = S_ISREG(target.st_mode);
            } else if (isLink) {
                isFolder = isRegular = false;  // a dangling link
            }
            std::string path = current.path;
            if (!path.ends_with('/')) {
                path += '/';
            }
            path += name;
            if (isFolder) {
                if (name.starts_with('.')) {
                    continue;  // .git and the like
                }
                if (!skip.empty() && insideAny(fs::path(path), skip)) {
                    continue;
                }
                if (!haveTarget && ::fstatat(dirFd, name.c_str(), &target, 0) != 0) {
                    diagnostics.push_back({path, 0, 0, "cannot read the folder: " + errnoText(errno)});
                    continue;
                }
                if (!seen.insert({target.st_dev, target.st_ino}).second) {
                    if (isLink) {
                        diagnostics.push_back({path, 0, 0,
                                               "symbolic link to a folder scanned already (a link loop or a second "
                                               "way to the same folder): not scanned again"});
                    }
                    continue;
                }
                Folder folder;
                folder.name = name;
                folder.parent = index;
                auto const& parent = walk.folders[index];
                bool const parentHoldsFunctions =
                    parent.kind == FolderKind::Ordinary || parent.kind == FolderKind::Package;
                if (name.size() > 1 && name[0] == '+' && parentHoldsFunctions) {
                    folder.kind = FolderKind::Package;
                    auto const own = fs::path(name.substr(1)).u16string();
                    folder.qualified = parent.kind == FolderKind::Package ? parent.qualified + u"." + own : own;
                } else if (name.size() > 1 && name[0] == '@' && parentHoldsFunctions) {
                    folder.kind = FolderKind::Class;
                    auto const own = fs::path(name.substr(1)).u16string();
                    folder.qualified = parent.kind == FolderKind::Package ? parent.qualified + u"." + own : own;
                } else if (name == "private" && parent.kind != FolderKind::Private) {
                    folder.kind = FolderKind::Private;
                } else {
                    folder.kind = parent.kind == FolderKind::Ordinary ? FolderKind::Ordinary : FolderKind::Other;
                }
                folder.onDefaultPath = folder.kind == FolderKind::Ordinary && parent.onDefaultPath;
                int const subIndex = static_cast<int>(walk.folders.size());
                if (folder.kind == FolderKind::Private) {
                    walk.folders[index].privateFolder = subIndex;
                }
                walk.folders[index].subfolders.push_back(subIndex);
                walk.folders.push_back(std::move(folder));
                subfolders.push_back(subIndex);
                pending.push_back({subIndex, std::move(path), rel, self});
                continue;
            }
            bool const code = endsWith(name, ".qx");
            if (isLink && linkError == ELOOP && !code) {
                // A link to itself, or links that lead to each other (a code file's read reports it instead).
                diagnostics.push_back({path, 0, 0, "symbolic link that leads back to itself: not followed"});
                continue;
            }
            if (isRegular || code) {
                // A .qx entry that is no regular file (a dangling link, a pipe) is still a code file: reading it
                // reports why it cannot be read.
                WalkedFile file;
                file.path = std::move(path);
                file.rel = rel;
                file.folder = index;
                file.code = code;
                file.project = isRegular && endsWith(name, ".qxproj");
                if (code) {
                    walk.folders[index].codeFiles.push_back(static_cast<int>(walk.files.size()));
                }
                walk.files.push_back(std::move(file));
            }
        }
        ::closedir(dir);
        // Name order overall: the first subfolder is listed next.
        std::reverse(pending.end() - static_cast<std::ptrdiff_t>(subfolders.size()), pending.end());
    }
    return walk;
}

}  // namespace depattr::scan::detail

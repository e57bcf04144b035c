#include "scan/detail/Walk.hpp"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
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

std::string reasonOf(std::error_code const& error) {
    return error.message();
}

}  // namespace

Walk walkFolder(fs::path const& root, std::vector<std::string> const& exclude, std::vector<fs::path> const& skip,
                std::vector<ScanDiagnostic>& diagnostics) {
    Walk walk;
    std::set<std::pair<dev_t, ino_t>> seen;
    struct stat rootStat {};
    if (::stat(root.c_str(), &rootStat) == 0) {
        seen.insert({rootStat.st_dev, rootStat.st_ino});
    }
    walk.folders.push_back({root, "", -1, FolderKind::Ordinary, u"", true, -1, {}, {}});

    // Folders wait on a stack; each is listed whole and closed before the next is opened, so no depth of
    // nesting holds more than one folder open.
    std::vector<int> pending{0};
    while (!pending.empty()) {
        int const index = pending.back();
        pending.pop_back();
        fs::path const folderPath = walk.folders[index].path;

        std::error_code error;
        fs::directory_iterator it(folderPath, error);
        if (error) {
            diagnostics.push_back({folderPath, 0, 0, "cannot read the folder: " + reasonOf(error)});
            continue;
        }
        std::vector<fs::directory_entry> entries;
        for (fs::directory_iterator end; it != end; it.increment(error)) {
            entries.push_back(*it);
            if (error) {
                break;
            }
        }
        if (error) {
            diagnostics.push_back({folderPath, 0, 0, "cannot read the whole folder: " + reasonOf(error)});
        }
        std::sort(entries.begin(), entries.end(),
                  [](auto const& a, auto const& b) { return a.path().filename() < b.path().filename(); });

        std::vector<int> subfolders;
        for (auto const& entry : entries) {
            std::string const name = entry.path().filename().string();
            std::string const rel = walk.folders[index].rel.empty() ? name : walk.folders[index].rel + "/" + name;
            if (excluded(exclude, rel, name)) {
                continue;
            }
            // The entry's own type comes with the listing; only a symbolic link costs a look at its target.
            std::error_code statError;
            auto status = entry.symlink_status(statError);
            bool const isLink = status.type() == fs::file_type::symlink;
            if (isLink) {
                status = fs::status(entry.path(), statError);
            }
            if (status.type() == fs::file_type::directory) {
                if (name.starts_with('.')) {
                    continue;  // .git and the like
                }
                fs::path const sub = entry.path().lexically_normal();
                if (insideAny(sub, skip)) {
                    continue;
                }
                struct stat subStat {};
                if (::stat(sub.c_str(), &subStat) != 0) {
                    diagnostics.push_back({sub, 0, 0, "cannot read the folder"});
                    continue;
                }
                if (!seen.insert({subStat.st_dev, subStat.st_ino}).second) {
                    if (isLink) {
                        diagnostics.push_back({sub, 0, 0,
                                               "symbolic link to a folder scanned already (a link loop or a second "
                                               "way to the same folder): not scanned again"});
                    }
                    continue;
                }
                Folder folder;
                folder.path = sub;
                folder.rel = rel;
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
                continue;
            }
            bool const code = entry.path().extension() == ".qx";
            if (status.type() == fs::file_type::regular || code) {
                // A .qx entry that is no regular file (a dangling link, a pipe) is still a code file: reading it
                // reports why it cannot be read.
                WalkedFile file;
                file.path = entry.path().lexically_normal();
                file.rel = rel;
                file.folder = index;
                file.code = code;
                file.project = entry.path().extension() == ".qxproj" && status.type() == fs::file_type::regular;
                if (code) {
                    walk.folders[index].codeFiles.push_back(static_cast<int>(walk.files.size()));
                }
                walk.files.push_back(std::move(file));
            }
        }
        // Name order overall: the first subfolder is listed next.
        for (auto it2 = subfolders.rbegin(); it2 != subfolders.rend(); ++it2) {
            pending.push_back(*it2);
        }
    }
    return walk;
}

}  // namespace depattr::scan::detail

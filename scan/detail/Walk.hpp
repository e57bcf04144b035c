#pragma once
// The walk over the scanned folder: every folder and file once, in name order,
// without recursion (any depth), following symbolic links to folders once.

#include "scan/Scanner.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace depattr::scan::detail {

enum class FolderKind : std::uint8_t {
    Ordinary,  // a folder of functions; on the default path when its parents are
    Package,   // +pkg
    Class,     // @Cls
    Private,   // private
    Other,     // an ordinary folder inside a package, class or private folder: on no path
};

// A folder keeps its name, not its path: 10,000 nested folders would otherwise hold paths of every length up to
// 20,000 characters each. folderPath() and folderRel() rebuild them.
struct Folder {
    std::string name;  // "" for the scanned folder
    int parent = -1;
    FolderKind kind = FolderKind::Ordinary;
    std::u16string qualified;  // Package: "pkg.sub"; Class: "Cls" or "pkg.Cls"
    bool onDefaultPath = false;
    int privateFolder = -1;       // its private/ subfolder
    std::vector<int> subfolders;  // in name order
    std::vector<int> codeFiles;   // .qx files directly in it, in name order
};

struct WalkedFile {
    std::filesystem::path path;
    std::string rel;
    int folder = -1;
    bool code = false;     // .qx
    bool project = false;  // .qxproj
};

struct Walk {
    std::filesystem::path root;   // absolute, lexically normal
    std::vector<Folder> folders;  // folders[0] is the scanned folder
    std::vector<WalkedFile> files;
};

// The folder's absolute path, and its path relative to the scanned folder ('/' separators, "" for the folder itself).
std::filesystem::path folderPath(Walk const& walk, int folder);
std::string folderRel(Walk const& walk, int folder);

// Opens `path` (open(2) flags) also when it is longer than the system takes in one call: a long path is opened a
// part at a time, each part relative to the folder opened before. -1 with errno set when it cannot be opened.
int openPath(std::filesystem::path const& path, int flags);

// Folders in `skip` (absolute, lexically normal) are left out with what they hold.
Walk walkFolder(std::filesystem::path const& root, std::vector<std::string> const& exclude,
                std::vector<std::filesystem::path> const& skip, std::vector<ScanDiagnostic>& diagnostics);

// `text` matches the glob `pattern` ('*' any run of characters, '?' one, [...] a set).
bool globMatches(std::string const& pattern, std::string const& text);

// The '/'-separated form of `path` relative to `base`, or the generic form of `path` when it is not below base.
std::string relativeText(std::filesystem::path const& path, std::filesystem::path const& base);

}  // namespace depattr::scan::detail

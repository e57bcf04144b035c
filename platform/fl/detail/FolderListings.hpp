#pragma once
// The entries of folders read whole, for the shared answers of one analysis
// (SharedStatus). The file nodes of a graph crowd into few folders: once
// enough questions fell under a folder it is read once, and a path whose name
// its folder lacks is absent without asking the system about it. That holds
// for a whole missing subtree too: "src/gone/a.qx" is absent when "src" has no
// "gone".
//
// A folder is read only where every name it can open is among its entries,
// spelled exactly: on the local file systems listed in the source, and not in
// a folder that compares names without case or may not be searched. Elsewhere (network and user
// space file systems, mounts made on access) the system is asked as before.

#include "platform/foundation/ViewHash.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace fl::filesystem::detail {

class FolderListings {
public:
    // A folder is read once this many questions fell under it.
    static constexpr std::uint32_t questionsBeforeReading = 8;
    // A folder with more entries than this is not held: the system answers.
    static constexpr std::size_t largestFolder = std::size_t{1} << 16U;

    struct Answer {
        enum class Known : std::uint8_t { Unknown, Absent, Present };
        Known known = Known::Unknown;
        int error = 0;           // when absent: what stat(2) of the path gives (ENOENT or ENOTDIR)
        unsigned char type = 0;  // when present: the entry's type (DT_REG, DT_LNK, DT_UNKNOWN...)
    };

    // What the folders read so far tell of `path`, an absolute path without
    // a NUL; Unknown for any other path and where no folder read settles it.
    // Counts the question against each folder it falls under and reads a
    // folder that reaches questionsBeforeReading.
    Answer ask(std::string_view path);

    // Folders and names held: the caller bounds its memory with it.
    std::size_t size() const noexcept { return held_; }
    void clear() noexcept;

    // Whether the folder `path` would be read when questions fall under it.
    static bool readable(char const* path);

private:
    enum class State : std::uint8_t { Unread, Listed, Missing, Unreadable };
    struct Folder {
        State state = State::Unread;
        int error = 0;  // for Missing: what opening it gave
        std::uint32_t asked = 0;
        std::unordered_map<std::string, unsigned char, foundation::ViewHash, std::equal_to<>> names;  // name -> d_type
    };
    void read(char const* path, Folder& folder);

    std::unordered_map<std::string, Folder, foundation::ViewHash, std::equal_to<>> folders_;
    std::size_t held_ = 0;
};

}  // namespace fl::filesystem::detail

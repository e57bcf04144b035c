#pragma once
// The process-wide cache of file analysis results: by path, valid while the file keeps its version, bounded by the
// bytes the results hold, least recently used first out.

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace ca::detail {

// What tells one version of a file from another. Device and inode tell a replacement file from the one it replaced
// even when size and modification time were copied; the status-change time, which no program can set, tells an
// in-place rewrite that restored the modification time.
struct FileVersion {
    std::int64_t size = -1;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::int64_t changedSeconds = 0;
    std::int64_t changedNanoseconds = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    static FileVersion of(struct stat const& status) noexcept;
    bool operator==(FileVersion const&) const = default;
};

class ResultCache {
public:
    explicit ResultCache(std::size_t capacity) noexcept : capacity_(capacity) {}

    // The result stored for path if it was stored for this version of the file; it becomes the most recently used.
    std::shared_ptr<AnalysisResult const> find(std::u16string const& path, FileVersion const& version);
    // Stores (or replaces) path's result, dropping least recently used results until all fit the capacity; a
    // result that alone exceeds the capacity is not kept.
    void store(std::u16string const& path, FileVersion const& version, std::shared_ptr<AnalysisResult const> result);
    void setCapacity(std::size_t bytes);
    std::size_t capacity() const;
    // Bytes the kept results are counted at: their memoryBytes() and the entry's own share.
    std::size_t heldBytes() const;
    std::size_t size() const;

    // The cache of this process; its capacity comes from DEPATTR_PARSE_CACHE_BYTES when that is set and valid.
    static ResultCache& instance();

private:
    struct Entry {
        std::u16string path;
        FileVersion version;
        std::shared_ptr<AnalysisResult const> result;
        std::size_t bytes;
    };
    using Entries = std::list<Entry>;
    // Keys view the path held by their entry, which stays in place while the entry lives.
    using Index = std::unordered_map<std::u16string_view, Entries::iterator>;

    void remove(Entries::iterator entry);
    void evictUntil(std::size_t bytes);

    mutable std::mutex mutex_;
    Entries entries_;  // most recently used first
    Index index_;
    std::size_t bytes_ = 0;
    std::size_t capacity_;
};

// "123", "64K", "256M", "2G" (K, M and G are powers of 1024); nullopt for anything else.
std::optional<std::size_t> parseByteCount(std::string_view text);
// The capacity DEPATTR_PARSE_CACHE_BYTES asks for, else defaultResultCacheCapacity.
std::size_t capacityFromEnvironment();

}  // namespace ca::detail

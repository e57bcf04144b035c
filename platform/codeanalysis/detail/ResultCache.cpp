#include "platform/codeanalysis/detail/ResultCache.hpp"

#include <charconv>
#include <cstdlib>
#include <iterator>
#include <system_error>
#include <utility>

namespace ca::detail {

namespace {

// What an entry costs besides its result: the list node with the entry, the index node and the copy of the path.
std::size_t entryBytes(std::u16string const& path) noexcept {
    return sizeof(std::u16string) + sizeof(FileVersion) + 2 * sizeof(void*) + 64 + path.size() * sizeof(char16_t);
}

}  // namespace

FileVersion FileVersion::of(struct stat const& status) noexcept {
    FileVersion version;
    version.size = static_cast<std::int64_t>(status.st_size);
    version.modifiedSeconds = static_cast<std::int64_t>(status.st_mtim.tv_sec);
    version.modifiedNanoseconds = static_cast<std::int64_t>(status.st_mtim.tv_nsec);
    version.changedSeconds = static_cast<std::int64_t>(status.st_ctim.tv_sec);
    version.changedNanoseconds = static_cast<std::int64_t>(status.st_ctim.tv_nsec);
    version.device = static_cast<std::uint64_t>(status.st_dev);
    version.inode = static_cast<std::uint64_t>(status.st_ino);
    return version;
}

std::shared_ptr<AnalysisResult const> ResultCache::find(std::u16string const& path, FileVersion const& version) {
    std::lock_guard lock(mutex_);
    auto const found = index_.find(std::u16string_view(path));
    if (found == index_.end() || !(found->second->version == version)) {
        return nullptr;
    }
    entries_.splice(entries_.begin(), entries_, found->second);
    return found->second->result;
}

void ResultCache::store(std::u16string const& path, FileVersion const& version,
                        std::shared_ptr<AnalysisResult const> result) {
    auto const bytes = result->memoryBytes() + entryBytes(path);
    std::lock_guard lock(mutex_);
    if (auto const found = index_.find(std::u16string_view(path)); found != index_.end()) {
        remove(found->second);
    }
    if (bytes > capacity_) {
        return;
    }
    evictUntil(capacity_ - bytes);
    entries_.push_front(Entry{path, version, std::move(result), bytes});
    index_.emplace(std::u16string_view(entries_.front().path), entries_.begin());
    bytes_ += bytes;
}

void ResultCache::setCapacity(std::size_t bytes) {
    std::lock_guard lock(mutex_);
    capacity_ = bytes;
    evictUntil(capacity_);
}

std::size_t ResultCache::capacity() const {
    std::lock_guard lock(mutex_);
    return capacity_;
}

std::size_t ResultCache::heldBytes() const {
    std::lock_guard lock(mutex_);
    return bytes_;
}

std::size_t ResultCache::size() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

void ResultCache::remove(Entries::iterator entry) {
    bytes_ -= entry->bytes;
    index_.erase(std::u16string_view(entry->path));
    entries_.erase(entry);
}

void ResultCache::evictUntil(std::size_t bytes) {
    while (bytes_ > bytes) {
        remove(std::prev(entries_.end()));
    }
}

ResultCache& ResultCache::instance() {
    static ResultCache cache(capacityFromEnvironment());
    return cache;
}

std::optional<std::size_t> parseByteCount(std::string_view text) {
    std::size_t value = 0;
    auto const* const last = text.data() + text.size();
    auto const [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc() || end == text.data()) {
        return std::nullopt;
    }
    std::string_view const suffix(end, static_cast<std::size_t>(last - end));
    unsigned shift = 0;
    if (suffix == "K") {
        shift = 10;
    } else if (suffix == "M") {
        shift = 20;
    } else if (suffix == "G") {
        shift = 30;
    } else if (!suffix.empty()) {
        return std::nullopt;
    }
    if (value > (SIZE_MAX >> shift)) {
        return std::nullopt;
    }
    return value << shift;
}

std::size_t capacityFromEnvironment() {
    if (char const* setting = std::getenv("DEPATTR_PARSE_CACHE_BYTES")) {
        if (auto const bytes = parseByteCount(setting)) {
            return *bytes;
        }
    }
    return defaultResultCacheCapacity;
}

}  // namespace ca::detail

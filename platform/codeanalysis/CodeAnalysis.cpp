#include "platform/codeanalysis/CodeAnalysis.hpp"

#include "platform/codeanalysis/detail/Parser.hpp"
#include "platform/fl/MessageCatalog.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <list>
#include <optional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace ca {

AnalysisResult::AnalysisResult(std::unique_ptr<astapi::SyntaxTree> tree, std::vector<SyntaxError> errors,
                               std::u16string ownerName)
    : tree_(std::move(tree)), errors_(std::move(errors)), ownerName_(std::move(ownerName))
{
}

AnalysisResult::~AnalysisResult() = default;

std::size_t AnalysisResult::memoryBytes() const noexcept
{
    auto bytes = sizeof(AnalysisResult) + sizeof(astapi::SyntaxTree) + tree_->memoryBytes() +
                 errors_.capacity() * sizeof(SyntaxError) + ownerName_.capacity() * sizeof(char16_t);
    for (auto const& error : errors_) {
        bytes += error.message.capacity();
    }
    return bytes;
}

SingleFileAnalyzer::~SingleFileAnalyzer() = default;

std::shared_ptr<AnalysisResult const> analyzeText(std::string_view code, std::size_t treeByteLimit)
{
    auto outcome = detail::parse(code, treeByteLimit);
    return std::make_shared<AnalysisResult const>(std::move(outcome.tree), std::move(outcome.errors),
                                                  std::move(outcome.ownerName));
}

namespace {

[[noreturn]] void throwUnreadable(std::string const& nativePath, int error)
{
    throw FileReadError("cannot read the code file '" + nativePath + "': " + std::strerror(error));
}

// What tells one version of a file from another. Device and inode tell a replacement file from the one it
// replaced even when size and modification time were copied; the status-change time, which no program can set,
// tells an in-place rewrite that restored the modification time.
struct FileVersion {
    std::int64_t size = -1;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::int64_t changedSeconds = 0;
    std::int64_t changedNanoseconds = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    static FileVersion of(struct stat const& status) noexcept
    {
        return {static_cast<std::int64_t>(status.st_size),      static_cast<std::int64_t>(status.st_mtim.tv_sec),
                static_cast<std::int64_t>(status.st_mtim.tv_nsec), static_cast<std::int64_t>(status.st_ctim.tv_sec),
                static_cast<std::int64_t>(status.st_ctim.tv_nsec), static_cast<std::uint64_t>(status.st_dev),
                static_cast<std::uint64_t>(status.st_ino)};
    }
    bool operator==(FileVersion const&) const = default;
};

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    ~FileDescriptor()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(FileDescriptor const&) = delete;
    FileDescriptor& operator=(FileDescriptor const&) = delete;
    int get() const noexcept { return fd_; }

private:
    int fd_;
};

// Reads the whole file; the version is taken from the open file so that it describes the bytes read.
std::string readFile(std::string const& nativePath, FileVersion& version)
{
    FileDescriptor file(::open(nativePath.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        throwUnreadable(nativePath, errno);
    }
    struct stat status{};
    if (::fstat(file.get(), &status) != 0) {
        throwUnreadable(nativePath, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throwUnreadable(nativePath, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    version = FileVersion::of(status);
    std::string content;
    content.resize(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    for (;;) {
        if (done == content.size()) {
            content.resize(content.size() + 4096);  // the file may have grown since fstat
        }
        auto const got = ::read(file.get(), content.data() + done, content.size() - done);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwUnreadable(nativePath, errno);
        }
        if (got == 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    content.resize(done);
    return content;
}

// "123", "64K", "256M", "1G"; nullopt for anything else.
std::optional<std::size_t> parseByteCount(std::string_view text)
{
    std::size_t value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end == text.data()) {
        return std::nullopt;
    }
    std::string_view const suffix(end, static_cast<std::size_t>(text.data() + text.size() - end));
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

std::size_t initialCacheCapacity()
{
    if (char const* setting = std::getenv("DEPATTR_PARSE_CACHE_BYTES")) {
        if (auto const bytes = parseByteCount(setting)) {
            return *bytes;
        }
    }
    return defaultResultCacheCapacity;
}

// Results of files analysed in this process, by path; an entry is used only while the file keeps the version it
// had when it was read. Bounded by the bytes the results hold; the least recently used entries leave first.
class ResultCache {
public:
    std::shared_ptr<AnalysisResult const> find(std::u16string const& path, FileVersion const& version)
    {
        std::lock_guard lock(mutex_);
        auto const found = index_.find(std::u16string_view(path));
        if (found == index_.end() || !(found->second->version == version)) {
            return nullptr;
        }
        entries_.splice(entries_.begin(), entries_, found->second);
        return found->second->result;
    }

    void store(std::u16string const& path, FileVersion const& version, std::shared_ptr<AnalysisResult const> result)
    {
        auto const bytes = result->memoryBytes() + path.size() * sizeof(char16_t) + entryOverhead;
        std::lock_guard lock(mutex_);
        if (auto const found = index_.find(std::u16string_view(path)); found != index_.end()) {
            remove(found->second);
        }
        if (bytes > capacity_) {
            return;
        }
        evictUntil(capacity_ - bytes);
        entries_.push_front(Entry{path, version, std::move(result), bytes});
        // The key views the entry's own copy of the path, which stays where it is while the entry lives.
        index_.emplace(std::u16string_view(entries_.front().path), entries_.begin());
        bytes_ += bytes;
    }

    void setCapacity(std::size_t bytes)
    {
        std::lock_guard lock(mutex_);
        capacity_ = bytes;
        evictUntil(capacity_);
    }

    std::size_t capacity()
    {
        std::lock_guard lock(mutex_);
        return capacity_;
    }

    static ResultCache& instance()
    {
        static ResultCache cache;
        return cache;
    }

private:
    struct Entry {
        std::u16string path;
        FileVersion version;
        std::shared_ptr<AnalysisResult const> result;
        std::size_t bytes;
    };
    using Entries = std::list<Entry>;
    using Index = std::unordered_map<std::u16string_view, Entries::iterator>;
    static constexpr std::size_t entryOverhead = sizeof(Entry) + 2 * sizeof(void*) + sizeof(Index::value_type) + 32;

    void remove(Entries::iterator entry)
    {
        bytes_ -= entry->bytes;
        index_.erase(std::u16string_view(entry->path));
        entries_.erase(entry);
    }

    // Drops least recently used entries until at most `bytes` are held.
    void evictUntil(std::size_t bytes)
    {
        while (bytes_ > bytes) {
            remove(std::prev(entries_.end()));
        }
    }

    std::mutex mutex_;
    Entries entries_;  // most recently used first
    Index index_;
    std::size_t bytes_ = 0;
    std::size_t capacity_ = initialCacheCapacity();
};

class CachingSingleFileAnalyzer final : public SingleFileAnalyzer {
public:
    std::shared_ptr<AnalysisResult const> analyze(std::u16string const& path) override
    {
        // An unpaired surrogate becomes U+FFFD, and the path then names no file.
        auto const nativePath = fl::i18n::to_string(path);
        if (nativePath.find('\0') != std::string::npos) {
            throw FileReadError("cannot read the code file '" + fl::i18n::to_string(path.substr(0, path.find(u'\0'))) +
                                "...': the path contains a NUL character");
        }
        struct stat status{};
        if (::stat(nativePath.c_str(), &status) != 0) {
            throwUnreadable(nativePath, errno);
        }
        auto& cache = ResultCache::instance();
        if (auto cached = cache.find(path, FileVersion::of(status))) {
            return cached;
        }
        FileVersion version;
        auto const code = readFile(nativePath, version);
        auto result = analyzeText(code);
        cache.store(path, version, result);
        return result;
    }
};

}  // namespace

std::unique_ptr<SingleFileAnalyzer> createSingleFileAnalyzer()
{
    return std::make_unique<CachingSingleFileAnalyzer>();
}

void setResultCacheCapacity(std::size_t bytes) { ResultCache::instance().setCapacity(bytes); }

std::size_t resultCacheCapacity() { return ResultCache::instance().capacity(); }

}  // namespace ca

namespace lf::astapi {

using ca::astapi::Node;
using ca::astapi::NodeKind;

std::span<Node const* const> NodeCustomization<Method<ca::astapi::CA>>::getAttributes(Node const& method) noexcept
{
    if (method.kind() != NodeKind::MethodDefinition) {
        return {};
    }
    return method.list(15, 16);
}

std::u16string_view NodeCustomization<Attribute<ca::astapi::CA>>::getName(Node const& attribute) noexcept
{
    auto const* name = attribute.kind() == NodeKind::Attribute ? attribute.child(0) : nullptr;
    return name != nullptr ? name->identifier().getString() : std::u16string_view();
}

Node const* NodeCustomization<Attribute<ca::astapi::CA>>::getOperand(Node const& attribute) noexcept
{
    return attribute.kind() == NodeKind::Attribute ? attribute.child(1) : nullptr;
}

bool NodeCustomization<Attribute<ca::astapi::CA>>::isAttributeWithGivenLogicalValue(Node const& attribute,
                                                                                   bool value) noexcept
{
    return attribute.kind() == NodeKind::Attribute && attribute.child(1) == nullptr &&
           attribute.logicalValue() == value;
}

}  // namespace lf::astapi

#include "platform/codeanalysis/CodeAnalysis.hpp"

#include "platform/codeanalysis/detail/Parser.hpp"
#include "platform/fl/MessageCatalog.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace ca {

AnalysisResult::AnalysisResult(std::unique_ptr<astapi::SyntaxTree> tree, std::vector<SyntaxError> errors,
                               std::u16string ownerName)
    : tree_(std::move(tree)), errors_(std::move(errors)), ownerName_(std::move(ownerName))
{
}

AnalysisResult::~AnalysisResult() = default;

SingleFileAnalyzer::~SingleFileAnalyzer() = default;

std::shared_ptr<AnalysisResult const> analyzeText(std::string_view code)
{
    auto outcome = detail::parse(code);
    return std::make_shared<AnalysisResult const>(std::move(outcome.tree), std::move(outcome.errors),
                                                  std::move(outcome.ownerName));
}

namespace {

[[noreturn]] void throwUnreadable(std::string const& nativePath, int error)
{
    throw FileReadError("cannot read the code file '" + nativePath + "': " + std::strerror(error));
}

struct FileVersion {
    std::int64_t size = -1;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanoseconds = 0;

    static FileVersion of(struct stat const& status) noexcept
    {
        return {static_cast<std::int64_t>(status.st_size), static_cast<std::int64_t>(status.st_mtim.tv_sec),
                static_cast<std::int64_t>(status.st_mtim.tv_nsec)};
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

// Results of files analysed in this process, by path; an entry is used only while the file keeps the size and
// modification time it had when it was read. Bounded: when full, an arbitrary entry makes room.
class ResultCache {
public:
    std::shared_ptr<AnalysisResult const> find(std::u16string const& path, FileVersion const& version) const
    {
        std::shared_lock lock(mutex_);
        auto const found = entries_.find(path);
        if (found == entries_.end() || !(found->second.version == version)) {
            return nullptr;
        }
        return found->second.result;
    }

    void store(std::u16string const& path, FileVersion const& version, std::shared_ptr<AnalysisResult const> result)
    {
        std::unique_lock lock(mutex_);
        if (entries_.size() >= capacity && entries_.find(path) == entries_.end()) {
            entries_.erase(entries_.begin());
        }
        entries_[path] = Entry{version, std::move(result)};
    }

    static ResultCache& instance()
    {
        static ResultCache cache;
        return cache;
    }

private:
    static constexpr std::size_t capacity = 4096;
    struct Entry {
        FileVersion version;
        std::shared_ptr<AnalysisResult const> result;
    };
    mutable std::shared_mutex mutex_;
    std::unordered_map<std::u16string, Entry> entries_;
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

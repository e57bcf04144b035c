#include "platform/codeanalysis/CodeAnalysis.hpp"

#include "platform/codeanalysis/detail/Parser.hpp"
#include "platform/codeanalysis/detail/ResultCache.hpp"
#include "platform/fl/FileSystem.hpp"
#include "platform/fl/MessageCatalog.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace ca {

AnalysisResult::AnalysisResult(std::unique_ptr<astapi::SyntaxTree> tree, std::vector<SyntaxError> errors,
                               std::u16string ownerName)
    : tree_(std::move(tree)), errors_(std::move(errors)), ownerName_(std::move(ownerName)) {}

AnalysisResult::~AnalysisResult() = default;

std::size_t AnalysisResult::memoryBytes() const noexcept {
    auto bytes = sizeof(AnalysisResult) + sizeof(astapi::SyntaxTree) + tree_->memoryBytes() +
                 errors_.capacity() * sizeof(SyntaxError) + ownerName_.capacity() * sizeof(char16_t);
    for (auto const& error : errors_) {
        bytes += error.message.capacity();
    }
    return bytes;
}

SingleFileAnalyzer::~SingleFileAnalyzer() = default;

std::shared_ptr<AnalysisResult const> analyzeText(std::string_view code, std::size_t treeByteLimit) {
    auto outcome = detail::parse(code, treeByteLimit);
    return std::make_shared<AnalysisResult const>(std::move(outcome.tree), std::move(outcome.errors),
                                                  std::move(outcome.ownerName));
}

namespace {

using detail::FileVersion;

[[noreturn]] void throwUnreadable(std::string const& nativePath, int error) {
    throw FileReadError("cannot read the code file '" + nativePath + "': " + std::strerror(error));
}

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
    ~FileDescriptor() {
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
std::string readFile(std::string const& nativePath, FileVersion& version) {
    // Non-blocking, so that a pipe without a writer is refused below instead of waited on.
    FileDescriptor file(::open(nativePath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) {
        throwUnreadable(nativePath, errno);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        throwUnreadable(nativePath, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throwUnreadable(nativePath, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
    }
    if (static_cast<std::uintmax_t>(status.st_size) > maxCodeFileBytes) {
        throw FileReadError("cannot read the code file '" + nativePath + "': it holds " +
                            std::to_string(status.st_size) + " bytes, more than the " +
                            std::to_string(maxCodeFileBytes) + " bytes a code file may hold");
    }
    version = FileVersion::of(status);
    std::string content;
    content.resize(static_cast<std::size_t>(status.st_size));
    std::size_t done = 0;
    for (;;) {
        if (done == content.size()) {
            if (done >= maxCodeFileBytes) {
                throw FileReadError("cannot read the code file '" + nativePath + "': it grew past the " +
                                    std::to_string(maxCodeFileBytes) + " bytes a code file may hold");
            }
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

class CachingSingleFileAnalyzer final : public SingleFileAnalyzer {
public:
    std::shared_ptr<AnalysisResult const> analyze(std::u16string const& path) override {
        // An unpaired surrogate becomes U+FFFD, and the path then names no file.
        auto const nativePath = fl::i18n::to_string(path);
        if (nativePath.find('\0') != std::string::npos) {
            throw FileReadError("cannot read the code file '" + fl::i18n::to_string(path.substr(0, path.find(u'\0'))) +
                                "...': the path contains a NUL character");
        }
        // Within one analysis every node of a file asks the system once (fl::filesystem::SharedStatus).
        struct stat status {};
        if (int const error = fl::filesystem::shared_stat(nativePath, status); error != 0) {
            throwUnreadable(nativePath, error);
        }
        auto& cache = detail::ResultCache::instance();
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

std::unique_ptr<SingleFileAnalyzer> createSingleFileAnalyzer() {
    return std::make_unique<CachingSingleFileAnalyzer>();
}

void setResultCacheCapacity(std::size_t bytes) {
    detail::ResultCache::instance().setCapacity(bytes);
}

std::size_t resultCacheCapacity() {
    return detail::ResultCache::instance().capacity();
}

}  // namespace ca

namespace lf::astapi {

using ca::astapi::Node;
using ca::astapi::NodeKind;
namespace slot = ca::astapi::slot;

std::span<Node const* const> NodeCustomization<Method<ca::astapi::CA>>::getAttributes(Node const& method) noexcept {
    if (method.kind() != NodeKind::MethodDefinition) {
        return {};
    }
    return method.list(slot::MethodDefinition::attributes);
}

std::u16string_view NodeCustomization<Attribute<ca::astapi::CA>>::getName(Node const& attribute) noexcept {
    auto const* name = attribute.kind() == NodeKind::Attribute ? attribute.child(slot::Attribute::name) : nullptr;
    return name != nullptr ? name->identifier().getString() : std::u16string_view();
}

Node const* NodeCustomization<Attribute<ca::astapi::CA>>::getOperand(Node const& attribute) noexcept {
    return attribute.kind() == NodeKind::Attribute ? attribute.child(slot::Attribute::operand) : nullptr;
}

bool NodeCustomization<Attribute<ca::astapi::CA>>::isAttributeWithGivenLogicalValue(Node const& attribute,
                                                                                    bool value) noexcept {
    return attribute.kind() == NodeKind::Attribute && attribute.child(slot::Attribute::operand) == nullptr &&
           attribute.logicalValue() == value;
}

}  // namespace lf::astapi

#include "cli/Output.hpp"

#include "cli/Texts.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <streambuf>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace depattr::cli {

int writeAll(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t const written = ::write(fd, data.data(), data.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        data.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

void writeStandardOutput(std::string_view data) {
    if (int const error = writeAll(STDOUT_FILENO, data); error != 0) {
        throw OutputError(text("ErrorWriteStandardOutput", {std::string(std::strerror(error))}));
    }
}

void writeFile(std::filesystem::path const& file, std::string_view data) {
    ReportOutput output(file);
    output.stream().write(data.data(), static_cast<std::streamsize>(data.size()));
    output.finish();
}

class ReportOutput::Buffer final : public std::streambuf {
public:
    explicit Buffer(int fd) : fd_(fd), space_(64 << 10) { setp(space_.data(), space_.data() + space_.size()); }

    // The errno of the first failed write, or 0.
    int flushAll() {
        drain();
        return error_;
    }

protected:
    int_type overflow(int_type c) override {
        drain();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    int sync() override {
        drain();
        return 0;
    }

private:
    void drain() {
        std::string_view const pending(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        if (error_ == 0 && !pending.empty()) {
            error_ = writeAll(fd_, pending);
        }
        setp(space_.data(), space_.data() + space_.size());
    }

    int fd_;
    int error_ = 0;
    std::vector<char> space_;
};

namespace {

// The permissions a new file gets from the process's umask.
mode_t newFileMode() {
    mode_t const mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

ReportOutput::ReportOutput(std::filesystem::path file) : file_(std::move(file)), fd_(STDOUT_FILENO) {
    if (!file_.empty()) {
        auto const failed = [&](int error) {
            return OutputError(text("ErrorWriteFile", {file_.string(), std::string(std::strerror(error))}));
        };
        // A link is followed to the file it names, so that the link stays a link.
        std::error_code ignored;
        target_ =
            std::filesystem::is_symlink(file_, ignored) ? std::filesystem::weakly_canonical(file_, ignored) : file_;
        if (target_.empty()) {
            target_ = file_;
        }
        struct stat existing {};
        bool const exists = ::stat(target_.c_str(), &existing) == 0;
        if (exists && !S_ISREG(existing.st_mode)) {
            // A device or a pipe cannot be replaced: it is written in place.
            fd_ = ::open(target_.c_str(), O_WRONLY | O_CLOEXEC);
            if (fd_ < 0) {
                throw failed(errno);
            }
        } else {
            auto const folder = target_.has_parent_path() ? target_.parent_path() : std::filesystem::path(".");
            std::string pattern = (folder / ("." + target_.filename().string() + ".XXXXXX")).string();
            fd_ = ::mkostemp(pattern.data(), O_CLOEXEC);
            if (fd_ < 0) {
                throw failed(errno);
            }
            partial_ = pattern;
            ::fchmod(fd_, exists ? (existing.st_mode & 07777) : newFileMode());
        }
    }
    buffer_ = std::make_unique<Buffer>(fd_);
    stream_ = std::make_unique<std::ostream>(buffer_.get());
}

ReportOutput::~ReportOutput() {
    if (!file_.empty() && fd_ >= 0) {
        ::close(fd_);
    }
    if (!partial_.empty()) {
        ::unlink(partial_.c_str());
    }
}

std::ostream& ReportOutput::stream() {
    return *stream_;
}

void ReportOutput::finish() {
    int error = buffer_->flushAll();
    if (!file_.empty()) {
        if (::close(fd_) != 0 && error == 0) {
            error = errno;
        }
        fd_ = -1;
        if (!partial_.empty()) {
            if (error == 0 && ::rename(partial_.c_str(), target_.c_str()) != 0) {
                error = errno;
            }
            if (error != 0) {
                ::unlink(partial_.c_str());
            }
            partial_.clear();
        }
    }
    if (error != 0) {
        throw OutputError(file_.empty() ? text("ErrorWriteStandardOutput", {std::string(std::strerror(error))})
                                        : text("ErrorWriteFile", {file_.string(), std::string(std::strerror(error))}));
    }
}

bool useColour(ColourChoice choice, bool isTerminal) {
    if (choice != ColourChoice::Auto) {
        return choice == ColourChoice::Always;
    }
    if (!isTerminal) {
        return false;
    }
    if (char const* noColour = std::getenv("NO_COLOR"); noColour != nullptr && *noColour != '\0') {
        return false;
    }
    char const* term = std::getenv("TERM");
    return term == nullptr || std::string_view(term) != "dumb";
}

}  // namespace depattr::cli

#include "cli/Output.hpp"

#include "cli/Texts.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <streambuf>
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
    int const fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    int error = fd < 0 ? errno : writeAll(fd, data);
    if (fd >= 0 && ::close(fd) != 0 && error == 0) {
        error = errno;
    }
    if (error != 0) {
        throw OutputError(text("ErrorWriteFile", {file.string(), std::string(std::strerror(error))}));
    }
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

ReportOutput::ReportOutput(std::filesystem::path file) : file_(std::move(file)), fd_(STDOUT_FILENO) {
    if (!file_.empty()) {
        fd_ = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd_ < 0) {
            throw OutputError(text("ErrorWriteFile", {file_.string(), std::string(std::strerror(errno))}));
        }
    }
    buffer_ = std::make_unique<Buffer>(fd_);
    stream_ = std::make_unique<std::ostream>(buffer_.get());
}

ReportOutput::~ReportOutput() {
    if (!file_.empty() && fd_ >= 0) {
        ::close(fd_);
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

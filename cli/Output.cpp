#include "cli/Output.hpp"

#include "cli/Texts.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

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

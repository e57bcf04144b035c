#pragma once
// A scratch folder for one test, and the exception a call throws.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

namespace depattr_test {

// A fresh folder under the system's temporary folder, removed with its contents at the end of the scope.
class ScratchFolder {
public:
    explicit ScratchFolder(std::string const& tag = "depattr") {
        std::string pattern = (std::filesystem::temp_directory_path() / (tag + "-XXXXXX")).string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a scratch folder");
        }
        path_ = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(ScratchFolder const&) = delete;
    ScratchFolder& operator=(ScratchFolder const&) = delete;

    std::filesystem::path const& path() const { return path_; }

    // Writes `relative` (making its folders) with `content`; returns its path.
    std::filesystem::path write(std::filesystem::path const& relative, std::string const& content) const {
        auto const file = path_ / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path path_;
};

// Writes `bytes` to `file`, replacing what it held.
inline void writeBytes(std::filesystem::path const& file, std::string const& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

// The exception of type E that `call` throws; a test failure, and nothing, when it throws none.
template <class E, class F>
std::optional<E> thrown(F&& call) {
    try {
        call();
    } catch (E const& error) {
        return error;
    }
    ADD_FAILURE() << "no exception thrown";
    return std::nullopt;
}

// The text of the E that `call` throws, or "no exception".
template <class E, class F>
std::string whatOf(F&& call) {
    auto const error = thrown<E>(std::forward<F>(call));
    return error ? std::string(error->what()) : "no exception";
}

}  // namespace depattr_test

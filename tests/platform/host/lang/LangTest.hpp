#pragma once
// Helpers of the interpreter's tests: run a script and describe its
// variables, catch the error a script raises, and write code files into a
// temporary folder on the search path.

#include "platform/host/HostError.hpp"
#include "platform/host/lang/Language.hpp"

#include <boost/locale/encoding_utf.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>

namespace qlang::testing {

inline std::string narrow(std::u16string const& text) {
    return boost::locale::conv::utf_to_utf<char>(text);
}

// A case: code, the variable to look at, and its expected description
// (see qlang::describe: [1 2;3 4], 'text', "text", {1,'a'}, struct(a=1), true).
struct ValueCase {
    char const* code;
    char const* variable;
    char const* expected;
};

inline std::string valueOf(std::string const& code, std::string const& variable) {
    try {
        auto const variables = runScript(code, "case.qx");
        auto const found = variables.find(variable);
        if (found == variables.end()) {
            return "<unset>";
        }
        return narrow(describe(*found->second));
    } catch (qcos::HostError const& error) {
        return "error " + error.identifier() + ": " + error.what() + " at " + error.location();
    }
}

// Runs every case and reports each mismatch with its code.
inline void expectValues(std::initializer_list<ValueCase> cases) {
    for (auto const& c : cases) {
        EXPECT_EQ(valueOf(c.code, c.variable), c.expected) << "code: " << c.code;
    }
}

// The error a script raises, or nothing.
inline std::optional<qcos::HostError> errorOf(std::string const& code, std::string const& name = "case.qx") {
    try {
        (void)runScript(code, name);
    } catch (qcos::HostError const& error) {
        return error;
    }
    return std::nullopt;
}

// An error case: code, the identifier, a part of the message, and where
// (line:column in the script, or empty to skip the check).
struct ErrorCase {
    char const* code;
    char const* identifier;
    char const* messagePart;
    char const* location;
};

inline void expectErrors(std::initializer_list<ErrorCase> cases) {
    for (auto const& c : cases) {
        auto const error = errorOf(c.code);
        if (!error) {
            ADD_FAILURE() << "no error from: " << c.code;
            continue;
        }
        EXPECT_EQ(error->identifier(), c.identifier) << "code: " << c.code << "\nmessage: " << error->what();
        EXPECT_NE(std::string(error->what()).find(c.messagePart), std::string::npos)
            << "code: " << c.code << "\nmessage: " << error->what();
        if (c.location[0] != '\0') {
            EXPECT_EQ(error->location(), std::string("case.qx:") + c.location) << "code: " << c.code;
        }
    }
}

// A fresh folder, put on the search path, for the code files of one test.
class CodeFolder {
public:
    CodeFolder() {
        std::random_device device;
        path_ = std::filesystem::temp_directory_path() /
                ("qlang-test-" + std::to_string(device()) + "-" + std::to_string(device()));
        std::filesystem::create_directories(path_);
        setSearchPath({path_});
    }
    ~CodeFolder() {
        setSearchPath({});
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    CodeFolder(CodeFolder const&) = delete;
    CodeFolder& operator=(CodeFolder const&) = delete;

    // Writes `relative` (e.g. "+pkg/f.qx") with the given text.
    std::filesystem::path write(std::string const& relative, std::string const& text) const {
        auto const file = path_ / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
        return file;
    }
    std::filesystem::path const& path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace qlang::testing

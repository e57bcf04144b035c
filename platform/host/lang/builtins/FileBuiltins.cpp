// File names and the file system: fullfile, fileparts, isfile, isfolder, filesep.

#include "platform/host/lang/detail/Builtins.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace qlang::detail {

namespace {

Values fullFile(Args args) {
    checkCount("fullfile", args, 1, std::numeric_limits<std::size_t>::max());
    std::u16string joined;
    for (auto const& arg : args) {
        auto part = textOf(*arg, "fullfile: a part");
        if (part.empty()) {
            continue;
        }
        if (!joined.empty() && joined.back() != u'/') {
            joined.push_back(u'/');
        }
        // One separator between parts, however many the parts bring.
        std::size_t skip = 0;
        while (!joined.empty() && skip < part.size() && part[skip] == u'/') {
            ++skip;
        }
        joined += part.substr(skip);
    }
    // Repeated separators inside a part collapse too.
    std::u16string collapsed;
    for (auto const c : joined) {
        if (c == u'/' && !collapsed.empty() && collapsed.back() == u'/') {
            continue;
        }
        collapsed.push_back(c);
    }
    return one(makeChars(collapsed));
}

Values fileParts(Args args, int nargout) {
    checkCount("fileparts", args, 1, 1);
    auto const path = textOf(*args[0], "fileparts: the path");
    auto const slash = path.rfind(u'/');
    std::u16string folder = slash == std::u16string::npos ? u"" : path.substr(0, slash == 0 ? 1 : slash);
    std::u16string file = slash == std::u16string::npos ? path : path.substr(slash + 1);
    std::u16string extension;
    if (auto const dot = file.rfind(u'.'); dot != std::u16string::npos) {
        extension = file.substr(dot);
        file.erase(dot);
    }
    bool const asString = args[0]->classID() == qxClassID::String;
    auto make = [asString](std::u16string const& text) { return asString ? makeString(text) : makeChars(text); };
    Values results{make(folder)};
    if (nargout > 1) {
        results.push_back(make(file));
    }
    if (nargout > 2) {
        results.push_back(make(extension));
    }
    return results;
}

Values fileTest(std::string_view function, Args args, bool folder) {
    checkCount(function, args, 1, 1);
    auto const path = std::filesystem::path(textOf(*args[0], fmt::format("{}: the path", function)));
    std::error_code error;
    bool const found =
        folder ? std::filesystem::is_directory(path, error) : std::filesystem::is_regular_file(path, error);
    return one(makeLogical(found));
}

Values readFile(Args args) {
    checkCount("fileread", args, 1, 1);
    auto const name = textOf(*args[0], "fileread: the file name");
    // Only regular files: a device such as /dev/zero would be read forever.
    std::error_code error;
    bool const regular = std::filesystem::is_regular_file(std::filesystem::path(name), error);
    std::ifstream file;
    if (regular) {
        file.open(std::filesystem::path(name), std::ios::binary);
    }
    if (!regular || !file) {
        raise("qlang:fileread:cannotRead", fmt::format("fileread: cannot read the file '{}'.", utf8(name)));
    }
    std::ostringstream bytes;
    bytes << file.rdbuf();
    auto text = bytes.str();
    // UTF-8, with or without a byte-order mark.
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.erase(0, 3);
    }
    return one(makeChars(utf16(text)));
}

}  // namespace

void registerFileBuiltins() {
    defineBuiltin("fileread", [](Args args, int) { return readFile(args); });
    defineBuiltin("fullfile", [](Args args, int) { return fullFile(args); });
    defineBuiltin("fileparts", fileParts);
    defineBuiltin("isfile", [](Args args, int) { return fileTest("isfile", args, false); });
    defineBuiltin("isfolder", [](Args args, int) { return fileTest("isfolder", args, true); });
    defineBuiltin("filesep", [](Args args, int) {
        checkCount("filesep", args, 0, 0);
        return one(makeChars(u"/"));
    });
}

}  // namespace qlang::detail

#include "platform/host/lang/Language.hpp"

#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Compiler.hpp"
#include "platform/host/lang/detail/Interpreter.hpp"
#include "platform/host/lang/detail/Maps.hpp"
#include "platform/host/lang/detail/Runtime.hpp"

#include <algorithm>
#include <mutex>
#include <system_error>

namespace qlang {

namespace fs = std::filesystem;
using detail::CodeRuntime;

namespace {

void ensureInitialised() {
    static std::once_flag initialised;
    std::call_once(initialised, [] {
        detail::registerValueBuiltins();
        detail::registerMathBuiltins();
        detail::registerTextBuiltins();
        detail::registerFormatBuiltins();
        detail::registerRegexBuiltins();
        detail::registerCollectionBuiltins();
        detail::registerFileBuiltins();
        detail::registerMapClass();
    });
}

void listInto(fs::path const& folder, std::string const& prefix, std::vector<CodeFile>& files) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (auto const& entry : fs::directory_iterator(folder, error)) {
        entries.push_back(entry.path());
    }
    std::sort(entries.begin(), entries.end());
    std::vector<fs::path> packages;
    for (auto const& entry : entries) {
        auto const name = entry.filename().string();
        if (fs::is_directory(entry, error)) {
            if (name.size() > 1 && name.front() == '+') {
                packages.push_back(entry);
            }
            continue;
        }
        if (entry.extension() == ".qx" && fs::is_regular_file(entry, error)) {
            files.push_back({entry, prefix + entry.stem().string()});
        }
    }
    for (auto const& package : packages) {
        listInto(package, prefix + package.filename().string().substr(1) + ".", files);
    }
}

}  // namespace

std::vector<fs::path> getSearchPath() {
    return CodeRuntime::get().searchPath();
}

void setSearchPath(std::vector<fs::path> folders) {
    CodeRuntime::get().setSearchPath(std::move(folders));
}

void addToSearchPath(fs::path const& folder) {
    CodeRuntime::get().addToSearchPath(folder);
}

std::vector<CodeFile> listCodeFiles(fs::path const& folder) {
    std::vector<CodeFile> files;
    listInto(folder, "", files);
    return files;
}

FileSummary checkFile(CodeFile const& file) {
    ensureInitialised();
    auto const compiled =
        CodeRuntime::get().compile(fs::absolute(file.path).lexically_normal(), file.qualifiedName, false);
    FileSummary summary;
    if (compiled->classSyntax) {
        summary.isClass = true;
        summary.isAbstract = compiled->classSyntax->isAbstract;
        for (auto const& [super, position] : compiled->classSyntax->superclasses) {
            summary.superclasses.push_back(super);
        }
    }
    return summary;
}

void defineClass(std::string const& qualifiedName) {
    ensureInitialised();
    if (CodeRuntime::get().classRecord(qualifiedName) == nullptr) {
        throw qcos::HostError("qlang:class:notFound",
                              "No class file of the search path defines the class '" + qualifiedName + "'.");
    }
}

std::vector<qxArrayPtr> callFunction(std::string const& name, std::span<qxArray const* const> inputs, int outputCount) {
    ensureInitialised();
    return detail::arraysOf(detail::callByName(name, detail::valuesOf(inputs), outputCount));
}

std::map<std::string, qxArrayShared> runScript(std::string_view code, std::string const& name) {
    ensureInitialised();
    auto const file = detail::compileFile(ca::analyzeText(code), name, name, "", true);
    auto const frame = detail::runScript(*file);
    std::map<std::string, qxArrayShared> variables;
    for (std::size_t i = 0; i < frame->slots.size(); ++i) {
        if (frame->slots[i]) {
            variables.emplace(file->main->slotNames[i], frame->slots[i]);
        }
    }
    return variables;
}

std::u16string describe(qxArray const& value) {
    return detail::describe(value);
}

void registerBuiltins() {
    ensureInitialised();
}

std::vector<std::string> builtinNames() {
    ensureInitialised();
    return CodeRuntime::get().builtinNames();
}

int getRecursionLimit() {
    return detail::recursionLimit();
}

void setRecursionLimit(int limit) {
    detail::setRecursionLimit(limit);
}

}  // namespace qlang

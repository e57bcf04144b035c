#include "platform/host/lang/detail/Runtime.hpp"

#include "platform/host/lang/Language.hpp"
#include "platform/host/lang/detail/Compiler.hpp"

#include <system_error>

namespace qlang::detail {

namespace fs = std::filesystem;

CodeRuntime& CodeRuntime::get() {
    // Never destroyed: host code may still run while static destructors do.
    static auto* runtime = new CodeRuntime;
    return *runtime;
}

std::vector<fs::path> CodeRuntime::searchPath() const {
    std::lock_guard lock(mutex_);
    return path_;
}

void CodeRuntime::setSearchPath(std::vector<fs::path> folders) {
    for (auto const& folder : folders) {
        std::error_code error;
        if (!fs::is_directory(folder, error)) {
            raise("qlang:path:notFolder", fmt::format("'{}' is not a folder.", folder.string()));
        }
    }
    std::lock_guard lock(mutex_);
    path_.clear();
    for (auto& folder : folders) {
        path_.push_back(fs::absolute(folder).lexically_normal());
    }
    onPath_.clear();
    generation_.fetch_add(1, std::memory_order_acq_rel);
}

void CodeRuntime::addToSearchPath(fs::path folder) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        raise("qlang:path:notFolder", fmt::format("'{}' is not a folder.", folder.string()));
    }
    std::lock_guard lock(mutex_);
    auto const normal = fs::absolute(folder).lexically_normal();
    if (std::find(path_.begin(), path_.end(), normal) == path_.end()) {
        path_.push_back(normal);
    }
    onPath_.clear();
    generation_.fetch_add(1, std::memory_order_acq_rel);
}

std::shared_ptr<CompiledFile const> CodeRuntime::compile(fs::path const& path, std::string const& qualifiedName,
                                                         bool allowScript) {
    std::lock_guard lock(mutex_);
    auto const key = path.string();
    if (auto const found = compiled_.find(key); found != compiled_.end()) {
        return found->second;
    }
    std::shared_ptr<ca::AnalysisResult const> tree;
    try {
        tree = ca::createSingleFileAnalyzer()->analyze(path.u16string());
    } catch (ca::FileReadError const& error) {
        raise("qlang:file:unreadable", error.what());
    }
    auto file = compileFile(std::move(tree), path, path.string(), qualifiedName, allowScript);
    compiled_.emplace(key, file);
    return file;
}

std::shared_ptr<CompiledFile const> CodeRuntime::findOnPath(std::string_view qualifiedName) {
    std::lock_guard lock(mutex_);
    if (auto const found = onPath_.find(qualifiedName); found != onPath_.end()) {
        return found->second;
    }
    // pkg.sub.name lives in +pkg/+sub/name.qx under a folder of the path.
    fs::path relative;
    std::string_view rest = qualifiedName;
    for (auto dot = rest.find('.'); dot != std::string_view::npos; dot = rest.find('.')) {
        relative /= "+" + std::string(rest.substr(0, dot));
        rest.remove_prefix(dot + 1);
    }
    relative /= std::string(rest) + ".qx";
    for (auto const& folder : path_) {
        auto const candidate = folder / relative;
        std::error_code error;
        if (fs::is_regular_file(candidate, error)) {
            auto file = compile(candidate, std::string(qualifiedName), false);
            onPath_.emplace(std::string(qualifiedName), file);
            return file;
        }
    }
    return nullptr;
}

Resolution const* CodeRuntime::resolve(std::string_view dottedName) {
    // Built-ins take part in every resolution.
    registerBuiltins();
    std::lock_guard lock(mutex_);
    auto const generation = generation_.load(std::memory_order_acquire);
    if (auto const found = resolutions_.find(dottedName);
        found != resolutions_.end() && found->second->generation == generation) {
        return found->second;
    }
    std::vector<std::string> parts;
    {
        std::size_t start = 0;
        for (;;) {
            auto const dot = dottedName.find('.', start);
            parts.emplace_back(dottedName.substr(start, dot - start));
            if (dot == std::string_view::npos) {
                break;
            }
            start = dot + 1;
        }
    }
    Resolution resolution;
    resolution.generation = generation;
    bool found = false;
    // The longest dotted prefix that names a file on the path or a registered class.
    for (auto count = parts.size(); count > 0 && !found; --count) {
        std::string prefix = parts[0];
        for (std::size_t i = 1; i < count; ++i) {
            prefix += "." + parts[i];
        }
        if (auto file = findOnPath(prefix)) {
            resolution.consumed = count;
            resolution.file = file;
            if (file->classSyntax) {
                resolution.kind = Resolution::Kind::Class;
                resolution.className = prefix;
            } else {
                resolution.kind = Resolution::Kind::PathFunction;
                resolution.function = file->main;
            }
            found = true;
        } else if (qcos::omFindClass(prefix)) {
            resolution.kind = Resolution::Kind::Class;
            resolution.className = prefix;
            resolution.consumed = count;
            found = true;
        } else if (count == 1) {
            if (auto const* builtin = findBuiltin(prefix)) {
                resolution.kind = Resolution::Kind::Builtin;
                resolution.builtin = builtin;
                resolution.consumed = 1;
                found = true;
            } else if (auto host = qvm::findHostFunction(prefix)) {
                resolution.kind = Resolution::Kind::Host;
                resolution.host = std::move(host);
                resolution.consumed = 1;
                found = true;
            }
        }
    }
    if (!found) {
        return nullptr;
    }
    auto const* stored = &resolutionStore_.emplace_back(std::move(resolution));
    resolutions_.insert_or_assign(std::string(dottedName), stored);
    return stored;
}

ClassRecord const* CodeRuntime::existingRecord(std::string_view className) const {
    std::lock_guard lock(mutex_);
    auto const found = classes_.find(className);
    return found == classes_.end() ? nullptr : found->second.get();
}

ClassRecord const* CodeRuntime::classRecord(std::string_view className) {
    std::lock_guard lock(mutex_);
    if (auto const found = classes_.find(className); found != classes_.end()) {
        return found->second.get();
    }
    if (qcos::omFindClass(className)) {
        return nullptr;  // a class registered some other way
    }
    auto file = findOnPath(className);
    if (!file || !file->classSyntax) {
        return nullptr;
    }
    return defineClass(file);
}

void CodeRuntime::addBuiltin(std::string name, BuiltinFunction function) {
    std::lock_guard lock(mutex_);
    // The first registration of a name stays: resolutions point at it.
    if (builtins_.contains(name)) {
        return;
    }
    auto builtin = std::make_unique<Builtin>(Builtin{name, std::move(function)});
    builtins_.emplace(std::move(name), std::move(builtin));
    generation_.fetch_add(1, std::memory_order_acq_rel);
}

Builtin const* CodeRuntime::findBuiltin(std::string_view name) const {
    std::lock_guard lock(mutex_);
    auto const found = builtins_.find(name);
    return found == builtins_.end() ? nullptr : found->second.get();
}

std::vector<std::string> CodeRuntime::builtinNames() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (auto const& [name, builtin] : builtins_) {
        names.push_back(name);
    }
    return names;
}

}  // namespace qlang::detail

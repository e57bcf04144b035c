#pragma once
// The interpreter's process-wide state: the search path, the compiled files
// found on it, the classes defined from them, the built-in functions, and the
// resolution of names to what they call. Guarded by one recursive mutex; the
// interpreter itself runs on the command threads of VMs.

#include "platform/host/HostFunctions.hpp"
#include "platform/host/lang/detail/Code.hpp"
#include "platform/host/lang/detail/Values.hpp"

#include <atomic>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qlang::detail {

using Values = std::vector<Value>;
using BuiltinFunction = std::function<Values(std::span<Value const> args, int nargout)>;

struct Builtin {
    std::string name;
    BuiltinFunction function;
};

// What a name stands for.
struct Resolution {
    enum class Kind : std::uint8_t { PathFunction, Class, Builtin, Host };
    Kind kind = Kind::Builtin;
    std::uint64_t generation = 0;
    std::size_t consumed = 0;  // how many of the dotted names the resolution used
    std::shared_ptr<CompiledFile const> file;
    Function const* function{};  // PathFunction
    std::string className;       // Class
    Builtin const* builtin{};
    std::shared_ptr<qvm::HostFunction const> host;
};

// A class defined from a class file.
struct ClassRecord {
    std::string name;
    std::shared_ptr<CompiledFile const> file;
    ClassSyntax const* syntax{};
    std::vector<std::string> superclasses;                        // qualified names
    std::map<std::string, Function const*, std::less<>> methods;  // own methods, constructor excluded
    Function const* constructor{};
    std::map<std::string, PropertySyntax const*, std::less<>> properties;  // own properties
    std::map<std::string, Value, std::less<>> constants;                   // values of constant properties
    bool isHandle = false;
    bool defined = false;  // registered with the class-object system
};

class CodeRuntime {
public:
    static CodeRuntime& get();

    std::vector<std::filesystem::path> searchPath() const;
    void setSearchPath(std::vector<std::filesystem::path> folders);
    void addToSearchPath(std::filesystem::path folder);

    std::uint64_t generation() const noexcept { return generation_.load(std::memory_order_acquire); }

    // What a (dotted) name stands for: a function or class file on the path
    // (the longest dotted prefix that names one), a registered class, a
    // built-in or a host function. Null when nothing has the name. The result
    // lives as long as the process.
    Resolution const* resolve(std::string_view dottedName);

    // The compiled file of a function or class on the path, compiled on first
    // use; null when no folder has it. Syntax errors and constructs outside
    // the subset are HostErrors.
    std::shared_ptr<CompiledFile const> findOnPath(std::string_view qualifiedName);
    // Compiles a file (cached by path); `qualifiedName` from its place on the path.
    std::shared_ptr<CompiledFile const> compile(std::filesystem::path const& path, std::string const& qualifiedName,
                                                bool allowScript);

    // The record of a class defined from a class file, defining it from the
    // path first when needed; null for classes that are not defined by a
    // class file (bound classes, classes made in C++) and unknown names.
    ClassRecord const* classRecord(std::string_view className);
    // The record only if it exists already (no definition).
    ClassRecord const* existingRecord(std::string_view className) const;
    // Defines the class of a compiled class file (Classes.cpp).
    ClassRecord const* defineClass(std::shared_ptr<CompiledFile const> const& file);
    // Rejects a class that lacks a method one of its bases requires
    // (qcos::omRequireMethod), or whose method cannot be called as required
    // (Classes.cpp).
    void checkRequiredMethods(ClassRecord const& record) const;

    void addBuiltin(std::string name, BuiltinFunction function);
    Builtin const* findBuiltin(std::string_view name) const;
    std::vector<std::string> builtinNames() const;

    std::recursive_mutex& mutex() const noexcept { return mutex_; }

private:
    CodeRuntime() = default;

    mutable std::recursive_mutex mutex_;
    std::vector<std::filesystem::path> path_;
    std::atomic<std::uint64_t> generation_{1};
    std::map<std::string, std::shared_ptr<CompiledFile const>, std::less<>> compiled_;  // by path
    std::map<std::string, std::shared_ptr<CompiledFile const>, std::less<>> onPath_;    // by qualified name
    std::map<std::string, Resolution const*, std::less<>> resolutions_;
    std::deque<Resolution> resolutionStore_;
    std::map<std::string, std::unique_ptr<ClassRecord>, std::less<>> classes_;
    std::map<std::string, std::unique_ptr<Builtin>, std::less<>> builtins_;
};

}  // namespace qlang::detail

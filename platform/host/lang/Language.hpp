#pragma once
// The host language: runs host-language code (.qx function and class files)
// on the host runtime. Class files become script classes of the class-object
// system whose methods run the code; functions are found on a search path of
// folders (with +pkg package folders), then among the built-in functions and
// the host functions (gateways of loaded libraries). docs/host-language.md
// states the supported subset of the language.
//
// Host code runs on a VM's command thread; these functions run it on the
// calling thread, which should be one. Errors are qcos::HostErrors whose
// stack() names the file, function, line and column.

#include "platform/host/Array.hpp"

#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qlang {

// The search path: folders searched in order for `name.qx` (and
// `+pkg/+sub/name.qx` for `pkg.sub.name`). A folder that does not exist is a
// HostError ("qlang:path:notFolder"). Changing the path makes names resolve anew.
std::vector<std::filesystem::path> getSearchPath();
void setSearchPath(std::vector<std::filesystem::path> folders);
void addToSearchPath(std::filesystem::path const& folder);

// A code file and the name it defines from its place under a search-path
// folder: "Name" for Name.qx, "pkg.sub.Name" for +pkg/+sub/Name.qx.
struct CodeFile {
    std::filesystem::path path;
    std::string qualifiedName;
};

// The .qx files of a folder and of its package folders, recursively; the
// folder's own files first, then each package folder's, in name order.
std::vector<CodeFile> listCodeFiles(std::filesystem::path const& folder);

// What a code file defines, checked but not run: a class (with its
// superclasses as written) or functions. Syntax errors and constructs outside
// the subset are HostErrors ("qlang:syntax", "qlang:unsupported",
// "qlang:invalidCode") whose one stack frame gives file, line and column.
struct FileSummary {
    bool isClass = false;
    bool isAbstract = false;  // a class declared (Abstract): no objects can be made of it
    std::vector<std::string> superclasses;
};
FileSummary checkFile(CodeFile const& file);

// Defines the class of a class file on the search path, and its
// superclasses first: a script class of the class-object system, registered
// once for the life of the process. Property defaults are evaluated now.
// HostError "qlang:class:notFound" when no folder of the path has the class file.
void defineClass(std::string const& qualifiedName);

// Calls a function, class constructor, built-in or host function by name, as
// a call in host code does.
std::vector<qxArrayPtr> callFunction(std::string const& name, std::span<qxArray const* const> inputs, int outputCount);

// Runs code text as a script (statements, then local functions) in a fresh
// workspace and returns its variables by name. `name` stands for the file in
// errors.
std::map<std::string, qxArrayShared> runScript(std::string_view code, std::string const& name = "script");

// A compact, unambiguous text of a value: [1 2;3 4], 'text', "text",
// {1,'a'}, struct(a=1), true, <Class>.
std::u16string describe(qxArray const& value);

// Registers the built-in functions with the interpreter and in the host
// function table; done on first use of the interpreter, safe to repeat.
void registerBuiltins();
// The names of the built-in functions, in order.
std::vector<std::string> builtinNames();

// The deepest nesting of calls of host code (default 500); deeper recursion
// stops with the HostError "qlang:recursionLimit", as does running short of
// stack whatever the limit.
int getRecursionLimit();
void setRecursionLimit(int limit);

}  // namespace qlang

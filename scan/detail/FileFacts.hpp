#pragma once
// What the scanner needs from one parsed code file: the functions and class it
// defines, the names it uses that are not variables (call candidates), the
// files it names to the file-reading built-ins and its imports. Variables are
// told apart from calls here, function by function, from the syntax tree alone.

#include "platform/codeanalysis/SyntaxTree.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace depattr::scan::detail {

struct Position {
    std::uint32_t line = 0;
    std::uint32_t column = 0;
};

enum class UseKind : std::uint8_t {
    Call,       // f, f(...), pkg.f(...), Cls.m(...)
    Command,    // hold on
    Handle,     // @f, @pkg.f
    Literal,    // feval('f', ...), str2func('f')
    Metaclass,  // ?Cls: linked when it resolves, never reported
};

struct NameUse {
    std::u16string name;  // plain or dotted ("pkg.sub.f")
    Position at;
    UseKind kind = UseKind::Call;
    // False where a name that resolves nowhere may still be a variable the
    // code cannot show (scripts, functions that load or evaluate variables).
    bool reportable = true;
};

struct Definition {
    std::u16string name;
    Position at;
    bool isMethod = false;
    bool isStatic = false;
};

struct FileReference {
    std::u16string text;  // the literal file name as written
    Position at;
};

struct FileFacts {
    bool isClass = false;
    bool isScript = false;     // statements outside any function
    std::u16string className;  // class files
    Position classAt;
    std::vector<NameUse> superclasses;  // plain or dotted names
    std::vector<Definition> functions;  // main function first, then nested and local ones, then methods
    std::vector<NameUse> uses;
    std::vector<FileReference> references;
    std::vector<std::u16string> imports;  // "pkg.*" or "pkg.f"
};

// The built-ins whose first literal argument names a file that the code reads.
bool isFileReader(std::u16string_view name) noexcept;

FileFacts extractFacts(ca::astapi::Node const& root);

}  // namespace depattr::scan::detail

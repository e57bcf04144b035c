#pragma once
// Code analysis of single host-language (.qx) files: parse a file into a syntax tree, report its syntax errors,
// and answer the queries that analyzers make of method and attribute nodes.

#include "platform/codeanalysis/SyntaxTree.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ca {

// A syntax error; line and column are 1-based, the column counted in bytes of the line.
struct SyntaxError {
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    std::string message;
};

// Raised when a file cannot be read; what() names the file and the reason.
class FileReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The immutable outcome of analysing one file.
class AnalysisResult {
public:
    AnalysisResult(std::unique_ptr<astapi::SyntaxTree> tree, std::vector<SyntaxError> errors, std::u16string ownerName);
    ~AnalysisResult();

    bool hasErrors() const noexcept { return !errors_.empty(); }
    std::vector<SyntaxError> const& getErrors() const noexcept { return errors_; }
    // The File node; a File without children when the code has errors.
    astapi::Node const& getRootNode() const noexcept { return *tree_->root(); }
    // The class name of a class file; empty for function and script files.
    std::u16string const& getOwnerName() const noexcept { return ownerName_; }
    // Bytes of memory the result holds: its tree's storage, the error texts and the owner name.
    std::size_t memoryBytes() const noexcept;

private:
    std::unique_ptr<astapi::SyntaxTree> tree_;
    std::vector<SyntaxError> errors_;
    std::u16string ownerName_;
};

class SingleFileAnalyzer {
public:
    virtual ~SingleFileAnalyzer();
    // Analyses the file at path (UTF-16). Syntax errors are reported by the result; only a file that cannot be
    // read throws (FileReadError): absent, unreadable, a folder, not a regular file (a pipe is never waited on), or
    // larger than maxCodeFileBytes. Results are shared: an unchanged file (same device, inode, size, modification
    // and status-change time) is parsed once per process while the result cache keeps it.
    virtual std::shared_ptr<AnalysisResult const> analyze(std::u16string const& path) = 0;
};

std::unique_ptr<SingleFileAnalyzer> createSingleFileAnalyzer();

// Largest syntax tree one file may make, in bytes of tree storage; a tree takes ten to thirteen times the size of
// its code, so this admits about 20 MB of code. Code whose tree would be larger is reported as an error of the
// result ("the code is too large to analyse ..."), and its parse stops there.
inline constexpr std::size_t maxSyntaxTreeBytes = std::size_t{256} << 20;

// Largest code file read, in bytes: a larger one could never make a tree within maxSyntaxTreeBytes unless it is
// almost all comments, and reading it whole could exhaust memory; it throws FileReadError before it is read.
inline constexpr std::size_t maxCodeFileBytes = std::size_t{256} << 20;

// Parses code held in memory (UTF-8). Never throws for bad code.
std::shared_ptr<AnalysisResult const> analyzeText(std::string_view code,
                                                  std::size_t treeByteLimit = maxSyntaxTreeBytes);

// Deepest nesting of blocks and expressions that the parser accepts; deeper code is a syntax error. The bound holds
// on a thread with 256 KiB of stack; on a smaller stack, code nested too deeply for it is a syntax error as well.
inline constexpr unsigned maxNestingDepth = 256;

// The process-wide cache of file results is bounded by the bytes its results hold (AnalysisResult::memoryBytes);
// the least recently used results leave first, and a result larger than the whole capacity is not kept. The
// capacity is defaultResultCacheCapacity unless the environment variable DEPATTR_PARSE_CACHE_BYTES, read when the
// cache is first used, gives another: a byte count, optionally followed by K, M or G (KiB, MiB, GiB); 0 turns the
// cache off; a value that is not such a number is ignored.
inline constexpr std::size_t defaultResultCacheCapacity = std::size_t{256} << 20;
// Sets the capacity, dropping least recently used results until they fit it.
void setResultCacheCapacity(std::size_t bytes);
std::size_t resultCacheCapacity();

}  // namespace ca

namespace lf::astapi {

template <class Library>
struct Method {};
template <class Library>
struct Attribute {};

template <class NodeType>
struct NodeCustomization;

template <>
struct NodeCustomization<Method<ca::astapi::CA>> {
    // The attribute nodes of the methods block that holds a MethodDefinition, in source order (empty for other
    // kinds).
    static std::span<ca::astapi::Node const* const> getAttributes(ca::astapi::Node const& method) noexcept;
};

template <>
struct NodeCustomization<Attribute<ca::astapi::CA>> {
    // The attribute's name (child 0).
    static std::u16string_view getName(ca::astapi::Node const& attribute) noexcept;
    // The operand (child 1): the value expression of `Name = value` unless that value is the literal true or
    // false, which is folded into the attribute's logical value instead. nullptr when there is none.
    static ca::astapi::Node const* getOperand(ca::astapi::Node const& attribute) noexcept;
    // True when the attribute is a flag (no operand) whose logical value is `value`: `Name` and `Name = true` hold
    // true, `Name = false` and `~Name` hold false.
    static bool isAttributeWithGivenLogicalValue(ca::astapi::Node const& attribute, bool value) noexcept;
};

}  // namespace lf::astapi

#pragma once
// Code analysis of single host-language (.qx) files: parse a file into a syntax tree, report its syntax errors,
// and answer the queries that analyzers make of method and attribute nodes.

#include "platform/codeanalysis/SyntaxTree.hpp"

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
    AnalysisResult(std::unique_ptr<astapi::SyntaxTree> tree, std::vector<SyntaxError> errors,
                   std::u16string ownerName);
    ~AnalysisResult();

    bool hasErrors() const noexcept { return !errors_.empty(); }
    std::vector<SyntaxError> const& getErrors() const noexcept { return errors_; }
    // The File node; a File without children when the code has errors.
    astapi::Node const& getRootNode() const noexcept { return *tree_->root(); }
    // The class name of a class file; empty for function and script files.
    std::u16string const& getOwnerName() const noexcept { return ownerName_; }

private:
    std::unique_ptr<astapi::SyntaxTree> tree_;
    std::vector<SyntaxError> errors_;
    std::u16string ownerName_;
};

class SingleFileAnalyzer {
public:
    virtual ~SingleFileAnalyzer();
    // Analyses the file at path (UTF-16). Syntax errors are reported by the result; only a file that cannot be
    // read throws (FileReadError). Results are shared: an unchanged file (same size and modification time) is
    // parsed once per process.
    virtual std::shared_ptr<AnalysisResult const> analyze(std::u16string const& path) = 0;
};

std::unique_ptr<SingleFileAnalyzer> createSingleFileAnalyzer();

// Parses code held in memory (UTF-8). Never throws for bad code.
std::shared_ptr<AnalysisResult const> analyzeText(std::string_view code);

// Deepest nesting of blocks and expressions that the parser accepts; deeper code is a syntax error.
inline constexpr unsigned maxNestingDepth = 256;

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

#pragma once
// Turns the syntax tree of one file into compiled code, checking every
// construct against the supported subset: a syntax error or a construct
// outside the subset is a HostError ("qlang:syntax", "qlang:unsupported")
// whose one stack frame names the file, line and column.

#include "platform/host/lang/detail/Code.hpp"

#include <memory>
#include <string>
#include <string_view>

namespace qlang::detail {

// `qualifiedName` is the name the file defines, from its place on the search
// path ("pkg.Name" for +pkg/Name.qx); empty for script text, which may hold
// statements (and then local functions).
std::shared_ptr<CompiledFile const> compileFile(std::shared_ptr<ca::AnalysisResult const> tree,
                                                std::filesystem::path path, std::string displayName,
                                                std::string qualifiedName, bool allowScript);

// Text of a name or literal node as UTF-8.
std::string narrow(std::u16string_view text);
std::u16string widen(std::string_view text);

// Raises the error for a construct outside the supported subset.
[[noreturn]] void unsupported(std::string const& file, Position position, std::string const& what);

}  // namespace qlang::detail

#pragma once
// The built-in functions of the host language, grouped by file; each group
// registers its functions with the interpreter and the host function table.

#include "platform/host/lang/detail/Runtime.hpp"
#include "platform/host/lang/detail/Values.hpp"

#include <span>
#include <string>
#include <string_view>

namespace qlang::detail {

using Args = std::span<Value const>;

// Registers one built-in under `name`.
void defineBuiltin(std::string name, BuiltinFunction function);

void registerValueBuiltins();       // sizes, constructors, class tests, conversions
void registerMathBuiltins();        // sums, extremes, rounding, find, any/all
void registerTextBuiltins();        // comparison, search and transformation of text
void registerFormatBuiltins();      // sprintf, fprintf, num2str, disp, warning, error
void registerRegexBuiltins();       // regexp, regexprep
void registerCollectionBuiltins();  // cellfun, arrayfun, unique, sort, ismember, struct and cell tools
void registerFileBuiltins();        // fullfile, fileparts, isfile, isfolder

// Argument checks: the count, with the language's own errors.
void checkCount(std::string_view function, Args args, std::size_t minimum, std::size_t maximum);
[[noreturn]] void badArgument(std::string_view function, std::string const& message);
inline Values one(Value value) {
    Values values;
    values.push_back(std::move(value));
    return values;
}

// Name-value options at the end of an argument list ('UniformOutput', false):
// returns the position where they start, checking that every name is one of `names`.
std::size_t optionsStart(std::string_view function, Args args, std::initializer_list<std::string_view> names);
// The value of a named option, or null.
Value optionValue(Args args, std::size_t start, std::string_view name);

// Dimensions from size arguments: f(n), f(m, n, ...), f([m n ...]).
Dims sizeArguments(std::string_view function, Args args);

}  // namespace qlang::detail

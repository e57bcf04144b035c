#pragma once
// Values of the host language: shared host arrays, changed only through
// mutate() (copy on write), and the conversions and texts every part of the
// interpreter needs.

#include "platform/host/Array.hpp"
#include "platform/host/Qcos.hpp"

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qlang::detail {

using Value = qxArrayShared;
using Dims = qxArray::Dimensions;

[[noreturn]] void raise(std::string identifier, std::string message);

inline Value share(qxArrayPtr array) {
    return qxArray::share(std::move(array));
}
Value makeDouble(double value);
Value makeLogical(bool value);
Value makeChars(std::u16string_view text);                             // a 1-by-N char row ('' is 0-by-0)
Value makeString(std::u16string_view text);                            // a string scalar
Value makeEmpty();                                                     // [] : 0-by-0 double
Value makeTexts(std::vector<std::u16string> const& texts, Dims dims);  // a cell array of char rows
Value makeRow(std::vector<double> const& values);                      // a 1-by-N double row

// The array behind a value, ready to change: the value's own array when no one
// else holds it, else a copy that the value then holds.
qxArray& mutate(Value& value);

// double, logical and char arrays take part in arithmetic.
bool isNumeric(qxArray const& array) noexcept;
double numberAt(qxArray const& array, std::size_t index);
// The character of a number: its code rounded to the nearest whole number
// (halves away from zero) and held to 0..65535; NaN is code 0.
char16_t charCode(double number) noexcept;
// Text: a char row (or empty char array) or a string scalar.
bool isText(qxArray const& array) noexcept;
std::u16string textOf(qxArray const& array, std::string_view what);
// A cell array whose elements are all text, or a string array.
bool isTextList(qxArray const& array) noexcept;
// The texts of a char row, string array or cell array of texts, in element order.
std::vector<std::u16string> textsOf(qxArray const& array, std::string_view what);
// One real number from a numeric or logical scalar.
double scalarOf(qxArray const& array, std::string_view what);
// A non-negative whole number (a count or size).
std::size_t countOf(qxArray const& array, std::string_view what);
// The truth of a condition: non-empty and every element non-zero. NaN and
// non-numeric values are errors.
bool truthOf(qxArray const& array);

bool isHandleClass(std::string_view className);
bool isRow(Dims const& dims) noexcept;
bool isVectorShape(Dims const& dims) noexcept;
std::size_t countOf(Dims const& dims) noexcept;
std::string dimsText(Dims const& dims);

// Numbers as the language writes them: whole numbers exactly, others with up
// to 15 significant digits; Inf, -Inf and NaN by name.
std::string numberText(double value);
// Numbers as disp shows them: whole numbers exactly, others with 5 significant digits.
std::string shortNumberText(double value);
// Text between `quote`s, a quote inside doubled: 'it''s'.
std::u16string quotedText(std::u16string_view text, char16_t quote);

// A compact, unambiguous text of a value: [1 2;3 4], 'text', "text", {1,'a'},
// struct(a=1), true, <Class>; used by tests and by disp of cells and structs.
std::u16string describe(qxArray const& array);
// What disp prints for a value (without the final line break).
std::u16string displayText(qxArray const& array);

std::string utf8(std::u16string_view text);
std::u16string utf16(std::string_view text);

}  // namespace qlang::detail

#pragma once
// Operators, ranges and concatenation on values. Objects are handled by the
// interpreter before it comes here (their classes may define the operators).

#include "platform/host/lang/detail/Values.hpp"

#include "platform/codeanalysis/SyntaxTree.hpp"

#include <span>
#include <vector>

namespace qlang::detail {

using ca::astapi::Operator;

// -, + and ~.
Value unaryOperation(Operator op, qxArray const& operand);
// Arithmetic (element-wise with implicit expansion of singleton dimensions;
// * of two matrices multiplies them), & and |, and + of strings.
Value binaryOperation(Operator op, qxArray const& left, qxArray const& right);
// ==, ~=, <, <=, >, >= element-wise; also of strings, text, handle objects
// (the same object) and enumeration members.
Value comparison(Operator op, qxArray const& left, qxArray const& right);
// ' and .' of 2-d arrays.
Value transpose(qxArray const& operand);
// start:stop and start:step:stop.
Value range(qxArray const& start, qxArray const* step, qxArray const& stop);
// The numbers of a range without making them: how many, and each one.
struct RangeSpec {
    double first = 0;
    double increment = 1;
    double last = 0;
    std::size_t count = 0;
    double at(std::size_t index) const noexcept;
};
RangeSpec rangeSpec(qxArray const& start, qxArray const* step, qxArray const& stop);

// [a, b; c, d]: each row concatenated horizontally, then the rows vertically.
Value concatenate(std::vector<std::vector<Value>> const& rows);
Value horizontal(std::span<Value const> values);
Value vertical(std::span<Value const> values);
// {a, b; c, d}: every element in a cell of its own.
Value cellOf(std::vector<std::vector<Value>> const& rows);

// The name of the method a class may define for an operator ("plus", "eq", ...).
char const* operatorMethodName(Operator op);

// A value as string elements: string arrays as they are, text as one string, numbers element by element as their
// text.
qxArrayPtr asStrings(qxArray const& array);

// Whether two values are equal in class family, size and content (isequal).
bool valuesEqual(qxArray const& left, qxArray const& right);

// The most specific class that every object class given derives from and
// whose arrays may be heterogeneous (empty: none).
std::string commonObjectClass(std::vector<std::string> const& classNames);

}  // namespace qlang::detail

#pragma once
// Indexing with () and {}: reading, assigning with growth, and deleting with
// []. Subscripts are 1-based positive whole numbers, logical masks, or the
// colon marker (a lone ':'); one subscript indexes the elements in
// column-major (linear) order.

#include "platform/host/lang/detail/Values.hpp"

#include <span>
#include <vector>

namespace qlang::detail {

// The value that stands for ':' among subscripts (compared by identity).
Value const& colonMarker();
inline bool isColon(Value const& value) {
    return value.get() == colonMarker().get();
}

// The value of `end` in subscript `position` (0-based) of `count` subscripts.
std::size_t endOf(qxArray const& array, std::size_t position, std::size_t count);

// array(subscripts)
Value indexParen(qxArray const& array, std::span<Value const> subscripts);
// array{subscripts}: the selected cell elements, in order.
void indexBrace(qxArray const& array, std::span<Value const> subscripts, std::vector<Value>& out);
// array(subscripts) = value, growing the array as needed; `array` may be
// null (an unset variable).
void assignParen(Value& array, std::span<Value const> subscripts, Value const& value);
// array(subscripts) = []
void deleteParen(Value& array, std::span<Value const> subscripts);
// array{subscripts} = value: one cell element.
void assignBrace(Value& array, std::span<Value const> subscripts, Value const& value);

// Copies element `fromIndex` of `from` into element `toIndex` of `to`, an
// array of the same class and fields.
void copyElement(qxArray& to, std::size_t toIndex, qxArray const& from, std::size_t fromIndex);

// Element `index` of an array as a 1-by-1 array of its class.
Value elementOf(qxArray const& array, std::size_t index);
// The columns of an array, as for-loops visit them: array(:, k) for each k.
std::size_t columnCountOf(qxArray const& array);
Value columnOf(qxArray const& array, std::size_t column);

// A new empty array of the same kind (and object class) as `like`.
qxArrayPtr emptyLike(qxArray const& like, Dims dims);

}  // namespace qlang::detail

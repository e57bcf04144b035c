#pragma once
// containers.Map (builtins/MapBuiltins.cpp): the evaluator reads and writes
// entries with m(key) and m(key) = value; everything else is methods of the
// class, which registerMapClass defines with the class-object system.

#include "platform/host/lang/detail/Values.hpp"

#include <span>

namespace qlang::detail {

// A containers.Map object array.
bool isMap(qxArray const& value) noexcept;
// m(key): the value kept under the key; a missing key is "qlang:map:noKey".
Value mapLookup(qxArray const& map, std::span<Value const> subscripts);
// m(key) = value: adds the entry or replaces its value, in the one map every copy refers to.
void mapStore(qxArray const& map, std::span<Value const> subscripts, Value const& value);
void registerMapClass();

}  // namespace qlang::detail

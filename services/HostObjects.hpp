#pragma once
// Native model objects to host values and back: a native object handed to the
// host is announced to the binding registry under its host class name and the
// host value shares ownership of it; a host value handed back yields the same
// native object, checked by the binding registry.

#include "platform/host/Qcos.hpp"
#include "platform/services/Shareable.hpp"

#include <memory>
#include <string>
#include <vector>

namespace dependency::services::detail {

// A new host object sharing ownership of `native`, announced under its own
// host class name.
qcos::COSInterfacePtr toHostObject(std::shared_ptr<Shareable> const& native);

// A 1-by-N heterogeneous row of `className` holding the objects in vector
// order; 1-by-0 when the vector is empty.
template <class T>
qxArrayPtr toHostRow(std::vector<std::shared_ptr<T>> const& natives, std::string const& className) {
    auto row = qcos::omCreateQCOSMatrix(1, natives.size(), className);
    for (std::size_t i = 0; i < natives.size(); ++i) {
        qcos::omSetArrayElement(*row, i, toHostObject(natives[i]));
    }
    qcos::omSetClassOfHeterogeneousArray(*row, className);
    return row;
}

// The native objects of every element of a host array, in element order,
// each re-announced under `className` (an object already known keeps its class).
template <class T>
std::vector<std::shared_ptr<T>> fromHostArray(qxArray const& array, std::string const& className) {
    std::vector<std::shared_ptr<T>> natives;
    natives.reserve(array.getNumberOfElements());
    for (std::size_t i = 0; i < array.getNumberOfElements(); ++i) {
        auto native = qcos::factory::impl::validateSelfPointer<T>(*qcos::cosiGetArrayElement(array, i));
        qcos::factory::basic::BindingRegistry::announceForConstructor(native, className);
        natives.push_back(std::move(native));
    }
    return natives;
}

// The object a method was called on: element 0 of its first input.
inline qcos::COSInterface const& self(std::span<qxArray const* const> inputs) {
    return *qcos::cosiGetArrayElement(*inputs[0], 0);
}

// The native object of element 0 of a host array, as T.
template <class T>
std::shared_ptr<T> nativeOf(qxArray const& array) {
    return qcos::factory::impl::validateSelfPointer<T>(*qcos::cosiGetArrayElement(array, 0));
}

// One output.
inline std::vector<qxArrayPtr> single(qxArrayPtr value) {
    std::vector<qxArrayPtr> outputs;
    outputs.push_back(std::move(value));
    return outputs;
}

}  // namespace dependency::services::detail

#pragma once
// Analyzers from the host: the analyzers registered in the host-language
// registry, and host analyzer objects as native analyzers. An object of the
// library's own class "dependencies.internal.attribute.AttributeAnalyzer"
// wraps a native analyzer and yields that very object; any other object (a
// subclass written in the host language) becomes a QorvexAnalyzer.
//
// All functions may be called from any thread: the work on host values runs
// on the VM's command thread and the caller waits for it.

#include "attribute/AttributeAnalyzer.hpp"
#include "platform/host/Vm.hpp"

#include <memory>
#include <vector>

namespace dependency::attribute {

// The host expression whose value lists the registered analyzers.
inline constexpr char16_t const* RegistryExpression =
    u"dependencies.internal.attribute.Registry.Instance.AttributeAnalyzers";

// Evaluates the registry expression with the host function "eval" and
// converts its value. No output from the evaluation is an out-of-range error
// "vector::at out of range".
std::vector<std::shared_ptr<AttributeAnalyzer>> getRegisteredAnalyzers(std::shared_ptr<qvm::QVM> const& vm);

// One analyzer per element, in element (column-major) order, for an array of
// any shape.
std::vector<std::shared_ptr<AttributeAnalyzer>> fromAttributeAnalyzerQxArray(qxArray const& array,
                                                                             std::shared_ptr<qvm::QVM> const& vm);

// The analyzer of element 0; further elements are ignored.
std::shared_ptr<AttributeAnalyzer> fromAttributeAnalyzerScalarQxArray(qxArray const& array,
                                                                      std::shared_ptr<qvm::QVM> const& vm);

// Hands an analyzer to the host: announced under its host class name, with a
// host reference that keeps it alive. An analyzer without a host class name
// gives the host's null object (an empty array). Call on the command thread.
qxArrayPtr toAttributeAnalyzerQxArray(std::shared_ptr<AttributeAnalyzer> const& analyzer);

}  // namespace dependency::attribute

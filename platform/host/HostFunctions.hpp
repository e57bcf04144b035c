#pragma once
// Host functions: everything host code can call by name. The runtime keeps one
// table per process; functions enter it by registration (the runtime's own
// "eval", built-ins of the language) or from libraries loaded with
// loadLibrary, whose exported gateways are looked up by name the first time
// they are called.

#include "platform/host/Array.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvm {

// A host function: called with its input arrays and the number of outputs the
// caller asked for. Returns the outputs it produced, in order; a function with
// a value to give returns it even when no output was asked for (the caller
// may show it).
using HostFunction = std::function<std::vector<qxArrayPtr>(std::span<qxArray const* const> inputs, int outputCount)>;

// The host's gateway signatures, as exported by a library: the number of
// outputs asked for, the output slots, the number of inputs and the read-only
// inputs. A Gateway's slots own their arrays; a PlainGateway's slots take
// plain pointers, which the caller then owns.
using Gateway = void(int nlhs, qxArrayPtr plhs[], int nrhs, qxArray const* prhs[]);
using PlainGateway = void(int nlhs, qxArray* plhs[], int nrhs, qxArray const* prhs[]);

// Adds a function to the table, replacing one of the same name.
void registerHostFunction(std::string name, HostFunction function);

// The function of that name: registered, or a gateway of a loaded library
// (looked up now and kept). Null when there is none.
std::shared_ptr<HostFunction const> findHostFunction(std::string_view name);

// Calls a host function on the calling thread. HostError
// "qvm:feval:undefinedFunction" when there is none of that name.
std::vector<qxArrayPtr> callHostFunction(std::string_view name, std::span<qxArray const* const> inputs,
                                         int outputCount);

// Adapters from the gateway signatures to host functions.
HostFunction fromGateway(Gateway* gateway);
HostFunction fromPlainGateway(PlainGateway* gateway);

// Loads a library as the host does: opens the shared object (a path, or a
// file name the dynamic loader searches for), calls its entry point
// QLInitialize_<name> once, where <name> is the file name without a "lib"
// prefix and without extensions, and from then on finds its exported
// gateways by name. A gateway is either a function of the global namespace
// with the Gateway signature, or a function with C linkage and the
// PlainGateway signature. Only the gateways the library declares are
// callable: its function QLGateways_<name> (C linkage, no inputs) returns a
// null-terminated list of their names, and each must be defined in the
// library itself. Any other name, a function of the C library the library
// links to included, is not found. Loading the same library again does nothing.
// HostError "qvm:library:cannotLoad" (with the loader's reason) or
// "qvm:library:noEntryPoint".
void loadLibrary(std::filesystem::path const& library);

// A callable host value. Function handles are scalars of class
// "function_handle"; calling one runs its function on the calling thread.
class FunctionHandle {
public:
    virtual ~FunctionHandle();
    virtual std::vector<qxArrayPtr> call(std::span<qxArray const* const> inputs, int outputCount) const = 0;
    // How the handle reads in host text: "@name", "@(x) x + 1".
    virtual std::u16string text() const = 0;
};

// A handle to the host function of that name, looked up when called.
std::shared_ptr<FunctionHandle const> makeNamedFunctionHandle(std::string name);

}  // namespace qvm

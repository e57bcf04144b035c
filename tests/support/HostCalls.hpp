#pragma once
// Calls into the host runtime as its tests make them: a method called by the
// public client, and the identifier of the host error a call throws.

#include "platform/host/Qcos.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace depattr_test {

// Calls `method` with `inputs` as the public client and returns output 1, or
// throws the kept error with the method's name as its context.
inline qxArrayPtr callMethod(std::string_view method, std::vector<qxArray const*> inputs) {
    qxArrayPtr out[1];
    if (!qcos::omCallMethod(qcos::COSGetPublicClient(), method, 1, out, static_cast<int>(inputs.size()),
                            inputs.data())) {
        computils::qcos::throwErrorCallingQorvexException(std::string(method));
    }
    return std::move(out[0]);
}

// The identifier of the host error that `call` throws, or "no error".
template <class F>
std::string hostErrorIdentifier(F&& call) {
    try {
        call();
    } catch (qcos::HostError const& error) {
        return error.identifier();
    }
    return "no error";
}

}  // namespace depattr_test

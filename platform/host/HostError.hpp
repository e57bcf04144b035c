#pragma once
// The error every part of the host runtime raises: a message identifier in the
// host's "component:mnemonic" style plus a readable message.

#include <stdexcept>
#include <string>

namespace qcos {

class HostError : public std::runtime_error {
public:
    HostError(std::string identifier, std::string const& message)
        : std::runtime_error(message), identifier_(std::move(identifier)) {}

    // Names the error independently of its text, e.g. "qcos:method:undefined".
    std::string const& identifier() const noexcept { return identifier_; }

    // Where a failed host call was made from, when the error was rethrown by
    // computils::qcos::throwErrorCallingQorvexException; empty otherwise.
    std::string const& context() const noexcept { return context_; }
    void setContext(std::string context) { context_ = std::move(context); }

private:
    std::string identifier_;
    std::string context_;
};

}  // namespace qcos

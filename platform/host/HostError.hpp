#pragma once
// The error every part of the host runtime raises: a message identifier in the
// host's "component:mnemonic" style plus a readable message, and, for errors
// raised or passed on by host-language code, where that code was.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace qcos {

// One place in host-language code: the file, the function (or method, as
// "Class.method"), and the 1-based line and column of the statement.
// `activation` identifies the call that added the frame (the interpreter
// numbers its calls; 0 elsewhere), so that an error rethrown inside the same
// call is not given the same frame twice.
struct HostErrorFrame {
    std::string file;
    std::string function;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    std::uint64_t activation = 0;
    friend bool operator==(HostErrorFrame const&, HostErrorFrame const&) = default;
};

// The message is kept in a string of its own rather than in the base class:
// the base class shares one reference-counted buffer between copies, and an
// error passes from the command thread to the thread that waits for it as
// copies, so each copy owns its text outright.
class HostError : public std::runtime_error {
public:
    HostError(std::string identifier, std::string message)
        : std::runtime_error(std::string()), message_(std::move(message)), identifier_(std::move(identifier)) {}

    char const* what() const noexcept override { return message_.c_str(); }

    // Names the error independently of its text, e.g. "qcos:method:undefined".
    std::string const& identifier() const noexcept { return identifier_; }

    // Where a failed host call was made from, when the error was rethrown by
    // computils::qcos::throwErrorCallingQorvexException; empty otherwise.
    std::string const& context() const noexcept { return context_; }
    void setContext(std::string context) { context_ = std::move(context); }

    // The host-language call stack at the error, innermost first: the
    // statement that failed, then each statement that called the function
    // holding it. Empty for errors that never passed through host code.
    std::vector<HostErrorFrame> const& stack() const noexcept { return stack_; }
    void addFrame(HostErrorFrame frame) { stack_.push_back(std::move(frame)); }

    // "file:line:column" of the innermost frame; empty without a stack.
    std::string location() const {
        if (stack_.empty()) {
            return {};
        }
        auto const& frame = stack_.front();
        return frame.file + ":" + std::to_string(frame.line) + ":" + std::to_string(frame.column);
    }

private:
    std::string message_;
    std::string identifier_;
    std::string context_;
    std::vector<HostErrorFrame> stack_;
};

}  // namespace qcos

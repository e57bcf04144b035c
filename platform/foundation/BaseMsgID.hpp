#pragma once
// A message identifier: a catalog, a key within it and the arguments that fill
// the message's placeholders. It names a message without holding its text, so
// that the text can be produced later in whatever language is current.

#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace resource_core {

// One placeholder argument. The alternatives keep this order (tags 0, 1, 2):
// a signed 64-bit integer, a UTF-8 narrow string, a UTF-16 string.
using MessageArgument = std::variant<long, std::string, std::u16string>;

class BaseMsgID {
public:
    BaseMsgID(std::string catalog, std::string key, std::vector<MessageArgument> args = {})
        : args_(std::move(args)), catalog_(std::move(catalog)), key_(std::move(key)) {}
    virtual ~BaseMsgID() = default;

    BaseMsgID(BaseMsgID const&) = default;
    BaseMsgID(BaseMsgID&&) = default;
    BaseMsgID& operator=(BaseMsgID const&) = default;
    BaseMsgID& operator=(BaseMsgID&&) = default;

    std::vector<MessageArgument> const& args() const noexcept { return args_; }
    // The message component, e.g. "QORVEX:dependency:attribute".
    std::string const& catalog() const noexcept { return catalog_; }
    // The message's name within the component, e.g. "MissingFileProblem".
    std::string const& key() const noexcept { return key_; }

    friend bool operator==(BaseMsgID const& a, BaseMsgID const& b) {
        return a.catalog_ == b.catalog_ && a.key_ == b.key_ && a.args_ == b.args_;
    }

private:
    std::vector<MessageArgument> args_;
    std::string catalog_;
    std::string key_;
};

}  // namespace resource_core

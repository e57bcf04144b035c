#pragma once
// Message-identified exceptions: an error names a catalog message (a BaseMsgID)
// instead of carrying finished text, so that its text is produced in the
// language current when somebody reads it.
//
// IException            clone, rethrow, what (UTF-8), GetID
//  +- IUserException    text conversions; the message text is the user-facing text
//      +- IMsgIDException  the BaseMsgID, its catalog text, the Boost exception information
//          +- Exception<K, std::exception, void>  the thrown type, also a std::exception

#include "platform/foundation/BaseMsgID.hpp"

#include <boost/exception/exception.hpp>

#include <exception>
#include <mutex>
#include <string>
#include <type_traits>

namespace foundation::core::except {

class IException {
public:
    virtual ~IException();

    // A heap copy of the most-derived object; the caller owns it.
    virtual IException* clone() const = 0;
    // Throws a copy of this object as its most-derived type.
    [[noreturn]] virtual void rethrow() const = 0;
    // The message text as UTF-8, produced on first request and kept with the
    // object. Never throws: if the text cannot be produced, it is the error
    // identifier (or a fixed text when even that fails).
    virtual char const* what() const noexcept;
    // A stable, language-independent identifier of the error.
    virtual std::string GetID() const = 0;

protected:
    IException() = default;
    IException(IException const&) = default;
    IException& operator=(IException const&) = default;

    virtual std::u16string ToUstringImpl() const = 0;

private:
    // The what() text. Copies start without it, so a clone produces its own.
    struct LazyText {
        LazyText() = default;
        LazyText(LazyText const&) {}
        LazyText& operator=(LazyText const&) { return *this; }
        std::once_flag once;
        std::string text;
    };
    mutable LazyText whatText_;
};

class IUserException : public virtual IException {
public:
    ~IUserException() override;

    // Text conversions for building user-facing text: UTF-16 is taken as is, a narrow string is read as UTF-8.
    virtual std::u16string convert_str(std::u16string const& text) const;
    virtual std::u16string convert_str(std::string const& text) const;

    // The localised text shown to users.
    virtual std::u16string GetUnicodeMessageTxt() const = 0;

protected:
    IUserException() = default;
    IUserException(IUserException const&) = default;
    IUserException& operator=(IUserException const&) = default;

    std::u16string ToUstringImpl() const override;
};

class IMsgIDException : public virtual IUserException, public virtual boost::exception {
public:
    ~IMsgIDException() override;

    // "<catalog>:<key>", e.g. "QORVEX:dependency:analysis:AnalysisError".
    static std::string get_error_id(resource_core::BaseMsgID const& id);

    // The catalog text of GetBaseMsgIDObj() in the current language.
    std::u16string GetUnicodeMessageTxt() const override;
    // The stored message identifier itself (not a copy).
    virtual resource_core::BaseMsgID const& GetBaseMsgIDObj() const = 0;

protected:
    IMsgIDException() = default;
    IMsgIDException(IMsgIDException const&) = default;
    IMsgIDException& operator=(IMsgIDException const&) = default;
};

// The thrown form of a message identifier K (a BaseMsgID or a class derived
// from it). StdBase makes the error catchable as a standard exception; Extra is reserved and must be void.
template <class K, class StdBase = std::exception, class Extra = void>
class Exception : public IMsgIDException, public StdBase {
    static_assert(std::is_base_of_v<resource_core::BaseMsgID, K>, "K must be a message identifier");
    static_assert(std::is_void_v<Extra>, "Extra is reserved");

public:
    // Copies the identifier and computes the error identifier once; if that
    // fails, the failure propagates instead of this error.
    explicit Exception(K const& msgId) : msgId_(msgId), errorId_(IMsgIDException::get_error_id(msgId_)) {}
    Exception(Exception const&) = default;
    ~Exception() override = default;

    Exception* clone() const override { return new Exception(*this); }
    [[noreturn]] void rethrow() const override { throw *this; }
    char const* what() const noexcept override { return IException::what(); }
    std::string GetID() const override { return errorId_; }
    K const& GetBaseMsgIDObj() const override { return msgId_; }

private:
    K msgId_;
    std::string errorId_;
};

}  // namespace foundation::core::except

#pragma once
// The errors that report a code file which could not be analysed. Each is a
// message identifier of the catalog "QORVEX:dependency:analysis"; it is thrown
// wrapped in foundation::core::except::Exception, so handlers of std::exception
// see the localised text and handlers of the foundation interfaces see the
// identifier, the message identifier and the text.

#include "platform/foundation/BaseMsgID.hpp"
#include "platform/foundation/Exception.hpp"

#include <exception>
#include <string>

namespace QORVEX::dependency::analysis {

inline constexpr char const* analysisCatalog = "QORVEX:dependency:analysis";

// The code-analysis service failed on a file. One argument: the file's path,
// always as a UTF-16 string (argument tag 2), even when it is empty.
class AnalysisError : public resource_core::BaseMsgID {
public:
    explicit AnalysisError(std::u16string path);
};

// The file was analysed but its code has errors. No arguments.
class AnalysisParsingError : public resource_core::BaseMsgID {
public:
    AnalysisParsingError();
};

using AnalysisErrorException = foundation::core::except::Exception<AnalysisError, std::exception, void>;
using AnalysisParsingErrorException = foundation::core::except::Exception<AnalysisParsingError, std::exception, void>;

// Throws the error wrapped in its exception type.
template <class MessageId>
[[noreturn]] void throwAnalysisException(MessageId const& error) {
    throw foundation::core::except::Exception<MessageId, std::exception, void>(error);
}

// Shorthands for the two errors.
[[noreturn]] void throwAnalysisError(std::u16string const& path);
[[noreturn]] void throwAnalysisParsingError();

}  // namespace QORVEX::dependency::analysis

#pragma once
// The two commands of the program, given options already parsed.

#include "cli/Options.hpp"

#include <stdexcept>
#include <string>
#include <string_view>

namespace depattr::cli {

inline constexpr int exitClean = 0;
inline constexpr int exitFindings = 1;
inline constexpr int exitBadInput = 2;
// Stopped by Ctrl-C, as a shell reports a program ended by SIGINT.
inline constexpr int exitInterrupted = 130;

// Bad usage found after parsing (an unknown value, clashing options); what()
// is the localised message.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Makes the locale the global one (option, else LC_ALL, LC_MESSAGES, LANG),
// and says once on standard error when the program has no texts in its
// language and speaks English instead.
void applyLocale(std::string name);

// `depattr analyze`: loads, analyses, reports; the exit status.
int runAnalyze(ProgramOptions const& options, std::string_view toolVersion);

// `depattr analyzers`: the list, as text or JSON; the exit status.
int runListAnalyzers(std::string_view format);

}  // namespace depattr::cli

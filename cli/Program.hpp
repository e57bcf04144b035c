#pragma once
// The commands of the program, given options already parsed.

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
// language and speaks English instead. A name that is not a locale name
// (language[_TERRITORY][.CODESET][@MODIFIER]) is a UsageError when it comes
// from the option; from the environment it is a warning, and English is used.
void applyLocale(std::string name);

// When DEPATTR_RESOURCES names catalogs that cannot be used (not a folder, no
// English catalog of the program or the library, a malformed catalog), says so
// once on standard error and goes on with the built-in texts.
void checkResourcesOverride();

// `depattr analyze`: loads, analyses, reports; the exit status.
int runAnalyze(ProgramOptions const& options, std::string_view toolVersion);

// `depattr scan`: scans the folder, analyses its graph, reports; the exit status.
int runScan(ProgramOptions const& options, std::string_view toolVersion);

// `depattr analyzers`: the list, as text or JSON; the exit status.
int runListAnalyzers(std::string_view format);

}  // namespace depattr::cli

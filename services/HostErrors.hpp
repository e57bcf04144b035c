#pragma once
// Host errors told to a person: where the host code failed and how it got there.

#include "platform/host/HostError.hpp"

#include <string>

namespace dependency::services {

// "context: file:line:column: message [identifier]" of a host error (each part
// where it has one), then one "called from" line for each call that led there;
// a run of identical calls (deep recursion) is one line and "... N more calls
// of NAME". Paths under the working folder are shown relative to it. The text
// is ready to print: control characters of the parts are escaped, and only the
// line breaks between the lines are real.
std::string describe(qcos::HostError const& error);

// Whether a host error is the stop that Ctrl-C asked for.
bool isInterruption(qcos::HostError const& error);

}  // namespace dependency::services

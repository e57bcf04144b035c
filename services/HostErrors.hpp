#pragma once
// Host errors told to a person: where the host code failed and how it got there.

#include "platform/host/HostError.hpp"

#include <string>

namespace dependency::services {

// "context: file:line:column: message [identifier]" of a host error (each part
// where it has one), then one line for each call that led there. Paths under
// the working folder are shown relative to it.
std::string describe(qcos::HostError const& error);

// Whether a host error is the stop that Ctrl-C asked for.
bool isInterruption(qcos::HostError const& error);

}  // namespace dependency::services

#include "services/HostErrors.hpp"

#include "platform/foundation/Printable.hpp"

#include <fmt/format.h>

#include <filesystem>

namespace dependency::services {

namespace {

// Paths in messages are relative to the working folder when they lie under it.
std::string shown(std::string const& file) {
    std::error_code error;
    auto const relative = std::filesystem::relative(file, std::filesystem::current_path(), error);
    if (error || relative.empty() || relative.native().starts_with("..")) {
        return file;
    }
    return relative.string();
}

std::string locationOf(qcos::HostErrorFrame const& frame) {
    return fmt::format("{}:{}:{}", shown(frame.file), frame.line, frame.column);
}

}  // namespace

std::string describe(qcos::HostError const& error) {
    using foundation::printable::escapeControls;
    // The context says which host call failed, e.g. "AttributeAnalyzer.analyze".
    std::string text = error.context().empty() ? std::string() : escapeControls(error.context()) + ": ";
    if (!error.stack().empty()) {
        text += escapeControls(locationOf(error.stack().front())) + ": ";
    }
    text += escapeControls(error.what());
    if (!error.identifier().empty()) {
        text += " [" + escapeControls(error.identifier()) + "]";
    }
    // One line per call that led there; a run of identical calls (deep
    // recursion) is its first line and one line that counts the rest.
    auto const& stack = error.stack();
    auto const same = [](qcos::HostErrorFrame const& a, qcos::HostErrorFrame const& b) {
        return a.file == b.file && a.function == b.function && a.line == b.line && a.column == b.column;
    };
    for (std::size_t i = 1; i < stack.size();) {
        auto const& frame = stack[i];
        text += "\n    " + escapeControls(fmt::format("called from {} at {}", frame.function, locationOf(frame)));
        std::size_t repeats = 0;
        while (i + 1 + repeats < stack.size() && same(stack[i + 1 + repeats], frame)) {
            ++repeats;
        }
        if (repeats > 0) {
            text += "\n    " + escapeControls(fmt::format("... {} more call{} of {}", repeats, repeats == 1 ? "" : "s",
                                                          frame.function));
        }
        i += 1 + repeats;
    }
    return text;
}

bool isInterruption(qcos::HostError const& error) {
    return error.identifier() == "qlang:interrupted";
}

}  // namespace dependency::services

#include "services/HostErrors.hpp"

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
    // The context says which host call failed, e.g. "AttributeAnalyzer.analyze".
    std::string text = error.context().empty() ? std::string() : error.context() + ": ";
    if (!error.stack().empty()) {
        text += locationOf(error.stack().front()) + ": ";
    }
    text += error.what();
    if (!error.identifier().empty()) {
        text += " [" + error.identifier() + "]";
    }
    for (std::size_t i = 1; i < error.stack().size(); ++i) {
        auto const& frame = error.stack()[i];
        text += fmt::format("\n    called from {} at {}", frame.function, locationOf(frame));
    }
    return text;
}

bool isInterruption(qcos::HostError const& error) {
    return error.identifier() == "qlang:interrupted";
}

}  // namespace dependency::services

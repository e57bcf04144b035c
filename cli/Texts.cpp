#include "cli/Texts.hpp"

#include "platform/fl/MessageCatalog.hpp"

namespace depattr::cli {

using dependency::attribute::Severity;

std::string text(char const* key, std::vector<resource_core::MessageArgument> args) {
    return fl::i18n::to_string(
        fl::i18n::MessageCatalog::get_message(resource_core::BaseMsgID(programCatalog, key, std::move(args))));
}

std::string counted(char const* key, std::size_t count) {
    std::string const full = std::string(key) + (count == 1 ? "One" : "Many");
    return text(full.c_str(), {static_cast<long>(count)});
}

std::string severityWord(Severity severity) {
    switch (severity) {
    case Severity::Problem:
        return text("SeverityProblem");
    case Severity::Warning:
        return text("SeverityWarning");
    case Severity::Information:
        break;
    }
    return text("SeverityInformation");
}

std::string_view severityOption(Severity severity) {
    switch (severity) {
    case Severity::Problem:
        return "problem";
    case Severity::Warning:
        return "warning";
    case Severity::Information:
        break;
    }
    return "information";
}

std::string kindWord(dependency::graph::Type type) {
    std::string key = "Kind";
    auto const name = type.name();
    key += static_cast<char>(name.front() - 'a' + 'A');
    key += name.substr(1);
    return text(key.c_str());
}

}  // namespace depattr::cli

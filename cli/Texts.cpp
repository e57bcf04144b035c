#include "cli/Texts.hpp"

#include "platform/fl/MessageCatalog.hpp"

namespace depattr::cli {

using dependency::attribute::Severity;

std::string text(char const* key, std::vector<resource_core::MessageArgument> args) {
    return fl::i18n::to_string(
        fl::i18n::MessageCatalog::get_message(resource_core::BaseMsgID(programCatalog, key, std::move(args))));
}

TextPattern::TextPattern(char const* key, std::size_t arity) : arity_(arity) {
    // Without arguments the catalog leaves every placeholder as it stands;
    // they are found here by the catalog's own rule: "{", one to four digits,
    // "}", and a number below the count of arguments.
    std::string const raw = text(key);
    std::string literal;
    std::size_t pos = 0;
    while (pos < raw.size()) {
        if (raw[pos] == '{') {
            std::size_t end = pos + 1;
            std::size_t index = 0;
            while (end < raw.size() && raw[end] >= '0' && raw[end] <= '9' && end - pos <= 4) {
                index = index * 10 + static_cast<std::size_t>(raw[end] - '0');
                ++end;
            }
            if (end > pos + 1 && end < raw.size() && raw[end] == '}' && index < arity_) {
                pieces_.push_back({std::move(literal), index});
                literal.clear();
                pos = end + 1;
                continue;
            }
        }
        literal.push_back(raw[pos++]);
    }
    pieces_.push_back({std::move(literal), arity_});
}

void TextPattern::write(std::ostream& out, std::initializer_list<std::string_view> args) const {
    std::string text;
    append(text, args);
    out << text;
}

void TextPattern::append(std::string& out, std::initializer_list<std::string_view> args) const {
    for (auto const& piece : pieces_) {
        out += piece.literal;
        if (piece.argument < arity_ && piece.argument < args.size()) {
            out += *(args.begin() + piece.argument);
        }
    }
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

// Regular expressions (Perl syntax, by Boost.Regex): regexp, regexpi and
// regexprep. Text is matched as UTF-16 code units, so positions are the
// language's character positions.

#include "platform/host/lang/detail/Builtins.hpp"

#include <boost/regex.hpp>

#include <map>

namespace qlang::detail {

namespace {

std::wstring wide(std::u16string const& text) {
    return std::wstring(text.begin(), text.end());
}

std::u16string narrowed(std::wstring const& text) {
    std::u16string out;
    out.reserve(text.size());
    for (auto const c : text) {
        out.push_back(static_cast<char16_t>(c));
    }
    return out;
}

// How ^, $ and . behave: ^ and $ anchor at the ends of the text unless
// lineAnchors (then also at line breaks); . matches any character, line
// breaks included, unless dotExceptNewline.
struct Modes {
    bool ignoreCase = false;
    bool lineAnchors = false;
    bool dotExceptNewline = false;
};

boost::wregex compile(std::string_view function, std::u16string const& pattern, Modes modes) {
    try {
        boost::wregex::flag_type flags = boost::regex_constants::perl;
        if (modes.ignoreCase) {
            flags = flags | boost::regex_constants::icase;
        }
        if (!modes.lineAnchors) {
            flags = flags | boost::regex_constants::no_mod_m;
        }
        if (modes.dotExceptNewline) {
            flags = flags | boost::regex_constants::no_mod_s;
        }
        return boost::wregex(wide(pattern), flags);
    } catch (boost::regex_error const& error) {
        badArgument(function, fmt::format("the expression '{}' is not valid: {}", utf8(pattern), error.what()));
    }
}

// The names of the named groups (?<name>...), in the order they open.
std::vector<std::string> groupNames(std::u16string const& pattern) {
    std::vector<std::string> names;
    bool inClass = false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        char16_t const c = pattern[i];
        if (c == u'\\') {
            ++i;
            continue;
        }
        if (inClass) {
            inClass = c != u']';
            continue;
        }
        if (c == u'[') {
            inClass = true;
            continue;
        }
        if (c == u'(' && pattern.compare(i, 3, u"(?<") == 0 && i + 3 < pattern.size() && pattern[i + 3] != u'=' &&
            pattern[i + 3] != u'!') {
            auto const close = pattern.find(u'>', i + 3);
            if (close != std::u16string::npos) {
                names.push_back(utf8(pattern.substr(i + 3, close - i - 3)));
            }
        }
    }
    return names;
}

enum class Output { Start, End, TokenExtents, Match, Tokens, Names, Split };

Value emptyRow() {
    return share(qxArray::createDouble({1, 0}));
}

Value outputFor(Output output, std::wstring const& subject, std::vector<boost::wsmatch> const& matches,
                std::vector<std::string> const& names, bool once) {
    auto const count = matches.size();
    auto tokensOf = [&](boost::wsmatch const& match) {
        std::vector<std::u16string> tokens;
        if (match.size() <= 1) {
            tokens.push_back(narrowed(match.str(0)));
        } else {
            for (std::size_t g = 1; g < match.size(); ++g) {
                tokens.push_back(match[static_cast<int>(g)].matched ? narrowed(match.str(static_cast<int>(g)))
                                                                    : std::u16string());
            }
        }
        return makeTexts(tokens, {1, tokens.size()});
    };
    auto extentsOf = [&](boost::wsmatch const& match) {
        std::size_t const groups = match.size() <= 1 ? 1 : match.size() - 1;
        auto extents = qxArray::createDouble({groups, 2});
        for (std::size_t g = 0; g < groups; ++g) {
            auto const group = static_cast<boost::wsmatch::size_type>(match.size() <= 1 ? 0 : g + 1);
            double const start = static_cast<double>(match.position(group)) + 1;
            extents->doubles()[g] = start;
            extents->doubles()[g + groups] = start + static_cast<double>(match.length(group)) - 1;
        }
        return share(std::move(extents));
    };
    switch (output) {
    case Output::Start:
    case Output::End: {
        std::vector<double> positions;
        for (auto const& match : matches) {
            double const start = static_cast<double>(match.position(std::size_t{0})) + 1;
            positions.push_back(output == Output::Start ? start : start + static_cast<double>(match.length(0)) - 1);
        }
        if (once) {
            return positions.empty() ? makeEmpty() : makeDouble(positions.front());
        }
        return positions.empty() ? emptyRow() : makeRow(positions);
    }
    case Output::Match: {
        if (once) {
            return count == 0 ? makeChars(u"") : makeChars(narrowed(matches.front().str(0)));
        }
        std::vector<std::u16string> texts;
        for (auto const& match : matches) {
            texts.push_back(narrowed(match.str(0)));
        }
        return makeTexts(texts, {1, count});
    }
    case Output::Tokens:
    case Output::TokenExtents: {
        if (once) {
            if (count == 0) {
                return share(qxArray::createCell({0, 0}));
            }
            return output == Output::Tokens ? tokensOf(matches.front()) : extentsOf(matches.front());
        }
        auto cell = qxArray::createCell({1, count});
        for (std::size_t i = 0; i < count; ++i) {
            cell->setCell(i, output == Output::Tokens ? tokensOf(matches[i]) : extentsOf(matches[i]));
        }
        return share(std::move(cell));
    }
    case Output::Names: {
        Dims dims = once ? Dims{count == 0 ? 0u : 1u, count == 0 ? 0u : 1u} : Dims{count == 0 ? 0u : 1u, count};
        if (once && count > 1) {
            dims = {1, 1};
        }
        auto record = qxArray::createStruct(dims, names);
        for (std::size_t i = 0; i < record->getNumberOfElements(); ++i) {
            for (std::size_t f = 0; f < names.size(); ++f) {
                auto const& group = matches[i][std::wstring(names[f].begin(), names[f].end())];
                record->setField(i, f, makeChars(group.matched ? narrowed(group.str()) : std::u16string()));
            }
        }
        return share(std::move(record));
    }
    case Output::Split: {
        std::vector<std::u16string> pieces;
        std::size_t position = 0;
        for (auto const& match : matches) {
            auto const start = static_cast<std::size_t>(match.position(std::size_t{0}));
            pieces.push_back(narrowed(subject.substr(position, start - position)));
            position = start + static_cast<std::size_t>(match.length(0));
        }
        pieces.push_back(narrowed(subject.substr(position)));
        return makeTexts(pieces, {1, pieces.size()});
    }
    }
    return makeEmpty();
}

std::vector<boost::wsmatch> matchAll(std::wstring const& subject, boost::wregex const& expression, bool once) {
    std::vector<boost::wsmatch> matches;
    for (boost::wsregex_iterator it(subject.begin(), subject.end(), expression), end; it != end; ++it) {
        matches.push_back(*it);
        if (once) {
            break;
        }
    }
    return matches;
}

Values regexpFunction(std::string_view function, Args args, int nargout, bool ignoreCase) {
    if (args.size() < 2) {
        checkCount(function, args, 2, 2);
    }
    std::vector<Output> outputs;
    bool once = false;
    Modes modes;
    modes.ignoreCase = ignoreCase;
    for (auto const& option : args.subspan(2)) {
        auto const text = textOf(*option, fmt::format("{}: an option", function));
        static std::map<std::u16string, Output> const names{
            {u"start", Output::Start}, {u"end", Output::End},       {u"tokenExtents", Output::TokenExtents},
            {u"match", Output::Match}, {u"tokens", Output::Tokens}, {u"names", Output::Names},
            {u"split", Output::Split}};
        if (auto const found = names.find(text); found != names.end()) {
            outputs.push_back(found->second);
        } else if (text == u"once") {
            once = true;
        } else if (text == u"ignorecase") {
            modes.ignoreCase = true;
        } else if (text == u"matchcase") {
            modes.ignoreCase = false;
        } else if (text == u"lineanchors") {
            modes.lineAnchors = true;
        } else if (text == u"dotexceptnewline") {
            modes.dotExceptNewline = true;
        } else {
            badArgument(function, fmt::format("'{}' is not an option of {}.", utf8(text), function));
        }
    }
    if (outputs.empty()) {
        outputs = {Output::Start,  Output::End,   Output::TokenExtents, Output::Match,
                   Output::Tokens, Output::Names, Output::Split};
    }
    auto const pattern = textOf(*args[1], fmt::format("{}: the expression", function));
    auto const expression = compile(function, pattern, modes);
    auto const names = groupNames(pattern);
    auto const wanted = std::min(outputs.size(), static_cast<std::size_t>(std::max(nargout, 1)));
    auto resultsFor = [&](std::u16string const& text) {
        auto const subject = wide(text);
        auto const matches = matchAll(subject, expression, once);
        Values results;
        for (std::size_t k = 0; k < wanted; ++k) {
            results.push_back(outputFor(outputs[k], subject, matches, names, once));
        }
        return results;
    };
    auto const& subject = *args[0];
    if (isText(subject)) {
        return resultsFor(subject.getString());
    }
    if (!isTextList(subject)) {
        badArgument(function, "the text must be text or a cell array of texts.");
    }
    // A list of texts gives, for each output, a cell with one result per text.
    auto const texts = textsOf(subject, "An element of the text");
    std::vector<qxArrayPtr> cells;
    for (std::size_t k = 0; k < wanted; ++k) {
        cells.push_back(qxArray::createCell(subject.getDimensions()));
    }
    for (std::size_t i = 0; i < texts.size(); ++i) {
        auto results = resultsFor(texts[i]);
        for (std::size_t k = 0; k < wanted; ++k) {
            cells[k]->setCell(i, results[k]);
        }
    }
    Values results;
    for (auto& cell : cells) {
        results.push_back(share(std::move(cell)));
    }
    return results;
}

Values regexprepFunction(Args args) {
    if (args.size() < 3) {
        checkCount("regexprep", args, 3, 3);
    }
    bool once = false;
    Modes modes;
    for (auto const& option : args.subspan(3)) {
        auto const text = textOf(*option, "regexprep: an option");
        if (text == u"once") {
            once = true;
        } else if (text == u"ignorecase") {
            modes.ignoreCase = true;
        } else if (text == u"lineanchors") {
            modes.lineAnchors = true;
        } else if (text == u"dotexceptnewline") {
            modes.dotExceptNewline = true;
        } else {
            badArgument("regexprep", fmt::format("'{}' is not an option of regexprep.", utf8(text)));
        }
    }
    auto const expression = compile("regexprep", textOf(*args[1], "regexprep: the expression"), modes);
    auto const replacement = wide(textOf(*args[2], "regexprep: the replacement"));
    auto flags = boost::regex_constants::format_perl;
    if (once) {
        flags = flags | boost::regex_constants::format_first_only;
    }
    auto replace = [&](std::u16string const& text) {
        try {
            return narrowed(boost::regex_replace(wide(text), expression, replacement, flags));
        } catch (std::runtime_error const& error) {
            badArgument("regexprep", error.what());
        }
    };
    auto const& subject = *args[0];
    if (isText(subject)) {
        auto const result = replace(subject.getString());
        return one(subject.classID() == qxClassID::String ? makeString(result) : makeChars(result));
    }
    if (!isTextList(subject)) {
        badArgument("regexprep", "the text must be text or a cell array of texts.");
    }
    auto const texts = textsOf(subject, "An element of the text");
    std::vector<std::u16string> results;
    for (auto const& text : texts) {
        results.push_back(replace(text));
    }
    return one(makeTexts(results, subject.getDimensions()));
}

}  // namespace

void registerRegexBuiltins() {
    defineBuiltin("regexp", [](Args args, int nargout) { return regexpFunction("regexp", args, nargout, false); });
    defineBuiltin("regexpi", [](Args args, int nargout) { return regexpFunction("regexpi", args, nargout, true); });
    defineBuiltin("regexprep", [](Args args, int) { return regexprepFunction(args); });
}

}  // namespace qlang::detail

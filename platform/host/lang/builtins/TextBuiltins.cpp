// Built-ins on text: comparison, searching, splitting and joining, changing
// case and blanks. Text is a char row or a string scalar; a "list of texts"
// is a cell array of texts or a string array, and functions given one answer
// for each element, in an array of the list's size.

#include "platform/host/lang/detail/Builtins.hpp"

#include <algorithm>
#include <cmath>
#include <cwctype>
#include <limits>
#include <locale>
#include <optional>

namespace qlang::detail {

namespace {

// One text or a list of texts, and how to give results back in the same form.
struct Texts {
    std::vector<std::u16string> items;
    Dims dims{1, 1};
    bool list = false;
    qxClassID kind = qxClassID::Char;
};

bool isTextOrList(qxArray const& value) {
    return isText(value) || isTextList(value);
}

Texts textsArgument(std::string_view function, qxArray const& value, std::string_view what) {
    Texts texts;
    texts.kind = value.classID();
    if (isText(value)) {
        texts.items.push_back(value.getString());
        return texts;
    }
    if (!isTextList(value)) {
        badArgument(function, fmt::format("{} must be text or a cell array of texts, got a {} {}.", what,
                                          dimsText(value.getDimensions()), value.getClassName()));
    }
    texts.list = true;
    texts.dims = value.getDimensions();
    texts.items = textsOf(value, what);
    return texts;
}

// Results of a text function in the form of its input: char, string or cell.
Value textsResult(Texts const& form, std::vector<std::u16string> const& results) {
    if (!form.list) {
        return form.kind == qxClassID::String ? makeString(results.front()) : makeChars(results.front());
    }
    if (form.kind == qxClassID::String) {
        auto strings = qxArray::createStrings(form.dims);
        for (std::size_t i = 0; i < results.size(); ++i) {
            strings->setStringElement(i, results[i]);
        }
        return share(std::move(strings));
    }
    return makeTexts(results, form.dims);
}

Value flagsResult(Texts const& form, std::vector<bool> const& flags) {
    if (!form.list) {
        return makeLogical(flags.front());
    }
    auto result = qxArray::createLogical(form.dims);
    for (std::size_t i = 0; i < flags.size(); ++i) {
        result->logicals()[i] = flags[i] ? 1 : 0;
    }
    return share(std::move(result));
}

std::locale const& unicodeLocale() {
    static std::locale const locale = [] {
        try {
            return std::locale("C.UTF-8");
        } catch (std::runtime_error const&) {
            return std::locale::classic();
        }
    }();
    return locale;
}

std::u16string changedCase(std::u16string text, bool toUpper) {
    auto const& facet = std::use_facet<std::ctype<wchar_t>>(unicodeLocale());
    for (auto& c : text) {
        if (c >= 0xD800 && c < 0xE000) {
            continue;  // halves of characters beyond the basic plane stay as they are
        }
        auto const wide = static_cast<wchar_t>(c);
        c = static_cast<char16_t>(toUpper ? facet.toupper(wide) : facet.tolower(wide));
    }
    return text;
}

bool isBlank(char16_t c) {
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\v' || c == u'\f' || c == 0xA0;
}

// strcmp and its kin: compare pairs; non-text arguments compare unequal.
Values compareTexts(std::string_view function, Args args, bool ignoreCase, bool prefix) {
    checkCount(function, args, prefix ? 3 : 2, prefix ? 3 : 2);
    std::size_t length = 0;
    if (prefix) {
        length = countOf(*args[2], fmt::format("The length given to {}", function));
    }
    auto equal = [&](std::u16string a, std::u16string b) {
        if (prefix) {
            if (a.size() < length || b.size() < length) {
                return false;
            }
            a.resize(length);
            b.resize(length);
        }
        if (ignoreCase) {
            a = changedCase(std::move(a), false);
            b = changedCase(std::move(b), false);
        }
        return a == b;
    };
    auto const& a = *args[0];
    auto const& b = *args[1];
    bool const aList = a.classID() == qxClassID::Cell || (a.classID() == qxClassID::String && !a.isScalar());
    bool const bList = b.classID() == qxClassID::Cell || (b.classID() == qxClassID::String && !b.isScalar());
    auto textAt = [](qxArray const& value, std::size_t index, bool list) -> std::optional<std::u16string> {
        if (!list) {
            return isText(value) ? std::optional(value.getString()) : std::nullopt;
        }
        if (value.classID() == qxClassID::String) {
            return value.getStringElement(index);
        }
        auto const& element = *value.getCell(index);
        return isText(element) ? std::optional(element.getString()) : std::nullopt;
    };
    if (!aList && !bList) {
        auto const x = textAt(a, 0, false);
        auto const y = textAt(b, 0, false);
        return one(makeLogical(x && y && equal(*x, *y)));
    }
    if (aList && bList && a.getNumberOfElements() != b.getNumberOfElements() && !a.isScalar() && !b.isScalar()) {
        badArgument(function, "two lists of texts must have the same size.");
    }
    auto const& shape = aList && (!bList || !a.isScalar()) ? a : b;
    auto result = qxArray::createLogical(shape.getDimensions());
    for (std::size_t i = 0; i < shape.getNumberOfElements(); ++i) {
        auto const x = textAt(a, aList && !a.isScalar() ? i : 0, aList);
        auto const y = textAt(b, bList && !b.isScalar() ? i : 0, bList);
        result->logicals()[i] = x && y && equal(*x, *y) ? 1 : 0;
    }
    return one(share(std::move(result)));
}

// startsWith, endsWith, contains: does each text have any of the patterns there?
Values matchPatterns(std::string_view function, Args args, int where) {
    auto const start = optionsStart(function, args, {"IgnoreCase"});
    checkCount(function, args.first(start), 2, 2);
    bool ignoreCase = false;
    if (auto const option = optionValue(args, start, "IgnoreCase")) {
        ignoreCase = truthOf(*option);
    }
    auto const texts = textsArgument(function, *args[0], "The text");
    auto patterns = textsArgument(function, *args[1], "The pattern").items;
    std::vector<bool> flags;
    for (auto text : texts.items) {
        if (ignoreCase) {
            text = changedCase(std::move(text), false);
        }
        bool found = false;
        for (auto pattern : patterns) {
            if (ignoreCase) {
                pattern = changedCase(std::move(pattern), false);
            }
            if (where < 0) {
                found = found || text.starts_with(pattern);
            } else if (where > 0) {
                found = found || text.ends_with(pattern);
            } else {
                found = found || text.find(pattern) != std::u16string::npos;
            }
        }
        flags.push_back(found);
    }
    return one(flagsResult(texts, flags));
}

Values replaceText(Args args) {
    checkCount("strrep", args, 3, 3);
    auto const texts = textsArgument("strrep", *args[0], "The text");
    auto const from = textOf(*args[1], "strrep: the text to replace");
    auto const to = textOf(*args[2], "strrep: the replacement");
    std::vector<std::u16string> results;
    for (auto const& text : texts.items) {
        if (from.empty()) {
            results.push_back(text);
            continue;
        }
        std::u16string out;
        std::size_t position = 0;
        for (auto found = text.find(from); found != std::u16string::npos; found = text.find(from, position)) {
            out.append(text, position, found - position);
            out += to;
            position = found + from.size();
        }
        out.append(text, position);
        results.push_back(std::move(out));
    }
    return one(textsResult(texts, results));
}

Values splitText(Args args) {
    auto const start = optionsStart("strsplit", args, {"CollapseDelimiters"});
    checkCount("strsplit", args.first(start), 1, 2);
    auto const text = textOf(*args[0], "strsplit: the text");
    bool collapse = true;
    if (auto const option = optionValue(args, start, "CollapseDelimiters")) {
        collapse = truthOf(*option);
    }
    std::vector<std::u16string> delimiters;
    if (start >= 2) {
        delimiters = textsArgument("strsplit", *args[1], "The delimiter").items;
    } else {
        delimiters = {u" ", u"\f", u"\n", u"\r", u"\t", u"\v"};
    }
    // Escapes in delimiters: \t, \n and friends stand for their characters.
    for (auto& delimiter : delimiters) {
        std::u16string unescaped;
        for (std::size_t i = 0; i < delimiter.size(); ++i) {
            if (delimiter[i] == u'\\' && i + 1 < delimiter.size()) {
                switch (delimiter[i + 1]) {
                case u't':
                    unescaped.push_back(u'\t');
                    ++i;
                    continue;
                case u'n':
                    unescaped.push_back(u'\n');
                    ++i;
                    continue;
                case u'r':
                    unescaped.push_back(u'\r');
                    ++i;
                    continue;
                case u'\\':
                    unescaped.push_back(u'\\');
                    ++i;
                    continue;
                default:
                    break;
                }
            }
            unescaped.push_back(delimiter[i]);
        }
        if (unescaped.empty()) {
            badArgument("strsplit", "a delimiter cannot be empty.");
        }
        delimiter = std::move(unescaped);
    }
    std::vector<std::u16string> parts;
    std::u16string current;
    bool lastWasDelimiter = false;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t matched = 0;
        for (auto const& delimiter : delimiters) {
            if (text.compare(i, delimiter.size(), delimiter) == 0 && delimiter.size() > matched) {
                matched = delimiter.size();
            }
        }
        if (matched > 0) {
            if (!(collapse && lastWasDelimiter)) {
                parts.push_back(std::move(current));
            }
            current.clear();
            lastWasDelimiter = true;
            i += matched;
            continue;
        }
        lastWasDelimiter = false;
        current.push_back(text[i]);
        ++i;
    }
    parts.push_back(std::move(current));
    return one(makeTexts(parts, {1, parts.size()}));
}

Values joinTexts(Args args) {
    checkCount("strjoin", args, 1, 2);
    if (!isTextList(*args[0])) {
        badArgument("strjoin", "the first input must be a cell array of texts.");
    }
    auto const items = textsOf(*args[0], "An element given to strjoin");
    std::u16string delimiter = u" ";
    if (args.size() == 2) {
        delimiter = textOf(*args[1], "strjoin: the delimiter");
    }
    std::u16string joined;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            joined += delimiter;
        }
        joined += items[i];
    }
    return one(args[0]->classID() == qxClassID::String ? makeString(joined) : makeChars(joined));
}

Values trimTexts(Args args) {
    checkCount("strtrim", args, 1, 1);
    auto const texts = textsArgument("strtrim", *args[0], "The text");
    std::vector<std::u16string> results;
    for (auto const& text : texts.items) {
        std::size_t first = 0;
        std::size_t last = text.size();
        while (first < last && isBlank(text[first])) {
            ++first;
        }
        while (last > first && isBlank(text[last - 1])) {
            --last;
        }
        results.push_back(text.substr(first, last - first));
    }
    return one(textsResult(texts, results));
}

Values caseOf(std::string_view function, Args args, bool toUpper) {
    checkCount(function, args, 1, 1);
    auto const texts = textsArgument(function, *args[0], "The text");
    std::vector<std::u16string> results;
    for (auto const& text : texts.items) {
        results.push_back(changedCase(text, toUpper));
    }
    return one(textsResult(texts, results));
}

Values findText(Args args) {
    checkCount("strfind", args, 2, 2);
    auto const texts = textsArgument("strfind", *args[0], "The text");
    auto const pattern = textOf(*args[1], "strfind: the pattern");
    auto positions = [&](std::u16string const& text) {
        std::vector<double> found;
        if (!pattern.empty()) {
            for (auto at = text.find(pattern); at != std::u16string::npos; at = text.find(pattern, at + 1)) {
                found.push_back(static_cast<double>(at + 1));
            }
        }
        if (found.empty()) {
            return share(qxArray::createDouble({1, 0}));
        }
        return makeRow(found);
    };
    if (!texts.list) {
        return one(positions(texts.items.front()));
    }
    auto cell = qxArray::createCell(texts.dims);
    for (std::size_t i = 0; i < texts.items.size(); ++i) {
        cell->setCell(i, positions(texts.items[i]));
    }
    return one(share(std::move(cell)));
}

double parseNumber(std::u16string const& text) {
    std::size_t first = 0;
    std::size_t last = text.size();
    while (first < last && isBlank(text[first])) {
        ++first;
    }
    while (last > first && isBlank(text[last - 1])) {
        --last;
    }
    std::string narrow;
    for (auto i = first; i < last; ++i) {
        if (text[i] > 127) {
            return std::numeric_limits<double>::quiet_NaN();
        }
        // Thousands separators are allowed between digits: 1,000.
        if (text[i] == u',') {
            continue;
        }
        narrow.push_back(static_cast<char>(text[i]));
    }
    if (narrow.empty()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    std::string lower = narrow;
    for (auto& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    if (lower == "inf" || lower == "+inf") {
        return std::numeric_limits<double>::infinity();
    }
    if (lower == "-inf") {
        return -std::numeric_limits<double>::infinity();
    }
    if (lower == "nan") {
        return std::numeric_limits<double>::quiet_NaN();
    }
    for (auto const c : lower) {
        if (!(std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == 'e' || c == '+' || c == '-')) {
            return std::numeric_limits<double>::quiet_NaN();
        }
    }
    char* end = nullptr;
    double const value = std::strtod(narrow.c_str(), &end);
    return end == narrow.c_str() + narrow.size() ? value : std::numeric_limits<double>::quiet_NaN();
}

Values textToNumber(Args args) {
    checkCount("str2double", args, 1, 1);
    auto const& value = *args[0];
    if (isText(value)) {
        return one(makeDouble(parseNumber(value.getString())));
    }
    if (value.classID() == qxClassID::Cell || value.classID() == qxClassID::String) {
        auto result = qxArray::createDouble(value.getDimensions());
        for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
            if (value.classID() == qxClassID::String) {
                result->doubles()[i] = parseNumber(value.getStringElement(i));
            } else {
                auto const& element = *value.getCell(i);
                result->doubles()[i] =
                    isText(element) ? parseNumber(element.getString()) : std::numeric_limits<double>::quiet_NaN();
            }
        }
        return one(share(std::move(result)));
    }
    return one(makeDouble(std::numeric_limits<double>::quiet_NaN()));
}

// strcat: texts joined end to end. Char rows lose their trailing blanks
// first; with a string the result is a string, with a list of texts a list
// (one text broadcast over the others).
Values concatenateTexts(Args args) {
    if (args.empty()) {
        badArgument("strcat", "at least one input is needed.");
    }
    bool anyString = false;
    std::optional<Texts> shape;
    std::vector<Texts> parts;
    for (auto const& arg : args) {
        auto texts = textsArgument("strcat", *arg, "Each input");
        if (arg->classID() == qxClassID::Char) {
            for (auto& text : texts.items) {
                while (!text.empty() && isBlank(text.back())) {
                    text.pop_back();
                }
            }
        }
        anyString = anyString || arg->classID() == qxClassID::String;
        if (texts.list && texts.items.size() != 1) {
            if (shape && shape->items.size() != texts.items.size()) {
                badArgument("strcat", "lists of texts must have the same number of elements.");
            }
            shape = texts;
        } else if (texts.list && !shape) {
            shape = texts;
        }
        parts.push_back(std::move(texts));
    }
    std::size_t const count = shape ? shape->items.size() : 1;
    std::vector<std::u16string> results(count);
    for (auto const& part : parts) {
        for (std::size_t i = 0; i < count; ++i) {
            results[i] += part.items.size() == 1 ? part.items.front() : part.items[i];
        }
    }
    if (!shape) {
        return one(anyString ? makeString(results.front()) : makeChars(results.front()));
    }
    Texts form = *shape;
    form.kind = anyString ? qxClassID::String : qxClassID::Cell;
    return one(textsResult(form, results));
}

// [token, remainder] = strtok(text, delimiters): the first token after any
// leading delimiters (whitespace by default), and the rest from the
// delimiter that ends it.
Values firstToken(Args args) {
    checkCount("strtok", args, 1, 2);
    auto const text = textOf(*args[0], "strtok: the text");
    std::u16string delimiters = u" \t\n\v\f\r";
    delimiters.push_back(u'\0');
    if (args.size() == 2) {
        delimiters = textOf(*args[1], "strtok: the delimiters");
    }
    auto const isDelimiter = [&](char16_t c) { return delimiters.find(c) != std::u16string::npos; };
    std::size_t first = 0;
    while (first < text.size() && isDelimiter(text[first])) {
        ++first;
    }
    std::size_t last = first;
    while (last < text.size() && !isDelimiter(text[last])) {
        ++last;
    }
    bool const asString = args[0]->classID() == qxClassID::String;
    auto const make = [&](std::u16string_view part) { return asString ? makeString(part) : makeChars(part); };
    Values outputs;
    outputs.push_back(make(std::u16string_view(text).substr(first, last - first)));
    outputs.push_back(make(std::u16string_view(text).substr(last)));
    return outputs;
}

// join(list), join(list, delimiter): the texts of a vector list joined (a
// blank between them by default); a string for a string array, else a char row.
Values joinList(Args args) {
    checkCount("join", args, 1, 2);
    auto const& list = *args[0];
    if (isText(list) && list.classID() == qxClassID::Char) {
        return one(args[0]);
    }
    if (!isTextList(list) && list.classID() != qxClassID::String) {
        badArgument("join", "the first input must be a string array or a cell array of texts.");
    }
    if (!isVectorShape(list.getDimensions()) && !list.isEmpty()) {
        badArgument("join",
                    fmt::format("only vectors of texts are joined, not a {} array.", dimsText(list.getDimensions())));
    }
    std::u16string delimiter = u" ";
    if (args.size() == 2) {
        delimiter = textOf(*args[1], "join: the delimiter");
    }
    auto const items = textsOf(list, "An element given to join");
    std::u16string joined;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            joined += delimiter;
        }
        joined += items[i];
    }
    return one(list.classID() == qxClassID::String ? makeString(joined) : makeChars(joined));
}

// split(text), split(text, delimiters): the parts as a column, strings for a
// string, a cell of char rows for a char row. Consecutive delimiters count as one.
Values splitColumn(Args args) {
    checkCount("split", args, 1, 2);
    (void)textOf(*args[0], "split: the text");
    Value forwarded[] = {args[0], args.size() == 2 ? args[1] : Value{}};
    auto parts = textsOf(*splitText(std::span<Value const>(forwarded, args.size())).front(), "A part");
    if (args[0]->classID() == qxClassID::String) {
        auto strings = qxArray::createStrings({parts.size(), 1});
        for (std::size_t i = 0; i < parts.size(); ++i) {
            strings->setStringElement(i, parts[i]);
        }
        return one(share(std::move(strings)));
    }
    return one(makeTexts(parts, {parts.size(), 1}));
}

// extractBefore(text, pattern or position), extractAfter(...): the text before
// (after) the first occurrence of a pattern, or before (after) a position;
// empty text when the pattern does not occur.
Values extractAround(std::string_view function, Args args, bool before) {
    checkCount(function, args, 2, 2);
    auto const texts = textsArgument(function, *args[0], "The text");
    std::vector<std::u16string> results;
    for (auto const& text : texts.items) {
        std::size_t cut = 0;
        std::size_t skip = 0;
        if (isNumeric(*args[1]) && args[1]->classID() != qxClassID::Char) {
            auto const position = countOf(*args[1], fmt::format("The position given to {}", function));
            bool const valid = before ? position >= 1 && position <= text.size() + 1 : position <= text.size();
            if (!valid) {
                badArgument(function, fmt::format("the position {} is outside the text of {} characters.", position,
                                                  text.size()));
            }
            cut = before ? position - 1 : position;
        } else {
            auto const pattern = textOf(*args[1], fmt::format("{}: the pattern", function));
            auto const found = text.find(pattern);
            if (found == std::u16string::npos) {
                results.emplace_back();
                continue;
            }
            cut = found;
            skip = pattern.size();
            if (!before) {
                cut += skip;
            }
        }
        results.push_back(before ? text.substr(0, cut) : text.substr(cut));
    }
    return one(textsResult(texts, results));
}

// pad(t), pad(t, width), pad(t, side), pad(t, width, side), pad(t, width,
// side, character): blanks (or the character) added on the 'right' (default),
// 'left' or 'both' sides up to the width (default: the longest text).
Values padTexts(Args args) {
    checkCount("pad", args, 1, 4);
    auto const texts = textsArgument("pad", *args[0], "The text");
    std::size_t width = 0;
    for (auto const& text : texts.items) {
        width = std::max(width, text.size());
    }
    std::size_t next = 1;
    if (next < args.size() && !isText(*args[next])) {
        width = countOf(*args[next], "The width given to pad");
        ++next;
    }
    std::u16string side = u"right";
    if (next < args.size()) {
        side = changedCase(textOf(*args[next], "pad: the side"), false);
        if (side != u"right" && side != u"left" && side != u"both") {
            badArgument("pad", "the side must be 'left', 'right' or 'both'.");
        }
        ++next;
    }
    char16_t fill = u' ';
    if (next < args.size()) {
        auto const character = textOf(*args[next], "pad: the character");
        if (character.size() != 1) {
            badArgument("pad", "the padding must be one character.");
        }
        fill = character.front();
        ++next;
    }
    if (next < args.size()) {
        badArgument("pad", "give the width, the side and the character in this order.");
    }
    std::vector<std::u16string> results;
    for (auto const& text : texts.items) {
        auto const missing = width > text.size() ? width - text.size() : 0;
        auto const left = side == u"left" ? missing : side == u"both" ? missing / 2 : 0;
        results.push_back(std::u16string(left, fill) + text + std::u16string(missing - left, fill));
    }
    return one(textsResult(texts, results));
}

}  // namespace

void registerTextBuiltins() {
    defineBuiltin("strcmp", [](Args args, int) { return compareTexts("strcmp", args, false, false); });
    defineBuiltin("strcmpi", [](Args args, int) { return compareTexts("strcmpi", args, true, false); });
    defineBuiltin("strncmp", [](Args args, int) { return compareTexts("strncmp", args, false, true); });
    defineBuiltin("strncmpi", [](Args args, int) { return compareTexts("strncmpi", args, true, true); });
    defineBuiltin("startsWith", [](Args args, int) { return matchPatterns("startsWith", args, -1); });
    defineBuiltin("endsWith", [](Args args, int) { return matchPatterns("endsWith", args, 1); });
    defineBuiltin("contains", [](Args args, int) { return matchPatterns("contains", args, 0); });
    defineBuiltin("strrep", [](Args args, int) { return replaceText(args); });
    defineBuiltin("strsplit", [](Args args, int) { return splitText(args); });
    defineBuiltin("strjoin", [](Args args, int) { return joinTexts(args); });
    defineBuiltin("strtrim", [](Args args, int) { return trimTexts(args); });
    defineBuiltin("lower", [](Args args, int) { return caseOf("lower", args, false); });
    defineBuiltin("upper", [](Args args, int) { return caseOf("upper", args, true); });
    defineBuiltin("strfind", [](Args args, int) { return findText(args); });
    defineBuiltin("strcat", [](Args args, int) { return concatenateTexts(args); });
    defineBuiltin("strtok", [](Args args, int) { return firstToken(args); });
    defineBuiltin("join", [](Args args, int) { return joinList(args); });
    defineBuiltin("split", [](Args args, int) { return splitColumn(args); });
    defineBuiltin("extractBefore", [](Args args, int) { return extractAround("extractBefore", args, true); });
    defineBuiltin("extractAfter", [](Args args, int) { return extractAround("extractAfter", args, false); });
    defineBuiltin("pad", [](Args args, int) { return padTexts(args); });
    defineBuiltin("str2double", [](Args args, int) { return textToNumber(args); });
    defineBuiltin("strlength", [](Args args, int) {
        checkCount("strlength", args, 1, 1);
        auto const texts = textsArgument("strlength", *args[0], "The text");
        auto result = qxArray::createDouble(texts.dims);
        for (std::size_t i = 0; i < texts.items.size(); ++i) {
            result->doubles()[i] = static_cast<double>(texts.items[i].size());
        }
        return one(share(std::move(result)));
    });
    defineBuiltin("newline", [](Args args, int) {
        checkCount("newline", args, 0, 0);
        return one(makeChars(u"\n"));
    });
    defineBuiltin("isspace", [](Args args, int) {
        checkCount("isspace", args, 1, 1);
        auto const& value = *args[0];
        auto result = qxArray::createLogical(value.getDimensions());
        if (value.classID() == qxClassID::Char) {
            for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
                result->logicals()[i] = isBlank(value.chars()[i]) ? 1 : 0;
            }
        }
        return one(share(std::move(result)));
    });
    (void)isTextOrList;
}

}  // namespace qlang::detail

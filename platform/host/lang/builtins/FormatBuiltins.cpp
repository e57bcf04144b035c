// Formatting and output: sprintf, fprintf, num2str, int2str, disp, and the
// error and warning functions.

#include "platform/host/Vm.hpp"
#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Interpreter.hpp"

#include <fmt/printf.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <mutex>

namespace qlang::detail {

namespace {

// One argument item of a format: a number or a text.
struct Item {
    bool isText = false;
    double number = 0;
    std::u16string text;
};

std::deque<Item> itemsOf(std::string_view function, Args args) {
    std::deque<Item> items;
    for (auto const& arg : args) {
        auto const& value = *arg;
        if (value.classID() == qxClassID::Char) {
            items.push_back({true, 0, value.getString()});
        } else if (value.classID() == qxClassID::String) {
            for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
                items.push_back({true, 0, value.getStringElement(i)});
            }
        } else if (value.classID() == qxClassID::Double || value.classID() == qxClassID::Logical) {
            for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
                items.push_back({false, numberAt(value, i), {}});
            }
        } else {
            badArgument(function, fmt::format("a value of class '{}' cannot be formatted; give numbers or text.",
                                              value.getClassName()));
        }
    }
    return items;
}

// The escapes of format texts: \n, \t, \\ and the like.
std::u16string unescape(std::u16string const& format) {
    std::u16string out;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != u'\\' || i + 1 == format.size()) {
            out.push_back(format[i]);
            continue;
        }
        char16_t const next = format[++i];
        switch (next) {
        case u'n':
            out.push_back(u'\n');
            break;
        case u't':
            out.push_back(u'\t');
            break;
        case u'r':
            out.push_back(u'\r');
            break;
        case u'a':
            out.push_back(u'\a');
            break;
        case u'b':
            out.push_back(u'\b');
            break;
        case u'f':
            out.push_back(u'\f');
            break;
        case u'v':
            out.push_back(u'\v');
            break;
        case u'\\':
            out.push_back(u'\\');
            break;
        default:
            out.push_back(u'\\');
            out.push_back(next);
            break;
        }
    }
    return out;
}

std::u16string padded(std::u16string text, int width, bool left) {
    if (width > 0 && text.size() < static_cast<std::size_t>(width)) {
        std::u16string padding(static_cast<std::size_t>(width) - text.size(), u' ');
        text = left ? text + padding : padding + text;
    }
    return text;
}

// A width or precision, written or given by '*', is held to a million
// characters however large it is written.
constexpr int maximumWidth = 1'000'000;

class Formatter {
public:
    Formatter(std::string_view function, std::u16string format, std::deque<Item> items)
        : function_(function), format_(std::move(format)), items_(std::move(items)) {}

    std::u16string run() {
        std::u16string out;
        // The format is used again while items remain, and at least once.
        // Each pass counts as a step of the host code, so that formatting a
        // huge array stops on Ctrl-C or when a step budget runs out.
        for (bool first = true; first || !items_.empty(); first = false) {
            if (qvm::isInterruptRequested()) {
                throw qcos::HostError("qlang:interrupted", "Interrupted (Ctrl-C): the host code was stopped.");
            }
            bool converted = false;
            if (!pass(out, converted) || !converted) {
                break;
            }
        }
        return out;
    }

private:
    std::optional<Item> take() {
        if (items_.empty()) {
            return std::nullopt;
        }
        auto item = std::move(items_.front());
        items_.pop_front();
        return item;
    }

    // A number for a numeric conversion: text items give their characters' codes.
    std::optional<double> takeNumber() {
        if (items_.empty()) {
            return std::nullopt;
        }
        if (items_.front().isText) {
            auto text = std::move(items_.front().text);
            items_.pop_front();
            for (auto it = text.rbegin(); it != text.rend(); ++it) {
                items_.push_front({false, static_cast<double>(*it), {}});
            }
            if (items_.empty()) {
                return std::nullopt;
            }
        }
        auto const number = items_.front().number;
        items_.pop_front();
        return number;
    }

    // One pass over the format. Returns false when the items ran out at a
    // conversion (output stops there).
    bool pass(std::u16string& out, bool& converted) {
        for (std::size_t i = 0; i < format_.size(); ++i) {
            // The text becomes a char array: it may grow no larger than an array may.
            qxArray::checkElementCount(out.size());
            char16_t const c = format_[i];
            if (c != u'%') {
                out.push_back(c);
                continue;
            }
            if (i + 1 < format_.size() && format_[i + 1] == u'%') {
                out.push_back(u'%');
                ++i;
                continue;
            }
            // %[flags][width][.precision]conversion
            std::string flags;
            std::size_t j = i + 1;
            while (j < format_.size() && std::u16string_view(u"-+ 0#").find(format_[j]) != std::u16string_view::npos) {
                flags.push_back(static_cast<char>(format_[j++]));
            }
            auto number = [&](int& target) -> bool {
                if (j < format_.size() && format_[j] == u'*') {
                    ++j;
                    auto const value = takeNumber();
                    if (!value) {
                        return false;
                    }
                    // NaN is no width.
                    target = std::isnan(*value)
                                 ? 0
                                 : static_cast<int>(std::clamp(*value, -double{maximumWidth}, double{maximumWidth}));
                    return true;
                }
                while (j < format_.size() && format_[j] >= u'0' && format_[j] <= u'9') {
                    target = std::min(maximumWidth, (target < 0 ? 0 : target) * 10 + (format_[j++] - u'0'));
                }
                return true;
            };
            int width = -1;
            int precision = -1;
            if (!number(width)) {
                return false;
            }
            if (j < format_.size() && format_[j] == u'.') {
                ++j;
                precision = 0;
                if (!number(precision)) {
                    return false;
                }
            }
            if (j >= format_.size()) {
                badArgument(function_, "the format ends inside a conversion.");
            }
            char16_t const conversion = format_[j];
            if (std::u16string_view(u"diuoxXfFeEgGcs").find(conversion) == std::u16string_view::npos) {
                badArgument(function_,
                            fmt::format("'%{}' is not a conversion of this format.", utf8({&conversion, 1})));
            }
            i = j;
            if (items_.empty()) {
                return false;
            }
            converted = true;
            bool const left = flags.find('-') != std::string::npos;
            if (conversion == u's' || conversion == u'c') {
                auto item = *take();
                // A number given to %s or %c that is a character code is that
                // character; other numbers are written as %e would write them.
                bool const isCode =
                    !item.isText && item.number >= 0 && item.number <= 0xFFFF && item.number == std::floor(item.number);
                std::u16string text = item.isText ? item.text
                                      : isCode    ? std::u16string(1, static_cast<char16_t>(item.number))
                                      : std::isfinite(item.number) ? utf16(fmt::sprintf("%e", item.number))
                                                                   : utf16(numberText(item.number));
                if (precision >= 0 && conversion == u's' && text.size() > static_cast<std::size_t>(precision)) {
                    text.resize(static_cast<std::size_t>(precision));
                }
                out += padded(std::move(text), width, left);
                continue;
            }
            auto const value = *takeNumber();
            std::string conversionText = "%" + flags;
            if (width >= 0) {
                conversionText += std::to_string(width);
            }
            bool const integerConversion = std::u16string_view(u"diuoxX").find(conversion) != std::u16string_view::npos;
            if (integerConversion) {
                if (std::isfinite(value) && value == std::floor(value) && std::fabs(value) < 9.2e18) {
                    if (precision >= 0) {
                        conversionText += "." + std::to_string(precision);
                    }
                    char const kind = conversion == u'i' || conversion == u'u' ? 'd' : static_cast<char>(conversion);
                    conversionText += std::string("ll") + kind;
                    out += utf16(fmt::sprintf(conversionText, static_cast<long long>(value)));
                    continue;
                }
                // Not a whole number: written as %e (or as Inf/NaN).
                if (!std::isfinite(value)) {
                    out += padded(utf16(numberText(value)), width, left);
                    continue;
                }
                conversionText += precision >= 0 ? "." + std::to_string(precision) + "e" : "e";
                out += utf16(fmt::sprintf(conversionText, value));
                continue;
            }
            if (!std::isfinite(value)) {
                out += padded(utf16(numberText(value)), width, left);
                continue;
            }
            if (precision >= 0) {
                conversionText += "." + std::to_string(precision);
            }
            conversionText.push_back(static_cast<char>(conversion));
            out += utf16(fmt::sprintf(conversionText, value));
        }
        return true;
    }

    std::string_view function_;
    std::u16string format_;
    std::deque<Item> items_;
};

std::u16string formatArguments(std::string_view function, Args args) {
    auto const format = unescape(textOf(*args[0], fmt::format("{}: the format", function)));
    return Formatter(function, format, itemsOf(function, args.subspan(1))).run();
}

std::u16string numberToText(double value) {
    if (!std::isfinite(value) || (value == std::floor(value) && std::fabs(value) < 1e15)) {
        return utf16(numberText(value));
    }
    int const magnitude = value == 0 ? 0 : static_cast<int>(std::floor(std::log10(std::fabs(value))));
    int const digits = std::max(magnitude + 5, 5);
    return utf16(fmt::format("{:.{}g}", value, digits));
}

Values num2strOf(Args args) {
    checkCount("num2str", args, 1, 2);
    auto const& value = *args[0];
    if (value.classID() == qxClassID::Char) {
        return one(args[0]);
    }
    if (!isNumeric(value)) {
        badArgument("num2str", fmt::format("a value of class '{}' is not a number.", value.getClassName()));
    }
    auto element = [&](std::size_t index) -> std::u16string {
        double const number = numberAt(value, index);
        if (args.size() == 2) {
            if (isText(*args[1])) {
                Value const formatArgs[] = {args[1], makeDouble(number)};
                return formatArguments("num2str", formatArgs);
            }
            auto const precision = countOf(*args[1], "The precision given to num2str");
            if (!std::isfinite(number)) {
                return utf16(numberText(number));
            }
            return utf16(fmt::format("{:.{}g}", number, precision));
        }
        return numberToText(number);
    };
    auto const& dims = value.getDimensions();
    if (value.isScalar()) {
        return one(makeChars(element(0)));
    }
    if (dims.size() > 2) {
        badArgument("num2str", "arrays of more than two dimensions are not supported.");
    }
    // Rows of a matrix become rows of text, columns separated by two blanks.
    std::vector<std::u16string> rows;
    std::size_t width = 0;
    for (std::size_t r = 0; r < dims[0]; ++r) {
        std::u16string row;
        for (std::size_t c = 0; c < dims[1]; ++c) {
            if (c > 0) {
                row += u"  ";
            }
            row += element(r + c * dims[0]);
        }
        width = std::max(width, row.size());
        rows.push_back(std::move(row));
    }
    auto result = qxArray::createChar({rows.size(), width});
    for (std::size_t r = 0; r < rows.size(); ++r) {
        auto const& row = rows[r];
        for (std::size_t c = 0; c < width; ++c) {
            // Shorter rows are aligned right.
            std::size_t const offset = width - row.size();
            result->chars()[r + c * rows.size()] = c < offset ? u' ' : row[c - offset];
        }
    }
    return one(share(std::move(result)));
}

// error and warning take (message), (format, values...) or (identifier, format, values...).
struct Message {
    std::string identifier;
    std::u16string text;
};

bool looksLikeIdentifier(std::u16string const& text) {
    if (text.find(u':') == std::u16string::npos || text.back() == u':' || text.front() == u':') {
        return false;
    }
    for (auto const c : text) {
        bool const allowed = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
                             c == u'_' || c == u':' || c == u'-';
        if (!allowed) {
            return false;
        }
    }
    return true;
}

Message messageOf(std::string_view function, Args args) {
    Message message;
    auto const first = textOf(*args[0], fmt::format("{}: the message", function));
    if (args.size() == 1) {
        message.text = first;
        return message;
    }
    if (looksLikeIdentifier(first)) {
        message.identifier = utf8(first);
        message.text = formatArguments(function, args.subspan(1));
        return message;
    }
    message.text = formatArguments(function, args);
    return message;
}

struct WarningStates {
    std::mutex mutex;
    bool allOff = false;
    std::map<std::string, bool, std::less<>> off;
};

WarningStates& warningStates() {
    static auto* states = new WarningStates;
    return *states;
}

Values warningFunction(Args args) {
    if (args.empty()) {
        checkCount("warning", args, 1, 1);
    }
    auto const first = isText(*args[0]) ? args[0]->getString() : std::u16string();
    if (first == u"off" || first == u"on") {
        checkCount("warning", args, 1, 2);
        bool const off = first == u"off";
        auto& states = warningStates();
        std::lock_guard lock(states.mutex);
        std::string const identifier = args.size() == 2 ? utf8(textOf(*args[1], "warning: the identifier")) : "all";
        if (identifier == "all") {
            states.allOff = off;
            states.off.clear();
        } else {
            states.off[identifier] = off;
        }
        return {};
    }
    auto const message = messageOf("warning", args);
    if (message.text.empty()) {
        return {};
    }
    {
        auto& states = warningStates();
        std::lock_guard lock(states.mutex);
        auto const found = states.off.find(message.identifier);
        bool const off = found != states.off.end() ? found->second : states.allOff;
        if (off) {
            return {};
        }
    }
    qvm::warning(message.text);
    return {};
}

Values errorFunction(Args args) {
    checkCount("error", args, 1, std::numeric_limits<std::size_t>::max());
    auto const& first = *args[0];
    if (first.classID() == qxClassID::Object && args.size() == 1) {
        throw qcos::HostError(errorOf(first));
    }
    if (first.classID() == qxClassID::Struct && args.size() == 1 && first.isScalar()) {
        int const messageField = first.fieldIndex("message");
        int const identifierField = first.fieldIndex("identifier");
        if (messageField < 0) {
            badArgument("error", "an error struct needs a 'message' field.");
        }
        auto const text = textOf(*first.getField(0, static_cast<std::size_t>(messageField)), "error: the message");
        if (text.empty()) {
            return {};
        }
        std::string identifier;
        if (identifierField >= 0) {
            identifier = utf8(textOf(*first.getField(0, static_cast<std::size_t>(identifierField)),
                                     "error: the "
                                     "identifier"));
        }
        throw qcos::HostError(identifier, utf8(text));
    }
    if (first.isEmpty() && args.size() == 1) {
        return {};  // an empty message raises nothing
    }
    auto const message = messageOf("error", args);
    throw qcos::HostError(message.identifier, utf8(message.text));
}

Value outputTarget(Args& args) {
    // fprintf(1, ...) writes to the output, fprintf(2, ...) to the error stream.
    if (!args.empty() && args[0]->classID() == qxClassID::Double && args[0]->isScalar()) {
        auto target = args[0];
        args = args.subspan(1);
        return target;
    }
    return makeDouble(1);
}

// mat2str(x), mat2str(x, precision): the text that makes a 2-d numeric,
// logical or char array again: '[1 2;3 4]', 'true', '''abc''', 'zeros(0,3)'.
Values matToText(Args args) {
    checkCount("mat2str", args, 1, 2);
    auto const& value = *args[0];
    if (!isNumeric(value)) {
        badArgument("mat2str", fmt::format("a value of class '{}' has no matrix text.", value.getClassName()));
    }
    auto const& dims = value.getDimensions();
    if (dims.size() > 2) {
        badArgument("mat2str", "only 2-d arrays have a matrix text.");
    }
    std::size_t precision = 15;
    if (args.size() == 2) {
        precision = std::clamp<std::size_t>(countOf(*args[1], "The precision given to mat2str"), 1, 17);
    }
    auto const element = [&](std::size_t index) -> std::u16string {
        if (value.classID() == qxClassID::Logical) {
            return value.logicals()[index] != 0 ? u"true" : u"false";
        }
        double const number = value.doubles()[index];
        if (std::isnan(number)) {
            return u"NaN";
        }
        if (std::isinf(number)) {
            return number > 0 ? u"Inf" : u"-Inf";
        }
        return utf16(fmt::format("{:.{}g}", number, precision));
    };
    if (value.classID() == qxClassID::Char) {
        std::u16string out;
        for (std::size_t row = 0; row < dims[0]; ++row) {
            if (row > 0) {
                out += u';';
            }
            std::u16string text;
            for (std::size_t column = 0; column < dims[1]; ++column) {
                text.push_back(value.chars()[row + column * dims[0]]);
            }
            out += quotedText(text, u'\'');
        }
        return one(makeChars(dims[0] == 1 ? out : u"[" + out + u"]"));
    }
    if (value.isEmpty()) {
        return one(makeChars(utf16(fmt::format("zeros({},{})", dims[0], dims[1]))));
    }
    if (value.isScalar()) {
        return one(makeChars(element(0)));
    }
    std::u16string out = u"[";
    for (std::size_t row = 0; row < dims[0]; ++row) {
        if (row > 0) {
            out += u';';
        }
        for (std::size_t column = 0; column < dims[1]; ++column) {
            if (column > 0) {
                out += u' ';
            }
            out += element(row + column * dims[0]);
        }
    }
    return one(makeChars(out + u"]"));
}

}  // namespace

void registerFormatBuiltins() {
    defineBuiltin("mat2str", [](Args args, int) { return matToText(args); });
    defineBuiltin("sprintf", [](Args args, int) {
        checkCount("sprintf", args, 1, std::numeric_limits<std::size_t>::max());
        auto const text = formatArguments("sprintf", args);
        return one(args[0]->classID() == qxClassID::String ? makeString(text) : makeChars(text));
    });
    defineBuiltin("fprintf", [](Args args, int nargout) {
        auto const target = outputTarget(args);
        checkCount("fprintf", args, 1, std::numeric_limits<std::size_t>::max());
        double const stream = target->doubles()[0];
        if (stream != 1 && stream != 2) {
            badArgument("fprintf",
                        "only the output (1) and the error stream (2) can be written; files are not "
                        "supported.");
        }
        auto const text = formatArguments("fprintf", args);
        if (stream == 2) {
            qvm::printError(text);
        } else {
            qvm::print(text);
        }
        if (nargout > 0) {
            return one(makeDouble(static_cast<double>(utf8(text).size())));
        }
        return Values{};
    });
    defineBuiltin("disp", [](Args args, int) {
        checkCount("disp", args, 1, 1);
        if (args[0]->isEmpty() && args[0]->classID() != qxClassID::Struct) {
            return Values{};
        }
        qvm::print(displayText(*args[0]) + u"\n");
        return Values{};
    });
    defineBuiltin("num2str", [](Args args, int) { return num2strOf(args); });
    defineBuiltin("int2str", [](Args args, int) {
        checkCount("int2str", args, 1, 1);
        if (!isNumeric(*args[0])) {
            badArgument("int2str", "the input must be a number.");
        }
        auto rounded = qxArray::createDouble(args[0]->getDimensions());
        for (std::size_t i = 0; i < rounded->getNumberOfElements(); ++i) {
            rounded->doubles()[i] = std::round(numberAt(*args[0], i));
        }
        Value const value[] = {share(std::move(rounded))};
        return num2strOf(value);
    });
    defineBuiltin("error", [](Args args, int) { return errorFunction(args); });
    defineBuiltin("warning", [](Args args, int) { return warningFunction(args); });
    defineBuiltin("rethrow", [](Args args, int) -> Values {
        checkCount("rethrow", args, 1, 1);
        throw qcos::HostError(errorOf(*args[0]));
    });
}

}  // namespace qlang::detail

#include "attribute/analyzers/JsonPropertyReader.hpp"

#include "platform/fl/MessageCatalog.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace dependency::attribute::jsonproperty {

namespace {

using foundation::json::Value;

// ASCII-only tests: the text is UTF-8 and locale-independent by definition.
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

enum class IntegerType { None, Signed, Unsigned };

IntegerType integerTypeOf(std::string_view name) {
    for (std::string_view const type : {"int64", "int32", "int16", "int8"}) {
        if (name == type) {
            return IntegerType::Signed;
        }
    }
    for (std::string_view const type : {"uint64", "uint32", "uint16", "uint8"}) {
        if (name == type) {
            return IntegerType::Unsigned;
        }
    }
    return IntegerType::None;
}

// A double from scanned number text. The text is valid JSON number syntax, so
// the only failure from_chars can report is a value out of double's range:
// then the decimal exponent tells overflow (infinity) from underflow (zero).
double toDouble(std::string_view text) {
    double value = 0.0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    (void)end;
    if (error != std::errc::result_out_of_range) {
        return value;
    }
    bool const negative = text.front() == '-';
    std::string_view digits = negative ? text.substr(1) : text;
    std::size_t const exponentAt = digits.find_first_of("eE");
    long exponent = 0;
    if (exponentAt != std::string_view::npos) {
        std::string_view exponentText = digits.substr(exponentAt + 1);
        bool const negativeExponent = exponentText.front() == '-';
        if (exponentText.front() == '+' || exponentText.front() == '-') {
            exponentText.remove_prefix(1);
        }
        for (char const c : exponentText) {
            exponent = std::min(exponent * 10 + (c - '0'), 1'000'000L);
        }
        exponent = negativeExponent ? -exponent : exponent;
        digits = digits.substr(0, exponentAt);
    }
    std::string_view const integerPart = digits.substr(0, digits.find('.'));
    long magnitude = 0;
    if (integerPart != "0") {
        magnitude = static_cast<long>(integerPart.size());
    } else if (std::size_t const point = digits.find('.'); point != std::string_view::npos) {
        std::size_t const firstNonZero = digits.find_first_not_of('0', point + 1);
        magnitude = -static_cast<long>((firstNonZero == std::string_view::npos ? digits.size() : firstNonZero) - point);
    }
    double const infinity = std::numeric_limits<double>::infinity();
    return magnitude + exponent > 0 ? (negative ? -infinity : infinity) : (negative ? -0.0 : 0.0);
}

class Reader {
public:
    Reader(char const*& pos, char const* end) : pos_(pos), end_(end) {}

    int array(std::vector<Value>& out) { return list(out, IntegerType::None, nullptr); }

    int value(Value& out) {
        skipSpace();
        if (atEnd()) {
            return UnexpectedEnd;
        }
        switch (*pos_) {
        case '"': {
            std::string text;
            int const code = string(text);
            if (code == Success) {
                out = Value(std::move(text));
            }
            return code;
        }
        case '{':
            return object(out);
        case '[': {
            std::vector<Value> elements;
            int const code = array(elements);
            if (code == Success) {
                out = Value(std::move(elements));
            }
            return code;
        }
        case 't':
            return literal("true", Value(true), out);
        case 'f':
            return literal("false", Value(false), out);
        case 'n':
            return literal("null", Value::null(), out);
        default:
            return number(out);
        }
    }

private:
    bool atEnd() const { return pos_ == end_; }

    void skipSpace() {
        while (!atEnd() && isSpace(*pos_)) {
            ++pos_;
        }
    }

    // An array. With an integer type, elements that are plain integers become
    // exact integers of that signedness. With `starts`, also notes where each
    // element's text begins.
    int list(std::vector<Value>& out, IntegerType integerType, std::vector<char const*>* starts) {
        if (atEnd()) {
            return UnexpectedEnd;
        }
        if (*pos_ != '[') {
            return ArrayBracketExpected;
        }
        if (depth_ >= maximumNesting) {
            return NestingTooDeep;
        }
        ++pos_;
        ++depth_;
        int const code = listElements(out, integerType, starts);
        --depth_;
        return code;
    }

    // The rest of an array after its '['.
    int listElements(std::vector<Value>& out, IntegerType integerType, std::vector<char const*>* starts) {
        skipSpace();
        if (atEnd()) {
            return UnexpectedEnd;
        }
        std::vector<Value> elements;
        if (*pos_ == ']') {
            ++pos_;
            out = std::move(elements);
            return Success;
        }
        while (true) {
            if (starts != nullptr) {
                starts->push_back(pos_);
            }
            Value element;
            int const code = integerType == IntegerType::None ? value(element) : integerElement(element, integerType);
            if (code != Success) {
                return code;
            }
            skipSpace();
            if (atEnd()) {
                return UnexpectedEnd;
            }
            elements.push_back(std::move(element));
            if (*pos_ == ',') {
                ++pos_;
                skipSpace();
            } else if (*pos_ == ']') {
                ++pos_;
                out = std::move(elements);
                return Success;
            } else {
                return ArraySeparatorExpected;
            }
        }
    }

    int literal(std::string_view word, Value const& meaning, Value& out) {
        auto const available = static_cast<std::size_t>(end_ - pos_);
        std::string_view const text(pos_, std::min(available, word.size()));
        if (text != word.substr(0, text.size())) {
            return DigitExpected;  // no value begins like this
        }
        if (text.size() < word.size()) {
            return UnexpectedEnd;
        }
        pos_ += word.size();
        out = meaning;
        return Success;
    }

    // Consumes a run of digits; false when there is none.
    bool digits() {
        if (atEnd() || !isDigit(*pos_)) {
            return false;
        }
        while (!atEnd() && isDigit(*pos_)) {
            ++pos_;
        }
        return true;
    }

    int number(Value& out) {
        char const* const start = pos_;
        if (*pos_ == '-') {
            ++pos_;
        }
        if (atEnd()) {
            return UnexpectedEnd;
        }
        if (*pos_ == '0') {
            ++pos_;
        } else if (!digits()) {
            return DigitExpected;
        }
        if (!atEnd() && *pos_ == '.') {
            ++pos_;
            if (atEnd()) {
                return UnexpectedEnd;
            }
            if (!digits()) {
                return FractionDigitExpected;
            }
        }
        if (!atEnd() && (*pos_ == 'e' || *pos_ == 'E')) {
            ++pos_;
            if (!atEnd() && (*pos_ == '+' || *pos_ == '-')) {
                ++pos_;
            }
            if (atEnd()) {
                return UnexpectedEnd;
            }
            if (!digits()) {
                return ExponentDigitExpected;
            }
        }
        out = Value(toDouble(std::string_view(start, static_cast<std::size_t>(pos_ - start))));
        return Success;
    }

    int hexUnit(char32_t& unit) {
        unit = 0;
        for (int i = 0; i < 4; ++i) {
            if (atEnd()) {
                return UnexpectedEnd;
            }
            int const digit = hexValue(*pos_++);
            if (digit < 0) {
                return BadStringCharacter;
            }
            unit = unit * 16 + static_cast<char32_t>(digit);
        }
        return Success;
    }

    // After "\u": one code unit, or a surrogate pair written as two escapes.
    int unicodeEscape(std::string& out) {
        char32_t unit = 0;
        if (int const code = hexUnit(unit); code != Success) {
            return code;
        }
        if (unit >= 0xDC00 && unit <= 0xDFFF) {
            return BadStringCharacter;  // a low surrogate without its high half
        }
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (end_ - pos_ < 2) {
                return atEnd() || *pos_ == '\\' ? UnexpectedEnd : UnpairedHighSurrogate;
            }
            if (pos_[0] != '\\' || pos_[1] != 'u') {
                return UnpairedHighSurrogate;
            }
            pos_ += 2;
            char32_t low = 0;
            if (int const code = hexUnit(low); code != Success) {
                return code;
            }
            if (low < 0xDC00 || low > 0xDFFF) {
                return BadStringCharacter;
            }
            unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
        fl::i18n::append_utf8(out, unit);
        return Success;
    }

    int string(std::string& out) {
        if (atEnd()) {
            return UnexpectedEnd;
        }
        if (*pos_ != '"') {
            return QuoteExpected;
        }
        ++pos_;
        while (true) {
            if (atEnd()) {
                return UnexpectedEnd;
            }
            char const c = *pos_++;
            if (c == '"') {
                return Success;
            }
            if (static_cast<unsigned char>(c) < 0x20) {
                return BadStringCharacter;
            }
            if (c != '\\') {
                out.push_back(c);
                continue;
            }
            if (atEnd()) {
                return UnexpectedEnd;
            }
            switch (char const escape = *pos_++) {
            case '"':
            case '\\':
            case '/':
                out.push_back(escape);
                break;
            case 'b':
                out.push_back('\b');
                break;
            case 'f':
                out.push_back('\f');
                break;
            case 'n':
                out.push_back('\n');
                break;
            case 'r':
                out.push_back('\r');
                break;
            case 't':
                out.push_back('\t');
                break;
            case 'u':
                if (int const code = unicodeEscape(out); code != Success) {
                    return code;
                }
                break;
            default:
                return BadStringCharacter;
            }
        }
    }

    // One element of typed integer data: an exact integer when the text is a
    // plain integer in range, otherwise whatever ordinary value stands there.
    int integerElement(Value& out, IntegerType integerType) {
        skipSpace();
        char const* const start = pos_;
        if (std::optional<Value> exact = plainInteger(integerType)) {
            out = std::move(*exact);
            return Success;
        }
        pos_ = start;
        return value(out);
    }

    std::optional<Value> plainInteger(IntegerType integerType) {
        bool const negative = !atEnd() && *pos_ == '-';
        if (negative) {
            if (integerType == IntegerType::Unsigned) {
                return std::nullopt;
            }
            ++pos_;
        }
        std::uint64_t const limit = integerType == IntegerType::Unsigned ? std::numeric_limits<std::uint64_t>::max()
                                    : negative                           ? std::uint64_t{1} << 63
                                                                         : (std::uint64_t{1} << 63) - 1;
        if (atEnd() || !isDigit(*pos_)) {
            return std::nullopt;
        }
        std::uint64_t magnitude = 0;
        if (*pos_ == '0') {
            ++pos_;
        } else {
            while (!atEnd() && isDigit(*pos_)) {
                auto const digit = static_cast<std::uint64_t>(*pos_ - '0');
                if (magnitude > limit / 10 || magnitude * 10 > limit - digit) {
                    return std::nullopt;
                }
                magnitude = magnitude * 10 + digit;
                ++pos_;
            }
        }
        if (!atEnd() && (*pos_ == '.' || *pos_ == 'e' || *pos_ == 'E' || *pos_ == '"')) {
            return std::nullopt;
        }
        if (integerType == IntegerType::Unsigned) {
            return Value(static_cast<unsigned long>(magnitude));
        }
        // Two's complement negation in unsigned arithmetic also covers the most negative value.
        return Value(static_cast<long>(negative ? ~magnitude + 1 : magnitude));
    }

    // The value of a "qzdata" member: typed data when an integer type is known,
    // else an ordinary value. For a list, `starts` receives where each element's
    // text begins, so that the elements can be read again once a later "qztype"
    // names the type.
    int data(Value& out, IntegerType integerType, std::vector<char const*>& starts) {
        starts.clear();
        if (atEnd() || *pos_ != '[') {
            return value(out);
        }
        std::vector<Value> elements;
        int const code = list(elements, integerType, &starts);
        if (code == Success) {
            out = Value(std::move(elements));
        }
        return code;
    }

    // Turns data read with one integer type (or none) into what reading it with
    // `integerType` gives. Typed reading differs from ordinary reading only in
    // the list's top-level elements that are plain integers, so only the
    // elements that came out as numbers are read again, from where their text
    // began; everything else, nested objects included, is kept as it is. That
    // keeps the work proportional to the numbers' text: reading the whole list
    // again would also read every nested object again, and objects nested in
    // objects would double the work at each level.
    void rereadData(Value& data, std::vector<char const*> const& starts, IntegerType integerType) {
        if (data.kind() != Value::Kind::Array) {
            return;  // not a list: typed and ordinary readings agree
        }
        char const* const resume = pos_;
        Value::Array& elements = data.asArray();
        for (std::size_t i = 0; i < elements.size() && i < starts.size(); ++i) {
            Value::Kind const kind = elements[i].kind();
            if (kind != Value::Kind::Double && kind != Value::Kind::Int64 && kind != Value::Kind::UInt64) {
                continue;
            }
            pos_ = starts[i];
            if (std::optional<Value> exact = plainInteger(integerType)) {
                elements[i] = std::move(*exact);
            } else {
                pos_ = starts[i];
                (void)number(elements[i]);  // the same text read before: cannot fail
            }
        }
        pos_ = resume;
    }

    int object(Value& out) {
        if (*pos_ != '{') {
            return ObjectBraceExpected;
        }
        if (depth_ >= maximumNesting) {
            return NestingTooDeep;
        }
        ++pos_;
        ++depth_;
        Value::Object members;
        int const code = objectMembers(members);
        --depth_;
        if (code == Success) {
            out = Value(std::move(members));
        }
        return code;
    }

    int objectMembers(Value::Object& members) {
        skipSpace();
        if (atEnd()) {
            return UnexpectedEnd;
        }
        if (*pos_ == '}') {
            ++pos_;
            return Success;
        }
        // The integer type named by the latest "qztype" member that names one.
        IntegerType integerType = IntegerType::None;
        // The latest "qzdata" member: where its elements' text began, the type
        // it was read with, and the type a later "qztype" asks for.
        bool hasData = false;
        std::vector<char const*> dataStarts;
        IntegerType dataReadAs = IntegerType::None;
        IntegerType dataWanted = IntegerType::None;
        while (true) {
            std::string key;
            if (int const code = string(key); code != Success) {
                return code;
            }
            skipSpace();
            if (atEnd()) {
                return UnexpectedEnd;
            }
            if (*pos_ != ':') {
                return ColonExpected;
            }
            ++pos_;
            skipSpace();
            Value member;
            if (key == "qzdata") {
                hasData = true;
                dataReadAs = dataWanted = integerType;
                if (int const code = data(member, integerType, dataStarts); code != Success) {
                    return code;
                }
            } else {
                if (int const code = value(member); code != Success) {
                    return code;
                }
                // Only one of the eight integer type names sets the type: any other "qztype" leaves the type an
                // earlier one set.
                if (key == "qztype" && member.kind() == Value::Kind::String) {
                    if (IntegerType const named = integerTypeOf(member.asString()); named != IntegerType::None) {
                        integerType = named;
                        if (hasData) {
                            dataWanted = integerType;
                        }
                    }
                }
            }
            members.insert_or_assign(std::move(key), std::move(member));
            skipSpace();
            if (atEnd()) {
                return UnexpectedEnd;
            }
            if (*pos_ == ',') {
                ++pos_;
                skipSpace();
            } else if (*pos_ == '}') {
                ++pos_;
                // The data comes out as read with the latest integer type named
                // before the object ends, whichever member came first. Read it
                // again once, now that the object is complete,
                // rather than at every "qztype": an object repeating the member
                // must not make the reader go over a long list again and again.
                // Nothing sees the member in between, so the result is the same.
                if (dataWanted != dataReadAs) {
                    rereadData(members.at("qzdata"), dataStarts, dataWanted);
                }
                return Success;
            } else {
                return ObjectSeparatorExpected;
            }
        }
    }

    char const*& pos_;
    char const* end_;
    int depth_ = 0;
};

}  // namespace

int readArray(char const*& pos, char const* end, std::vector<Value>& out, int /*options*/) {
    return Reader(pos, end).array(out);
}

int readValue(char const*& pos, char const* end, Value& out, int /*options*/) {
    return Reader(pos, end).value(out);
}

}  // namespace dependency::attribute::jsonproperty

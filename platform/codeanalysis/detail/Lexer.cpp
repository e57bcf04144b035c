#include "platform/codeanalysis/detail/Lexer.hpp"

#include <cstdio>

namespace ca::detail {

namespace {

bool isSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\f' || c == '\v';
}
bool isLineEnd(char c) noexcept {
    return c == '\n' || c == '\r';
}
bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}
bool isLetter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isIdentifierChar(char c) noexcept {
    return isLetter(c) || isDigit(c) || c == '_';
}
bool isHexDigit(char c) noexcept {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isBinaryDigit(char c) noexcept {
    return c == '0' || c == '1';
}

Keyword keywordOf(std::string_view word) noexcept {
    switch (word.size()) {
    case 2:
        if (word == "if")
            return Keyword::If;
        break;
    case 3:
        if (word == "end")
            return Keyword::End;
        if (word == "for")
            return Keyword::For;
        if (word == "try")
            return Keyword::Try;
        break;
    case 4:
        if (word == "else")
            return Keyword::Else;
        if (word == "case")
            return Keyword::Case;
        if (word == "spmd")
            return Keyword::Spmd;
        break;
    case 5:
        if (word == "while")
            return Keyword::While;
        if (word == "catch")
            return Keyword::Catch;
        if (word == "break")
            return Keyword::Break;
        break;
    case 6:
        if (word == "elseif")
            return Keyword::Elseif;
        if (word == "parfor")
            return Keyword::Parfor;
        if (word == "switch")
            return Keyword::Switch;
        if (word == "return")
            return Keyword::Return;
        if (word == "global")
            return Keyword::Global;
        break;
    case 8:
        if (word == "function")
            return Keyword::Function;
        if (word == "continue")
            return Keyword::Continue;
        if (word == "classdef")
            return Keyword::Classdef;
        break;
    case 9:
        if (word == "otherwise")
            return Keyword::Otherwise;
        break;
    case 10:
        if (word == "persistent")
            return Keyword::Persistent;
        break;
    default:
        break;
    }
    return Keyword::None;
}

std::string describeByte(char c) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F) {
        return std::string("'") + c + "'";
    }
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "byte 0x%02X", byte);
    return buffer;
}

// Operators that, followed by white space, make `name op ...` an expression rather than a command.
std::uint32_t operatorLengthAt(std::string_view source, std::uint32_t pos) noexcept {
    static constexpr std::string_view twoChar[] = {"&&", "||", "==", "~=", "!=", "<=", ">=", ".*", "./", ".\\", ".^"};
    auto const rest = source.substr(pos);
    for (auto const op : twoChar) {
        if (rest.starts_with(op)) {
            return 2;
        }
    }
    if (!rest.empty() && std::string_view("+-*/\\^<>&|:").find(rest.front()) != std::string_view::npos) {
        return 1;
    }
    return 0;
}

}  // namespace

std::string decodeQuoted(std::string_view quoted) {
    std::string text;
    if (quoted.size() < 2) {
        return text;
    }
    char const quote = quoted.front();
    text.reserve(quoted.size() - 2);
    for (std::size_t i = 1; i + 1 < quoted.size(); ++i) {
        text.push_back(quoted[i]);
        if (quoted[i] == quote) {
            ++i;  // a doubled quote stands for one
        }
    }
    return text;
}

Lexer::Lexer(std::string_view source) : source_(source) {
    // A byte-order mark is not code.
    if (source_.starts_with("\xEF\xBB\xBF")) {
        pos_ = 3;
        lineStart_ = 3;
    }
}

void Lexer::restore(State const& state) noexcept {
    pos_ = state.pos;
    line_ = state.line;
    lineStart_ = state.lineStart;
    previous_ = state.previous;
    previousKeyword_ = state.previousKeyword;
    previousEnd_ = state.previousEnd;
}

void Lexer::fail(std::uint32_t offset, std::string message) const {
    throw SyntaxFailure{line_, columnOf(offset), std::move(message)};
}

void Lexer::newLineAt(std::uint32_t afterNewline) noexcept {
    ++line_;
    lineStart_ = afterNewline;
}

bool Lexer::blockCommentStartsAt(std::uint32_t percent) const noexcept {
    if (at(percent + 1) != '{') {
        return false;
    }
    for (auto i = lineStart_; i < percent; ++i) {
        if (!isSpace(source_[i])) {
            return false;
        }
    }
    auto i = percent + 2;
    while (isSpace(at(i))) {
        ++i;
    }
    return isLineEnd(at(i));
}

// Skips a block comment that starts at `percent` (checked by blockCommentStartsAt), up to and including its
// closing line's text; the newline after the closing line is left for the parser. Block comments nest.
void Lexer::skipBlockComment(std::uint32_t percent) {
    auto const openLine = line_;
    auto const openColumn = columnOf(percent);
    unsigned depth = 0;
    auto i = percent;
    for (;;) {
        // i is at the first byte of a line (or at the opening %{): classify the line by its trimmed text.
        auto first = i;
        while (first < source_.size() && isSpace(source_[first])) {
            ++first;
        }
        auto last = first;
        while (last < source_.size() && !isLineEnd(source_[last])) {
            ++last;
        }
        auto trimmedEnd = last;
        while (trimmedEnd > first && isSpace(source_[trimmedEnd - 1])) {
            --trimmedEnd;
        }
        auto const trimmed = source_.substr(first, trimmedEnd - first);
        if (trimmed == "%{") {
            ++depth;
        } else if (trimmed == "%}") {
            if (--depth == 0) {
                pos_ = last;
                return;
            }
        }
        if (last >= source_.size()) {
            throw SyntaxFailure{openLine, openColumn, "block comment '%{' is not closed by a line '%}'"};
        }
        i = last + 1;
        if (source_[last] == '\r' && i < source_.size() && source_[i] == '\n') {
            ++i;
        }
        newLineAt(i);
    }
}

void Lexer::skipSpaceAndComments(bool& sawSpace) {
    for (;;) {
        char const c = at(pos_);
        if (pos_ < source_.size() && isSpace(c)) {
            ++pos_;
            sawSpace = true;
        } else if (c == '.' && at(pos_ + 1) == '.' && at(pos_ + 2) == '.') {
            // Continuation: the rest of the line is a comment and the line break is white space.
            skipContinuation();
            sawSpace = true;
        } else if (c == '%' && pos_ < source_.size()) {
            if (blockCommentStartsAt(pos_)) {
                skipBlockComment(pos_);
            } else {
                while (pos_ < source_.size() && !isLineEnd(source_[pos_])) {
                    ++pos_;
                }
            }
            sawSpace = true;
        } else {
            return;
        }
    }
}

bool Lexer::transposeAllowed(bool sawSpace) const noexcept {
    if (sawSpace) {
        return false;
    }
    switch (previous_) {
    case Tok::Identifier:
        // After a keyword a quote opens text (`case'a'`); `end` is the exception, as it stands for a value
        // inside indexing (`x(end')`).
        if (previousKeyword_ != Keyword::None && previousKeyword_ != Keyword::End) {
            return false;
        }
        return previousEnd_ == pos_;
    case Tok::Number:
    case Tok::ImaginaryNumber:
    case Tok::String:  // "text"' transposes a string; after 'text' a quote would have doubled inside it
    case Tok::RParen:
    case Tok::RBracket:
    case Tok::RBrace:
    case Tok::Transpose:
    case Tok::DotTranspose:
        return previousEnd_ == pos_;
    default:
        return false;
    }
}

// `0x1F`, `0b101`, optionally typed: `0x1Fu8`, `0b1s16` (u or s, then 8, 16, 32 or 64 bits). Returns the
// offset after the literal.
std::uint32_t Lexer::lexBinaryOrHex(std::uint32_t i, bool hex) const noexcept {
    i += 2;
    while (i < source_.size() && (hex ? isHexDigit(source_[i]) : isBinaryDigit(source_[i]))) {
        ++i;
    }
    char const sign = at(i);
    if (sign == 'u' || sign == 's' || sign == 'U' || sign == 'S') {
        auto const bits = source_.substr(i + 1, 2);
        if (bits.starts_with("8")) {
            return bits == "8" || !isIdentifierChar(bits[1]) ? i + 2 : i;
        }
        if (bits == "16" || bits == "32" || bits == "64") {
            return i + 3;
        }
    }
    return i;
}

void Lexer::lexNumber(Token& token) {
    auto i = pos_;
    token.kind = Tok::Number;
    char const radix = at(i + 1);
    if (at(i) == '0' && (radix == 'x' || radix == 'X') && isHexDigit(at(i + 2))) {
        i = lexBinaryOrHex(i, true);
    } else if (at(i) == '0' && (radix == 'b' || radix == 'B') && isBinaryDigit(at(i + 2))) {
        i = lexBinaryOrHex(i, false);
    } else {
        while (i < source_.size() && isDigit(source_[i])) {
            ++i;
        }
        // A dot belongs to the number unless it starts an element-wise operator, a transpose or a continuation.
        if (at(i) == '.' && std::string_view("*/\\^'.").find(at(i + 1)) == std::string_view::npos) {
            ++i;
            while (i < source_.size() && isDigit(source_[i])) {
                ++i;
            }
        }
        char const e = at(i);
        if (e == 'e' || e == 'E' || e == 'd' || e == 'D') {
            auto j = i + 1;
            if (at(j) == '+' || at(j) == '-') {
                ++j;
            }
            if (isDigit(at(j))) {
                i = j;
                while (i < source_.size() && isDigit(source_[i])) {
                    ++i;
                }
            }
        }
        char const suffix = at(i);
        if ((suffix == 'i' || suffix == 'j' || suffix == 'I' || suffix == 'J') && !isIdentifierChar(at(i + 1))) {
            ++i;
            token.kind = Tok::ImaginaryNumber;
        }
    }
    if (i < source_.size() && isIdentifierChar(source_[i])) {
        fail(i, "invalid number: " + describeByte(source_[i]) + " directly after digits");
    }
    pos_ = i;
}

void Lexer::lexQuoted(Token& token, char quote) {
    auto i = pos_ + 1;
    for (;;) {
        if (i >= source_.size() || isLineEnd(source_[i])) {
            fail(pos_, quote == '\'' ? "character vector is not terminated before the end of the line"
                                     : "string is not terminated before the end of the line");
        }
        if (source_[i] == quote) {
            if (at(i + 1) == quote) {
                i += 2;
                continue;
            }
            ++i;
            break;
        }
        ++i;
    }
    token.kind = quote == '\'' ? Tok::CharString : Tok::String;
    pos_ = i;
}

Token Lexer::next() {
    bool sawSpace = false;
    skipSpaceAndComments(sawSpace);

    Token token;
    token.spaceBefore = sawSpace;
    token.begin = pos_;
    token.line = line_;
    token.column = columnOf(pos_);

    if (pos_ >= source_.size()) {
        token.kind = Tok::EndOfFile;
        token.end = pos_;
        previous_ = token.kind;
        previousEnd_ = pos_;
        return token;
    }

    char const c = source_[pos_];
    char const d = at(pos_ + 1);
    auto single = [&](Tok kind, std::uint32_t length = 1) {
        token.kind = kind;
        pos_ += length;
    };
    switch (c) {
    case '\n':
        single(Tok::Newline);
        newLineAt(pos_);
        break;
    case '\r':
        single(Tok::Newline, pos_ + 1 < source_.size() && d == '\n' ? 2 : 1);
        newLineAt(pos_);
        break;
    case '+':
        single(Tok::Plus);
        break;
    case '-':
        single(Tok::Minus);
        break;
    case '*':
        single(Tok::Star);
        break;
    case '/':
        single(Tok::Slash);
        break;
    case '\\':
        single(Tok::Backslash);
        break;
    case '^':
        single(Tok::Caret);
        break;
    case '(':
        single(Tok::LParen);
        break;
    case ')':
        single(Tok::RParen);
        break;
    case '[':
        single(Tok::LBracket);
        break;
    case ']':
        single(Tok::RBracket);
        break;
    case '{':
        single(Tok::LBrace);
        break;
    case '}':
        single(Tok::RBrace);
        break;
    case ',':
        single(Tok::Comma);
        break;
    case ';':
        single(Tok::Semicolon);
        break;
    case ':':
        single(Tok::Colon);
        break;
    case '@':
        single(Tok::At);
        break;
    case '?':
        single(Tok::Question);
        break;
    case '=':
        d == '=' ? single(Tok::EqualEqual, 2) : single(Tok::Assign);
        break;
    case '<':
        d == '=' ? single(Tok::LessEqual, 2) : single(Tok::Less);
        break;
    case '>':
        d == '=' ? single(Tok::GreaterEqual, 2) : single(Tok::Greater);
        break;
    case '&':
        d == '&' ? single(Tok::AmpAmp, 2) : single(Tok::Amp);
        break;
    case '|':
        d == '|' ? single(Tok::BarBar, 2) : single(Tok::Bar);
        break;
    case '~':
        d == '=' ? single(Tok::NotEqual, 2) : single(Tok::Not);
        break;
    case '!':
        single(Tok::Bang);
        break;
    case '.':
        if (isDigit(d)) {
            lexNumber(token);
        } else if (d == '*') {
            single(Tok::DotStar, 2);
        } else if (d == '/') {
            single(Tok::DotSlash, 2);
        } else if (d == '\\') {
            single(Tok::DotBackslash, 2);
        } else if (d == '^') {
            single(Tok::DotCaret, 2);
        } else if (d == '\'') {
            single(Tok::DotTranspose, 2);
        } else {
            single(Tok::Dot);
        }
        break;
    case '\'':
        if (transposeAllowed(sawSpace)) {
            single(Tok::Transpose);
        } else {
            lexQuoted(token, '\'');
        }
        break;
    case '"':
        lexQuoted(token, '"');
        break;
    default:
        if (isDigit(c)) {
            lexNumber(token);
        } else if (isLetter(c)) {
            auto i = pos_ + 1;
            while (i < source_.size() && isIdentifierChar(source_[i])) {
                ++i;
            }
            token.kind = Tok::Identifier;
            // A name after '.' is a field name, never a keyword: `s.end`, `s.case'`.
            if (previous_ != Tok::Dot) {
                token.keyword = keywordOf(source_.substr(pos_, i - pos_));
            }
            pos_ = i;
        } else {
            fail(pos_, "unexpected character " + describeByte(c));
        }
        break;
    }
    token.end = pos_;
    previous_ = token.kind;
    previousKeyword_ = token.keyword;
    previousEnd_ = pos_;
    return token;
}

bool Lexer::startsCommand(Token const& identifier) const noexcept {
    if (identifier.end != pos_ || !isSpace(at(pos_))) {
        return false;
    }
    auto i = pos_;
    while (isSpace(at(i))) {
        ++i;
    }
    char const c = at(i);
    if (isLineEnd(c) || c == ';' || c == ',' || c == '%' || c == '(') {
        return false;
    }
    if (c == '.' && at(i + 1) == '.' && at(i + 2) == '.') {
        return false;  // a continuation: the statement goes on as an expression
    }
    if (c == '=') {
        return at(i + 1) == '=' && !isSpace(at(i + 2)) && !isLineEnd(at(i + 2));
    }
    if (auto const length = operatorLengthAt(source_, i); length != 0) {
        // `a - b` is an expression, `a -b` a command with the argument "-b".
        char const after = at(i + length);
        return !isSpace(after) && !isLineEnd(after);
    }
    return true;
}

void Lexer::skipContinuation() noexcept {
    pos_ += 3;
    while (pos_ < source_.size() && !isLineEnd(source_[pos_])) {
        ++pos_;
    }
    if (pos_ < source_.size()) {
        if (source_[pos_] == '\r' && pos_ + 1 < source_.size() && source_[pos_ + 1] == '\n') {
            ++pos_;
        }
        ++pos_;
        newLineAt(pos_);
    }
}

std::vector<CommandWord> Lexer::commandWords() {
    std::vector<CommandWord> words;
    for (;;) {
        while (pos_ < source_.size() && isSpace(source_[pos_])) {
            ++pos_;
        }
        char const c = at(pos_);
        if (c == '.' && at(pos_ + 1) == '.' && at(pos_ + 2) == '.') {
            skipContinuation();  // the words go on on the next line
            continue;
        }
        if (isLineEnd(c) || c == ';' || c == ',' || c == '%') {
            break;
        }
        CommandWord word{{}, line_, columnOf(pos_)};
        // Inside brackets, blanks, commas and semicolons belong to the word: `declare x w(2, 1)`.
        unsigned brackets = 0;
        while (pos_ < source_.size()) {
            char const w = source_[pos_];
            if (isLineEnd(w) || w == '%' || (w == '.' && at(pos_ + 1) == '.' && at(pos_ + 2) == '.')) {
                break;
            }
            if (brackets == 0 && (isSpace(w) || w == ';' || w == ',')) {
                break;
            }
            if (w == '(' || w == '[' || w == '{') {
                ++brackets;
            } else if ((w == ')' || w == ']' || w == '}') && brackets > 0) {
                --brackets;
            } else if (w == '\'') {
                auto const open = pos_;
                auto i = pos_ + 1;
                for (;;) {
                    if (i >= source_.size() || isLineEnd(source_[i])) {
                        fail(open, "character vector is not terminated before the end of the line");
                    }
                    if (source_[i] == '\'') {
                        if (at(i + 1) == '\'') {
                            i += 2;
                            continue;
                        }
                        ++i;
                        break;
                    }
                    ++i;
                }
                word.text += decodeQuoted(source_.substr(open, i - open));
                pos_ = i;
                continue;
            }
            word.text.push_back(w);
            ++pos_;
        }
        words.push_back(std::move(word));
    }
    previous_ = Tok::Identifier;
    previousKeyword_ = Keyword::None;
    previousEnd_ = pos_;
    return words;
}

std::string_view Lexer::restOfLine(std::uint32_t offset) noexcept {
    auto i = offset;
    while (i < source_.size() && isSpace(source_[i])) {
        ++i;
    }
    auto end = i;
    while (end < source_.size() && !isLineEnd(source_[end])) {
        ++end;
    }
    pos_ = end;
    previous_ = Tok::Identifier;
    previousKeyword_ = Keyword::None;
    previousEnd_ = end;
    return source_.substr(i, end - i);
}

}  // namespace ca::detail

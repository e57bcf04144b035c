#pragma once
// Tokens of host-language code. The parser pulls them one at a time because command form needs the parser's
// context: only the parser knows that a name starts a statement, and then asks the lexer whether the raw text
// after it makes a command and for the command's words. Transpose versus quote needs only the previous token and
// is decided here.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ca::detail {

enum class Tok : std::uint8_t {
    EndOfFile,
    Newline,
    Identifier,
    Number,
    ImaginaryNumber,
    CharString,
    String,
    Plus,
    Minus,
    Star,
    Slash,
    Backslash,
    Caret,
    DotStar,
    DotSlash,
    DotBackslash,
    DotCaret,
    Transpose,
    DotTranspose,
    EqualEqual,
    NotEqual,
    Less,
    LessEqual,
    Greater,
    GreaterEqual,
    Amp,
    Bar,
    AmpAmp,
    BarBar,
    Not,
    Assign,
    Colon,
    Comma,
    Semicolon,
    LParen,
    RParen,
    LBracket,
    RBracket,
    LBrace,
    RBrace,
    Dot,
    At,
    Question,
    Bang,  // `!`: a shell escape at the start of a statement, an error anywhere else
};

enum class Keyword : std::uint8_t {
    None,
    Function,
    End,
    If,
    Elseif,
    Else,
    For,
    Parfor,
    While,
    Switch,
    Case,
    Otherwise,
    Try,
    Catch,
    Return,
    Break,
    Continue,
    Global,
    Persistent,
    Classdef,
    Spmd,
};

struct Token {
    Tok kind = Tok::EndOfFile;
    Keyword keyword = Keyword::None;
    bool spaceBefore = false;
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    std::uint32_t line = 1;
    std::uint32_t column = 1;
};

// Thrown at the first syntax error; the parser turns it into the result's error list.
struct SyntaxFailure {
    std::uint32_t line;
    std::uint32_t column;
    std::string message;
};

struct CommandWord {
    std::string text;  // quotes removed
    std::uint32_t line;
    std::uint32_t column;
};

class Lexer {
public:
    explicit Lexer(std::string_view source);

    Token next();

    struct State {
        std::uint32_t pos;
        std::uint32_t line;
        std::uint32_t lineStart;
        std::uint32_t previousEnd;
        Tok previous;
        Keyword previousKeyword;
    };
    State save() const noexcept { return {pos_, line_, lineStart_, previousEnd_, previous_, previousKeyword_}; }
    void restore(State const& state) noexcept;

    std::string_view text(Token const& token) const noexcept {
        return source_.substr(token.begin, token.end - token.begin);
    }
    // The byte at offset, or '\n' past the end (so that end of input reads as end of line).
    char at(std::uint32_t offset) const noexcept { return offset < source_.size() ? source_[offset] : '\n'; }

    // Whether the statement that starts with `identifier` (the last token lexed) is in command form:
    // `hold on`, `format long g`, `disp -x`, but not `a = 1`, `a (1)`, `a - b` or `a == b`.
    bool startsCommand(Token const& identifier) const noexcept;
    // The words of a command up to the end of its line, a ';', a ',' or a comment. Call right after startsCommand.
    std::vector<CommandWord> commandWords();
    // The text from offset to the end of its line (the line break excluded), leading blanks skipped; lexing goes on
    // at the line break. For a shell escape, whose `!` ends at offset.
    std::string_view restOfLine(std::uint32_t offset) noexcept;

    [[noreturn]] void fail(std::uint32_t offset, std::string message) const;
    std::uint32_t columnOf(std::uint32_t offset) const noexcept { return offset - lineStart_ + 1; }

private:
    void skipSpaceAndComments(bool& sawSpace);
    bool blockCommentStartsAt(std::uint32_t percent) const noexcept;
    void skipBlockComment(std::uint32_t percent);
    void newLineAt(std::uint32_t afterNewline) noexcept;
    void lexNumber(Token& token);
    std::uint32_t lexBinaryOrHex(std::uint32_t start, bool hex) const noexcept;
    void lexQuoted(Token& token, char quote);
    bool transposeAllowed(bool sawSpace) const noexcept;
    void skipContinuation() noexcept;

    std::string_view source_;
    std::uint32_t pos_ = 0;
    std::uint32_t line_ = 1;
    std::uint32_t lineStart_ = 0;
    Tok previous_ = Tok::Newline;
    Keyword previousKeyword_ = Keyword::None;
    std::uint32_t previousEnd_ = 0;
};

// Decodes quoted text: drops the quotes and halves doubled quotes.
std::string decodeQuoted(std::string_view quoted);

}  // namespace ca::detail

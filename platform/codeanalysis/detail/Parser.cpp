#include "platform/codeanalysis/detail/Parser.hpp"

#include "platform/codeanalysis/detail/Lexer.hpp"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

namespace ca::detail {

using astapi::List;
using astapi::NamedSlots;
using astapi::Node;
using astapi::NodeFields;
using astapi::NodeKind;
using astapi::Operator;
using astapi::Reference;
using astapi::Single;
using astapi::Slot;
namespace slot = astapi::slot;

namespace {

// Functions of a file either all end with `end` or none does; the first function that reaches `end`, end of
// file or another `function` settles which.
enum class FunctionEnds { Unknown, Used, Omitted };

struct BinaryLevel {
    NodeKind kind;
    Operator op;
    int precedence;
};

// Precedences of the left-associative binary operators; the range operator `:` sits between comparison (4) and
// addition (6).
std::optional<BinaryLevel> binaryLevelOf(Tok kind) noexcept {
    switch (kind) {
    case Tok::BarBar:
        return BinaryLevel{NodeKind::ShortCircuit, Operator::OrOr, 0};
    case Tok::AmpAmp:
        return BinaryLevel{NodeKind::ShortCircuit, Operator::AndAnd, 1};
    case Tok::Bar:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementOr, 2};
    case Tok::Amp:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementAnd, 3};
    case Tok::EqualEqual:
        return BinaryLevel{NodeKind::Comparison, Operator::Equal, 4};
    case Tok::NotEqual:
        return BinaryLevel{NodeKind::Comparison, Operator::NotEqual, 4};
    case Tok::Less:
        return BinaryLevel{NodeKind::Comparison, Operator::Less, 4};
    case Tok::LessEqual:
        return BinaryLevel{NodeKind::Comparison, Operator::LessEqual, 4};
    case Tok::Greater:
        return BinaryLevel{NodeKind::Comparison, Operator::Greater, 4};
    case Tok::GreaterEqual:
        return BinaryLevel{NodeKind::Comparison, Operator::GreaterEqual, 4};
    case Tok::Plus:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::Plus, 6};
    case Tok::Minus:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::Minus, 6};
    case Tok::Star:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::Times, 7};
    case Tok::Slash:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::RightDivide, 7};
    case Tok::Backslash:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::LeftDivide, 7};
    case Tok::DotStar:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementTimes, 7};
    case Tok::DotSlash:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementRightDivide, 7};
    case Tok::DotBackslash:
        return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementLeftDivide, 7};
    default:
        return std::nullopt;
    }
}

constexpr int rangePrecedence = 5;

bool isAssignable(Node const& node) noexcept {
    switch (node.kind()) {
    case NodeKind::Identifier:
    case NodeKind::ParenIndex:
    case NodeKind::BraceIndex:
    case NodeKind::FieldAccess:
    case NodeKind::DynamicField:
        return true;
    default:
        return false;
    }
}

// The variable an assignment target assigns to: `x` in `x`, `x(1)`, `x{2}.f`, `x.(n)`; nullptr for `~`.
Node const* assignedVariable(Node const& target) noexcept {
    auto const* node = &target;
    while (node != nullptr && node->kind() != NodeKind::Identifier) {
        switch (node->kind()) {
        case NodeKind::ParenIndex:
            node = node->child(slot::ParenIndex::indexed);
            break;
        case NodeKind::BraceIndex:
            node = node->child(slot::BraceIndex::indexed);
            break;
        case NodeKind::FieldAccess:
            node = node->child(slot::FieldAccess::structure);
            break;
        case NodeKind::DynamicField:
            node = node->child(slot::DynamicField::structure);
            break;
        default:
            return nullptr;
        }
    }
    return node;
}

char const* keywordText(Keyword keyword) noexcept {
    switch (keyword) {
    case Keyword::Function:
        return "function";
    case Keyword::End:
        return "end";
    case Keyword::If:
        return "if";
    case Keyword::Elseif:
        return "elseif";
    case Keyword::Else:
        return "else";
    case Keyword::For:
        return "for";
    case Keyword::Parfor:
        return "parfor";
    case Keyword::While:
        return "while";
    case Keyword::Switch:
        return "switch";
    case Keyword::Case:
        return "case";
    case Keyword::Otherwise:
        return "otherwise";
    case Keyword::Try:
        return "try";
    case Keyword::Catch:
        return "catch";
    case Keyword::Return:
        return "return";
    case Keyword::Break:
        return "break";
    case Keyword::Continue:
        return "continue";
    case Keyword::Global:
        return "global";
    case Keyword::Persistent:
        return "persistent";
    case Keyword::Classdef:
        return "classdef";
    case Keyword::Spmd:
        return "spmd";
    case Keyword::None:
        break;
    }
    return "";
}

// The lowest address the calling thread's stack may grow to, or 0 when it cannot be told. Asked once per thread:
// finding the main thread's stack reads the process's memory map.
std::uintptr_t stackFloor() noexcept {
    thread_local std::uintptr_t const floor = [] {
        pthread_attr_t attributes;
        if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) {
            return std::uintptr_t{0};
        }
        void* lowest = nullptr;
        std::size_t size = 0;
        bool const known = ::pthread_attr_getstack(&attributes, &lowest, &size) == 0;
        ::pthread_attr_destroy(&attributes);
        return known ? reinterpret_cast<std::uintptr_t>(lowest) : std::uintptr_t{0};
    }();
    return floor;
}

// Stack kept free below the deepest parser frame: room for a failure's message and exception, and for the
// allocator. Sanitizers use more of it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define DEPATTR_PARSER_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define DEPATTR_PARSER_SANITIZED 1
#endif
#endif
#if defined(DEPATTR_PARSER_SANITIZED)
constexpr std::uintptr_t stackReserve = 64 << 10;
#else
constexpr std::uintptr_t stackReserve = 24 << 10;
#endif

class Parser {
public:
    Parser(std::string_view code, astapi::SyntaxTree& tree) : source_(code), lexer_(code), tree_(tree) {
        stackFloor_ = stackFloor();
        stackLimit_ = stackFloor_ != 0 ? stackFloor_ + stackReserve : 0;
        scratch_.reserve(256);
        pending_.reserve(64);
    }

    Node const& parseFile();
    std::u16string const& ownerName() const noexcept { return ownerName_; }

private:
    // ----- tokens
    void advance() {
        previousKind_ = token_.kind;
        previousKeyword_ = token_.keyword;
        previousEnd_ = token_.end;
        if (hasPeeked_) {
            token_ = peeked_;
            hasPeeked_ = false;
        } else {
            token_ = lexer_.next();
        }
    }
    Token const& peek() {
        if (!hasPeeked_) {
            peeked_ = lexer_.next();
            hasPeeked_ = true;
        }
        return peeked_;
    }
    bool at(Tok kind) const noexcept { return token_.kind == kind; }
    bool atKeyword(Keyword keyword) const noexcept {
        return token_.kind == Tok::Identifier && token_.keyword == keyword;
    }
    bool atName() const noexcept { return token_.kind == Tok::Identifier && token_.keyword == Keyword::None; }
    bool atWord(std::string_view word) const noexcept { return atName() && lexer_.text(token_) == word; }
    bool atStatementEnd() const noexcept {
        return at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma) || at(Tok::EndOfFile);
    }
    void skipSeparators() {
        while (at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma)) {
            advance();
        }
    }

    struct Mark {
        Lexer::State lexer;
        Token token;
        Token peeked;
        bool hasPeeked;
        Tok previousKind;
        Keyword previousKeyword;
        std::uint32_t previousEnd;
    };
    Mark mark() const {
        return {lexer_.save(), token_, peeked_, hasPeeked_, previousKind_, previousKeyword_, previousEnd_};
    }
    void reset(Mark const& mark) {
        lexer_.restore(mark.lexer);
        token_ = mark.token;
        peeked_ = mark.peeked;
        hasPeeked_ = mark.hasPeeked;
        previousKind_ = mark.previousKind;
        previousKeyword_ = mark.previousKeyword;
        previousEnd_ = mark.previousEnd;
    }

    // ----- failures (out of line, so that their message building takes no room in the recursive frames)
    std::string describe(Token const& token) const;
    [[noreturn]] void fail(Token const& token, std::string const& message) const;
    [[noreturn]] void unexpected() const;
    [[noreturn]] void expected(std::string_view what) const;
    [[noreturn]] void expectedEither(char const* these, char const* closing) const;
    [[noreturn]] void failUnclosed(Token const& opening, char const* closer) const;
    [[noreturn]] void failEnd(Token const& opening) const;
    [[noreturn]] void failTooDeep() const;
    [[noreturn]] void failKeywordInExpression() const;
    void expect(Tok kind, char const* what) {
        if (!at(kind)) {
            expected(what);
        }
        advance();
    }
    void expectEnd(Token const& opening) {
        if (!atKeyword(Keyword::End)) {
            failEnd(opening);
        }
        advance();
    }

    // Nesting guard: every recursive descent passes through one of these. Besides the documented bound it keeps
    // the parser off the end of a small thread stack.
    class Depth {
    public:
        explicit Depth(Parser& parser) : parser_(parser) {
            // A frame below the thread's stack (code run on a stack of its own) is not judged by it.
            auto const frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
            if (++parser_.depth_ > maxNestingDepth || (frame < parser_.stackLimit_ && frame >= parser_.stackFloor_)) {
                parser_.failTooDeep();
            }
        }
        ~Depth() { --parser_.depth_; }
        Depth(Depth const&) = delete;
        Depth& operator=(Depth const&) = delete;

    private:
        Parser& parser_;
    };

    // ----- nodes
    // The routines on recursive paths make their nodes through the out-of-line helpers below, so that the slot
    // lists and fields of a node take no room in their frames while they recurse.
    struct Position {
        std::uint32_t line;
        std::uint32_t column;
    };
    static Position positionOf(Token const& at) noexcept { return {at.line, at.column}; }
    static Position positionOf(Node const& at) noexcept { return {at.line(), at.column()}; }
    // {Single first}
    [[gnu::noinline]] Node const& node(NodeKind kind, Position at, Node const* first, Operator op = Operator::None) {
        return tree_.make(NodeFields{kind, at.line, at.column, op, false, {}}, {Single{first}});
    }
    // {Single first, Single second}
    [[gnu::noinline]] Node const& node(NodeKind kind, Position at, Node const* first, Node const* second,
                                       Operator op = Operator::None) {
        return tree_.make(NodeFields{kind, at.line, at.column, op, false, {}}, {Single{first}, Single{second}});
    }
    // {List} from the list stack at start, which is dropped.
    [[gnu::noinline]] Node const& listNode(NodeKind kind, Position at, std::size_t start) {
        auto const& made =
            tree_.make(NodeFields{kind, at.line, at.column, Operator::None, false, {}}, {listFrom(start)});
        drop(start);
        return made;
    }
    // {Single first, List} from the list stack at start, which is dropped.
    [[gnu::noinline]] Node const& listNode(NodeKind kind, Position at, Node const* first, std::size_t start) {
        auto const& made = tree_.make(NodeFields{kind, at.line, at.column, Operator::None, false, {}},
                                      {Single{first}, listFrom(start)});
        drop(start);
        return made;
    }
    static NodeFields fieldsAt(NodeKind kind, Position at, Operator op = Operator::None) {
        return NodeFields{kind, at.line, at.column, op, false, {}};
    }
    static NodeFields fields(NodeKind kind, Token const& at, Operator op = Operator::None) {
        return NodeFields{kind, at.line, at.column, op, false, {}};
    }
    static NodeFields fields(NodeKind kind, Node const& at, Operator op = Operator::None) {
        return NodeFields{kind, at.line(), at.column(), op, false, {}};
    }
    Node const& make(NodeFields const& nodeFields, std::initializer_list<Slot> slots = {}) {
        return tree_.make(nodeFields, slots);
    }
    [[gnu::noinline]] Node const& textLeaf(NodeKind kind, Token const& at, std::string_view utf8) {
        return tree_.makeLeaf(fields(kind, at), utf8);
    }
    [[gnu::noinline]] Node const& tokenLeaf(NodeKind kind) { return textLeaf(kind, token_, lexer_.text(token_)); }
    [[gnu::noinline]] Node const& plainLeaf(NodeKind kind) { return tree_.makeLeaf(fields(kind, token_), {}); }

    // Child lists are collected on one shared stack: a routine notes where its list starts, pushes the children,
    // makes its node from them and drops them again. Lists of nested constructs are dropped before the outer list
    // grows, so each list is contiguous.
    std::size_t listStart() const noexcept { return scratch_.size(); }
    List listFrom(std::size_t start, std::size_t end) const {
        return List{std::span<Node const* const>(scratch_.data() + start, end - start)};
    }
    List listFrom(std::size_t start) const { return listFrom(start, scratch_.size()); }
    void drop(std::size_t start) { scratch_.resize(start); }
    void push(Node const& node) { scratch_.push_back(&node); }

    // ----- variables: command form applies only to names not assigned earlier in the function (or script)
    void noteVariable(Node const* name) {
        if (name != nullptr) {
            variables_.push_back(name->identifier().getString());
        }
    }
    bool isVariable(Token const& name);
    // A file-level function sees none of the names before it; a nested one sees those its parent assigned before it.
    void openScope(bool nested) { scopes_.push_back(Scope{variables_.size(), nested, {}, variables_.size()}); }
    void closeScope() {
        variables_.resize(scopes_.back().start);
        scopes_.pop_back();
    }

    // ----- file structure
    Node const& parseClassDefinition();
    Node const& parseClassBlock(NodeKind blockKind);
    void parseAttributeList();
    Node const& parseAttribute();
    Node const& parseDeclaration(NodeKind kind);
    Node const* parseDimensions();
    Node const& parseDottedName();
    Node const& parseFunction(std::size_t attributesStart, std::size_t attributesEnd, bool isMethod, bool nested);
    // Where a function's lists start on the list stack, and its methods block's attributes.
    struct FunctionParts {
        std::size_t outputs;
        std::size_t inputs;
        std::size_t body;
        std::size_t attributesStart;
        std::size_t attributesEnd;
    };
    [[gnu::noinline]] Node const& makeFunction(NodeKind kind, Position at, Node const* name, FunctionParts const& parts,
                                               std::vector<Node const*> const& nested);
    void parseFunctionHeader(std::size_t& outputsEnd, Node const*& name);
    Node const& parseMethodSignature();
    void parseFunctionBody(Token const& opening, std::vector<Node const*>& nested);
    void settleFunctionEnds();
    bool atArgumentsBlock();
    Node const& parseArgumentsBlock();

    // ----- statements
    void parseStatements();
    Node const& parseStatement();
    [[gnu::noinline]] Node const& parseIf();
    [[gnu::noinline]] Node const& parseLoop();
    [[gnu::noinline]] Node const& parseWhile();
    [[gnu::noinline]] Node const& parseSwitch();
    [[gnu::noinline]] Node const& parseSpmd();
    Node const& parseClause(NodeKind kind, bool withExpression);
    [[gnu::noinline]] Node const& parseTry();
    [[gnu::noinline]] Node const& parseNameList(NodeKind kind);
    [[gnu::noinline]] Node const& parseCommand();
    [[gnu::noinline]] Node const& parseShellEscape();
    [[gnu::noinline]] Node const& parseExpressionStatement();
    [[gnu::noinline]] Node const& parseMultipleAssignment(Node const& targetMatrix, Position start);
    [[gnu::noinline]] Node const& makeLoop(bool isParfor, Position at, Node const& variable, Node const& range,
                                           Node const* workers, std::size_t body);
    [[gnu::noinline]] Node const& makeTry(Position at, std::size_t body, Node const* catchClause);
    void expectStatementEnd();

    // ----- expressions
    Node const& parseExpression();
    [[gnu::noinline]] Node const& reduce(Node const* right);
    [[gnu::always_inline]] inline Node const& parseOperand();
    [[gnu::noinline]] Node const& parseUnary();
    [[gnu::always_inline]] inline Node const& parsePower();
    Node const& parsePowerOperand();
    Node const& parsePostfix(bool withTransposes);
    [[gnu::noinline]] Node const& parseSuperclassCall(Position at, std::string_view memberName);
    [[gnu::noinline]] Node const& makeSuperclassCall(Position at, Node const& member, Node const& superclass,
                                                     std::size_t arguments);
    [[gnu::noinline]] Node const& makeAnonymousFunction(Position at, std::size_t parameters, Node const& body);
    Node const& parsePrimary();
    [[gnu::noinline]] Node const& parseText();
    [[gnu::noinline]] Node const& parseMetaclassQuery();
    void parseArguments(Tok closing, char const* closingText);
    [[gnu::noinline]] Node const& parseMatrix(NodeKind kind, Tok closing, char const* closingText);
    [[gnu::noinline]] Node const& parseAnonymousFunction(Position at);
    bool matrixElementEndsBefore() const noexcept;
    bool juxtaposedElementFollows() const noexcept;

    std::string_view source_;
    Lexer lexer_;
    astapi::SyntaxTree& tree_;
    Token token_;
    Token peeked_;  // valid while hasPeeked_
    bool hasPeeked_ = false;
    bool inMatrix_ = false;
    Tok previousKind_ = Tok::Newline;          // the token before token_; a file starts as if after a line break
    Keyword previousKeyword_ = Keyword::None;  // that token's keyword
    std::uint32_t previousEnd_ = 0;            // where that token ends
    unsigned depth_ = 0;
    unsigned indexDepth_ = 0;
    std::uintptr_t stackFloor_ = 0;  // the lowest address of the thread's stack, 0 when unknown
    std::uintptr_t stackLimit_ = 0;  // frames below this (and above the floor) are too deep
    FunctionEnds functionEnds_ = FunctionEnds::Unknown;
    std::vector<Node const*> scratch_;
    struct PendingOperator {
        Node const* left;
        BinaryLevel level;
    };
    std::vector<PendingOperator> pending_;        // binary operators awaiting their right operand, innermost last
    std::vector<std::u16string_view> variables_;  // names assigned in the open scopes, outermost first
    // The script and the functions being parsed, innermost last. A scope's names are variables_ from its start up
    // to the next scope's start; they are put in its set only when a command asks, so that plain assignments cost
    // no hashing, and each name goes into one set once.
    struct Scope {
        std::size_t start;
        bool seesParent;
        std::unordered_set<std::u16string_view> known;
        std::size_t knownEnd;
    };
    std::vector<Scope> scopes_{Scope{0, false, {}, 0}};
    std::u16string ownerName_;
};

// ===================================================================== failures

std::string Parser::describe(Token const& token) const {
    switch (token.kind) {
    case Tok::EndOfFile:
        return "end of file";
    case Tok::Newline:
        return "end of line";
    case Tok::Bang:
        return lexer_.at(token.end) == '=' ? "'!=' (not an operator: inequality is written '~=')"
                                           : "'!' (a shell escape, which must start a statement)";
    default:
        return "'" + std::string(lexer_.text(token)) + "'";
    }
}

void Parser::fail(Token const& token, std::string const& message) const {
    throw SyntaxFailure{token.line, token.column, message};
}

void Parser::unexpected() const {
    fail(token_, "unexpected " + describe(token_));
}

void Parser::expected(std::string_view what) const {
    fail(token_, "expected " + std::string(what) + " but found " + describe(token_));
}

// An unclosed construct is reported where it opens: that is where a reader has to look.
void Parser::expectedEither(char const* these, char const* closing) const {
    expected(std::string(these) + " or " + closing);
}

void Parser::failUnclosed(Token const& opening, char const* closer) const {
    fail(opening,
         "'" + std::string(lexer_.text(opening)) + "' is not closed by " + closer + " before the end of the file");
}

void Parser::failEnd(Token const& opening) const {
    if (at(Tok::EndOfFile)) {
        failUnclosed(opening, "'end'");
    }
    fail(token_, "expected 'end' to close the '" + std::string(lexer_.text(opening)) + "' on line " +
                     std::to_string(opening.line) + " but found " + describe(token_));
}

void Parser::failKeywordInExpression() const {
    fail(token_, "unexpected keyword '" + std::string(keywordText(token_.keyword)) + "' in an expression");
}

void Parser::failTooDeep() const {
    if (depth_ > maxNestingDepth) {
        fail(token_, "code is nested more than " + std::to_string(maxNestingDepth) + " levels deep");
    }
    fail(token_, "code is nested too deeply for the stack of the thread that parses it");
}

// ===================================================================== variables

bool Parser::isVariable(Token const& name) {
    // Names are ASCII.
    auto const text = lexer_.text(name);
    std::u16string const wide(text.begin(), text.end());
    for (auto scope = scopes_.size(); scope-- > 0;) {
        auto& current = scopes_[scope];
        auto const end = scope + 1 < scopes_.size() ? scopes_[scope + 1].start : variables_.size();
        for (; current.knownEnd < end; ++current.knownEnd) {
            current.known.insert(variables_[current.knownEnd]);
        }
        if (current.known.contains(wide)) {
            return true;
        }
        if (!current.seesParent) {
            break;
        }
    }
    return false;
}

// ===================================================================== file structure

Node const& Parser::parseFile() {
    token_.kind = Tok::Newline;  // so that the first token is seen as the first on its line
    advance();
    auto const start = token_;
    auto const items = listStart();
    bool first = true;
    for (;;) {
        while (at(Tok::Newline)) {
            advance();
        }
        if (at(Tok::EndOfFile)) {
            break;
        }
        if (atKeyword(Keyword::Classdef)) {
            if (!first) {
                fail(token_, "'classdef' must be the first statement of a file");
            }
            push(parseClassDefinition());
        } else if (atKeyword(Keyword::Function)) {
            push(parseFunction(0, 0, false, false));
        } else {
            parseStatements();
            if (!at(Tok::EndOfFile) && !atKeyword(Keyword::Function)) {
                unexpected();
            }
        }
        first = false;
    }
    auto const& file = make(fields(NodeKind::File, start), {listFrom(items)});
    drop(items);
    return file;
}

Node const& Parser::parseDottedName() {
    auto const start = token_;
    if (!at(Tok::Identifier)) {
        expected("a name");
    }
    auto end = token_.end;
    advance();
    bool dotted = false;
    while (at(Tok::Dot) && !token_.spaceBefore && peek().kind == Tok::Identifier && !peek().spaceBefore) {
        advance();
        end = token_.end;
        dotted = true;
        advance();
    }
    return textLeaf(dotted ? NodeKind::DottedName : NodeKind::Identifier, start,
                    source_.substr(start.begin, end - start.begin));
}

Node const& Parser::parseAttribute() {
    auto const start = token_;
    bool negated = false;
    if (at(Tok::Not)) {
        negated = true;
        advance();
    }
    if (!at(Tok::Identifier)) {
        expected("an attribute name");
    }
    auto const& name = tokenLeaf(NodeKind::Identifier);
    advance();
    Node const* operand = nullptr;
    bool logicalValue = !negated;
    if (at(Tok::Assign)) {
        if (negated) {
            fail(token_, "a negated attribute takes no value");
        }
        advance();
        auto const& value = parseExpression();
        // The literals true and false are the attribute's logical value; any other value is kept as its operand.
        auto const text = value.kind() == NodeKind::Identifier ? value.identifier().getString() : std::u16string_view();
        if (text == u"true" || text == u"false") {
            logicalValue = text == u"true";
        } else {
            operand = &value;
        }
    }
    auto attributeSpec = fields(NodeKind::Attribute, start);
    attributeSpec.logicalValue = logicalValue;
    return make(attributeSpec, {Single{&name}, Single{operand}});
}

// `(Name, Name = value, ~Name)` after a block keyword: pushes the attributes onto the list stack.
void Parser::parseAttributeList() {
    if (!at(Tok::LParen)) {
        return;
    }
    advance();
    auto const savedMatrix = std::exchange(inMatrix_, false);
    for (;;) {
        push(parseAttribute());
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        expect(Tok::RParen, "',' or ')' after an attribute");
        break;
    }
    inMatrix_ = savedMatrix;
}

Node const& Parser::parseClassDefinition() {
    Depth depth(*this);
    auto const opening = token_;
    advance();
    functionEnds_ = FunctionEnds::Used;  // methods of a class always end with `end`
    auto const attributes = listStart();
    parseAttributeList();
    auto const superclasses = listStart();
    if (!atName()) {
        expected("the class name");
    }
    auto const& name = tokenLeaf(NodeKind::Identifier);
    advance();
    if (at(Tok::Less)) {
        do {
            advance();
            push(parseDottedName());
        } while (at(Tok::Amp));
    }
    if (!atStatementEnd()) {
        unexpected();
    }
    auto const blocks = listStart();
    for (;;) {
        skipSeparators();
        if (atKeyword(Keyword::End)) {
            advance();
            break;
        }
        if (atWord("properties")) {
            push(parseClassBlock(NodeKind::PropertiesBlock));
        } else if (atWord("methods")) {
            push(parseClassBlock(NodeKind::MethodsBlock));
        } else if (atWord("events")) {
            push(parseClassBlock(NodeKind::EventsBlock));
        } else if (atWord("enumeration")) {
            push(parseClassBlock(NodeKind::EnumerationBlock));
        } else if (at(Tok::EndOfFile)) {
            expectEnd(opening);
        } else {
            expected("'properties', 'methods', 'events', 'enumeration' or 'end' in the class definition");
        }
    }
    ownerName_ = name.identifier().getString();
    using Class = slot::ClassDefinition;
    auto const& definition = tree_.make(fields(NodeKind::ClassDefinition, opening),
                                        NamedSlots(NodeKind::ClassDefinition)
                                            .set(Class::attributes, listFrom(attributes, superclasses).nodes)
                                            .set(Class::name, &name)
                                            .set(Class::superclasses, listFrom(superclasses, blocks).nodes)
                                            .set(Class::blocks, listFrom(blocks).nodes));
    drop(attributes);
    return definition;
}

Node const& Parser::parseClassBlock(NodeKind blockKind) {
    Depth depth(*this);
    auto const opening = token_;
    advance();
    auto const attributes = listStart();
    parseAttributeList();
    auto const members = listStart();
    for (;;) {
        skipSeparators();
        if (atKeyword(Keyword::End) || at(Tok::EndOfFile)) {
            expectEnd(opening);
            break;
        }
        switch (blockKind) {
        case NodeKind::PropertiesBlock:
            push(parseDeclaration(NodeKind::Property));
            break;
        case NodeKind::MethodsBlock:
            if (atKeyword(Keyword::Function)) {
                push(parseFunction(attributes, members, true, false));
            } else {
                push(parseMethodSignature());
            }
            break;
        case NodeKind::EventsBlock: {
            if (!atName()) {
                expected("an event name");
            }
            auto const& name = tokenLeaf(NodeKind::Identifier);
            advance();
            push(make(fields(NodeKind::Event, name), {Single{&name}}));
            expectStatementEnd();
            break;
        }
        default: {
            if (!atName()) {
                expected("an enumeration member");
            }
            auto const& name = tokenLeaf(NodeKind::Identifier);
            advance();
            auto const arguments = listStart();
            if (at(Tok::LParen)) {
                advance();
                parseArguments(Tok::RParen, "')'");
            }
            auto const& member = make(fields(NodeKind::EnumerationMember, name), {Single{&name}, listFrom(arguments)});
            drop(arguments);
            push(member);
            expectStatementEnd();
            break;
        }
        }
    }
    auto const& block = make(fields(blockKind, opening), {listFrom(attributes, members), listFrom(members)});
    drop(attributes);
    return block;
}

Node const* Parser::parseDimensions() {
    if (!at(Tok::LParen)) {
        return nullptr;
    }
    auto const start = token_;
    advance();
    auto const entries = listStart();
    for (;;) {
        if (at(Tok::Colon)) {
            push(plainLeaf(NodeKind::Colon));
        } else if (at(Tok::Number)) {
            push(tokenLeaf(NodeKind::Number));
        } else {
            expected("a size (a number or ':')");
        }
        advance();
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        expect(Tok::RParen, "',' or ')' in a size");
        break;
    }
    auto const& dimensions = make(fields(NodeKind::Dimensions, start), {listFrom(entries)});
    drop(entries);
    return &dimensions;
}

// `name (dims) Class {validators} = default`, each part but the name optional: properties and arguments. In an
// arguments block the name may be `~` (an ignored input) or take its names from a class: `opts.?pkg.Options`.
Node const& Parser::parseDeclaration(NodeKind kind) {
    Depth depth(*this);
    Node const* name = nullptr;
    if (kind == NodeKind::ArgumentDeclaration && at(Tok::Not)) {
        name = &plainLeaf(NodeKind::Ignored);
        advance();
    } else {
        auto const start = token_;
        name = &parseDottedName();
        if (kind == NodeKind::ArgumentDeclaration && at(Tok::Dot) && !token_.spaceBefore &&
            peek().kind == Tok::Question) {
            advance();
            advance();
            parseDottedName();
            name = &textLeaf(NodeKind::DottedName, start, source_.substr(start.begin, previousEnd_ - start.begin));
        }
    }
    auto const* dimensions = parseDimensions();
    Node const* className = nullptr;
    if (atName()) {
        className = &parseDottedName();
    }
    auto const validators = listStart();
    if (at(Tok::LBrace)) {
        advance();
        parseArguments(Tok::RBrace, "'}'");
    }
    Node const* defaultValue = nullptr;
    if (at(Tok::Assign)) {
        advance();
        defaultValue = &parseExpression();
    }
    expectStatementEnd();
    auto const& declaration = make(fields(kind, *name), {Single{name}, Single{dimensions}, Single{className},
                                                         listFrom(validators), Single{defaultValue}});
    drop(validators);
    return declaration;
}

// `[o1, o2] = name(a, ~, b)`, `o = name(...)` or `name(...)`: pushes the outputs and then the inputs onto the list
// stack; outputsEnd tells where the inputs begin.
void Parser::parseFunctionHeader(std::size_t& outputsEnd, Node const*& name) {
    auto plainName = [&]() -> Node const& {
        if (!atName()) {
            expected("a name");
        }
        auto const& leaf = tokenLeaf(NodeKind::Identifier);
        advance();
        return leaf;
    };
    if (at(Tok::LBracket)) {
        advance();
        for (;;) {
            if (at(Tok::Comma)) {
                advance();
                continue;
            }
            if (at(Tok::RBracket)) {
                advance();
                break;
            }
            push(plainName());
        }
        expect(Tok::Assign, "'=' after the output list");
        name = &parseDottedName();
    } else {
        auto const& first = parseDottedName();
        if (at(Tok::Assign)) {
            if (first.kind() != NodeKind::Identifier) {
                fail(token_, "expected a name for the output but found a dotted name");
            }
            advance();
            push(first);
            name = &parseDottedName();
        } else {
            name = &first;
        }
    }
    outputsEnd = listStart();
    // A dotted function name (get.Prop, set.Prop) is one name.
    if (name->kind() == NodeKind::DottedName) {
        auto nameSpec = fields(NodeKind::Identifier, *name);
        nameSpec.text = name->identifier().getString();
        name = &tree_.make(nameSpec, {});
    }
    if (!at(Tok::LParen)) {
        return;
    }
    advance();
    if (at(Tok::RParen)) {
        advance();
        return;
    }
    for (;;) {
        auto const argumentStart = token_;
        Node const* identifier = nullptr;
        Node const* ignored = nullptr;
        if (at(Tok::Not)) {
            ignored = &plainLeaf(NodeKind::Ignored);
            advance();
        } else {
            identifier = &plainName();
        }
        push(make(fields(NodeKind::InputArgument, argumentStart), {Single{identifier}, Single{ignored}}));
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        expect(Tok::RParen, "',' or ')' in the input list");
        break;
    }
}

Node const& Parser::parseMethodSignature() {
    auto const start = token_;
    auto const outputs = listStart();
    std::size_t inputs = 0;
    Node const* name = nullptr;
    parseFunctionHeader(inputs, name);
    expectStatementEnd();
    auto const& signature =
        make(fields(NodeKind::MethodSignature, start), {listFrom(outputs, inputs), Single{name}, listFrom(inputs)});
    drop(outputs);
    return signature;
}

// `arguments` opens a block when a line break follows it, or attributes naming only Input, Output and
// Repeating: `arguments (Output, Repeating)`. `arguments(1) = 2` uses a variable.
bool Parser::atArgumentsBlock() {
    if (!atWord("arguments")) {
        return false;
    }
    auto const& next = peek();
    if (next.kind == Tok::Newline || next.kind == Tok::Semicolon || next.kind == Tok::Comma ||
        next.kind == Tok::EndOfFile) {
        return true;
    }
    if (next.kind != Tok::LParen) {
        return false;
    }
    auto const saved = mark();
    advance();
    advance();
    bool isBlock = false;
    while (atWord("Input") || atWord("Output") || atWord("Repeating")) {
        advance();
        if (at(Tok::RParen)) {
            isBlock = true;
            break;
        }
        if (!at(Tok::Comma)) {
            break;
        }
        advance();
    }
    reset(saved);
    return isBlock;
}

Node const& Parser::parseArgumentsBlock() {
    Depth depth(*this);
    auto const opening = token_;
    advance();
    auto const attributes = listStart();
    parseAttributeList();
    auto const declarations = listStart();
    for (;;) {
        skipSeparators();
        if (atKeyword(Keyword::End) || at(Tok::EndOfFile)) {
            expectEnd(opening);
            break;
        }
        push(parseDeclaration(NodeKind::ArgumentDeclaration));
    }
    auto const& block =
        make(fields(NodeKind::ArgumentsBlock, opening), {listFrom(attributes, declarations), listFrom(declarations)});
    drop(attributes);
    return block;
}

// Looks ahead over the following functions to find whether this file closes functions with `end`, then returns to
// where it was. Only needed while a function body meets `function` before the question is settled.
void Parser::settleFunctionEnds() {
    auto const saved = mark();
    auto const savedDepth = depth_;
    auto const savedList = listStart();
    openScope(false);
    while (functionEnds_ == FunctionEnds::Unknown) {
        advance();  // `function`
        std::size_t inputs = 0;
        Node const* name = nullptr;
        parseFunctionHeader(inputs, name);
        while (atArgumentsBlock()) {
            parseArgumentsBlock();
        }
        parseStatements();
        drop(savedList);
        if (atKeyword(Keyword::End)) {
            functionEnds_ = FunctionEnds::Used;
        } else if (at(Tok::EndOfFile)) {
            functionEnds_ = FunctionEnds::Omitted;
        } else if (!atKeyword(Keyword::Function)) {
            unexpected();
        }
    }
    closeScope();
    depth_ = savedDepth;
    reset(saved);
}

// Pushes the body's statements onto the list stack and collects nested functions in `nested`.
void Parser::parseFunctionBody(Token const& opening, std::vector<Node const*>& nested) {
    for (;;) {
        skipSeparators();
        if (!atArgumentsBlock()) {
            break;
        }
        push(parseArgumentsBlock());
    }
    for (;;) {
        parseStatements();
        if (atKeyword(Keyword::End)) {
            if (functionEnds_ == FunctionEnds::Omitted) {
                fail(token_, "'end' closes no block (functions in this file do not end with 'end')");
            }
            functionEnds_ = FunctionEnds::Used;
            advance();
            return;
        }
        if (at(Tok::EndOfFile)) {
            if (functionEnds_ == FunctionEnds::Used) {
                failUnclosed(opening, "'end'");
            }
            functionEnds_ = FunctionEnds::Omitted;
            return;
        }
        if (!atKeyword(Keyword::Function)) {
            unexpected();
        }
        if (functionEnds_ == FunctionEnds::Unknown) {
            settleFunctionEnds();
        }
        if (functionEnds_ == FunctionEnds::Omitted) {
            return;  // the next function follows this one
        }
        nested.push_back(&parseFunction(0, 0, false, true));
    }
}

// A function, or a method when isMethod: then [attributesStart, attributesEnd) on the list stack are the
// attributes of its methods block.
Node const& Parser::parseFunction(std::size_t attributesStart, std::size_t attributesEnd, bool isMethod, bool nested) {
    Depth depth(*this);
    auto const opening = token_;
    advance();
    openScope(nested);
    auto const outputs = listStart();
    std::size_t inputs = 0;
    Node const* name = nullptr;
    parseFunctionHeader(inputs, name);
    for (auto i = inputs; i < scratch_.size(); ++i) {
        noteVariable(scratch_[i]->child(slot::InputArgument::identifier));
    }
    auto const body = listStart();
    std::vector<Node const*> nestedFunctions;
    parseFunctionBody(opening, nestedFunctions);
    closeScope();
    FunctionParts const parts{outputs, inputs, body, attributesStart, attributesEnd};
    return makeFunction(isMethod ? NodeKind::MethodDefinition : NodeKind::FunctionDefinition, positionOf(opening), name,
                        parts, nestedFunctions);
}

Node const& Parser::makeFunction(NodeKind kind, Position at, Node const* name, FunctionParts const& parts,
                                 std::vector<Node const*> const& nested) {
    std::span<Node const* const> const attributes(scratch_.data() + parts.attributesStart,
                                                  parts.attributesEnd - parts.attributesStart);
    using Function = slot::FunctionDefinition;
    NamedSlots slots(kind);
    slots.set(Function::outputs, listFrom(parts.outputs, parts.inputs).nodes)
        .set(Function::name, name)
        .set(Function::inputs, listFrom(parts.inputs, parts.body).nodes)
        .set(Function::body, listFrom(parts.body).nodes)
        .set(Function::nestedFunctions, std::span<Node const* const>(nested.data(), nested.size()));
    if (kind == NodeKind::MethodDefinition) {
        slots.set(slot::MethodDefinition::attributes, attributes);
    }
    auto const& function = tree_.make(fieldsAt(kind, at), slots);
    drop(parts.outputs);
    return function;
}

// ===================================================================== statements

// Pushes the statements up to a block's end (or the next clause, function or the end of the file) onto the list
// stack.
void Parser::parseStatements() {
    Depth depth(*this);
    for (;;) {
        switch (token_.kind) {
        case Tok::Newline:
            advance();
            continue;
        case Tok::Semicolon:
        case Tok::Comma:
            // A separator that ends nothing (first on its line, or after another separator) is a statement of
            // its own; the one after a statement or a block header is not.
            if (previousKind_ == Tok::Newline || previousKind_ == Tok::Semicolon || previousKind_ == Tok::Comma) {
                push(plainLeaf(NodeKind::EmptyStatement));
            }
            advance();
            continue;
        case Tok::EndOfFile:
            return;
        case Tok::Bang:
            // At the start of a statement; after an operand (`if a != b`) it is a mistake, reported as such.
            if (previousKind_ == Tok::Newline || previousKind_ == Tok::Semicolon || previousKind_ == Tok::Comma ||
                previousKeyword_ != Keyword::None) {
                push(parseShellEscape());
                continue;
            }
            break;
        case Tok::Identifier:
            switch (token_.keyword) {
            case Keyword::End:
            case Keyword::Else:
            case Keyword::Elseif:
            case Keyword::Case:
            case Keyword::Otherwise:
            case Keyword::Catch:
            case Keyword::Function:
                return;
            default:
                break;
            }
            break;
        default:
            break;
        }
        push(parseStatement());
    }
}

void Parser::expectStatementEnd() {
    if (atStatementEnd() || atKeyword(Keyword::End)) {
        return;
    }
    expected("the end of the statement");
}

Node const& Parser::parseStatement() {
    switch (token_.keyword) {
    case Keyword::If:
        return parseIf();
    case Keyword::For:
    case Keyword::Parfor:
        return parseLoop();
    case Keyword::While:
        return parseWhile();
    case Keyword::Switch:
        return parseSwitch();
    case Keyword::Try:
        return parseTry();
    case Keyword::Spmd:
        return parseSpmd();
    case Keyword::Global:
        return parseNameList(NodeKind::GlobalStatement);
    case Keyword::Persistent:
        return parseNameList(NodeKind::PersistentStatement);
    case Keyword::Return:
    case Keyword::Break:
    case Keyword::Continue: {
        auto const kind = token_.keyword == Keyword::Return  ? NodeKind::Return
                          : token_.keyword == Keyword::Break ? NodeKind::Break
                                                             : NodeKind::Continue;
        auto const& leaf = plainLeaf(kind);
        advance();
        expectStatementEnd();
        return leaf;
    }
    case Keyword::Classdef:
        fail(token_, "'classdef' must be the first statement of a file");
    case Keyword::None:
        if (at(Tok::Identifier) && !hasPeeked_ && lexer_.startsCommand(token_) && !isVariable(token_)) {
            return parseCommand();
        }
        return parseExpressionStatement();
    default:
        unexpected();
    }
}

Node const& Parser::parseCommand() {
    auto const& command = tokenLeaf(NodeKind::Identifier);
    auto const words = lexer_.commandWords();
    auto const arguments = listStart();
    for (auto const& word : words) {
        Token at;
        at.line = word.line;
        at.column = word.column;
        push(textLeaf(NodeKind::CommandArgument, at, word.text));
    }
    advance();
    expectStatementEnd();
    return listNode(NodeKind::CommandStatement, positionOf(command), &command, arguments);
}

// `!make clean`: the rest of the line is a command for the operating system, not code.
Node const& Parser::parseShellEscape() {
    auto const start = token_;
    hasPeeked_ = false;
    auto const& escape = textLeaf(NodeKind::ShellEscape, start, lexer_.restOfLine(start.end));
    advance();
    return escape;
}

Node const& Parser::parseExpressionStatement() {
    auto const start = positionOf(token_);
    bool const bracketed = at(Tok::LBracket);
    auto const& expression = parseExpression();
    if (!at(Tok::Assign)) {
        expectStatementEnd();
        return node(NodeKind::ExpressionStatement, positionOf(expression), &expression);
    }
    advance();
    if (expression.kind() == NodeKind::Matrix && bracketed) {
        return parseMultipleAssignment(expression, start);
    }
    if (!isAssignable(expression)) {
        throw SyntaxFailure{start.line, start.column, "the left side of '=' cannot be assigned to"};
    }
    auto const& value = parseExpression();
    expectStatementEnd();
    noteVariable(assignedVariable(expression));
    return node(NodeKind::Assignment, start, &expression, &value);
}

// [a, ~, b] = ...: the targets are the elements of the matrix's one row.
Node const& Parser::parseMultipleAssignment(Node const& targetMatrix, Position start) {
    auto const rows = targetMatrix.list(slot::Matrix::rows);
    if (rows.size() > 1) {
        throw SyntaxFailure{start.line, start.column, "the targets of a multiple assignment must be on one row"};
    }
    auto const targets = rows.empty() ? std::span<Node const* const>() : rows.front()->list(slot::Row::elements);
    for (auto const* target : targets) {
        if (!isAssignable(*target) && target->kind() != NodeKind::Ignored) {
            throw SyntaxFailure{start.line, start.column, "invalid target in a multiple assignment"};
        }
    }
    auto const& value = parseExpression();
    expectStatementEnd();
    for (auto const* target : targets) {
        noteVariable(assignedVariable(*target));
    }
    return tree_.make(NodeFields{NodeKind::MultipleAssignment, start.line, start.column, Operator::None, false, {}},
                      {List{targets}, Single{&value}});
}

Node const& Parser::parseIf() {
    auto const opening = token_;
    auto const clauses = listStart();
    push(parseClause(NodeKind::IfClause, true));
    while (atKeyword(Keyword::Elseif)) {
        push(parseClause(NodeKind::ElseifClause, true));
    }
    if (atKeyword(Keyword::Else)) {
        push(parseClause(NodeKind::ElseClause, false));
    }
    expectEnd(opening);
    return listNode(NodeKind::IfStatement, positionOf(opening), clauses);
}

// One clause of an if or switch statement, at its keyword: the keyword, the expression after it (none for else and
// otherwise), then the statements up to the next clause or the end.
Node const& Parser::parseClause(NodeKind kind, bool withExpression) {
    auto const start = positionOf(token_);
    advance();
    Node const* expression = withExpression ? &parseExpression() : nullptr;
    auto const body = listStart();
    parseStatements();
    return withExpression ? listNode(kind, start, expression, body) : listNode(kind, start, body);
}

Node const& Parser::parseLoop() {
    auto const opening = token_;
    bool const isParfor = token_.keyword == Keyword::Parfor;
    advance();
    // `for (i = 1:n)` and `parfor (i = 1:n, workers)` put the header in parentheses.
    bool parenthesized = false;
    if (at(Tok::LParen)) {
        auto const saved = mark();
        advance();
        parenthesized = at(Tok::Identifier) && peek().kind == Tok::Assign;
        if (!parenthesized) {
            reset(saved);
        }
    }
    if (!atName()) {
        expected("the loop variable");
    }
    auto const& variable = tokenLeaf(NodeKind::Identifier);
    advance();
    expect(Tok::Assign, "'=' after the loop variable");
    noteVariable(&variable);
    auto const savedMatrix = std::exchange(inMatrix_, false);
    auto const& range = parseExpression();
    Node const* workers = nullptr;
    if (parenthesized) {
        if (isParfor && at(Tok::Comma)) {
            advance();
            workers = &parseExpression();
        }
        expect(Tok::RParen, "')' after the loop range");
    }
    inMatrix_ = savedMatrix;
    auto const body = listStart();
    parseStatements();
    expectEnd(opening);
    return makeLoop(isParfor, positionOf(opening), variable, range, workers, body);
}

Node const& Parser::makeLoop(bool isParfor, Position at, Node const& variable, Node const& range, Node const* workers,
                             std::size_t body) {
    auto const& loop = isParfor ? tree_.make(fieldsAt(NodeKind::ParforStatement, at),
                                             {Single{&variable}, Single{&range}, Single{workers}, listFrom(body)})
                                : tree_.make(fieldsAt(NodeKind::ForStatement, at),
                                             {Single{&variable}, Single{&range}, listFrom(body)});
    drop(body);
    return loop;
}

Node const& Parser::parseWhile() {
    auto const opening = token_;
    advance();
    auto const& condition = parseExpression();
    auto const body = listStart();
    parseStatements();
    expectEnd(opening);
    return listNode(NodeKind::WhileStatement, positionOf(opening), &condition, body);
}

// `spmd`, `spmd (n)` or `spmd (m, n)`, then the body up to `end`.
Node const& Parser::parseSpmd() {
    auto const opening = token_;
    advance();
    Node const* workers = nullptr;
    if (at(Tok::LParen)) {
        auto const parenthesis = token_;
        advance();
        auto const arguments = listStart();
        parseArguments(Tok::RParen, "')'");
        auto const count = scratch_.size() - arguments;
        if (count == 1) {
            workers = scratch_.back();
            drop(arguments);
        } else if (count == 2) {
            workers = &listNode(NodeKind::Row, positionOf(parenthesis), arguments);
        } else {
            fail(parenthesis, "'spmd' takes one or two worker counts in parentheses");
        }
    }
    auto const body = listStart();
    parseStatements();
    expectEnd(opening);
    return listNode(NodeKind::SpmdStatement, positionOf(opening), workers, body);
}

Node const& Parser::parseSwitch() {
    auto const opening = token_;
    advance();
    auto const& subject = parseExpression();
    skipSeparators();
    auto const clauses = listStart();
    while (atKeyword(Keyword::Case)) {
        push(parseClause(NodeKind::CaseClause, true));
    }
    if (atKeyword(Keyword::Otherwise)) {
        push(parseClause(NodeKind::OtherwiseClause, false));
    }
    expectEnd(opening);
    return listNode(NodeKind::SwitchStatement, positionOf(opening), &subject, clauses);
}

Node const& Parser::parseTry() {
    auto const opening = token_;
    advance();
    auto const body = listStart();
    parseStatements();
    Node const* catchClause = nullptr;
    if (atKeyword(Keyword::Catch)) {
        auto const clauseStart = positionOf(token_);
        advance();
        // `catch err` names the caught error only when the name stands alone on the catch line.
        Node const* variable = nullptr;
        if (atName()) {
            auto const next = peek().kind;
            if (next == Tok::Newline || next == Tok::Semicolon || next == Tok::Comma || next == Tok::EndOfFile) {
                variable = &tokenLeaf(NodeKind::Identifier);
                noteVariable(variable);
                advance();
            }
        }
        auto const handler = listStart();
        parseStatements();
        catchClause = &listNode(NodeKind::CatchClause, clauseStart, variable, handler);
    }
    expectEnd(opening);
    return makeTry(positionOf(opening), body, catchClause);
}

Node const& Parser::makeTry(Position at, std::size_t body, Node const* catchClause) {
    auto const& statement = tree_.make(fieldsAt(NodeKind::TryStatement, at), {listFrom(body), Single{catchClause}});
    drop(body);
    return statement;
}

Node const& Parser::parseNameList(NodeKind kind) {
    auto const opening = positionOf(token_);
    advance();
    auto const names = listStart();
    while (atName()) {
        auto const& name = tokenLeaf(NodeKind::Identifier);
        noteVariable(&name);
        push(name);
        advance();
    }
    expectStatementEnd();
    return listNode(kind, opening, names);
}

// ===================================================================== expressions

// Power and transpose share one level and apply left to right: `a^b'` is `(a^b)'`, `a'^b` is `(a')^b`.
Node const& Parser::parsePower() {
    Node const* left = &parsePostfix(true);
    while (at(Tok::Caret) || at(Tok::DotCaret)) {
        auto const op = at(Tok::Caret) ? Operator::Power : Operator::ElementPower;
        advance();
        left = &node(NodeKind::BinaryOperation, positionOf(*left), left, &parsePowerOperand(), op);
        while (at(Tok::Transpose) || at(Tok::DotTranspose)) {
            auto const transpose = at(Tok::Transpose) ? Operator::Transpose : Operator::DotTranspose;
            advance();
            left = &node(NodeKind::PostfixOperation, positionOf(*left), left, transpose);
        }
    }
    return *left;
}

// An operand of a binary operator: prefix operators, then power and transpose.
Node const& Parser::parseOperand() {
    switch (token_.kind) {
    case Tok::Minus:
    case Tok::Plus:
    case Tok::Not:
        return parseUnary();
    default:
        return parsePower();
    }
}

// Binary operators by precedence climbing over a stack of pending left operands (kept in the parser, not in the
// frame), so that nesting costs one frame of this routine per level rather than one per precedence level.
Node const& Parser::parseExpression() {
    Depth depth(*this);
    auto const base = pending_.size();
    Node const* operand = &parseOperand();
    for (;;) {
        std::optional<BinaryLevel> const level =
            at(Tok::Colon) ? BinaryLevel{NodeKind::Range, Operator::None, rangePrecedence} : binaryLevelOf(token_.kind);
        if (!level || matrixElementEndsBefore()) {
            break;
        }
        while (pending_.size() > base && pending_.back().level.precedence >= level->precedence) {
            operand = &reduce(operand);
        }
        pending_.push_back(PendingOperator{operand, *level});
        advance();
        operand = &parseOperand();
    }
    while (pending_.size() > base) {
        operand = &reduce(operand);
    }
    return *operand;
}

// Applies the last pending operator to its left operand and `right`.
Node const& Parser::reduce(Node const* right) {
    auto const top = pending_.back();
    pending_.pop_back();
    auto const& left = *top.left;
    if (top.level.kind != NodeKind::Range) {
        return node(top.level.kind, positionOf(left), &left, right, top.level.op);
    }
    // a:b:c extends the a:b on its left (a range on the left of ':' comes from this expression's previous ':');
    // a range that has its step is an operand again: a:b:c:d is (a:b:c):d.
    auto const at = positionOf(left);
    auto const fieldsOfRange = fieldsAt(NodeKind::Range, at);
    if (left.kind() == NodeKind::Range && left.child(slot::Range::step) == nullptr) {
        return tree_.make(fieldsOfRange, {Single{left.child(slot::Range::start)}, Single{left.child(slot::Range::end)},
                                          Single{right}});
    }
    return tree_.make(fieldsOfRange, {Single{&left}, Single{}, Single{right}});
}

// Inside [] and {}, white space separates elements: `[a -b]` has two elements, `[a - b]` one, `[f (1)]` two.
bool Parser::matrixElementEndsBefore() const noexcept {
    if (!inMatrix_ || !token_.spaceBefore) {
        return false;
    }
    switch (token_.kind) {
    case Tok::Plus:
    case Tok::Minus: {
        char const after = lexer_.at(token_.end);
        return after != ' ' && after != '\t' && after != '\n' && after != '\r';
    }
    case Tok::LParen:
    case Tok::LBrace:
    case Tok::Dot:
        return true;
    default:
        return false;
    }
}

// Right after a closing bracket, an operand starts the next element without a separator: `[[1]2]`, `[a(1)b]`.
bool Parser::juxtaposedElementFollows() const noexcept {
    if (previousKind_ != Tok::RBracket && previousKind_ != Tok::RBrace && previousKind_ != Tok::RParen) {
        return false;
    }
    switch (token_.kind) {
    case Tok::Identifier:
        return token_.keyword == Keyword::None || (token_.keyword == Keyword::End && indexDepth_ > 0);
    case Tok::Number:
    case Tok::ImaginaryNumber:
    case Tok::CharString:
    case Tok::String:
    case Tok::LBracket:
    case Tok::At:
    case Tok::Question:
        return true;
    default:
        return false;
    }
}

Node const& Parser::parseUnary() {
    auto const op = at(Tok::Minus) ? Operator::UnaryMinus : at(Tok::Plus) ? Operator::UnaryPlus : Operator::Not;
    if (op == Operator::Not && inMatrix_ && (peek().kind == Tok::Comma || peek().kind == Tok::RBracket)) {
        // An ignored output in `[~, b] = f()`.
        auto const& ignored = plainLeaf(NodeKind::Ignored);
        advance();
        return ignored;
    }
    Depth depth(*this);
    auto const start = positionOf(token_);
    advance();
    return node(NodeKind::UnaryOperation, start, &parseOperand(), op);
}

// The exponent: an operand without its transposes, possibly signed or negated (2^-1).
Node const& Parser::parsePowerOperand() {
    Operator op = Operator::None;
    switch (token_.kind) {
    case Tok::Minus:
        op = Operator::UnaryMinus;
        break;
    case Tok::Plus:
        op = Operator::UnaryPlus;
        break;
    case Tok::Not:
        op = Operator::Not;
        break;
    default:
        return parsePostfix(false);
    }
    Depth depth(*this);
    auto const start = positionOf(token_);
    advance();
    return node(NodeKind::UnaryOperation, start, &parsePowerOperand(), op);
}

// Pushes the arguments up to the closing bracket onto the list stack.
void Parser::parseArguments(Tok closing, char const* closingText) {
    auto const savedMatrix = std::exchange(inMatrix_, false);
    ++indexDepth_;
    if (at(closing)) {
        advance();
    } else {
        for (;;) {
            if (at(Tok::Colon) && (peek().kind == Tok::Comma || peek().kind == closing)) {
                push(plainLeaf(NodeKind::Colon));
                advance();
            } else if (atName() && peek().kind == Tok::Assign) {
                // name=value argument
                auto const& name = tokenLeaf(NodeKind::Identifier);
                advance();
                advance();
                push(node(NodeKind::Assignment, positionOf(name), &name, &parseExpression()));
            } else {
                push(parseExpression());
            }
            if (at(Tok::Comma)) {
                advance();
                continue;
            }
            if (!at(closing)) {
                expectedEither("','", closingText);
            }
            advance();
            break;
        }
    }
    --indexDepth_;
    inMatrix_ = savedMatrix;
}

Node const& Parser::parsePostfix(bool withTransposes) {
    auto const start = token_.begin;
    auto const startKind = token_.kind;
    Node const* expression = &parsePrimary();
    // Where a plain or dotted name (`obj`, `obj.setup`) ends while the expression is one: the member name of a
    // superclass call `obj.setup@Base(...)`. Zero once the expression is anything else.
    std::uint32_t nameEnd =
        expression->kind() == NodeKind::Identifier && startKind == Tok::Identifier ? previousEnd_ : 0;
    for (;;) {
        if (matrixElementEndsBefore()) {
            return *expression;
        }
        switch (token_.kind) {
        case Tok::LParen:
        case Tok::LBrace: {
            bool const paren = at(Tok::LParen);
            advance();
            auto const arguments = listStart();
            parseArguments(paren ? Tok::RParen : Tok::RBrace, paren ? "')'" : "'}'");
            expression = &listNode(paren ? NodeKind::ParenIndex : NodeKind::BraceIndex, positionOf(*expression),
                                   expression, arguments);
            nameEnd = 0;
            break;
        }
        case Tok::Dot: {
            bool const joined = !token_.spaceBefore;
            advance();
            if (at(Tok::Identifier)) {
                nameEnd = nameEnd != 0 && joined && !token_.spaceBefore ? token_.end : 0;
                auto const& field = tokenLeaf(NodeKind::Identifier);
                advance();
                expression = &node(NodeKind::FieldAccess, positionOf(*expression), expression, &field);
            } else if (at(Tok::LParen)) {
                advance();
                auto const savedMatrix = std::exchange(inMatrix_, false);
                auto const& field = parseExpression();
                expect(Tok::RParen, "')' after a dynamic field name");
                inMatrix_ = savedMatrix;
                expression = &node(NodeKind::DynamicField, positionOf(*expression), expression, &field);
                nameEnd = 0;
            } else {
                expected("a field name after '.'");
            }
            break;
        }
        case Tok::At:
            if (nameEnd == 0 || token_.spaceBefore || peek().kind != Tok::Identifier || peek().spaceBefore) {
                return *expression;
            }
            expression = &parseSuperclassCall(positionOf(*expression), source_.substr(start, nameEnd - start));
            nameEnd = 0;
            break;
        case Tok::Transpose:
        case Tok::DotTranspose: {
            if (!withTransposes) {
                return *expression;
            }
            auto const op = at(Tok::Transpose) ? Operator::Transpose : Operator::DotTranspose;
            advance();
            expression = &node(NodeKind::PostfixOperation, positionOf(*expression), expression, op);
            nameEnd = 0;
            break;
        }
        default:
            return *expression;
        }
    }
}

// `name@Super(args)`, `name@pkg.Super` at '@'; memberName is the name before '@' as written.
Node const& Parser::parseSuperclassCall(Position at, std::string_view memberName) {
    advance();  // @
    auto const& member = tree_.makeLeaf(fieldsAt(NodeKind::Identifier, at), memberName);
    auto const& superclass = parseDottedName();
    auto const arguments = listStart();
    if (this->at(Tok::LParen) && !matrixElementEndsBefore()) {
        advance();
        parseArguments(Tok::RParen, "')'");
    }
    return makeSuperclassCall(at, member, superclass, arguments);
}

Node const& Parser::makeSuperclassCall(Position at, Node const& member, Node const& superclass, std::size_t arguments) {
    auto const& call =
        tree_.make(fieldsAt(NodeKind::SuperclassCall, at), {Single{&member}, Single{&superclass}, listFrom(arguments)});
    drop(arguments);
    return call;
}

Node const& Parser::parseMatrix(NodeKind kind, Tok closing, char const* closingText) {
    auto const opening = token_;
    advance();
    auto const savedMatrix = std::exchange(inMatrix_, true);
    auto const rows = listStart();
    // The elements of the current row sit above the finished rows; a finished row replaces them.
    auto elements = listStart();
    for (;;) {
        if (at(closing) || at(Tok::Semicolon) || at(Tok::Newline)) {
            if (scratch_.size() > elements) {
                push(listNode(NodeKind::Row, positionOf(*scratch_[elements]), elements));
                elements = listStart();
            }
            bool const closed = at(closing);
            advance();
            if (closed) {
                break;
            }
            continue;
        }
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        if (at(Tok::EndOfFile)) {
            failUnclosed(opening, closingText);
        }
        push(parseExpression());
        // After an element: a separator, the closing bracket, or (white space having separated them, or a closing
        // bracket having ended the element) the next element.
        if (!at(Tok::Comma) && !at(Tok::Semicolon) && !at(Tok::Newline) && !at(closing) && !token_.spaceBefore &&
            !juxtaposedElementFollows()) {
            expectedEither("',', ';'", closingText);
        }
    }
    inMatrix_ = savedMatrix;
    return listNode(kind, positionOf(opening), rows);
}

Node const& Parser::parseAnonymousFunction(Position at) {
    advance();  // (
    auto const parameters = listStart();
    if (this->at(Tok::RParen)) {
        advance();
    } else {
        for (;;) {
            auto const parameterStart = positionOf(token_);
            Node const* identifier = nullptr;
            Node const* ignored = nullptr;
            if (this->at(Tok::Not)) {
                ignored = &plainLeaf(NodeKind::Ignored);
            } else if (atName()) {
                identifier = &tokenLeaf(NodeKind::Identifier);
            } else {
                expected("a parameter name");
            }
            advance();
            push(node(NodeKind::InputArgument, parameterStart, identifier, ignored));
            if (this->at(Tok::Comma)) {
                advance();
                continue;
            }
            expect(Tok::RParen, "',' or ')' in the parameter list");
            break;
        }
    }
    // `end` in the body belongs to the body's own indexing, not to an enclosing one.
    auto const savedIndexDepth = std::exchange(indexDepth_, 0);
    auto const& body = parseExpression();
    indexDepth_ = savedIndexDepth;
    return makeAnonymousFunction(at, parameters, body);
}

Node const& Parser::makeAnonymousFunction(Position at, std::size_t parameters, Node const& body) {
    auto const& function = tree_.make(fieldsAt(NodeKind::AnonymousFunction, at), {listFrom(parameters), Single{&body}});
    drop(parameters);
    return function;
}

Node const& Parser::parsePrimary() {
    switch (token_.kind) {
    case Tok::Identifier: {
        if (token_.keyword == Keyword::End && indexDepth_ > 0) {
            auto const& leaf = plainLeaf(NodeKind::End);
            advance();
            return leaf;
        }
        if (token_.keyword != Keyword::None) {
            failKeywordInExpression();
        }
        auto const& leaf = tokenLeaf(NodeKind::Identifier);
        advance();
        return leaf;
    }
    case Tok::Number:
    case Tok::ImaginaryNumber: {
        auto const& leaf = tokenLeaf(at(Tok::Number) ? NodeKind::Number : NodeKind::ImaginaryNumber);
        advance();
        return leaf;
    }
    case Tok::CharString:
    case Tok::String:
        return parseText();
    case Tok::LParen: {
        auto const opening = positionOf(token_);
        advance();
        auto const savedMatrix = std::exchange(inMatrix_, false);
        auto const& inner = parseExpression();
        expect(Tok::RParen, "')'");
        inMatrix_ = savedMatrix;
        return node(NodeKind::Parenthesized, opening, &inner);
    }
    case Tok::LBracket:
        return parseMatrix(NodeKind::Matrix, Tok::RBracket, "']'");
    case Tok::LBrace:
        return parseMatrix(NodeKind::Cell, Tok::RBrace, "'}'");
    case Tok::At: {
        auto const start = positionOf(token_);
        advance();
        if (at(Tok::LParen)) {
            return parseAnonymousFunction(start);
        }
        return node(NodeKind::FunctionHandle, start, &parseDottedName());
    }
    case Tok::Question:
        return parseMetaclassQuery();
    default:
        unexpected();
    }
}

Node const& Parser::parseText() {
    auto const& leaf = textLeaf(at(Tok::CharString) ? NodeKind::CharacterString : NodeKind::String, token_,
                                decodeQuoted(lexer_.text(token_)));
    advance();
    return leaf;
}

Node const& Parser::parseMetaclassQuery() {
    auto const start = token_;
    advance();
    auto const& name = parseDottedName();
    auto querySpec = fields(NodeKind::MetaclassQuery, start);
    querySpec.text = name.identifier().getString();
    return tree_.make(querySpec, {});
}

}  // namespace

ParseOutcome parse(std::string_view code, std::size_t treeByteLimit) {
    ParseOutcome outcome;
    // A tree takes several times the size of its code; reserving that spares the arena most of its growth steps.
    constexpr std::size_t largestReservation = std::size_t{64} << 20;
    auto const reservation =
        std::min({code.size(), largestReservation / expectedTreeBytesPerCodeByte}) * expectedTreeBytesPerCodeByte;
    if (code.size() >= 0xFFFFFFFFu) {
        outcome.errors.push_back({1, 1, "the file is too large to analyse"});
    } else {
        try {
            outcome.tree = std::make_unique<astapi::SyntaxTree>(std::min(reservation, treeByteLimit), treeByteLimit);
            Parser parser(code, *outcome.tree);
            auto const& root = parser.parseFile();
            outcome.tree->setRoot(root);
            outcome.ownerName = parser.ownerName();
            return outcome;
        } catch (SyntaxFailure const& failure) {
            outcome.errors.push_back({failure.line, failure.column, failure.message});
        } catch (astapi::TreeTooLarge const&) {
            outcome.errors.push_back({1, 1,
                                      "the code is too large to analyse: its syntax tree would take more than " +
                                          std::to_string(treeByteLimit) + " bytes"});
        }
    }
    // A fresh tree: the failed parse may have left unreachable nodes behind.
    outcome.tree = std::make_unique<astapi::SyntaxTree>();
    outcome.tree->setRoot(outcome.tree->make(NodeFields{NodeKind::File, 1, 1, Operator::None, false, {}}, {List{}}));
    return outcome;
}

}  // namespace ca::detail

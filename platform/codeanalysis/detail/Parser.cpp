#include "platform/codeanalysis/detail/Parser.hpp"

#include "platform/codeanalysis/detail/Lexer.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace ca::detail {

using astapi::List;
using astapi::Node;
using astapi::NodeKind;
using astapi::NodeFields;
using astapi::Operator;
using astapi::Reference;
using astapi::Single;
using astapi::Slot;
using NodeList = std::vector<Node const*>;

void appendUtf16(std::string_view utf8, std::u16string& out)
{
    std::size_t i = 0;
    auto const size = utf8.size();
    while (i < size) {
        auto const lead = static_cast<unsigned char>(utf8[i]);
        if (lead < 0x80) {
            out.push_back(static_cast<char16_t>(lead));
            ++i;
            continue;
        }
        unsigned length = lead >= 0xF0 && lead < 0xF5 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
        if (lead >= 0xF5) {
            length = 0;
        }
        char32_t code = length == 4 ? lead & 0x07u : length == 3 ? lead & 0x0Fu : lead & 0x1Fu;
        bool valid = length != 0 && i + length <= size;
        for (unsigned k = 1; valid && k < length; ++k) {
            auto const next = static_cast<unsigned char>(utf8[i + k]);
            valid = (next & 0xC0u) == 0x80u;
            code = (code << 6) | (next & 0x3Fu);
        }
        if (valid && ((length == 3 && (code < 0x800 || (code >= 0xD800 && code < 0xE000))) ||
                      (length == 4 && (code < 0x10000 || code > 0x10FFFF)))) {
            valid = false;
        }
        if (!valid) {
            out.push_back(u'\uFFFD');
            ++i;
            continue;
        }
        if (code >= 0x10000) {
            code -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(code));
        }
        i += length;
    }
}

namespace {

// Functions of a file either all end with `end` or none does; the first function that reaches `end`, end of
// file or another `function` settles which.
enum class FunctionEnds { Unknown, Used, Omitted };

struct FunctionHeader {
    Token start;
    NodeList outputs;
    Node const* name = nullptr;
    NodeList inputs;
};

struct BinaryLevel {
    NodeKind kind;
    Operator op;
    int precedence;
};

// Precedences of the left-associative binary operators; the range operator sits between comparison (4) and
// addition (6) and is parsed on its own.
std::optional<BinaryLevel> binaryLevelOf(Tok kind) noexcept
{
    switch (kind) {
    case Tok::BarBar: return BinaryLevel{NodeKind::ShortCircuit, Operator::OrOr, 0};
    case Tok::AmpAmp: return BinaryLevel{NodeKind::ShortCircuit, Operator::AndAnd, 1};
    case Tok::Bar: return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementOr, 2};
    case Tok::Amp: return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementAnd, 3};
    case Tok::EqualEqual: return BinaryLevel{NodeKind::Comparison, Operator::Equal, 4};
    case Tok::NotEqual: return BinaryLevel{NodeKind::Comparison, Operator::NotEqual, 4};
    case Tok::Less: return BinaryLevel{NodeKind::Comparison, Operator::Less, 4};
    case Tok::LessEqual: return BinaryLevel{NodeKind::Comparison, Operator::LessEqual, 4};
    case Tok::Greater: return BinaryLevel{NodeKind::Comparison, Operator::Greater, 4};
    case Tok::GreaterEqual: return BinaryLevel{NodeKind::Comparison, Operator::GreaterEqual, 4};
    case Tok::Plus: return BinaryLevel{NodeKind::BinaryOperation, Operator::Plus, 6};
    case Tok::Minus: return BinaryLevel{NodeKind::BinaryOperation, Operator::Minus, 6};
    case Tok::Star: return BinaryLevel{NodeKind::BinaryOperation, Operator::Times, 7};
    case Tok::Slash: return BinaryLevel{NodeKind::BinaryOperation, Operator::RightDivide, 7};
    case Tok::Backslash: return BinaryLevel{NodeKind::BinaryOperation, Operator::LeftDivide, 7};
    case Tok::DotStar: return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementTimes, 7};
    case Tok::DotSlash: return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementRightDivide, 7};
    case Tok::DotBackslash: return BinaryLevel{NodeKind::BinaryOperation, Operator::ElementLeftDivide, 7};
    default: return std::nullopt;
    }
}

constexpr int rangePrecedence = 5;

bool isAssignable(Node const& node) noexcept
{
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

char const* keywordText(Keyword keyword) noexcept
{
    switch (keyword) {
    case Keyword::Function: return "function";
    case Keyword::End: return "end";
    case Keyword::If: return "if";
    case Keyword::Elseif: return "elseif";
    case Keyword::Else: return "else";
    case Keyword::For: return "for";
    case Keyword::Parfor: return "parfor";
    case Keyword::While: return "while";
    case Keyword::Switch: return "switch";
    case Keyword::Case: return "case";
    case Keyword::Otherwise: return "otherwise";
    case Keyword::Try: return "try";
    case Keyword::Catch: return "catch";
    case Keyword::Return: return "return";
    case Keyword::Break: return "break";
    case Keyword::Continue: return "continue";
    case Keyword::Global: return "global";
    case Keyword::Persistent: return "persistent";
    case Keyword::Classdef: return "classdef";
    case Keyword::None: break;
    }
    return "";
}

class Parser {
public:
    Parser(std::string_view code, astapi::SyntaxTree& tree) : source_(code), lexer_(code), tree_(tree) {}

    Node const& parseFile();
    std::u16string const& ownerName() const noexcept { return ownerName_; }

private:
    // ----- tokens
    void advance()
    {
        previousKind_ = token_.kind;
        if (hasPeeked_) {
            token_ = peeked_;
            hasPeeked_ = false;
        } else {
            token_ = lexer_.next();
        }
    }
    Token const& peek()
    {
        if (!hasPeeked_) {
            peeked_ = lexer_.next();
            hasPeeked_ = true;
        }
        return peeked_;
    }
    bool at(Tok kind) const noexcept { return token_.kind == kind; }
    bool atKeyword(Keyword keyword) const noexcept
    {
        return token_.kind == Tok::Identifier && token_.keyword == keyword;
    }
    bool atWord(std::string_view word) const noexcept
    {
        return token_.kind == Tok::Identifier && token_.keyword == Keyword::None && lexer_.text(token_) == word;
    }
    bool atStatementEnd() const noexcept
    {
        return at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma) || at(Tok::EndOfFile);
    }

    struct Mark {
        Lexer::State lexer;
        Token token;
        Token peeked;
        bool hasPeeked;
        Tok previousKind;
    };
    Mark mark() const { return {lexer_.save(), token_, peeked_, hasPeeked_, previousKind_}; }
    void reset(Mark const& mark)
    {
        lexer_.restore(mark.lexer);
        token_ = mark.token;
        peeked_ = mark.peeked;
        hasPeeked_ = mark.hasPeeked;
        previousKind_ = mark.previousKind;
    }

    std::string describe(Token const& token) const
    {
        switch (token.kind) {
        case Tok::EndOfFile: return "end of file";
        case Tok::Newline: return "end of line";
        default: return "'" + std::string(lexer_.text(token)) + "'";
        }
    }
    [[noreturn]] void fail(Token const& token, std::string const& message) const
    {
        throw SyntaxFailure{token.line, token.column, message};
    }
    [[noreturn]] void unexpected() const { fail(token_, "unexpected " + describe(token_)); }
    void expect(Tok kind, char const* what)
    {
        if (!at(kind)) {
            fail(token_, std::string("expected ") + what + " but found " + describe(token_));
        }
        advance();
    }
    void expectEnd(Token const& opening)
    {
        if (at(Tok::EndOfFile)) {
            failUnclosed(opening, "'end'");
        }
        if (!atKeyword(Keyword::End)) {
            fail(token_, "expected 'end' to close the '" + std::string(lexer_.text(opening)) + "' on line " +
                             std::to_string(opening.line) + " but found " + describe(token_));
        }
        advance();
    }

    // An unclosed construct is reported where it opens: that is where a reader has to look.
    [[noreturn]] void failUnclosed(Token const& opening, char const* closer) const
    {
        fail(opening, "'" + std::string(lexer_.text(opening)) + "' is not closed by " + closer +
                          " before the end of the file");
    }

    // Nesting guard: every recursive descent passes through one of these.
    class Depth {
    public:
        explicit Depth(Parser& parser) : parser_(parser)
        {
            if (++parser_.depth_ > maxNestingDepth) {
                parser_.fail(parser_.token_, "code is nested more than " + std::to_string(maxNestingDepth) +
                                                 " levels deep");
            }
        }
        ~Depth() { --parser_.depth_; }
        Depth(Depth const&) = delete;
        Depth& operator=(Depth const&) = delete;

    private:
        Parser& parser_;
    };

    // ----- nodes
    static NodeFields fields(NodeKind kind, Token const& at, Operator op = Operator::None)
    {
        return NodeFields{kind, at.line, at.column, op, false, {}};
    }
    static NodeFields fields(NodeKind kind, Node const& at, Operator op = Operator::None)
    {
        return NodeFields{kind, at.line(), at.column(), op, false, {}};
    }
    Node const& make(NodeFields const& nodeFields, std::initializer_list<Slot> slots = {})
    {
        return tree_.make(nodeFields, slots);
    }
    Node const& textLeaf(NodeKind kind, Token const& at, std::string_view utf8)
    {
        text_.clear();
        appendUtf16(utf8, text_);
        auto nodeFields = fields(kind, at);
        nodeFields.text = text_;
        return tree_.make(nodeFields, {});
    }
    Node const& tokenLeaf(NodeKind kind) { return textLeaf(kind, token_, lexer_.text(token_)); }
    static List list(NodeList const& nodes) { return List{std::span<Node const* const>(nodes.data(), nodes.size())}; }

    // ----- file structure
    Node const& parseClassDefinition();
    Node const& parseClassBlock(NodeKind blockKind);
    NodeList parseAttributeList();
    Node const& parseAttribute();
    Node const& parseDeclaration(NodeKind kind);
    Node const* parseDimensions();
    Node const& parseDottedName();
    Node const& parseFunction(std::span<Node const* const> methodAttributes, bool isMethod);
    FunctionHeader parseFunctionHeader();
    Node const& parseMethodSignature();
    void parseFunctionBody(Token const& opening, NodeList& body, NodeList& nested);
    void settleFunctionEnds();
    bool atArgumentsBlock();
    Node const& parseArgumentsBlock();

    // ----- statements
    NodeList parseStatements();
    Node const& parseStatement();
    Node const& parseIf();
    Node const& parseLoop();
    Node const& parseWhile();
    Node const& parseSwitch();
    Node const& parseClause(NodeKind kind, bool withExpression);
    Node const& parseTry();
    Node const& parseNameList(NodeKind kind);
    Node const& parseCommand();
    Node const& parseExpressionStatement();
    void expectStatementEnd();

    // ----- expressions
    Node const& parseExpression();
    Node const& parseBinary(int minimumPrecedence);
    Node const& parseRange();
    Node const& parseUnary();
    Node const& parsePower();
    Node const& parsePowerOperand();
    Node const& parsePostfix();
    Node const& parsePrimary();
    NodeList parseArguments(Tok closing, char const* closingText);
    Node const& parseMatrix(NodeKind kind, Tok closing, char const* closingText);
    Node const& parseAnonymousFunction(Token const& at);
    bool matrixElementEndsBefore() const noexcept;

    std::string_view source_;
    Lexer lexer_;
    astapi::SyntaxTree& tree_;
    Token token_;
    Token peeked_;  // valid while hasPeeked_
    bool hasPeeked_ = false;
    Tok previousKind_ = Tok::Newline;  // the token before token_; a file starts as if after a line break
    unsigned depth_ = 0;
    bool inMatrix_ = false;
    unsigned indexDepth_ = 0;
    FunctionEnds functionEnds_ = FunctionEnds::Unknown;
    std::u16string ownerName_;
    std::u16string text_;
};

// ===================================================================== file structure

Node const& Parser::parseFile()
{
    token_.kind = Tok::Newline;  // so that the first token is seen as the first on its line
    advance();
    auto const start = token_;
    NodeList items;
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
            items.push_back(&parseClassDefinition());
        } else if (atKeyword(Keyword::Function)) {
            items.push_back(&parseFunction({}, false));
        } else {
            auto statements = parseStatements();
            items.insert(items.end(), statements.begin(), statements.end());
            if (!at(Tok::EndOfFile) && !atKeyword(Keyword::Function)) {
                unexpected();
            }
        }
        first = false;
    }
    return make(fields(NodeKind::File, start), {list(items)});
}

Node const& Parser::parseDottedName()
{
    auto const start = token_;
    if (!at(Tok::Identifier)) {
        fail(token_, "expected a name but found " + describe(token_));
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

Node const& Parser::parseAttribute()
{
    auto const start = token_;
    bool negated = false;
    if (at(Tok::Not)) {
        negated = true;
        advance();
    }
    if (!at(Tok::Identifier)) {
        fail(token_, "expected an attribute name but found " + describe(token_));
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

NodeList Parser::parseAttributeList()
{
    NodeList attributes;
    if (!at(Tok::LParen)) {
        return attributes;
    }
    advance();
    auto const savedMatrix = std::exchange(inMatrix_, false);
    for (;;) {
        attributes.push_back(&parseAttribute());
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        expect(Tok::RParen, "',' or ')' after an attribute");
        break;
    }
    inMatrix_ = savedMatrix;
    return attributes;
}

Node const& Parser::parseClassDefinition()
{
    Depth depth(*this);
    auto const opening = token_;
    advance();
    functionEnds_ = FunctionEnds::Used;  // methods of a class always end with `end`
    auto const attributes = parseAttributeList();
    if (!at(Tok::Identifier) || token_.keyword != Keyword::None) {
        fail(token_, "expected the class name but found " + describe(token_));
    }
    auto const& name = tokenLeaf(NodeKind::Identifier);
    advance();
    NodeList superclasses;
    if (at(Tok::Less)) {
        do {
            advance();
            superclasses.push_back(&parseDottedName());
        } while (at(Tok::Amp));
    }
    if (!atStatementEnd()) {
        unexpected();
    }
    NodeList blocks;
    for (;;) {
        while (at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma)) {
            advance();
        }
        if (atKeyword(Keyword::End)) {
            advance();
            break;
        }
        if (atWord("properties")) {
            blocks.push_back(&parseClassBlock(NodeKind::PropertiesBlock));
        } else if (atWord("methods")) {
            blocks.push_back(&parseClassBlock(NodeKind::MethodsBlock));
        } else if (atWord("events")) {
            blocks.push_back(&parseClassBlock(NodeKind::EventsBlock));
        } else if (atWord("enumeration")) {
            blocks.push_back(&parseClassBlock(NodeKind::EnumerationBlock));
        } else if (at(Tok::EndOfFile)) {
            expectEnd(opening);
        } else {
            fail(token_, "expected 'properties', 'methods', 'events', 'enumeration' or 'end' in the class "
                         "definition but found " + describe(token_));
        }
    }
    ownerName_ = name.identifier().getString();
    return make(fields(NodeKind::ClassDefinition, opening),
                {Single{}, Single{}, Single{}, Single{}, Single{}, Single{}, list(attributes), Single{&name},
                 list(superclasses), list(blocks)});
}

Node const& Parser::parseClassBlock(NodeKind blockKind)
{
    Depth depth(*this);
    auto const opening = token_;
    advance();
    auto const attributes = parseAttributeList();
    NodeList members;
    for (;;) {
        while (at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma)) {
            advance();
        }
        if (atKeyword(Keyword::End) || at(Tok::EndOfFile)) {
            expectEnd(opening);
            break;
        }
        switch (blockKind) {
        case NodeKind::PropertiesBlock:
            members.push_back(&parseDeclaration(NodeKind::Property));
            break;
        case NodeKind::MethodsBlock:
            if (atKeyword(Keyword::Function)) {
                members.push_back(&parseFunction(attributes, true));
            } else {
                members.push_back(&parseMethodSignature());
            }
            break;
        case NodeKind::EventsBlock: {
            if (!at(Tok::Identifier) || token_.keyword != Keyword::None) {
                fail(token_, "expected an event name but found " + describe(token_));
            }
            auto const& name = tokenLeaf(NodeKind::Identifier);
            advance();
            members.push_back(&make(fields(NodeKind::Event, name), {Single{&name}}));
            expectStatementEnd();
            break;
        }
        default: {
            if (!at(Tok::Identifier) || token_.keyword != Keyword::None) {
                fail(token_, "expected an enumeration member but found " + describe(token_));
            }
            auto const& name = tokenLeaf(NodeKind::Identifier);
            advance();
            NodeList arguments;
            if (at(Tok::LParen)) {
                advance();
                arguments = parseArguments(Tok::RParen, "')'");
            }
            members.push_back(&make(fields(NodeKind::EnumerationMember, name), {Single{&name}, list(arguments)}));
            expectStatementEnd();
            break;
        }
        }
    }
    return make(fields(blockKind, opening), {list(attributes), list(members)});
}

Node const* Parser::parseDimensions()
{
    if (!at(Tok::LParen)) {
        return nullptr;
    }
    auto const start = token_;
    advance();
    NodeList entries;
    for (;;) {
        if (at(Tok::Colon)) {
            entries.push_back(&make(fields(NodeKind::Colon, token_)));
        } else if (at(Tok::Number)) {
            entries.push_back(&tokenLeaf(NodeKind::Number));
        } else {
            fail(token_, "expected a size (a number or ':') but found " + describe(token_));
        }
        advance();
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        expect(Tok::RParen, "',' or ')' in a size");
        break;
    }
    return &make(fields(NodeKind::Dimensions, start), {list(entries)});
}

// `name (dims) Class {validators} = default`, each part but the name optional: properties and arguments.
Node const& Parser::parseDeclaration(NodeKind kind)
{
    Depth depth(*this);
    auto const& name = parseDottedName();
    auto const* dimensions = parseDimensions();
    Node const* className = nullptr;
    if (at(Tok::Identifier) && token_.keyword == Keyword::None) {
        className = &parseDottedName();
    }
    NodeList validators;
    if (at(Tok::LBrace)) {
        advance();
        validators = parseArguments(Tok::RBrace, "'}'");
    }
    Node const* defaultValue = nullptr;
    if (at(Tok::Assign)) {
        advance();
        defaultValue = &parseExpression();
    }
    expectStatementEnd();
    return make(fields(kind, name),
                {Single{&name}, Single{dimensions}, Single{className}, list(validators), Single{defaultValue}});
}

FunctionHeader Parser::parseFunctionHeader()
{
    FunctionHeader header;
    header.start = token_;
    auto plainName = [&] {
        if (!at(Tok::Identifier) || token_.keyword != Keyword::None) {
            fail(token_, "expected a name but found " + describe(token_));
        }
        auto const& name = tokenLeaf(NodeKind::Identifier);
        advance();
        return &name;
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
            header.outputs.push_back(plainName());
        }
        expect(Tok::Assign, "'=' after the output list");
        header.name = &parseDottedName();
    } else {
        auto const& first = parseDottedName();
        if (at(Tok::Assign)) {
            if (first.kind() != NodeKind::Identifier) {
                fail(token_, "expected a name for the output but found a dotted name");
            }
            advance();
            header.outputs.push_back(&first);
            header.name = &parseDottedName();
        } else {
            header.name = &first;
        }
    }
    // A dotted function name (get.Prop, set.Prop) is one name.
    if (header.name->kind() == NodeKind::DottedName) {
        auto nameSpec = fields(NodeKind::Identifier, *header.name);
        nameSpec.text = header.name->identifier().getString();
        header.name = &tree_.make(nameSpec, {});
    }
    if (at(Tok::LParen)) {
        advance();
        for (;;) {
            if (at(Tok::RParen) && header.inputs.empty()) {
                advance();
                break;
            }
            auto const argumentStart = token_;
            Node const* identifier = nullptr;
            Node const* ignored = nullptr;
            if (at(Tok::Not)) {
                ignored = &make(fields(NodeKind::Ignored, token_));
                advance();
            } else {
                identifier = plainName();
            }
            header.inputs.push_back(
                &make(fields(NodeKind::InputArgument, argumentStart), {Single{identifier}, Single{ignored}}));
            if (at(Tok::Comma)) {
                advance();
                continue;
            }
            expect(Tok::RParen, "',' or ')' in the input list");
            break;
        }
    }
    return header;
}

Node const& Parser::parseMethodSignature()
{
    auto header = parseFunctionHeader();
    expectStatementEnd();
    return make(fields(NodeKind::MethodSignature, header.start),
                {list(header.outputs), Single{header.name}, list(header.inputs)});
}

bool Parser::atArgumentsBlock()
{
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
    // `arguments (Input)` opens a block; `arguments(1)` indexes a variable.
    auto const saved = mark();
    advance();
    advance();
    bool const isBlock = at(Tok::Identifier) && token_.keyword == Keyword::None &&
                         (atWord("Input") || atWord("Output") || atWord("Repeating")) && peek().kind == Tok::RParen;
    reset(saved);
    return isBlock;
}

Node const& Parser::parseArgumentsBlock()
{
    Depth depth(*this);
    auto const opening = token_;
    advance();
    auto const attributes = parseAttributeList();
    NodeList declarations;
    for (;;) {
        while (at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma)) {
            advance();
        }
        if (atKeyword(Keyword::End) || at(Tok::EndOfFile)) {
            expectEnd(opening);
            break;
        }
        declarations.push_back(&parseDeclaration(NodeKind::ArgumentDeclaration));
    }
    return make(fields(NodeKind::ArgumentsBlock, opening), {list(attributes), list(declarations)});
}

// Looks ahead over the following functions to find whether this file closes functions with `end`, then returns to
// where it was. Only needed while a function body meets `function` before the question is settled.
void Parser::settleFunctionEnds()
{
    auto const saved = mark();
    auto const savedDepth = depth_;
    while (functionEnds_ == FunctionEnds::Unknown) {
        advance();  // `function`
        parseFunctionHeader();
        while (atArgumentsBlock()) {
            parseArgumentsBlock();
        }
        parseStatements();
        if (atKeyword(Keyword::End)) {
            functionEnds_ = FunctionEnds::Used;
        } else if (at(Tok::EndOfFile)) {
            functionEnds_ = FunctionEnds::Omitted;
        } else if (!atKeyword(Keyword::Function)) {
            unexpected();
        }
    }
    depth_ = savedDepth;
    reset(saved);
}

void Parser::parseFunctionBody(Token const& opening, NodeList& body, NodeList& nested)
{
    for (;;) {
        while (at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma)) {
            advance();
        }
        if (!atArgumentsBlock()) {
            break;
        }
        body.push_back(&parseArgumentsBlock());
    }
    for (;;) {
        auto statements = parseStatements();
        body.insert(body.end(), statements.begin(), statements.end());
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
        nested.push_back(&parseFunction({}, false));
    }
}

Node const& Parser::parseFunction(std::span<Node const* const> methodAttributes, bool isMethod)
{
    Depth depth(*this);
    auto const opening = token_;
    advance();
    auto const header = parseFunctionHeader();
    NodeList body;
    NodeList nested;
    parseFunctionBody(opening, body, nested);
    auto const kind = isMethod ? NodeKind::MethodDefinition : NodeKind::FunctionDefinition;
    std::vector<Slot> slots{Single{}, Single{},           Single{},   Single{},           Single{},
                            list(header.outputs), Single{header.name}, list(header.inputs), Single{},
                            list(body),           list(nested)};
    if (isMethod) {
        slots.emplace_back(Reference{methodAttributes});
    }
    return tree_.make(fields(kind, opening), slots);
}

// ===================================================================== statements

NodeList Parser::parseStatements()
{
    Depth depth(*this);
    NodeList statements;
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
                statements.push_back(&make(fields(NodeKind::EmptyStatement, token_)));
            }
            advance();
            continue;
        case Tok::EndOfFile:
            return statements;
        case Tok::Identifier:
            switch (token_.keyword) {
            case Keyword::End:
            case Keyword::Else:
            case Keyword::Elseif:
            case Keyword::Case:
            case Keyword::Otherwise:
            case Keyword::Catch:
            case Keyword::Function:
                return statements;
            default:
                break;
            }
            break;
        default:
            break;
        }
        statements.push_back(&parseStatement());
    }
}

void Parser::expectStatementEnd()
{
    if (atStatementEnd() || atKeyword(Keyword::End)) {
        return;
    }
    fail(token_, "expected the end of the statement but found " + describe(token_));
}

Node const& Parser::parseStatement()
{
    switch (token_.keyword) {
    case Keyword::If: return parseIf();
    case Keyword::For:
    case Keyword::Parfor: return parseLoop();
    case Keyword::While: return parseWhile();
    case Keyword::Switch: return parseSwitch();
    case Keyword::Try: return parseTry();
    case Keyword::Global: return parseNameList(NodeKind::GlobalStatement);
    case Keyword::Persistent: return parseNameList(NodeKind::PersistentStatement);
    case Keyword::Return:
    case Keyword::Break:
    case Keyword::Continue: {
        auto const kind = token_.keyword == Keyword::Return  ? NodeKind::Return
                          : token_.keyword == Keyword::Break ? NodeKind::Break
                                                             : NodeKind::Continue;
        auto const& leaf = make(fields(kind, token_));
        advance();
        expectStatementEnd();
        return leaf;
    }
    case Keyword::Classdef: fail(token_, "'classdef' must be the first statement of a file");
    case Keyword::None:
        if (at(Tok::Identifier) && !hasPeeked_ && lexer_.startsCommand(token_)) {
            return parseCommand();
        }
        return parseExpressionStatement();
    default: unexpected();
    }
}

Node const& Parser::parseCommand()
{
    auto const& command = tokenLeaf(NodeKind::Identifier);
    auto const words = lexer_.commandWords();
    NodeList arguments;
    arguments.reserve(words.size());
    for (auto const& word : words) {
        Token at;
        at.line = word.line;
        at.column = word.column;
        arguments.push_back(&textLeaf(NodeKind::CommandArgument, at, word.text));
    }
    advance();
    expectStatementEnd();
    return make(fields(NodeKind::CommandStatement, command), {Single{&command}, list(arguments)});
}

Node const& Parser::parseExpressionStatement()
{
    auto const start = token_;
    auto const& expression = parseExpression();
    if (!at(Tok::Assign)) {
        expectStatementEnd();
        return make(fields(NodeKind::ExpressionStatement, expression), {Single{&expression}});
    }
    advance();
    if (expression.kind() == NodeKind::Matrix && start.kind == Tok::LBracket) {
        // [a, ~, b] = ...: the targets are the elements of the matrix's one row.
        auto const rows = expression.list(0, 1);
        if (rows.size() > 1) {
            fail(start, "the targets of a multiple assignment must be on one row");
        }
        auto const targets = rows.empty() ? std::span<Node const* const>() : rows.front()->list(0, 1);
        for (auto const* target : targets) {
            if (!isAssignable(*target) && target->kind() != NodeKind::Ignored) {
                fail(start, "invalid target in a multiple assignment");
            }
        }
        auto const& value = parseExpression();
        expectStatementEnd();
        return make(fields(NodeKind::MultipleAssignment, start), {List{targets}, Single{&value}});
    }
    if (!isAssignable(expression)) {
        fail(start, "the left side of '=' cannot be assigned to");
    }
    auto const& value = parseExpression();
    expectStatementEnd();
    return make(fields(NodeKind::Assignment, start), {Single{&expression}, Single{&value}});
}

Node const& Parser::parseIf()
{
    auto const opening = token_;
    NodeList clauses;
    clauses.push_back(&parseClause(NodeKind::IfClause, true));
    while (atKeyword(Keyword::Elseif)) {
        clauses.push_back(&parseClause(NodeKind::ElseifClause, true));
    }
    if (atKeyword(Keyword::Else)) {
        clauses.push_back(&parseClause(NodeKind::ElseClause, false));
    }
    expectEnd(opening);
    return make(fields(NodeKind::IfStatement, opening), {list(clauses)});
}

// One clause of an if or switch statement, at its keyword: the keyword, the
// expression after it (none for else and otherwise), then the statements up
// to the next clause or the end.
Node const& Parser::parseClause(NodeKind kind, bool withExpression)
{
    auto const clauseStart = token_;
    advance();
    if (!withExpression) {
        auto const body = parseStatements();
        return make(fields(kind, clauseStart), {list(body)});
    }
    auto const& expression = parseExpression();
    auto const body = parseStatements();
    return make(fields(kind, clauseStart), {Single{&expression}, list(body)});
}

Node const& Parser::parseLoop()
{
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
    if (!at(Tok::Identifier) || token_.keyword != Keyword::None) {
        fail(token_, "expected the loop variable but found " + describe(token_));
    }
    auto const& variable = tokenLeaf(NodeKind::Identifier);
    advance();
    expect(Tok::Assign, "'=' after the loop variable");
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
    auto const body = parseStatements();
    expectEnd(opening);
    if (isParfor) {
        return make(fields(NodeKind::ParforStatement, opening),
                    {Single{&variable}, Single{&range}, Single{workers}, list(body)});
    }
    return make(fields(NodeKind::ForStatement, opening), {Single{&variable}, Single{&range}, list(body)});
}

Node const& Parser::parseWhile()
{
    auto const opening = token_;
    advance();
    auto const& condition = parseExpression();
    auto const body = parseStatements();
    expectEnd(opening);
    return make(fields(NodeKind::WhileStatement, opening), {Single{&condition}, list(body)});
}

Node const& Parser::parseSwitch()
{
    auto const opening = token_;
    advance();
    auto const& subject = parseExpression();
    NodeList clauses;
    while (at(Tok::Newline) || at(Tok::Semicolon) || at(Tok::Comma)) {
        advance();
    }
    while (atKeyword(Keyword::Case)) {
        clauses.push_back(&parseClause(NodeKind::CaseClause, true));
    }
    if (atKeyword(Keyword::Otherwise)) {
        clauses.push_back(&parseClause(NodeKind::OtherwiseClause, false));
    }
    expectEnd(opening);
    return make(fields(NodeKind::SwitchStatement, opening), {Single{&subject}, list(clauses)});
}

Node const& Parser::parseTry()
{
    auto const opening = token_;
    advance();
    auto const body = parseStatements();
    Node const* catchClause = nullptr;
    if (atKeyword(Keyword::Catch)) {
        auto const clauseStart = token_;
        advance();
        // `catch err` names the caught error only when the name stands alone on the catch line.
        Node const* variable = nullptr;
        if (at(Tok::Identifier) && token_.keyword == Keyword::None) {
            auto const next = peek().kind;
            if (next == Tok::Newline || next == Tok::Semicolon || next == Tok::Comma || next == Tok::EndOfFile) {
                variable = &tokenLeaf(NodeKind::Identifier);
                advance();
            }
        }
        auto const handler = parseStatements();
        catchClause = &make(fields(NodeKind::CatchClause, clauseStart), {Single{variable}, list(handler)});
    }
    expectEnd(opening);
    return make(fields(NodeKind::TryStatement, opening), {list(body), Single{catchClause}});
}

Node const& Parser::parseNameList(NodeKind kind)
{
    auto const opening = token_;
    advance();
    NodeList names;
    while (at(Tok::Identifier) && token_.keyword == Keyword::None) {
        names.push_back(&tokenLeaf(NodeKind::Identifier));
        advance();
    }
    expectStatementEnd();
    return make(fields(kind, opening), {list(names)});
}

// ===================================================================== expressions

Node const& Parser::parseExpression()
{
    Depth depth(*this);
    return parseBinary(0);
}

// Inside [] and {}, white space separates elements: `[a -b]` has two elements, `[a - b]` one, `[f (1)]` two.
bool Parser::matrixElementEndsBefore() const noexcept
{
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

Node const& Parser::parseBinary(int minimumPrecedence)
{
    Node const* left = minimumPrecedence <= rangePrecedence ? &parseRange() : &parseUnary();
    for (;;) {
        auto const level = binaryLevelOf(token_.kind);
        if (!level || level->precedence < minimumPrecedence || matrixElementEndsBefore()) {
            return *left;
        }
        advance();
        auto const& right = parseBinary(level->precedence + 1);
        left = &make(fields(level->kind, *left, level->op), {Single{left}, Single{&right}});
    }
}

// a, a:b or a:b:c; the operands bind tighter than the colon.
Node const& Parser::parseRange()
{
    auto const& first = parseBinary(rangePrecedence + 1);
    if (!at(Tok::Colon)) {
        return first;
    }
    advance();
    auto const& second = parseBinary(rangePrecedence + 1);
    if (!at(Tok::Colon)) {
        return make(fields(NodeKind::Range, first), {Single{&first}, Single{}, Single{&second}});
    }
    advance();
    auto const& third = parseBinary(rangePrecedence + 1);
    return make(fields(NodeKind::Range, first), {Single{&first}, Single{&second}, Single{&third}});
}

Node const& Parser::parseUnary()
{
    Operator op = Operator::None;
    switch (token_.kind) {
    case Tok::Minus: op = Operator::UnaryMinus; break;
    case Tok::Plus: op = Operator::UnaryPlus; break;
    case Tok::Not: op = Operator::Not; break;
    default: return parsePower();
    }
    if (op == Operator::Not && inMatrix_ && (peek().kind == Tok::Comma || peek().kind == Tok::RBracket)) {
        // An ignored output in `[~, b] = f()`.
        auto const& ignored = make(fields(NodeKind::Ignored, token_));
        advance();
        return ignored;
    }
    Depth depth(*this);
    auto const start = token_;
    advance();
    auto const& operand = parseUnary();
    return make(fields(NodeKind::UnaryOperation, start, op), {Single{&operand}});
}

Node const& Parser::parsePower()
{
    Node const* left = &parsePostfix();
    while (at(Tok::Caret) || at(Tok::DotCaret)) {
        auto const op = at(Tok::Caret) ? Operator::Power : Operator::ElementPower;
        advance();
        auto const& right = parsePowerOperand();
        left = &make(fields(NodeKind::BinaryOperation, *left, op), {Single{left}, Single{&right}});
    }
    return *left;
}

// The exponent: a postfix expression, possibly signed or negated (2^-1).
Node const& Parser::parsePowerOperand()
{
    Operator op = Operator::None;
    switch (token_.kind) {
    case Tok::Minus: op = Operator::UnaryMinus; break;
    case Tok::Plus: op = Operator::UnaryPlus; break;
    case Tok::Not: op = Operator::Not; break;
    default: return parsePostfix();
    }
    Depth depth(*this);
    auto const start = token_;
    advance();
    auto const& operand = parsePowerOperand();
    return make(fields(NodeKind::UnaryOperation, start, op), {Single{&operand}});
}

NodeList Parser::parseArguments(Tok closing, char const* closingText)
{
    auto const savedMatrix = std::exchange(inMatrix_, false);
    ++indexDepth_;
    NodeList arguments;
    if (at(closing)) {
        advance();
    } else {
        for (;;) {
            auto const next = peek().kind;
            if (at(Tok::Colon) && (next == Tok::Comma || next == closing)) {
                arguments.push_back(&make(fields(NodeKind::Colon, token_)));
                advance();
            } else if (at(Tok::Identifier) && token_.keyword == Keyword::None && next == Tok::Assign) {
                // name=value argument
                auto const& name = tokenLeaf(NodeKind::Identifier);
                advance();
                advance();
                auto const& value = parseExpression();
                arguments.push_back(&make(fields(NodeKind::Assignment, name), {Single{&name}, Single{&value}}));
            } else {
                arguments.push_back(&parseExpression());
            }
            if (at(Tok::Comma)) {
                advance();
                continue;
            }
            if (!at(closing)) {
                fail(token_, std::string("expected ',' or ") + closingText + " but found " + describe(token_));
            }
            advance();
            break;
        }
    }
    --indexDepth_;
    inMatrix_ = savedMatrix;
    return arguments;
}

Node const& Parser::parsePostfix()
{
    Node const* expression = &parsePrimary();
    for (;;) {
        if (matrixElementEndsBefore()) {
            return *expression;
        }
        switch (token_.kind) {
        case Tok::LParen:
        case Tok::LBrace: {
            bool const paren = at(Tok::LParen);
            advance();
            auto const arguments = paren ? parseArguments(Tok::RParen, "')'") : parseArguments(Tok::RBrace, "'}'");
            expression = &make(fields(paren ? NodeKind::ParenIndex : NodeKind::BraceIndex, *expression),
                               {Single{expression}, list(arguments)});
            break;
        }
        case Tok::Dot: {
            advance();
            if (at(Tok::Identifier)) {
                auto const& field = tokenLeaf(NodeKind::Identifier);
                advance();
                expression = &make(fields(NodeKind::FieldAccess, *expression), {Single{expression}, Single{&field}});
            } else if (at(Tok::LParen)) {
                advance();
                auto const savedMatrix = std::exchange(inMatrix_, false);
                auto const& field = parseExpression();
                expect(Tok::RParen, "')' after a dynamic field name");
                inMatrix_ = savedMatrix;
                expression = &make(fields(NodeKind::DynamicField, *expression), {Single{expression}, Single{&field}});
            } else {
                fail(token_, "expected a field name after '.' but found " + describe(token_));
            }
            break;
        }
        case Tok::Transpose:
        case Tok::DotTranspose: {
            auto const op = at(Tok::Transpose) ? Operator::Transpose : Operator::DotTranspose;
            advance();
            expression = &make(fields(NodeKind::PostfixOperation, *expression, op), {Single{expression}});
            break;
        }
        default:
            return *expression;
        }
    }
}

Node const& Parser::parseMatrix(NodeKind kind, Tok closing, char const* closingText)
{
    auto const opening = token_;
    advance();
    auto const savedMatrix = std::exchange(inMatrix_, true);
    NodeList rows;
    NodeList elements;
    auto finishRow = [&] {
        if (!elements.empty()) {
            rows.push_back(&make(fields(NodeKind::Row, *elements.front()), {list(elements)}));
            elements.clear();
        }
    };
    for (;;) {
        if (at(closing)) {
            finishRow();
            advance();
            break;
        }
        if (at(Tok::Semicolon) || at(Tok::Newline)) {
            finishRow();
            advance();
            continue;
        }
        if (at(Tok::Comma)) {
            advance();
            continue;
        }
        if (at(Tok::EndOfFile)) {
            failUnclosed(opening, closingText);
        }
        elements.push_back(&parseExpression());
        // After an element: a separator, the closing bracket, or (white space having separated them) the next element.
        if (!at(Tok::Comma) && !at(Tok::Semicolon) && !at(Tok::Newline) && !at(closing) && !token_.spaceBefore) {
            fail(token_, std::string("expected ',', ';' or ") + closingText + " but found " + describe(token_));
        }
    }
    inMatrix_ = savedMatrix;
    return make(fields(kind, opening), {list(rows)});
}

Node const& Parser::parseAnonymousFunction(Token const& at)
{
    advance();  // (
    NodeList parameters;
    if (this->at(Tok::RParen)) {
        advance();
    } else {
        for (;;) {
            auto const parameterStart = token_;
            Node const* identifier = nullptr;
            Node const* ignored = nullptr;
            if (this->at(Tok::Not)) {
                ignored = &make(fields(NodeKind::Ignored, token_));
            } else if (this->at(Tok::Identifier) && token_.keyword == Keyword::None) {
                identifier = &tokenLeaf(NodeKind::Identifier);
            } else {
                fail(token_, "expected a parameter name but found " + describe(token_));
            }
            advance();
            parameters.push_back(
                &make(fields(NodeKind::InputArgument, parameterStart), {Single{identifier}, Single{ignored}}));
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
    return make(fields(NodeKind::AnonymousFunction, at), {list(parameters), Single{&body}});
}

Node const& Parser::parsePrimary()
{
    switch (token_.kind) {
    case Tok::Identifier: {
        if (token_.keyword == Keyword::End && indexDepth_ > 0) {
            auto const& leaf = make(fields(NodeKind::End, token_));
            advance();
            return leaf;
        }
        if (token_.keyword != Keyword::None) {
            fail(token_, "unexpected keyword '" + std::string(keywordText(token_.keyword)) + "' in an expression");
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
    case Tok::String: {
        auto const& leaf = textLeaf(at(Tok::CharString) ? NodeKind::CharacterString : NodeKind::String, token_,
                                    decodeQuoted(lexer_.text(token_)));
        advance();
        return leaf;
    }
    case Tok::LParen: {
        auto const opening = token_;
        advance();
        auto const savedMatrix = std::exchange(inMatrix_, false);
        auto const& inner = parseExpression();
        expect(Tok::RParen, "')'");
        inMatrix_ = savedMatrix;
        return make(fields(NodeKind::Parenthesized, opening), {Single{&inner}});
    }
    case Tok::LBracket: return parseMatrix(NodeKind::Matrix, Tok::RBracket, "']'");
    case Tok::LBrace: return parseMatrix(NodeKind::Cell, Tok::RBrace, "'}'");
    case Tok::At: {
        auto const start = token_;
        advance();
        if (at(Tok::LParen)) {
            return parseAnonymousFunction(start);
        }
        auto const& name = parseDottedName();
        return make(fields(NodeKind::FunctionHandle, start), {Single{&name}});
    }
    case Tok::Question: {
        auto const start = token_;
        advance();
        auto const& name = parseDottedName();
        auto querySpec = fields(NodeKind::MetaclassQuery, start);
        querySpec.text = name.identifier().getString();
        return tree_.make(querySpec, {});
    }
    default: unexpected();
    }
}

}  // namespace

ParseOutcome parse(std::string_view code)
{
    ParseOutcome outcome;
    // Trees take a few times the size of their code; reserving that spares the arena most of its growth steps.
    constexpr std::size_t largestReservation = std::size_t{64} << 20;
    outcome.tree = std::make_unique<astapi::SyntaxTree>(std::min(code.size(), largestReservation / 4) * 4);
    if (code.size() >= 0xFFFFFFFFu) {
        outcome.errors.push_back({1, 1, "the file is too large to analyse"});
    } else {
        try {
            Parser parser(code, *outcome.tree);
            auto const& root = parser.parseFile();
            outcome.tree->setRoot(root);
            outcome.ownerName = parser.ownerName();
            return outcome;
        } catch (SyntaxFailure const& failure) {
            outcome.errors.push_back({failure.line, failure.column, failure.message});
        }
    }
    // A fresh tree: the failed parse may have left unreachable nodes behind.
    outcome.tree = std::make_unique<astapi::SyntaxTree>();
    outcome.tree->setRoot(outcome.tree->make(NodeFields{NodeKind::File, 1, 1, Operator::None, false, {}}, {List{}}));
    return outcome;
}

}  // namespace ca::detail

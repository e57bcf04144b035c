#pragma once
// Text forms of syntax trees for assertions: a compact S-expression of the whole tree, and the definitions found.

#include "platform/codeanalysis/SyntaxTree.hpp"

#include <sstream>
#include <string>
#include <vector>

namespace ca::testing {

inline std::string narrow(std::u16string_view text) {
    std::string out;
    for (char16_t c : text) {
        out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    }
    return out;
}

inline char const* symbol(astapi::Operator op) {
    using astapi::Operator;
    switch (op) {
    case Operator::Plus:
    case Operator::UnaryPlus:
        return "+";
    case Operator::Minus:
    case Operator::UnaryMinus:
        return "-";
    case Operator::Times:
        return "*";
    case Operator::RightDivide:
        return "/";
    case Operator::LeftDivide:
        return "\\";
    case Operator::Power:
        return "^";
    case Operator::ElementTimes:
        return ".*";
    case Operator::ElementRightDivide:
        return "./";
    case Operator::ElementLeftDivide:
        return ".\\";
    case Operator::ElementPower:
        return ".^";
    case Operator::ElementAnd:
        return "&";
    case Operator::ElementOr:
        return "|";
    case Operator::Equal:
        return "==";
    case Operator::NotEqual:
        return "~=";
    case Operator::Less:
        return "<";
    case Operator::LessEqual:
        return "<=";
    case Operator::Greater:
        return ">";
    case Operator::GreaterEqual:
        return ">=";
    case Operator::AndAnd:
        return "&&";
    case Operator::OrOr:
        return "||";
    case Operator::Not:
        return "~";
    case Operator::Transpose:
        return "'";
    case Operator::DotTranspose:
        return ".'";
    case Operator::None:
        break;
    }
    return "";
}

// (Kind text child child ...) with leaves written as Kind:text and operator nodes as Kind[op].
inline void dump(astapi::Node const& node, std::ostringstream& out) {
    auto text = narrow(node.identifier().getString());
    if (node.op() != astapi::Operator::None) {
        text = std::string("[") + symbol(node.op()) + "]";
    }
    if (node.children().empty()) {
        out << node.kind();
        if (!text.empty()) {
            out << (text.front() == '[' ? "" : ":") << text;
        }
        return;
    }
    out << '(' << node.kind();
    if (!text.empty()) {
        out << (text.front() == '[' ? "" : ":") << text;
    }
    for (auto const* child : node.children()) {
        out << ' ';
        dump(*child, out);
    }
    out << ')';
}

inline std::string dump(astapi::Node const& node) {
    std::ostringstream out;
    dump(node, out);
    return out.str();
}

// Names of every function, method and class definition, depth first: "function f", "method C.m", "class C".
inline void collectDefinitions(astapi::Node const& node, std::vector<std::string>& found) {
    using astapi::NodeKind;
    if (node.kind() == NodeKind::FunctionDefinition && node.child(7) != nullptr) {
        found.push_back("function " + narrow(node.child(7)->identifier().getString()));
    } else if (node.kind() == NodeKind::MethodDefinition && node.child(7) != nullptr) {
        found.push_back("method " + narrow(node.child(7)->identifier().getString()));
    } else if (node.kind() == NodeKind::ClassDefinition && node.child(8) != nullptr) {
        found.push_back("class " + narrow(node.child(8)->identifier().getString()));
    } else if (node.kind() == NodeKind::MethodSignature && node.child(2) != nullptr) {
        found.push_back("signature " + narrow(node.child(2)->identifier().getString()));
    }
    for (auto const* child : node.children()) {
        collectDefinitions(*child, found);
    }
}

inline std::vector<std::string> definitions(astapi::Node const& root) {
    std::vector<std::string> found;
    collectDefinitions(root, found);
    return found;
}

}  // namespace ca::testing

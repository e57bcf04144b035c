#pragma once
// Reads JSON text held in node properties (for example "circularReferences")
// into foundation::json values. A small recursive-descent reader that reports
// failures as result codes and never throws (short of running out of memory),
// so that a malformed property can simply be ignored by its reader.
//
// Integers normally arrive as doubles. An object with a "qztype" member naming
// an integer type ("int64", "int32", "int16", "int8", "uint64", "uint32",
// "uint16", "uint8") has its "qzdata" member, a list of integers, read as exact
// signed (Int64) or unsigned (UInt64) values, whichever of the two members
// comes first. Elements of such a list that are not plain integers (a fraction,
// an exponent, a value outside 64 bits, a minus sign for an unsigned type) are
// read as ordinary values. The narrower types' ranges are not checked.

#include "platform/foundation/JsonValue.hpp"

#include <vector>

namespace dependency::attribute::jsonproperty {

// Result codes; the reader stops at the first failure.
enum ResultCode : int {
    Success = 0,
    UnpairedHighSurrogate = 5,     // a high surrogate escape is not followed by a second "\u" escape
    BadStringCharacter = 6,        // bad escape sequence or bad character inside a string
    QuoteExpected = 8,             // a string does not begin with a double quote
    DigitExpected = 11,            // a number has no digit where one is required, or no value can start here
    FractionDigitExpected = 12,    // no digit after the decimal point
    ExponentDigitExpected = 13,    // no digit in the exponent
    ArrayBracketExpected = 14,     // an array does not begin with '['
    ArraySeparatorExpected = 15,   // after an array element, neither ',' nor ']'
    ObjectBraceExpected = 16,      // an object does not begin with '{'
    ObjectSeparatorExpected = 17,  // after an object member, neither ',' nor '}'
    ColonExpected = 18,            // after an object key, no ':'
    UnexpectedEnd = 19,            // the input ended too early
    NestingTooDeep = 20,           // arrays and objects nested deeper than maximumNesting
};

// Arrays and objects nested deeper than this are refused rather than risking
// the stack: reading a value recurses, and so do copying and destroying it.
inline constexpr int maximumNesting = 512;

// Reads a JSON array starting exactly at `pos` (no white space is skipped
// before the '['). On success returns Success, stores the elements in `out`
// and leaves `pos` just after the closing ']'; what follows is not looked at.
// On failure returns the code and leaves `out` unchanged. `options` is reserved; pass 0.
int readArray(char const*& pos, char const* end, std::vector<foundation::json::Value>& out, int options = 0);

// Reads one JSON value after optional white space: a string, object, array,
// number, or one of the literals true, false and null. Any other character
// where a value should begin yields DigitExpected.
int readValue(char const*& pos, char const* end, foundation::json::Value& out, int options = 0);

}  // namespace dependency::attribute::jsonproperty

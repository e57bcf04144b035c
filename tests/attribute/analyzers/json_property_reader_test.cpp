#include "attribute/analyzers/JsonPropertyReader.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

namespace jp = dependency::attribute::jsonproperty;
using foundation::json::Value;

struct Read {
    int code;
    std::vector<Value> values;
    std::size_t consumed;
};

Read readArray(std::string const& text, std::vector<Value> initial = {}) {
    char const* pos = text.data();
    int const code = jp::readArray(pos, text.data() + text.size(), initial, 0);
    return {code, std::move(initial), static_cast<std::size_t>(pos - text.data())};
}

TEST(JsonPropertyReader, ResultCodes) {
    struct Case {
        std::string text;
        int code;
    };
    std::vector<Case> const cases{
        {"[]", jp::Success},
        {"", jp::UnexpectedEnd},
        {"{}", jp::ArrayBracketExpected},
        {" []", jp::ArrayBracketExpected},  // no white space before the bracket
        {"[] anything", jp::Success},
        {"[1,]", jp::DigitExpected},  // a closing bracket where a value should stand
        {"[1 2]", jp::ArraySeparatorExpected},
        {"[", jp::UnexpectedEnd},
        {"[1", jp::UnexpectedEnd},
        {"[1,", jp::UnexpectedEnd},
        {"[\"a", jp::UnexpectedEnd},
        {"[\"a\\", jp::UnexpectedEnd},
        {"[\"\\u00", jp::UnexpectedEnd},
        {"[\"a\\x\"]", jp::BadStringCharacter},
        {"[\"a\nb\"]", jp::BadStringCharacter},
        {"[\"\\u00g0\"]", jp::BadStringCharacter},
        {"[\"\\ud800x\"]", jp::UnpairedHighSurrogate},
        {"[\"\\ud800\\n\"]", jp::UnpairedHighSurrogate},
        {"[\"\\ud800\\u0041\"]", jp::BadStringCharacter},
        {"[\"\\udc00\"]", jp::BadStringCharacter},
        {"[-]", jp::DigitExpected},
        {"[-", jp::UnexpectedEnd},
        {"[+1]", jp::DigitExpected},
        {"[.5]", jp::DigitExpected},
        {"[1.]", jp::FractionDigitExpected},
        {"[1.e5]", jp::FractionDigitExpected},
        {"[1e]", jp::ExponentDigitExpected},
        {"[1e+]", jp::ExponentDigitExpected},
        {"[01]", jp::ArraySeparatorExpected},
        {"[x]", jp::DigitExpected},
        {"[tru]", jp::DigitExpected},
        {"[tr", jp::UnexpectedEnd},
        {"[{1:2}]", jp::QuoteExpected},
        {"[{\"a\" 1}]", jp::ColonExpected},
        {"[{\"a\":1 \"b\":2}]", jp::ObjectSeparatorExpected},
        {"[{\"a\":1", jp::UnexpectedEnd},
        {"[{\"qzdata\":[1,x],\"qztype\":\"int8\"}]", jp::DigitExpected},
        {"[{\"qztype\":\"int8\",\"qzdata\":[1 2]}]", jp::ArraySeparatorExpected},
        {std::string(10000, '['), jp::NestingTooDeep},
        {" \t[true , false,null, -0.5e1 ,\"x\" , [ ] ,{ }]", jp::ArrayBracketExpected},
        {"[ true , false,null, -0.5e1 ,\"x\" , [ ] ,{ } ]", jp::Success},
    };
    for (auto const& [text, code] : cases) {
        EXPECT_EQ(readArray(text).code, code) << text.substr(0, 60);
    }
}

TEST(JsonPropertyReader, FailureLeavesTheOutputAsItWas) {
    std::vector<Value> const before{Value("kept")};
    for (std::string const text : {"[\"a\", \"b\",]", "[\"a\" \"b\"]", "", "{}"}) {
        EXPECT_EQ(readArray(text, before).values, before) << text;
    }
    EXPECT_TRUE(readArray("[]", before).values.empty());
}

TEST(JsonPropertyReader, ReadsEveryValueKind) {
    Read const read = readArray(R"([true, false, null, -0.5e1, 0, 1E2, "a\"\\\/\b\f\n\r\t", "\u00e9\ud83d\ude00",)"
                                R"( [["x"]], {"k": {"n": [1]}, "b": "v"}] tail)");
    ASSERT_EQ(read.code, jp::Success);
    std::vector<Value> const expected{
        Value(true),
        Value(false),
        Value::null(),
        Value(-5.0),
        Value(0.0),
        Value(100.0),
        Value("a\"\\/\b\f\n\r\t"),
        Value("\xc3\xa9\xf0\x9f\x98\x80"),
        Value(Value::Array{Value(Value::Array{Value("x")})}),
        Value(Value::Object{{"b", Value("v")}, {"k", Value(Value::Object{{"n", Value(Value::Array{Value(1.0)})}})}}),
    };
    EXPECT_EQ(read.values, expected);
}

TEST(JsonPropertyReader, StopsRightAfterTheClosingBracket) {
    std::string const text = "[\"a\", \"b\"]] trailing";
    Read const read = readArray(text);
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(text.substr(read.consumed), "] trailing");
    EXPECT_EQ(read.values, (std::vector<Value>{Value("a"), Value("b")}));
}

TEST(JsonPropertyReader, NumbersAreDoublesAndDoNotConvertToStrings) {
    Read const read = readArray(
        "[1, 1e999, -1e999, 1e-999, 0.000000000000000000001, "
        "123456789012345678901234567890]");
    ASSERT_EQ(read.code, jp::Success);
    ASSERT_EQ(read.values.size(), 6u);
    for (auto const& value : read.values) {
        EXPECT_EQ(value.kind(), Value::Kind::Double);
    }
    EXPECT_EQ(read.values[1].asDouble(), HUGE_VAL);
    EXPECT_EQ(read.values[2].asDouble(), -HUGE_VAL);
    EXPECT_EQ(read.values[3].asDouble(), 0.0);
    EXPECT_DOUBLE_EQ(read.values[4].asDouble(), 1e-21);
    EXPECT_DOUBLE_EQ(read.values[5].asDouble(), 1.2345678901234568e29);
    try {
        (void)read.values[0].asString();
        FAIL() << "a number converted to a string";
    } catch (std::runtime_error const& error) {
        EXPECT_EQ(std::string(error.what()), "invalid conversion: double to std::string");
    }
}

TEST(JsonPropertyReader, TypedIntegerDataIsExactWhicheverMemberComesFirst) {
    struct Case {
        std::string type;
        std::string data;
        std::vector<Value> expected;
    };
    std::vector<Case> const cases{
        {"int8", "[1, -2]", {Value(1L), Value(-2L)}},
        {"int64",
         "[9223372036854775807, -9223372036854775808]",
         {Value(9223372036854775807L), Value(static_cast<long>(-9223372036854775807L - 1))}},
        {"uint64", "[18446744073709551615, 0]", {Value(18446744073709551615UL), Value(0UL)}},
        {"uint8", "[1, -1]", {Value(1UL), Value(-1.0)}},  // a minus sign is not an unsigned integer
        {"int32", "[1.5, 2, 3e1]", {Value(1.5), Value(2L), Value(30.0)}},
        {"int64", "[9223372036854775808]", {Value(9223372036854775808.0)}},  // beyond 64 bits
        {"uint16", "[\"text\", null]", {Value("text"), Value::null()}},
        {"double", "[1, 2]", {Value(1.0), Value(2.0)}},  // not an integer type: ordinary numbers
    };
    for (auto const& [type, data, expected] : cases) {
        for (std::string const& text : {"[{\"qztype\": \"" + type + "\", \"qzdata\": " + data + "}]",
                                        "[{\"qzdata\": " + data + ", \"qztype\": \"" + type + "\"}]",
                                        "[{\"qzdata\":" + data + ",\"other\":1,\"qztype\":\"" + type + "\"}]"}) {
            Read const read = readArray(text);
            ASSERT_EQ(read.code, jp::Success) << text;
            ASSERT_EQ(read.values.size(), 1u);
            Value::Object const& object = read.values[0].asObject();
            EXPECT_EQ(object.at("qztype"), Value(type)) << text;
            EXPECT_EQ(object.at("qzdata"), Value(expected)) << text;
        }
    }
    // A non-string qztype names no type, and the reader does not fail over it.
    Read const read = readArray("[{\"qzdata\": [1], \"qztype\": 8}]");
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(read.values[0].asObject().at("qzdata"), Value(Value::Array{Value(1.0)}));
}

TEST(JsonPropertyReader, ReadValueSkipsLeadingSpaceAndLeavesOutputOnFailure) {
    std::string const text = "  \"x\" rest";
    char const* pos = text.data();
    Value value;
    ASSERT_EQ(jp::readValue(pos, text.data() + text.size(), value), jp::Success);
    EXPECT_EQ(value, Value("x"));
    EXPECT_EQ(std::string(pos), " rest");

    std::string const bad = "  -";
    pos = bad.data();
    EXPECT_EQ(jp::readValue(pos, bad.data() + bad.size(), value), jp::UnexpectedEnd);
    EXPECT_EQ(value, Value("x"));
}

}  // namespace

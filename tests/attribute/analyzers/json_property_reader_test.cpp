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

// `count` copies of `open`, then `middle`, then `count` copies of `close`.
std::string nested(std::string const& open, std::string const& middle, std::string const& close, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += open;
    }
    text += middle;
    for (int i = 0; i < count; ++i) {
        text += close;
    }
    return text;
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
        {"[{\"qztype\":\"int8\",\"qzdata\":[1\"]}]", jp::ArraySeparatorExpected},  // a quote ends no integer
        {"[{\"qztype\":\"int8\",\"qzdata\":[-]}]", jp::DigitExpected},
        {"[{\"qztype\":\"int8\",\"qzdata\":[00]}]", jp::ArraySeparatorExpected},
        {"[{\"qztype\":\"int8\",\"qzdata\":[1,]}]", jp::DigitExpected},
        {"[{\"qztype\":\"int8\",\"qzdata\":[1", jp::UnexpectedEnd},
        {"[{\"qztype\":\"int8\",\"qzdata\":[1]", jp::UnexpectedEnd},
        {"[{\"qzdata\":[1],\"qztype\":\"int8\"", jp::UnexpectedEnd},
        {"[{\"a\":1,}]", jp::QuoteExpected},
        // White space and digits are ASCII only: vertical tab, form feed, a
        // no-break space and an Arabic-Indic digit are none of them.
        {"[1,\v2]", jp::DigitExpected},
        {"[\f1]", jp::DigitExpected},
        {"[\xc2\xa0"
         "1]",
         jp::DigitExpected},
        {"[\xd9\xa1]", jp::DigitExpected},
        {"[-\xd9\xa1]", jp::DigitExpected},
        {"[1.\xd9\xa1]", jp::FractionDigitExpected},
        {"[1e\xd9\xa1]", jp::ExponentDigitExpected},
        {" \r\n\t[\r\n\t1\r\n\t]", jp::ArrayBracketExpected},
        {"[\r\n\t1\r\n\t,\r\n\t2\r\n\t]", jp::Success},
        // Nesting is bounded whichever way it is built up; exactly the limit still reads.
        {std::string(10000, '['), jp::NestingTooDeep},
        {nested("[", "", "]", jp::maximumNesting), jp::Success},
        {nested("[", "", "]", jp::maximumNesting + 1), jp::NestingTooDeep},
        {"[" + nested("{\"a\":", "1", "}", jp::maximumNesting - 1) + "]", jp::Success},
        {"[" + nested("{\"a\":", "1", "}", jp::maximumNesting) + "]", jp::NestingTooDeep},
        {"[" + nested("{\"qztype\":\"int8\",\"qzdata\":[", "[1]", "]}", 255) + "]", jp::Success},
        {"[[" + nested("{\"qztype\":\"int8\",\"qzdata\":[", "[1]", "]}", 255) + "]]", jp::NestingTooDeep},
        {"[[" + nested("{\"qzdata\":[", "[1]", "],\"qztype\":\"int8\"}", 255) + "]]", jp::NestingTooDeep},
        {nested("[{\"qztype\":\"int8\",\"qzdata\":", "[1]", "}]", 100000), jp::NestingTooDeep},
        {nested("[{\"qzdata\":", "[1]", "}]", 100000), jp::NestingTooDeep},
        {" \t[true , false,null, -0.5e1 ,\"x\" , [ ] ,{ }]", jp::ArrayBracketExpected},
        {"[ true , false,null, -0.5e1 ,\"x\" , [ ] ,{ } ]", jp::Success},
    };
    for (auto const& [text, code] : cases) {
        EXPECT_EQ(readArray(text).code, code) << text.substr(0, 60);
    }
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

TEST(JsonPropertyReader, StopsRightAfterTheClosingBracketAndFailureLeavesTheOutputAsItWas) {
    std::string const text = "[\"a\", \"b\"]] trailing";
    Read const read = readArray(text);
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(text.substr(read.consumed), "] trailing");
    EXPECT_EQ(read.values, (std::vector<Value>{Value("a"), Value("b")}));

    std::vector<Value> const before{Value("kept")};
    for (std::string const bad : {"[\"a\", \"b\",]", "[\"a\" \"b\"]", "", "{}"}) {
        EXPECT_EQ(readArray(bad, before).values, before) << bad;
    }
    EXPECT_TRUE(readArray("[]", before).values.empty());
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
        Value expected;
    };
    auto list = [](std::vector<Value> elements) { return Value(std::move(elements)); };
    std::vector<Case> const cases{
        {"int8", "[1, -2]", list({Value(1L), Value(-2L)})},
        {"int64", "[9223372036854775807, -9223372036854775808]",
         list({Value(9223372036854775807L), Value(static_cast<long>(-9223372036854775807L - 1))})},
        {"uint64", "[18446744073709551615, 0]", list({Value(18446744073709551615UL), Value(0UL)})},
        {"uint8", "[1, -1]", list({Value(1UL), Value(-1.0)})},  // a minus sign is not an unsigned integer
        {"int32", "[1.5, 2, 3e1, 4E1]", list({Value(1.5), Value(2L), Value(30.0), Value(40.0)})},
        // One past the range, at both ends and unsigned: ordinary numbers.
        {"int64", "[9223372036854775808]", list({Value(9223372036854775808.0)})},
        {"int16", "[-9223372036854775809]", list({Value(-9223372036854775809.0)})},
        {"uint32", "[18446744073709551616]", list({Value(18446744073709551616.0)})},
        {"uint64", "[99999999999999999999]", list({Value(99999999999999999999.0)})},
        {"int8", "[0, -0, 10, 100]", list({Value(0L), Value(0L), Value(10L), Value(100L)})},
        {"uint16", "[\"text\", null]", list({Value("text"), Value::null()})},
        {"int8", "[[1], []]", list({list({Value(1.0)}), list({})})},  // nested lists are ordinary values
        {"int8", "[ ]", list({})},
        {"int8", "5", Value(5.0)},                             // not a list: an ordinary value
        {"double", "[1, 2]", list({Value(1.0), Value(2.0)})},  // not an integer type: ordinary numbers
    };
    for (auto const& [type, data, expected] : cases) {
        for (std::string const& text : {"[{\"qztype\": \"" + type + "\", \"qzdata\": " + data + "}]",
                                        "[{\"qzdata\": " + data + ", \"qztype\": \"" + type + "\"}]",
                                        "[{\"qzdata\":" + data + ",\"other\":1,\"qztype\":\"" + type + "\"}]"}) {
            Read const read = readArray(text);
            ASSERT_EQ(read.code, jp::Success) << text;
            ASSERT_EQ(read.values.size(), 1u);
            Value::Object const& object = read.values[0].asObject();
            EXPECT_EQ(object.size(), text.find("other") == std::string::npos ? 2u : 3u) << text;
            EXPECT_EQ(object.at("qztype"), Value(type)) << text;
            EXPECT_EQ(object.at("qzdata"), expected) << text;
        }
    }
    // A non-string qztype names no type, and the reader does not fail over it.
    Read const read = readArray("[{\"qzdata\": [1], \"qztype\": 8}]");
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(read.values[0].asObject().at("qzdata"), Value(Value::Array{Value(1.0)}));
}

TEST(JsonPropertyReader, TypedDataAsAWholeObjectAndWithRepeatedMembers) {
    Value const expected(
        Value::Object{{"qzdata", Value(Value::Array{Value(1L), Value(-2L)})}, {"qztype", Value("int8")}});
    for (std::string const text :
         {R"([{"qztype":"int8","qzdata":[1,-2]}])", R"([{"qzdata":[1,-2],"qztype":"int8"}])"}) {
        Read const read = readArray(text);
        ASSERT_EQ(read.code, jp::Success) << text;
        EXPECT_EQ(read.values, std::vector<Value>{expected}) << text;
        EXPECT_EQ(read.consumed, text.size()) << text;
    }

    // A member given twice counts as given last, and the data always follows
    // the latest type that names an integer type, whichever came first; a
    // later type naming no integer type leaves the earlier one.
    struct Case {
        std::string object;
        Value data;
    };
    std::vector<Case> const cases{
        {R"({"qzdata":[1,-1],"qztype":"int8","qztype":"uint8"})", Value(Value::Array{Value(1UL), Value(-1.0)})},
        {R"({"qzdata":[1,-1],"qztype":"uint8","qztype":"int8"})", Value(Value::Array{Value(1L), Value(-1L)})},
        {R"({"qztype":"int8","qzdata":[1,-1],"qztype":"uint8"})", Value(Value::Array{Value(1UL), Value(-1.0)})},
        {R"({"qzdata":[1],"qztype":"int8","qztype":"text"})", Value(Value::Array{Value(1L)})},
        {R"({"qztype":"int8","qztype":"text","qzdata":[1,-1]})", Value(Value::Array{Value(1L), Value(-1L)})},
        {R"({"qztype":"uint8","qzdata":[1],"qztype":8,"qztype":"double"})", Value(Value::Array{Value(1UL)})},
        {R"({"qztype":"text","qzdata":[1]})", Value(Value::Array{Value(1.0)})},
        {R"({"qztype":"int64","qzdata":[9223372036854775808, -1],"qztype":"uint64"})",
         Value(Value::Array{Value(9223372036854775808UL), Value(-1.0)})},
        {R"({"qztype":"uint8","qzdata":[1,-1,18446744073709551615,"1"],"qztype":"int8"})",
         Value(Value::Array{Value(1L), Value(-1L), Value(18446744073709551615.0), Value("1")})},
        {R"({"qztype":"int8","qzdata":[1],"qzdata":[2]})", Value(Value::Array{Value(2L)})},
        {R"({"qzdata":[1],"qztype":"uint8","qzdata":[2]})", Value(Value::Array{Value(2UL)})},
        {R"({"qzdata":[1],"qztype":"int8","qzdata":[2],"qztype":"uint8"})", Value(Value::Array{Value(2UL)})},
    };
    for (auto const& [object, data] : cases) {
        Read const read = readArray("[" + object + "]");
        ASSERT_EQ(read.code, jp::Success) << object;
        EXPECT_EQ(read.values.at(0).asObject().at("qzdata"), data) << object;
    }

    // Data holding objects that hold data: every level comes out typed, the
    // type coming after the data at each of them.
    std::string deep = "[";
    int const levels = 200;
    for (int i = 0; i < levels; ++i) {
        deep += R"({"qzdata":[1, )";
    }
    deep += "2";
    for (int i = 0; i < levels; ++i) {
        deep += R"(],"qztype":"int8"})";
    }
    deep += "]";
    Read const deepRead = readArray(deep);
    ASSERT_EQ(deepRead.code, jp::Success);
    Value const* level = &deepRead.values.at(0);
    for (int i = 0; i < levels; ++i) {
        Value::Array const& data = level->asObject().at("qzdata").asArray();
        ASSERT_EQ(data.size(), 2u) << "level " << i;
        EXPECT_EQ(data[0], Value(1L)) << "level " << i;
        level = &data[1];
    }
    EXPECT_EQ(*level, Value(2L));

    // Only an object's own members count: a type in an enclosing or a nested
    // object leaves the data alone.
    Read const read =
        readArray(R"([{"qztype":"int8","inner":{"qzdata":[1]}}, {"qzdata":[1],"inner":{"qztype":"int8"}}])");
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(read.values.at(0).asObject().at("inner").asObject().at("qzdata"), Value(Value::Array{Value(1.0)}));
    EXPECT_EQ(read.values.at(1).asObject().at("qzdata"), Value(Value::Array{Value(1.0)}));
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

#include "attribute/analyzers/JsonPropertyReader.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

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

template <class... V>
std::vector<Value> values(V... v) {
    return {Value(v)...};
}

template <class... V>
Value list(V... v) {
    return Value(values(v...));
}

TEST(JsonPropertyReader, ResultCodes) {
    std::string const intData = "[{\"qztype\":\"int8\",\"qzdata\":";
    std::vector<std::pair<int, std::vector<std::string>>> const cases{
        {jp::Success,
         {"[]", "[] anything", "[\r\n\t1\r\n\t,\r\n\t2\r\n\t]", "[ true , false,null, -0.5e1 ,\"x\" , [ ] ,{ } ]",
          // Nesting is bounded whichever way it is built up; exactly the limit still reads.
          nested("[", "", "]", jp::maximumNesting), "[" + nested("{\"a\":", "1", "}", jp::maximumNesting - 1) + "]",
          "[" + nested("{\"qztype\":\"int8\",\"qzdata\":[", "[1]", "]}", 255) + "]"}},
        {jp::NestingTooDeep,
         {std::string(10000, '['), nested("[", "", "]", jp::maximumNesting + 1),
          "[" + nested("{\"a\":", "1", "}", jp::maximumNesting) + "]",
          "[[" + nested("{\"qztype\":\"int8\",\"qzdata\":[", "[1]", "]}", 255) + "]]",
          "[[" + nested("{\"qzdata\":[", "[1]", "],\"qztype\":\"int8\"}", 255) + "]]",
          nested("[{\"qztype\":\"int8\",\"qzdata\":", "[1]", "}]", 100000),
          nested("[{\"qzdata\":", "[1]", "}]", 100000)}},
        {jp::UnexpectedEnd,
         {"", "[", "[1", "[1,", "[\"a", "[\"a\\", "[\"\\u00", "[-", "[tr", "[{\"a\":1", intData + "[1", intData + "[1]",
          "[{\"qzdata\":[1],\"qztype\":\"int8\""}},
        // No white space before the bracket.
        {jp::ArrayBracketExpected,
         {"{}", " []", " \r\n\t[\r\n\t1\r\n\t]", " \t[true , false,null, -0.5e1 ,\"x\" , [ ] ,{ }]"}},
        // A closing bracket where a value should stand is no digit; nor is vertical tab, form feed, a no-break space
        // or an Arabic-Indic digit: white space and digits are ASCII only.
        {jp::DigitExpected,
         {"[1,]", "[-]", "[+1]", "[.5]", "[x]", "[tru]", "[{\"qzdata\":[1,x],\"qztype\":\"int8\"}]", intData + "[-]}]",
          intData + "[1,]}]", "[1,\v2]", "[\f1]", "[\xc2\xa0\x31]", "[\xd9\xa1]", "[-\xd9\xa1]"}},
        // A quote ends no integer.
        {jp::ArraySeparatorExpected, {"[1 2]", "[01]", intData + "[1 2]}]", intData + "[1\"]}]", intData + "[00]}]"}},
        {jp::FractionDigitExpected, {"[1.]", "[1.e5]", "[1.\xd9\xa1]"}},
        {jp::ExponentDigitExpected, {"[1e]", "[1e+]", "[1e\xd9\xa1]"}},
        {jp::BadStringCharacter,
         {"[\"a\\x\"]", "[\"a\nb\"]", "[\"\\u00g0\"]", "[\"\\ud800\\u0041\"]", "[\"\\udc00\"]"}},
        {jp::UnpairedHighSurrogate, {"[\"\\ud800x\"]", "[\"\\ud800\\n\"]"}},
        {jp::QuoteExpected, {"[{1:2}]", "[{\"a\":1,}]"}},
        {jp::ColonExpected, {"[{\"a\" 1}]"}},
        {jp::ObjectSeparatorExpected, {"[{\"a\":1 \"b\":2}]"}},
    };
    for (auto const& [code, texts] : cases) {
        for (auto const& text : texts) {
            EXPECT_EQ(readArray(text).code, code) << text.substr(0, 60);
        }
    }
}

TEST(JsonPropertyReader, ReadsEveryValueKind) {
    Read const read = readArray(R"([true, false, null, -0.5e1, 0, 1E2, "a\"\\\/\b\f\n\r\t", "\u00e9\ud83d\ude00",)"
                                R"( [["x"]], {"k": {"n": [1]}, "b": "v"}] tail)");
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(read.values,
              values(true, false, Value::null(), -5.0, 0.0, 100.0, "a\"\\/\b\f\n\r\t", "\xc3\xa9\xf0\x9f\x98\x80",
                     list(list("x")),
                     Value(Value::Object{{"b", Value("v")}, {"k", Value(Value::Object{{"n", list(1.0)}})}})));
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
    Read const read = readArray("[1, 1e999, -1e999, 1e-999, 0.000000000000000000001, 123456789012345678901234567890]");
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
    std::vector<std::tuple<std::string, std::string, Value>> const cases{
        {"int8", "[1, -2]", list(1L, -2L)},
        {"int64", "[9223372036854775807, -9223372036854775808]", list(9223372036854775807L, -9223372036854775807L - 1)},
        {"uint64", "[18446744073709551615, 0]", list(18446744073709551615UL, 0UL)},
        {"uint8", "[1, -1]", list(1UL, -1.0)},  // a minus sign is not an unsigned integer
        {"int32", "[1.5, 2, 3e1, 4E1]", list(1.5, 2L, 30.0, 40.0)},
        // One past the range, at both ends and unsigned: ordinary numbers.
        {"int64", "[9223372036854775808]", list(9223372036854775808.0)},
        {"int16", "[-9223372036854775809]", list(-9223372036854775809.0)},
        {"uint32", "[18446744073709551616]", list(18446744073709551616.0)},
        {"uint64", "[99999999999999999999]", list(99999999999999999999.0)},
        {"int8", "[0, -0, 10, 100]", list(0L, 0L, 10L, 100L)},
        {"uint16", "[\"text\", null]", list("text", Value::null())},
        {"int8", "[[1], []]", list(list(1.0), list())},  // nested lists are ordinary values
        {"int8", "[ ]", list()},
        {"int8", "5", Value(5.0)},             // not a list: an ordinary value
        {"double", "[1, 2]", list(1.0, 2.0)},  // not an integer type: ordinary numbers
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
            EXPECT_EQ(read.consumed, text.size()) << text;
        }
    }
    // A non-string qztype names no type, and the reader does not fail over it.
    Read const read = readArray("[{\"qzdata\": [1], \"qztype\": 8}]");
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(read.values[0].asObject().at("qzdata"), list(1.0));
}

TEST(JsonPropertyReader, TypedDataWithRepeatedMembersAndNestedObjects) {
    // A member given twice counts as given last, and the data always follows the latest type that names an integer
    // type, whichever came first; a later type naming no integer type leaves the earlier one.
    std::vector<std::pair<std::string, Value>> const cases{
        {R"({"qzdata":[1,-1],"qztype":"int8","qztype":"uint8"})", list(1UL, -1.0)},
        {R"({"qzdata":[1,-1],"qztype":"uint8","qztype":"int8"})", list(1L, -1L)},
        {R"({"qztype":"int8","qzdata":[1,-1],"qztype":"uint8"})", list(1UL, -1.0)},
        {R"({"qzdata":[1],"qztype":"int8","qztype":"text"})", list(1L)},
        {R"({"qztype":"int8","qztype":"text","qzdata":[1,-1]})", list(1L, -1L)},
        {R"({"qztype":"uint8","qzdata":[1],"qztype":8,"qztype":"double"})", list(1UL)},
        {R"({"qztype":"text","qzdata":[1]})", list(1.0)},
        {R"({"qztype":"int64","qzdata":[9223372036854775808, -1],"qztype":"uint64"})",
         list(9223372036854775808UL, -1.0)},
        {R"({"qztype":"uint8","qzdata":[1,-1,18446744073709551615,"1"],"qztype":"int8"})",
         list(1L, -1L, 18446744073709551615.0, "1")},
        {R"({"qztype":"int8","qzdata":[1],"qzdata":[2]})", list(2L)},
        {R"({"qzdata":[1],"qztype":"uint8","qzdata":[2]})", list(2UL)},
        {R"({"qzdata":[1],"qztype":"int8","qzdata":[2],"qztype":"uint8"})", list(2UL)},
    };
    for (auto const& [object, data] : cases) {
        Read const read = readArray("[" + object + "]");
        ASSERT_EQ(read.code, jp::Success) << object;
        EXPECT_EQ(read.values.at(0).asObject().at("qzdata"), data) << object;
    }

    // Data holding objects that hold data: every level comes out typed, the type coming after the data at each.
    int const levels = 200;
    Read const deepRead = readArray("[" + nested(R"({"qzdata":[1, )", "2", R"(],"qztype":"int8"})", levels) + "]");
    ASSERT_EQ(deepRead.code, jp::Success);
    Value const* level = &deepRead.values.at(0);
    for (int i = 0; i < levels; ++i) {
        Value::Array const& data = level->asObject().at("qzdata").asArray();
        ASSERT_EQ(data.size(), 2u) << "level " << i;
        EXPECT_EQ(data[0], Value(1L)) << "level " << i;
        level = &data[1];
    }
    EXPECT_EQ(*level, Value(2L));

    // Only an object's own members count: a type in an enclosing or a nested object leaves the data alone.
    Read const read =
        readArray(R"([{"qztype":"int8","inner":{"qzdata":[1]}}, {"qzdata":[1],"inner":{"qztype":"int8"}}])");
    ASSERT_EQ(read.code, jp::Success);
    EXPECT_EQ(read.values.at(0).asObject().at("inner").asObject().at("qzdata"), list(1.0));
    EXPECT_EQ(read.values.at(1).asObject().at("qzdata"), list(1.0));
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

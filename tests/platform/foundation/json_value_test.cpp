#include "platform/foundation/JsonValue.hpp"

#include <gtest/gtest.h>

namespace {

using foundation::json::Value;

TEST(JsonValue, EachKindHasItsFixedTypeName) {
    std::vector<std::pair<Value, std::string>> const cases{
        {Value(), "undefined"},
        {Value::null(), "null"},
        {Value(true), "bool"},
        {Value(-1L), "int64"},
        {Value(1UL), "uint64"},
        {Value(1.5f), "single"},
        {Value(1.5), "double"},
        {Value("s"), "std::string"},
        {Value(Value::Array{}), "array"},
        {Value(Value::Object{}), "object"},
    };
    for (auto const& [value, name] : cases) {
        EXPECT_EQ(value.typeName(), name);
    }
}

TEST(JsonValue, ConversionToStringAcceptsOnlyStrings) {
    EXPECT_EQ(Value("A -> B -> A").asString(), "A -> B -> A");
    try {
        (void)Value(1.0).asString();
        FAIL() << "expected a conversion error";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "invalid conversion: double to std::string");
    }
    try {
        (void)Value(Value::Array{Value("a")}).asString();
        FAIL() << "expected a conversion error";
    } catch (std::runtime_error const& error) {
        EXPECT_STREQ(error.what(), "invalid conversion: array to std::string");
    }
    EXPECT_THROW((void)Value(5L).asUInt64(), std::runtime_error);
    EXPECT_EQ(Value(5UL).asUInt64(), 5UL);
}

TEST(JsonValue, NestedValuesCompareByContent) {
    Value::Object object{{"qztype", Value("int8")}, {"qzdata", Value(Value::Array{Value(1L), Value(-2L)})}};
    EXPECT_EQ(Value(object), Value(object));
    object["qzdata"] = Value(Value::Array{Value(1.0), Value(-2.0)});
    EXPECT_FALSE(Value(object) == Value(Value::Object{{"qztype", Value("int8")}}));
    EXPECT_FALSE(Value() == Value::null());
}

}  // namespace

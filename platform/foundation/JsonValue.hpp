#pragma once
// A JSON value: one of a fixed set of kinds, each with a fixed type name that conversion errors quote.

#include <map>
#include <string>
#include <variant>
#include <vector>

namespace foundation::json {

// The integer kinds hold exactly 64 bits.
static_assert(sizeof(long) == 8 && sizeof(unsigned long) == 8, "long must be a 64-bit type");

class Value {
public:
    // The kinds, with their type names (Value::typeName):
    //   Undefined "undefined"  (a default-made value)
    //   Null      "null"
    //   Bool      "bool"
    //   Int64     "int64"       (signed 64-bit integer)
    //   UInt64    "uint64"      (unsigned 64-bit integer)
    //   Single    "single"      (float)
    //   Double    "double"
    //   String    "std::string" (UTF-8)
    //   Array     "array"
    //   Object    "object"      (members ordered by name)
    enum class Kind { Undefined, Null, Bool, Int64, UInt64, Single, Double, String, Array, Object };

    using Array = std::vector<Value>;
    using Object = std::map<std::string, Value>;

    Value() = default;
    static Value null();
    explicit Value(bool value) : data_(value) {}
    explicit Value(long value) : data_(value) {}
    explicit Value(unsigned long value) : data_(value) {}
    explicit Value(float value) : data_(value) {}
    explicit Value(double value) : data_(value) {}
    explicit Value(std::string value) : data_(std::move(value)) {}
    explicit Value(char const* value) : data_(std::string(value)) {}
    explicit Value(Array value) : data_(std::move(value)) {}
    explicit Value(Object value) : data_(std::move(value)) {}

    Kind kind() const noexcept { return static_cast<Kind>(data_.index()); }
    char const* typeName() const noexcept { return typeName(kind()); }
    static char const* typeName(Kind kind) noexcept;

    bool isUndefined() const noexcept { return kind() == Kind::Undefined; }
    bool isNull() const noexcept { return kind() == Kind::Null; }

    // Typed access. Each throws std::runtime_error "invalid conversion: <this
    // value's type name> to <the requested type name>" for a value of another kind.
    bool asBool() const;
    long asInt64() const;
    unsigned long asUInt64() const;
    float asSingle() const;
    double asDouble() const;
    Array const& asArray() const;
    Object const& asObject() const;
    Array& asArray();
    Object& asObject();
    // The text of a string value; e.g. "invalid conversion: double to std::string" for a number.
    std::string asString() const;

    friend bool operator==(Value const& a, Value const& b) { return a.data_ == b.data_; }

private:
    struct NullMarker {
        friend bool operator==(NullMarker, NullMarker) { return true; }
    };
    // Alternatives in the order of Kind.
    std::variant<std::monostate, NullMarker, bool, long, unsigned long, float, double, std::string, Array, Object>
        data_;
};

}  // namespace foundation::json

#include "platform/foundation/JsonValue.hpp"

#include <stdexcept>

namespace foundation::json {

namespace {

template <class T>
auto& access(auto& data, Value::Kind actual, Value::Kind requested) {
    if (auto* value = std::get_if<T>(&data)) {
        return *value;
    }
    throw std::runtime_error(std::string("invalid conversion: ") + Value::typeName(actual) + " to " +
                             Value::typeName(requested));
}

}  // namespace

Value Value::null() {
    Value value;
    value.data_ = NullMarker{};
    return value;
}

char const* Value::typeName(Kind kind) noexcept {
    switch (kind) {
    case Kind::Undefined:
        return "undefined";
    case Kind::Null:
        return "null";
    case Kind::Bool:
        return "bool";
    case Kind::Int64:
        return "int64";
    case Kind::UInt64:
        return "uint64";
    case Kind::Single:
        return "single";
    case Kind::Double:
        return "double";
    case Kind::String:
        return "std::string";
    case Kind::Array:
        return "array";
    case Kind::Object:
        return "object";
    }
    return "unknown";
}

bool Value::asBool() const {
    return access<bool>(data_, kind(), Kind::Bool);
}

long Value::asInt64() const {
    return access<long>(data_, kind(), Kind::Int64);
}

unsigned long Value::asUInt64() const {
    return access<unsigned long>(data_, kind(), Kind::UInt64);
}

float Value::asSingle() const {
    return access<float>(data_, kind(), Kind::Single);
}

double Value::asDouble() const {
    return access<double>(data_, kind(), Kind::Double);
}

Value::Array const& Value::asArray() const {
    return access<Array>(data_, kind(), Kind::Array);
}

Value::Object const& Value::asObject() const {
    return access<Object>(data_, kind(), Kind::Object);
}

Value::Array& Value::asArray() {
    return access<Array>(data_, kind(), Kind::Array);
}

Value::Object& Value::asObject() {
    return access<Object>(data_, kind(), Kind::Object);
}

std::string Value::asString() const {
    return access<std::string>(data_, kind(), Kind::String);
}

}  // namespace foundation::json

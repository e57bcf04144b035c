#include "platform/host/lang/detail/Operations.hpp"

#include "platform/host/HostClasses.hpp"

#include "platform/host/lang/detail/Indexing.hpp"

#include <algorithm>
#include <cmath>
#include <set>

namespace qlang::detail {

namespace {

char const* symbolOf(Operator op) {
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
    case Operator::Not:
        return "~";
    default:
        return "?";
    }
}

[[noreturn]] void undefinedFor(Operator op, qxArray const& left, qxArray const* right) {
    if (right == nullptr) {
        raise("qlang:operator:undefined", fmt::format("Operator '{}' is not defined for a value of class '{}'.",
                                                      symbolOf(op), left.getClassName()));
    }
    raise("qlang:operator:undefined", fmt::format("Operator '{}' is not defined for values of class '{}' and '{}'.",
                                                  symbolOf(op), left.getClassName(), right->getClassName()));
}

// Calls visit(leftIndex, rightIndex, resultIndex) for every element of the
// implicit expansion of the two shapes and returns the result's shape.
template <class Visit>
Dims expand(Dims const& left, Dims const& right, Visit&& visit) {
    if (left == right) {
        auto const count = countOf(left);
        for (std::size_t i = 0; i < count; ++i) {
            visit(i, i, i);
        }
        return left;
    }
    auto const leftCount = countOf(left);
    auto const rightCount = countOf(right);
    if (leftCount == 1) {
        for (std::size_t i = 0; i < rightCount; ++i) {
            visit(0, i, i);
        }
        return right;
    }
    if (rightCount == 1) {
        for (std::size_t i = 0; i < leftCount; ++i) {
            visit(i, 0, i);
        }
        return left;
    }
    auto const rank = std::max(left.size(), right.size());
    Dims result(rank, 1);
    std::vector<std::size_t> leftStride(rank, 0);
    std::vector<std::size_t> rightStride(rank, 0);
    std::size_t leftStep = 1;
    std::size_t rightStep = 1;
    for (std::size_t d = 0; d < rank; ++d) {
        std::size_t const l = d < left.size() ? left[d] : 1;
        std::size_t const r = d < right.size() ? right[d] : 1;
        if (l != r && l != 1 && r != 1) {
            raise("qlang:operator:sizeMismatch",
                  fmt::format("Arrays of size {} and {} are not compatible for this operation.", dimsText(left),
                              dimsText(right)));
        }
        result[d] = l == 1 ? r : l;
        leftStride[d] = l == 1 ? 0 : leftStep;
        rightStride[d] = r == 1 ? 0 : rightStep;
        leftStep *= l;
        rightStep *= r;
    }
    auto const count = countOf(result);
    std::vector<std::size_t> position(rank, 0);
    std::size_t leftIndex = 0;
    std::size_t rightIndex = 0;
    for (std::size_t i = 0; i < count; ++i) {
        visit(leftIndex, rightIndex, i);
        for (std::size_t d = 0; d < rank; ++d) {
            ++position[d];
            leftIndex += leftStride[d];
            rightIndex += rightStride[d];
            if (position[d] < result[d]) {
                break;
            }
            leftIndex -= leftStride[d] * position[d];
            rightIndex -= rightStride[d] * position[d];
            position[d] = 0;
        }
    }
    return result;
}

double arithmetic(Operator op, double a, double b) {
    switch (op) {
    case Operator::Plus:
        return a + b;
    case Operator::Minus:
        return a - b;
    case Operator::Times:
    case Operator::ElementTimes:
        return a * b;
    case Operator::RightDivide:
    case Operator::ElementRightDivide:
        return a / b;
    case Operator::LeftDivide:
    case Operator::ElementLeftDivide:
        return b / a;
    case Operator::Power:
    case Operator::ElementPower:
        return std::pow(a, b);
    default:
        return 0;
    }
}

bool logicalOf(double value) {
    if (std::isnan(value)) {
        raise("qlang:type:nanCondition", "NaN cannot be converted to a logical value.");
    }
    return value != 0;
}

bool sameObject(qcos::COSInterfacePtr const& a, qcos::COSInterfacePtr const& b) {
    if (a == b) {
        return true;
    }
    if (!a || !b) {
        return false;
    }
    // Binding objects wrapping the same native thing (the same graph, the same
    // node) are one object to host code.
    if (auto const& native = a->getNative(); native && b->getNative()) {
        return dependency::services::nativeIdentity(*native) == dependency::services::nativeIdentity(*b->getNative()) &&
               a->getClassName() == b->getClassName();
    }
    auto const left = a->getEnumerationValue();
    auto const right = b->getEnumerationValue();
    return left && right && *left == *right && a->getClassName() == b->getClassName();
}

}  // namespace

// A value as string elements: string arrays as they are, text as one
// string, numbers element by element as their text.
qxArrayPtr asStrings(qxArray const& array) {
    if (array.classID() == qxClassID::String) {
        return array.clone();
    }
    if (array.classID() == qxClassID::Char) {
        auto const& dims = array.getDimensions();
        if (dims.size() == 2 && (dims[0] == 1 || array.isEmpty())) {
            return qxArray::createStringScalar(array.getString());
        }
        auto strings = qxArray::createStrings({dims[0], 1});
        for (std::size_t row = 0; row < dims[0]; ++row) {
            std::u16string text;
            for (std::size_t column = 0; column < dims[1]; ++column) {
                text.push_back(array.chars()[row + column * dims[0]]);
            }
            strings->setStringElement(row, std::move(text));
        }
        return strings;
    }
    if (array.classID() == qxClassID::Double || array.classID() == qxClassID::Logical) {
        auto strings = qxArray::createStrings(array.getDimensions());
        for (std::size_t i = 0; i < array.getNumberOfElements(); ++i) {
            strings->setStringElement(i, array.classID() == qxClassID::Logical
                                             ? (array.logicals()[i] != 0 ? u"true" : u"false")
                                             : utf16(shortNumberText(array.doubles()[i])));
        }
        return strings;
    }
    raise("qlang:type:notText",
          fmt::format("A value of class '{}' cannot be converted to a string.", array.getClassName()));
}

char const* operatorMethodName(Operator op) {
    switch (op) {
    case Operator::Plus:
        return "plus";
    case Operator::Minus:
        return "minus";
    case Operator::UnaryMinus:
        return "uminus";
    case Operator::UnaryPlus:
        return "uplus";
    case Operator::Times:
        return "mtimes";
    case Operator::ElementTimes:
        return "times";
    case Operator::RightDivide:
        return "mrdivide";
    case Operator::ElementRightDivide:
        return "rdivide";
    case Operator::LeftDivide:
        return "mldivide";
    case Operator::ElementLeftDivide:
        return "ldivide";
    case Operator::Power:
        return "mpower";
    case Operator::ElementPower:
        return "power";
    case Operator::ElementAnd:
        return "and";
    case Operator::ElementOr:
        return "or";
    case Operator::Not:
        return "not";
    case Operator::Equal:
        return "eq";
    case Operator::NotEqual:
        return "ne";
    case Operator::Less:
        return "lt";
    case Operator::LessEqual:
        return "le";
    case Operator::Greater:
        return "gt";
    case Operator::GreaterEqual:
        return "ge";
    default:
        return "";
    }
}

Value unaryOperation(Operator op, qxArray const& operand) {
    if (!isNumeric(operand)) {
        undefinedFor(op, operand, nullptr);
    }
    auto const count = operand.getNumberOfElements();
    if (op == Operator::Not) {
        auto result = qxArray::createLogical(operand.getDimensions());
        auto out = result->logicals();
        for (std::size_t i = 0; i < count; ++i) {
            out[i] = logicalOf(numberAt(operand, i)) ? 0 : 1;
        }
        return share(std::move(result));
    }
    auto result = qxArray::createDouble(operand.getDimensions());
    auto out = result->doubles();
    for (std::size_t i = 0; i < count; ++i) {
        double const value = numberAt(operand, i);
        out[i] = op == Operator::UnaryMinus ? -value : value;
    }
    return share(std::move(result));
}

Value binaryOperation(Operator op, qxArray const& left, qxArray const& right) {
    if (op == Operator::Plus && (left.classID() == qxClassID::String || right.classID() == qxClassID::String)) {
        auto const a = asStrings(left);
        auto const b = asStrings(right);
        std::vector<std::tuple<std::size_t, std::size_t, std::size_t>> pairs;
        auto const dims = expand(a->getDimensions(), b->getDimensions(),
                                 [&](std::size_t i, std::size_t j, std::size_t k) { pairs.emplace_back(i, j, k); });
        auto result = qxArray::createStrings(dims);
        for (auto const& [i, j, k] : pairs) {
            result->setStringElement(k, a->getStringElement(i) + b->getStringElement(j));
        }
        return share(std::move(result));
    }
    if (!isNumeric(left) || !isNumeric(right)) {
        undefinedFor(op, left, &right);
    }
    if (op == Operator::ElementAnd || op == Operator::ElementOr) {
        std::vector<std::tuple<std::size_t, std::size_t, std::size_t>> pairs;
        auto const dims = expand(left.getDimensions(), right.getDimensions(),
                                 [&](std::size_t i, std::size_t j, std::size_t k) { pairs.emplace_back(i, j, k); });
        auto result = qxArray::createLogical(dims);
        auto out = result->logicals();
        for (auto const& [i, j, k] : pairs) {
            bool const a = logicalOf(numberAt(left, i));
            bool const b = logicalOf(numberAt(right, j));
            out[k] = (op == Operator::ElementAnd ? (a && b) : (a || b)) ? 1 : 0;
        }
        return share(std::move(result));
    }
    bool const matrixOperation =
        op == Operator::Times || op == Operator::RightDivide || op == Operator::LeftDivide || op == Operator::Power;
    if (matrixOperation && !left.isScalar() && !right.isScalar()) {
        if (op != Operator::Times) {
            raise("qlang:unsupported",
                  fmt::format("Operator '{}' of two non-scalar arrays (matrix division or power) is not supported; "
                              "use the element-wise operator '.{}'.",
                              symbolOf(op), symbolOf(op)));
        }
        auto const& a = left.getDimensions();
        auto const& b = right.getDimensions();
        if (a.size() > 2 || b.size() > 2 || a[1] != b[0]) {
            raise("qlang:operator:sizeMismatch",
                  fmt::format("Matrices of size {} and {} cannot be multiplied: the inner dimensions differ.",
                              dimsText(a), dimsText(b)));
        }
        auto result = qxArray::createDouble({a[0], b[1]});
        auto out = result->doubles();
        for (std::size_t row = 0; row < a[0]; ++row) {
            for (std::size_t column = 0; column < b[1]; ++column) {
                double sum = 0;
                for (std::size_t k = 0; k < a[1]; ++k) {
                    sum += numberAt(left, row + k * a[0]) * numberAt(right, k + column * b[0]);
                }
                out[row + column * a[0]] = sum;
            }
        }
        return share(std::move(result));
    }
    if (left.classID() == qxClassID::Double && right.classID() == qxClassID::Double) {
        auto const a = left.doubles();
        auto const b = right.doubles();
        if (left.isScalar() && right.isScalar()) {
            return makeDouble(arithmetic(op, a[0], b[0]));
        }
        auto result = qxArray::createDouble({0, 0});
        std::vector<double> values;
        auto const dims =
            expand(left.getDimensions(), right.getDimensions(),
                   [&](std::size_t i, std::size_t j, std::size_t) { values.push_back(arithmetic(op, a[i], b[j])); });
        result = qxArray::createDouble(dims);
        std::copy(values.begin(), values.end(), result->doubles().begin());
        return share(std::move(result));
    }
    std::vector<double> values;
    auto const dims =
        expand(left.getDimensions(), right.getDimensions(), [&](std::size_t i, std::size_t j, std::size_t) {
            values.push_back(arithmetic(op, numberAt(left, i), numberAt(right, j)));
        });
    auto result = qxArray::createDouble(dims);
    std::copy(values.begin(), values.end(), result->doubles().begin());
    return share(std::move(result));
}

Value comparison(Operator op, qxArray const& left, qxArray const& right) {
    auto compareNumbers = [op](double a, double b) {
        switch (op) {
        case Operator::Equal:
            return a == b;
        case Operator::NotEqual:
            return a != b;
        case Operator::Less:
            return a < b;
        case Operator::LessEqual:
            return a <= b;
        case Operator::Greater:
            return a > b;
        default:
            return a >= b;
        }
    };
    std::vector<std::uint8_t> flags;
    Dims dims;
    if (left.classID() == qxClassID::String || right.classID() == qxClassID::String) {
        auto const a = asStrings(left);
        auto const b = asStrings(right);
        dims = expand(a->getDimensions(), b->getDimensions(), [&](std::size_t i, std::size_t j, std::size_t) {
            int const order = a->getStringElement(i).compare(b->getStringElement(j));
            flags.push_back(compareNumbers(order, 0) ? 1 : 0);
        });
    } else if (left.classID() == qxClassID::Object && right.classID() == qxClassID::Object) {
        if (op != Operator::Equal && op != Operator::NotEqual) {
            undefinedFor(op, left, &right);
        }
        for (auto const* side : {&left, &right}) {
            if (!side->isEmpty() && !isHandleClass(side->getClassName()) &&
                !side->getObject(0)->getEnumerationValue()) {
                raise("qlang:operator:undefined",
                      fmt::format("Operator '{}' is not defined for objects of the value class '{}'; define an "
                                  "'eq' method or use isequal.",
                                  symbolOf(op), side->getClassName()));
            }
        }
        dims = expand(left.getDimensions(), right.getDimensions(), [&](std::size_t i, std::size_t j, std::size_t) {
            bool const same = sameObject(left.getObject(i), right.getObject(j));
            flags.push_back((op == Operator::Equal) == same ? 1 : 0);
        });
    } else if (isNumeric(left) && isNumeric(right)) {
        dims = expand(left.getDimensions(), right.getDimensions(), [&](std::size_t i, std::size_t j, std::size_t) {
            flags.push_back(compareNumbers(numberAt(left, i), numberAt(right, j)) ? 1 : 0);
        });
    } else {
        undefinedFor(op, left, &right);
    }
    auto result = qxArray::createLogical(dims);
    std::copy(flags.begin(), flags.end(), result->logicals().begin());
    return share(std::move(result));
}

Value transpose(qxArray const& operand) {
    auto const& dims = operand.getDimensions();
    if (dims.size() > 2) {
        raise("qlang:operator:transpose", "Transposing an array of more than two dimensions is not defined.");
    }
    auto const rows = dims[0];
    auto const columns = dims[1];
    if (rows == 1 || columns == 1) {
        auto copy = operand.clone();
        copy->reshape({columns, rows});
        return share(std::move(copy));
    }
    Value result = share(operand.clone());
    auto& out = mutate(result);
    out.reshape({columns, rows});
    for (std::size_t r = 0; r < rows; ++r) {
        for (std::size_t c = 0; c < columns; ++c) {
            copyElement(out, c + r * columns, operand, r + c * rows);
        }
    }
    return result;
}

RangeSpec rangeSpec(qxArray const& start, qxArray const* step, qxArray const& stop) {
    RangeSpec steps;
    for (auto const* operand : {&start, step, &stop}) {
        if (operand != nullptr && !isNumeric(*operand)) {
            raise("qlang:operator:range",
                  fmt::format("A range needs numbers, got a value of class '{}'.", operand->getClassName()));
        }
        if (operand != nullptr && operand->isEmpty()) {
            return steps;
        }
    }
    steps.first = numberAt(start, 0);
    steps.increment = step != nullptr ? numberAt(*step, 0) : 1.0;
    double const last = numberAt(stop, 0);
    if (std::isnan(steps.first) || std::isnan(steps.increment) || std::isnan(last)) {
        return steps;
    }
    double count = 0;
    if (steps.increment != 0 &&
        !((steps.increment > 0 && last < steps.first) || (steps.increment < 0 && last > steps.first))) {
        // A little tolerance, so that 0:0.1:0.3 ends at 0.3 despite rounding.
        count = std::floor((last - steps.first) / steps.increment * (1 + 1e-12) + 1e-10) + 1;
    }
    if (!std::isfinite(count) || count > 1e15) {
        raise("qx:array:tooLarge", "The range has too many elements.");
    }
    steps.count = static_cast<std::size_t>(count);
    // The second half counts back from the end, so that 0:0.1:0.3 ends at 0.3
    // exactly rather than at 3 * 0.1.
    steps.last = steps.first + static_cast<double>(steps.count == 0 ? 0 : steps.count - 1) * steps.increment;
    if (std::fabs(steps.last - last) <= std::fabs(steps.increment) * 1e-10) {
        steps.last = last;
    }
    return steps;
}

double RangeSpec::at(std::size_t i) const noexcept {
    return 2 * i <= count ? first + static_cast<double>(i) * increment
                          : last - static_cast<double>(count - 1 - i) * increment;
}

Value range(qxArray const& start, qxArray const* step, qxArray const& stop) {
    auto const steps = rangeSpec(start, step, stop);
    if (steps.count > 1e9) {
        raise("qx:array:tooLarge", "The range has too many elements.");
    }
    if (start.classID() == qxClassID::Char && stop.classID() == qxClassID::Char) {
        auto result = qxArray::createChar({1, steps.count});
        for (std::size_t i = 0; i < steps.count; ++i) {
            result->chars()[i] = charCode(steps.first + static_cast<double>(i) * steps.increment);
        }
        return share(std::move(result));
    }
    auto result = qxArray::createDouble({1, steps.count});
    auto out = result->doubles();
    for (std::size_t i = 0; i < steps.count; ++i) {
        out[i] = steps.at(i);
    }
    return share(std::move(result));
}

bool valuesEqual(qxArray const& left, qxArray const& right) {
    // A char row beside a string counts as one string: isequal('abc', "abc").
    bool const textWithString =
        (left.classID() == qxClassID::String && (right.classID() == qxClassID::String || isText(right))) ||
        (right.classID() == qxClassID::String && isText(left));
    if (left.getDimensions() != right.getDimensions() && !textWithString) {
        return false;
    }
    auto const count = left.getNumberOfElements();
    if (isNumeric(left) && isNumeric(right)) {
        for (std::size_t i = 0; i < count; ++i) {
            if (numberAt(left, i) != numberAt(right, i)) {
                return false;
            }
        }
        return true;
    }
    if (textWithString) {
        auto const a = asStrings(left);
        auto const b = asStrings(right);
        if (a->getDimensions() != b->getDimensions()) {
            return false;
        }
        for (std::size_t i = 0; i < a->getNumberOfElements(); ++i) {
            if (a->getStringElement(i) != b->getStringElement(i)) {
                return false;
            }
        }
        return true;
    }
    if (left.classID() != right.classID()) {
        return false;
    }
    switch (left.classID()) {
    case qxClassID::Cell:
        for (std::size_t i = 0; i < count; ++i) {
            if (!valuesEqual(*left.getCell(i), *right.getCell(i))) {
                return false;
            }
        }
        return true;
    case qxClassID::Struct: {
        auto const& fields = left.getFieldNames();
        if (fields.size() != right.getFieldNames().size()) {
            return false;
        }
        for (std::size_t f = 0; f < fields.size(); ++f) {
            int const other = right.fieldIndex(fields[f]);
            if (other < 0) {
                return false;
            }
            for (std::size_t i = 0; i < count; ++i) {
                if (!valuesEqual(*left.getField(i, f), *right.getField(i, static_cast<std::size_t>(other)))) {
                    return false;
                }
            }
        }
        return true;
    }
    case qxClassID::FunctionHandle:
        return left.getFunctionHandle() == right.getFunctionHandle();
    case qxClassID::Object:
        for (std::size_t i = 0; i < count; ++i) {
            auto const& a = left.getObject(i);
            auto const& b = right.getObject(i);
            if (sameObject(a, b)) {
                continue;
            }
            if (!a || !b || a->getClassName() != b->getClassName() || isHandleClass(a->getClassName())) {
                return false;
            }
            // Value objects are equal when every property is.
            std::vector<std::string> names;
            std::vector<std::string> pending{a->getClassName()};
            while (!pending.empty()) {
                auto const info = qcos::omFindClass(pending.back());
                pending.pop_back();
                if (!info) {
                    continue;
                }
                for (auto const& property : info->getProperties()) {
                    if (property.kind == qcos::QcosProperty::Kind::Stored) {
                        names.push_back(property.name);
                    }
                }
                for (auto const& super : info->getSuperclassNames()) {
                    pending.push_back(super);
                }
            }
            for (auto const& name : names) {
                if (!valuesEqual(*qcos::omGetPropertyShared(*a, name), *qcos::omGetPropertyShared(*b, name))) {
                    return false;
                }
            }
        }
        return true;
    default:
        return false;
    }
}

}  // namespace qlang::detail

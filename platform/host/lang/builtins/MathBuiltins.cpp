// Numeric built-ins: element-wise functions, reductions along a dimension,
// extremes, find.

#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <cmath>
#include <limits>
#include <optional>

namespace qlang::detail {

namespace {

void requireNumeric(std::string_view function, qxArray const& value) {
    if (!isNumeric(value)) {
        badArgument(function, fmt::format("expected numbers, got a value of class '{}'.", value.getClassName()));
    }
}

template <class F>
Values elementwise(std::string_view function, Args args, F f) {
    checkCount(function, args, 1, 1);
    requireNumeric(function, *args[0]);
    auto const& x = *args[0];
    auto result = qxArray::createDouble(x.getDimensions());
    for (std::size_t i = 0; i < x.getNumberOfElements(); ++i) {
        result->doubles()[i] = f(numberAt(x, i));
    }
    return one(share(std::move(result)));
}

template <class F>
Values elementwise2(std::string_view function, Args args, F f) {
    checkCount(function, args, 2, 2);
    requireNumeric(function, *args[0]);
    requireNumeric(function, *args[1]);
    // Implicit expansion as for the arithmetic operators: compute through them.
    auto const& a = *args[0];
    auto const& b = *args[1];
    if (!a.isScalar() && !b.isScalar() && a.getDimensions() != b.getDimensions()) {
        badArgument(function, "the two inputs must have the same size or one must be a scalar.");
    }
    auto result = qxArray::createDouble(a.isScalar() ? b.getDimensions() : a.getDimensions());
    auto const count = result->getNumberOfElements();
    for (std::size_t i = 0; i < count; ++i) {
        double const x = numberAt(a, a.isScalar() ? 0 : i);
        double const y = numberAt(b, b.isScalar() ? 0 : i);
        result->doubles()[i] = f(x, y);
    }
    return one(share(std::move(result)));
}

// The dimension reductions work along by default: the first that is not 1.
std::size_t defaultDimension(Dims const& dims) {
    for (std::size_t d = 0; d < dims.size(); ++d) {
        if (dims[d] != 1) {
            return d;
        }
    }
    return 0;
}

struct Reduction {
    Dims dims;  // the result's
    std::size_t length = 0;
    std::size_t stride = 1;
    std::size_t outer = 1;
};

Reduction reductionOf(Dims const& dims, std::size_t dimension) {
    Reduction reduction;
    reduction.dims = dims;
    while (reduction.dims.size() <= dimension) {
        reduction.dims.push_back(1);
    }
    reduction.length = reduction.dims[dimension];
    for (std::size_t d = 0; d < dimension; ++d) {
        reduction.stride *= reduction.dims[d];
    }
    for (std::size_t d = dimension + 1; d < reduction.dims.size(); ++d) {
        reduction.outer *= reduction.dims[d];
    }
    reduction.dims[dimension] = 1;
    return reduction;
}

// Which dimension the optional argument at `index` names ('all' gives all).
std::optional<std::size_t> dimensionArgument(std::string_view function, Args args, std::size_t index, bool& all) {
    all = false;
    if (args.size() <= index) {
        return std::nullopt;
    }
    if (isText(*args[index])) {
        if (args[index]->getString() != u"all") {
            badArgument(function, "the dimension must be a number or 'all'.");
        }
        all = true;
        return std::nullopt;
    }
    auto const dimension = countOf(*args[index], fmt::format("The dimension given to {}", function));
    if (dimension == 0) {
        badArgument(function, "dimensions are numbered from 1.");
    }
    return dimension - 1;
}

// Reduces each run of `x` along the dimension with `f(values) -> double`.
template <class F>
Value reduce(qxArray const& x, std::optional<std::size_t> chosen, bool all, bool logicalResult, F f) {
    if (all) {
        std::vector<double> values(x.getNumberOfElements());
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] = numberAt(x, i);
        }
        double const result = f(values);
        return logicalResult ? makeLogical(result != 0) : makeDouble(result);
    }
    auto const& dims = x.getDimensions();
    bool const emptyMatrix = dims.size() == 2 && dims[0] == 0 && dims[1] == 0;
    std::size_t const dimension = chosen ? *chosen : (emptyMatrix ? 0 : defaultDimension(dims));
    auto const reduction = reductionOf(dims, dimension);
    Dims resultDims = reduction.dims;
    if (emptyMatrix && !chosen) {
        resultDims = {1, 1};
    }
    auto result = logicalResult ? qxArray::createLogical(resultDims) : qxArray::createDouble(resultDims);
    std::vector<double> values(reduction.length);
    std::size_t out = 0;
    for (std::size_t o = 0; o < reduction.outer; ++o) {
        for (std::size_t s = 0; s < reduction.stride; ++s) {
            for (std::size_t k = 0; k < reduction.length; ++k) {
                values[k] = numberAt(x, s + k * reduction.stride + o * reduction.stride * reduction.length);
            }
            double const value = f(values);
            if (logicalResult) {
                result->logicals()[out++] = value != 0 ? 1 : 0;
            } else {
                result->doubles()[out++] = value;
            }
        }
    }
    if (emptyMatrix && !chosen) {
        double const value = f(std::vector<double>{});
        if (logicalResult) {
            result->logicals()[0] = value != 0 ? 1 : 0;
        } else {
            result->doubles()[0] = value;
        }
    }
    return share(std::move(result));
}

template <class F>
Values reduction(std::string_view function, Args args, bool logicalResult, F f) {
    checkCount(function, args, 1, 2);
    requireNumeric(function, *args[0]);
    bool all = false;
    auto const dimension = dimensionArgument(function, args, 1, all);
    return one(reduce(*args[0], dimension, all, logicalResult, f));
}

// max and min: of one array along a dimension (with the positions), or of two arrays element by element.
Values extreme(std::string_view function, Args args, int nargout, bool isMax) {
    checkCount(function, args, 1, 3);
    auto const better = [isMax](double candidate, double best) { return isMax ? candidate > best : candidate < best; };
    if (args.size() >= 2 && !args[1]->isEmpty()) {
        if (args.size() == 3) {
            badArgument(function, "compare two arrays, or give [] as the second input to pick a dimension.");
        }
        return elementwise2(function, args.first(2), [&](double a, double b) {
            if (std::isnan(a)) {
                return b;
            }
            if (std::isnan(b)) {
                return a;
            }
            return better(a, b) ? a : b;
        });
    }
    auto const& x = *args[0];
    requireNumeric(function, x);
    if (x.isEmpty() && args.size() < 3) {
        Values outputs{makeEmpty()};
        if (nargout > 1) {
            outputs.push_back(makeEmpty());
        }
        return outputs;
    }
    bool all = false;
    auto const dimension = dimensionArgument(function, args, 2, all);
    std::vector<double> positions;
    auto values = reduce(x, dimension, all, false, [&](std::vector<double> const& run) {
        double best = std::numeric_limits<double>::quiet_NaN();
        double at = 1;
        for (std::size_t k = 0; k < run.size(); ++k) {
            if (!std::isnan(run[k]) && (std::isnan(best) || better(run[k], best))) {
                best = run[k];
                at = static_cast<double>(k + 1);
            }
        }
        positions.push_back(at);
        return best;
    });
    Values outputs{values};
    if (nargout > 1) {
        auto indices = qxArray::createDouble(values->getDimensions());
        std::copy(positions.begin(), positions.end(), indices->doubles().begin());
        outputs.push_back(share(std::move(indices)));
    }
    return outputs;
}

Values findOf(Args args, int nargout) {
    checkCount("find", args, 1, 2);
    auto const& x = *args[0];
    requireNumeric("find", x);
    std::size_t limit = std::numeric_limits<std::size_t>::max();
    if (args.size() == 2) {
        limit = countOf(*args[1], "The count given to find");
    }
    std::vector<double> indices;
    for (std::size_t i = 0; i < x.getNumberOfElements() && indices.size() < limit; ++i) {
        if (numberAt(x, i) != 0) {
            indices.push_back(static_cast<double>(i + 1));
        }
    }
    // A row gives a row, anything else a column; [] gives [].
    bool const row = isRow(x.getDimensions());
    bool const emptyMatrix = x.getDimensions() == Dims{0, 0};
    auto shaped = [&](std::vector<double> const& values) {
        auto array = emptyMatrix ? qxArray::createDouble({0, 0})
                     : row       ? qxArray::createDouble({1, values.size()})
                                 : qxArray::createDouble({values.size(), 1});
        std::copy(values.begin(), values.end(), array->doubles().begin());
        return share(std::move(array));
    };
    if (nargout <= 1) {
        return one(shaped(indices));
    }
    auto const rows = x.getDimensions()[0];
    std::vector<double> r;
    std::vector<double> c;
    for (auto const index : indices) {
        auto const zeroBased = static_cast<std::size_t>(index) - 1;
        r.push_back(static_cast<double>(zeroBased % rows + 1));
        c.push_back(static_cast<double>(zeroBased / rows + 1));
    }
    return {shaped(r), shaped(c)};
}

double modulo(double a, double b) {
    if (b == 0) {
        return a;
    }
    double const result = a - std::floor(a / b) * b;
    // Exact multiples are 0, not b, after rounding.
    return std::fabs(result - b) < std::fabs(b) * 1e-15 ? 0.0 : result;
}

}  // namespace

void registerMathBuiltins() {
    defineBuiltin("abs",
                  [](Args args, int) { return elementwise("abs", args, [](double x) { return std::fabs(x); }); });
    defineBuiltin("floor",
                  [](Args args, int) { return elementwise("floor", args, [](double x) { return std::floor(x); }); });
    defineBuiltin("ceil",
                  [](Args args, int) { return elementwise("ceil", args, [](double x) { return std::ceil(x); }); });
    defineBuiltin("round",
                  [](Args args, int) { return elementwise("round", args, [](double x) { return std::round(x); }); });
    defineBuiltin("fix",
                  [](Args args, int) { return elementwise("fix", args, [](double x) { return std::trunc(x); }); });
    defineBuiltin("sqrt",
                  [](Args args, int) { return elementwise("sqrt", args, [](double x) { return std::sqrt(x); }); });
    defineBuiltin("exp", [](Args args, int) { return elementwise("exp", args, [](double x) { return std::exp(x); }); });
    defineBuiltin("log", [](Args args, int) { return elementwise("log", args, [](double x) { return std::log(x); }); });
    defineBuiltin("mod", [](Args args, int) { return elementwise2("mod", args, modulo); });
    defineBuiltin("sin", [](Args args, int) { return elementwise("sin", args, [](double x) { return std::sin(x); }); });
    defineBuiltin("cos", [](Args args, int) { return elementwise("cos", args, [](double x) { return std::cos(x); }); });
    defineBuiltin("tan", [](Args args, int) { return elementwise("tan", args, [](double x) { return std::tan(x); }); });
    defineBuiltin("asin",
                  [](Args args, int) { return elementwise("asin", args, [](double x) { return std::asin(x); }); });
    defineBuiltin("acos",
                  [](Args args, int) { return elementwise("acos", args, [](double x) { return std::acos(x); }); });
    defineBuiltin("atan",
                  [](Args args, int) { return elementwise("atan", args, [](double x) { return std::atan(x); }); });
    defineBuiltin("atan2", [](Args args, int) {
        return elementwise2("atan2", args, [](double y, double x) { return std::atan2(y, x); });
    });
    defineBuiltin("log2",
                  [](Args args, int) { return elementwise("log2", args, [](double x) { return std::log2(x); }); });
    defineBuiltin("log10",
                  [](Args args, int) { return elementwise("log10", args, [](double x) { return std::log10(x); }); });
    defineBuiltin("sign", [](Args args, int) {
        return elementwise("sign", args,
                           [](double x) { return std::isnan(x) ? x : static_cast<double>((x > 0) - (x < 0)); });
    });
    defineBuiltin("hypot", [](Args args, int) {
        return elementwise2("hypot", args, [](double x, double y) { return std::hypot(x, y); });
    });
    // The operators as functions: eq(a, b) is a == b (a class's own eq method
    // is found first, as for any method).
    for (auto const op : {Operator::Equal, Operator::NotEqual, Operator::Less, Operator::LessEqual, Operator::Greater,
                          Operator::GreaterEqual}) {
        std::string const name = operatorMethodName(op);
        defineBuiltin(name, [op, name](Args args, int) {
            checkCount(name, args, 2, 2);
            return one(comparison(op, *args[0], *args[1]));
        });
    }
    for (auto const op :
         {Operator::Plus, Operator::Minus, Operator::Times, Operator::ElementTimes, Operator::RightDivide,
          Operator::ElementRightDivide, Operator::LeftDivide, Operator::ElementLeftDivide, Operator::Power,
          Operator::ElementPower, Operator::ElementAnd, Operator::ElementOr}) {
        std::string const name = operatorMethodName(op);
        defineBuiltin(name, [op, name](Args args, int) {
            checkCount(name, args, 2, 2);
            return one(binaryOperation(op, *args[0], *args[1]));
        });
    }
    for (auto const& [name, op] : std::initializer_list<std::pair<char const*, Operator>>{
             {"not", Operator::Not}, {"uminus", Operator::UnaryMinus}, {"uplus", Operator::UnaryPlus}}) {
        defineBuiltin(name, [op = op, name = std::string(name)](Args args, int) {
            checkCount(name, args, 1, 1);
            return one(unaryOperation(op, *args[0]));
        });
    }
    defineBuiltin("rem", [](Args args, int) {
        return elementwise2("rem", args, [](double a, double b) { return b == 0 ? a : std::fmod(a, b); });
    });
    defineBuiltin("isnan", [](Args args, int) {
        checkCount("isnan", args, 1, 1);
        requireNumeric("isnan", *args[0]);
        auto result = qxArray::createLogical(args[0]->getDimensions());
        for (std::size_t i = 0; i < args[0]->getNumberOfElements(); ++i) {
            result->logicals()[i] = std::isnan(numberAt(*args[0], i)) ? 1 : 0;
        }
        return one(share(std::move(result)));
    });
    defineBuiltin("isinf", [](Args args, int) {
        checkCount("isinf", args, 1, 1);
        requireNumeric("isinf", *args[0]);
        auto result = qxArray::createLogical(args[0]->getDimensions());
        for (std::size_t i = 0; i < args[0]->getNumberOfElements(); ++i) {
            result->logicals()[i] = std::isinf(numberAt(*args[0], i)) ? 1 : 0;
        }
        return one(share(std::move(result)));
    });
    defineBuiltin("sum", [](Args args, int) {
        return reduction("sum", args, false, [](std::vector<double> const& values) {
            double sum = 0;
            for (auto const value : values) {
                sum += value;
            }
            return sum;
        });
    });
    defineBuiltin("prod", [](Args args, int) {
        return reduction("prod", args, false, [](std::vector<double> const& values) {
            double product = 1;
            for (auto const value : values) {
                product *= value;
            }
            return product;
        });
    });
    defineBuiltin("mean", [](Args args, int) {
        return reduction("mean", args, false, [](std::vector<double> const& values) {
            double sum = 0;
            for (auto const value : values) {
                sum += value;
            }
            return values.empty() ? std::numeric_limits<double>::quiet_NaN() : sum / static_cast<double>(values.size());
        });
    });
    defineBuiltin("any", [](Args args, int) {
        return reduction("any", args, true, [](std::vector<double> const& values) {
            for (auto const value : values) {
                if (value != 0 && !std::isnan(value)) {
                    return 1.0;
                }
            }
            return 0.0;
        });
    });
    defineBuiltin("all", [](Args args, int) {
        return reduction("all", args, true, [](std::vector<double> const& values) {
            for (auto const value : values) {
                if (value == 0) {
                    return 0.0;
                }
            }
            return 1.0;
        });
    });
    defineBuiltin("nnz", [](Args args, int) {
        checkCount("nnz", args, 1, 1);
        requireNumeric("nnz", *args[0]);
        double count = 0;
        for (std::size_t i = 0; i < args[0]->getNumberOfElements(); ++i) {
            count += numberAt(*args[0], i) != 0 ? 1 : 0;
        }
        return one(makeDouble(count));
    });
    defineBuiltin("cumsum", [](Args args, int) {
        checkCount("cumsum", args, 1, 1);
        requireNumeric("cumsum", *args[0]);
        auto const& x = *args[0];
        auto const reduction = reductionOf(x.getDimensions(), defaultDimension(x.getDimensions()));
        auto result = qxArray::createDouble(x.getDimensions());
        for (std::size_t o = 0; o < reduction.outer; ++o) {
            for (std::size_t s = 0; s < reduction.stride; ++s) {
                double sum = 0;
                for (std::size_t k = 0; k < reduction.length; ++k) {
                    auto const index = s + k * reduction.stride + o * reduction.stride * reduction.length;
                    sum += numberAt(x, index);
                    result->doubles()[index] = sum;
                }
            }
        }
        return one(share(std::move(result)));
    });
    defineBuiltin("max", [](Args args, int nargout) { return extreme("max", args, nargout, true); });
    defineBuiltin("min", [](Args args, int nargout) { return extreme("min", args, nargout, false); });
    defineBuiltin("find", findOf);
}

}  // namespace qlang::detail

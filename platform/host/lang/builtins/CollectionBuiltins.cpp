// Built-ins over collections: cellfun and arrayfun, sorting, unique values,
// membership and set operations, of numbers and of lists of texts.

#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Interpreter.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numeric>

namespace qlang::detail {

namespace {

// ----- cellfun and arrayfun

Values mapElements(std::string_view function, Args args, int nargout, bool overCells) {
    auto const start = optionsStart(function, args, {"UniformOutput", "ErrorHandler"});
    if (start < 2) {
        checkCount(function, args.first(start), 2, std::numeric_limits<std::size_t>::max());
    }
    if (optionValue(args, start, "ErrorHandler")) {
        badArgument(function, "the 'ErrorHandler' option is not supported; use try/catch in the function.");
    }
    bool uniform = true;
    if (auto const option = optionValue(args, start, "UniformOutput")) {
        uniform = truthOf(*option);
    }
    auto const& callable = args[0];
    auto const inputs = args.subspan(1, start - 1);
    auto const& dims = inputs[0]->getDimensions();
    auto const count = inputs[0]->getNumberOfElements();
    for (auto const& input : inputs) {
        if (overCells && input->classID() != qxClassID::Cell) {
            badArgument(function, fmt::format("the inputs must be cell arrays, got a value of class '{}'.",
                                              input->getClassName()));
        }
        if (input->getDimensions() != dims) {
            badArgument(function, "all inputs must have the same size.");
        }
    }
    std::size_t const outputs = static_cast<std::size_t>(std::max(nargout, 1));
    std::vector<Values> collected(outputs);
    for (std::size_t i = 0; i < count; ++i) {
        Values callArgs;
        for (auto const& input : inputs) {
            callArgs.push_back(overCells ? input->getCell(i) : elementOf(*input, i));
        }
        auto results = callCallable(callable, callArgs, nargout);
        if (results.size() < outputs && !(nargout == 0 && results.empty())) {
            raise("qlang:call:noValue", fmt::format("{}: the function returned {} value(s) for element {}; {} needed.",
                                                    function, results.size(), i + 1, outputs));
        }
        for (std::size_t k = 0; k < outputs && k < results.size(); ++k) {
            collected[k].push_back(std::move(results[k]));
        }
    }
    if (nargout == 0 && count > 0 && collected[0].empty()) {
        return {};
    }
    Values results;
    for (std::size_t k = 0; k < outputs; ++k) {
        auto const& values = collected[k];
        if (!uniform) {
            auto cell = qxArray::createCell(dims);
            for (std::size_t i = 0; i < values.size(); ++i) {
                cell->setCell(i, values[i]);
            }
            results.push_back(share(std::move(cell)));
            continue;
        }
        // One scalar per element, all of one class.
        qxClassID kind = qxClassID::Double;
        for (std::size_t i = 0; i < values.size(); ++i) {
            auto const& value = *values[i];
            if (!value.isScalar() || !isNumeric(value)) {
                badArgument(function, fmt::format("the function returned a {} {} for element {}; with "
                                                  "'UniformOutput' true it must return a scalar number, logical or "
                                                  "char. Use 'UniformOutput', false for other values.",
                                                  dimsText(value.getDimensions()), value.getClassName(), i + 1));
            }
            if (i == 0) {
                kind = value.classID();
            } else if (value.classID() != kind) {
                badArgument(function, fmt::format("the function returned values of classes '{}' and '{}'; with "
                                                  "'UniformOutput' true they must be of one class.",
                                                  values[0]->getClassName(), value.getClassName()));
            }
        }
        auto array = kind == qxClassID::Logical ? qxArray::createLogical(dims)
                     : kind == qxClassID::Char  ? qxArray::createChar(dims)
                                                : qxArray::createDouble(dims);
        for (std::size_t i = 0; i < values.size(); ++i) {
            double const number = numberAt(*values[i], 0);
            switch (kind) {
            case qxClassID::Logical:
                array->logicals()[i] = number != 0 ? 1 : 0;
                break;
            case qxClassID::Char:
                array->chars()[i] = charCode(number);
                break;
            default:
                array->doubles()[i] = number;
                break;
            }
        }
        results.push_back(share(std::move(array)));
    }
    return results;
}

// ----- sorting and sets over numbers or texts

// The elements of a numeric array or a list of texts, as sortable keys.
struct Keys {
    bool texts = false;
    std::vector<double> numbers;
    std::vector<std::u16string> strings;
    qxClassID kind = qxClassID::Double;
    Dims dims;
    std::size_t size() const { return texts ? strings.size() : numbers.size(); }
};

Keys keysOf(std::string_view function, qxArray const& value) {
    Keys keys;
    keys.kind = value.classID();
    keys.dims = value.getDimensions();
    if (value.classID() == qxClassID::Cell || value.classID() == qxClassID::String) {
        if (!isTextList(value)) {
            badArgument(function, "a cell array must hold texts only.");
        }
        keys.texts = true;
        keys.strings = textsOf(value, "An element");
        return keys;
    }
    if (!isNumeric(value)) {
        badArgument(function,
                    fmt::format("a value of class '{}' cannot be sorted or compared as a set.", value.getClassName()));
    }
    for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
        keys.numbers.push_back(numberAt(value, i));
    }
    return keys;
}

bool lessThan(Keys const& keys, std::size_t a, std::size_t b) {
    if (keys.texts) {
        return keys.strings[a] < keys.strings[b];
    }
    double const x = keys.numbers[a];
    double const y = keys.numbers[b];
    // NaN sorts last.
    if (std::isnan(x)) {
        return false;
    }
    if (std::isnan(y)) {
        return true;
    }
    return x < y;
}

bool sameKey(Keys const& keys, std::size_t a, std::size_t b) {
    return keys.texts ? keys.strings[a] == keys.strings[b] : keys.numbers[a] == keys.numbers[b];
}

// Keys chosen by `order`, as a value of the input's kind and the given shape.
Value keysValue(Keys const& keys, std::vector<std::size_t> const& order, Dims dims) {
    if (keys.texts) {
        std::vector<std::u16string> texts;
        for (auto const index : order) {
            texts.push_back(keys.strings[index]);
        }
        if (keys.kind == qxClassID::String) {
            auto strings = qxArray::createStrings(dims);
            for (std::size_t i = 0; i < texts.size(); ++i) {
                strings->setStringElement(i, texts[i]);
            }
            return share(std::move(strings));
        }
        return makeTexts(texts, dims);
    }
    auto array = keys.kind == qxClassID::Char      ? qxArray::createChar(dims)
                 : keys.kind == qxClassID::Logical ? qxArray::createLogical(dims)
                                                   : qxArray::createDouble(dims);
    for (std::size_t i = 0; i < order.size(); ++i) {
        double const number = keys.numbers[order[i]];
        switch (keys.kind) {
        case qxClassID::Char:
            array->chars()[i] = charCode(number);
            break;
        case qxClassID::Logical:
            array->logicals()[i] = number != 0 ? 1 : 0;
            break;
        default:
            array->doubles()[i] = number;
            break;
        }
    }
    return share(std::move(array));
}

Value indexValue(std::vector<std::size_t> const& order, Dims dims) {
    auto array = qxArray::createDouble(dims);
    for (std::size_t i = 0; i < order.size(); ++i) {
        array->doubles()[i] = static_cast<double>(order[i] + 1);
    }
    return share(std::move(array));
}

// Results of set functions are rows when the input is a row, else columns.
Dims listShape(Dims const& like, std::size_t count) {
    return isRow(like) ? Dims{1, count} : Dims{count, 1};
}

Values sortFunction(Args args, int nargout) {
    checkCount("sort", args, 1, 2);
    bool descending = false;
    if (args.size() == 2) {
        auto const direction = textOf(*args[1], "sort: the direction");
        if (direction != u"ascend" && direction != u"descend") {
            badArgument("sort", "the direction must be 'ascend' or 'descend'.");
        }
        descending = direction == u"descend";
    }
    auto const keys = keysOf("sort", *args[0]);
    auto const& dims = args[0]->getDimensions();
    // Columns of a matrix are sorted one by one; vectors as a whole.
    std::size_t const runLength = isVectorShape(dims) ? keys.size() : dims[0];
    std::size_t const runs = runLength == 0 ? 0 : keys.size() / runLength;
    std::vector<std::size_t> order(keys.size());
    std::vector<std::size_t> positions(keys.size());
    for (std::size_t run = 0; run < runs; ++run) {
        auto const first = run * runLength;
        std::vector<std::size_t> indices(runLength);
        std::iota(indices.begin(), indices.end(), first);
        std::stable_sort(indices.begin(), indices.end(), [&](std::size_t a, std::size_t b) {
            return descending ? lessThan(keys, b, a) : lessThan(keys, a, b);
        });
        for (std::size_t k = 0; k < runLength; ++k) {
            order[first + k] = indices[k];
            positions[first + k] = indices[k] - first;
        }
    }
    Values results{keysValue(keys, order, dims)};
    if (nargout > 1) {
        results.push_back(indexValue(positions, dims));
    }
    return results;
}

Values uniqueFunction(Args args, int nargout) {
    checkCount("unique", args, 1, 2);
    bool stable = false;
    if (args.size() == 2) {
        auto const option = textOf(*args[1], "unique: the option");
        if (option != u"stable" && option != u"sorted") {
            badArgument("unique", "the option must be 'stable' or 'sorted'.");
        }
        stable = option == u"stable";
    }
    auto const keys = keysOf("unique", *args[0]);
    std::vector<std::size_t> order(keys.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return lessThan(keys, a, b); });
    // First occurrences, and for every element the position of its value among them.
    std::vector<std::size_t> firsts;
    std::vector<std::size_t> groupOf(keys.size());
    for (std::size_t k = 0; k < order.size(); ++k) {
        if (k == 0 || !sameKey(keys, order[k], order[k - 1]) || (!keys.texts && std::isnan(keys.numbers[order[k]]))) {
            firsts.push_back(order[k]);
        }
        groupOf[order[k]] = firsts.size() - 1;
    }
    std::vector<std::size_t> rank(firsts.size());
    std::iota(rank.begin(), rank.end(), 0);
    if (stable) {
        std::vector<std::size_t> byPosition(firsts.size());
        std::iota(byPosition.begin(), byPosition.end(), 0);
        std::sort(byPosition.begin(), byPosition.end(),
                  [&](std::size_t a, std::size_t b) { return firsts[a] < firsts[b]; });
        std::vector<std::size_t> reordered;
        for (std::size_t k = 0; k < byPosition.size(); ++k) {
            reordered.push_back(firsts[byPosition[k]]);
            rank[byPosition[k]] = k;
        }
        firsts = std::move(reordered);
    }
    auto const shape = args[0]->getDimensions() == Dims{0, 0} && keys.size() == 0
                           ? Dims{0, keys.texts ? 1u : 0u}
                           : listShape(args[0]->getDimensions(), firsts.size());
    Values results{keysValue(keys, firsts, shape)};
    if (nargout > 1) {
        results.push_back(indexValue(firsts, {firsts.size(), 1}));
    }
    if (nargout > 2) {
        std::vector<std::size_t> positions;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            positions.push_back(rank[groupOf[i]]);
        }
        results.push_back(indexValue(positions, {positions.size(), 1}));
    }
    return results;
}

Values ismemberFunction(Args args, int nargout) {
    checkCount("ismember", args, 2, 2);
    auto const& a = *args[0];
    auto const& b = *args[1];
    // One text looked up in a list of texts gives one answer.
    if (isText(a) && (b.classID() == qxClassID::Cell || b.classID() == qxClassID::String)) {
        auto const list = keysOf("ismember", b);
        auto const text = a.getString();
        for (std::size_t i = 0; i < list.strings.size(); ++i) {
            if (list.strings[i] == text) {
                Values results{makeLogical(true)};
                if (nargout > 1) {
                    results.push_back(makeDouble(static_cast<double>(i + 1)));
                }
                return results;
            }
        }
        Values results{makeLogical(false)};
        if (nargout > 1) {
            results.push_back(makeDouble(0));
        }
        return results;
    }
    auto const needles = keysOf("ismember", a);
    Keys haystack;
    if (needles.texts && isText(b)) {
        haystack.texts = true;
        haystack.strings = {b.getString()};
    } else {
        haystack = keysOf("ismember", b);
    }
    if (needles.texts != haystack.texts) {
        badArgument("ismember", "compare numbers with numbers and texts with texts.");
    }
    auto found = qxArray::createLogical(a.getDimensions());
    auto where = qxArray::createDouble(a.getDimensions());
    for (std::size_t i = 0; i < needles.size(); ++i) {
        for (std::size_t j = 0; j < haystack.size(); ++j) {
            bool const equal =
                needles.texts ? needles.strings[i] == haystack.strings[j] : needles.numbers[i] == haystack.numbers[j];
            if (equal) {
                found->logicals()[i] = 1;
                where->doubles()[i] = static_cast<double>(j + 1);
                break;
            }
        }
    }
    Values results{share(std::move(found))};
    if (nargout > 1) {
        results.push_back(share(std::move(where)));
    }
    return results;
}

// setdiff, intersect and union: sorted (or 'stable') unique results.
Values setFunction(std::string_view function, Args args, int mode) {
    checkCount(function, args, 2, 3);
    bool stable = false;
    if (args.size() == 3) {
        auto const option = textOf(*args[2], fmt::format("{}: the option", function));
        if (option != u"stable" && option != u"sorted") {
            badArgument(function, "the option must be 'stable' or 'sorted'.");
        }
        stable = option == u"stable";
    }
    auto left = keysOf(function, *args[0]);
    auto right = keysOf(function, *args[1]);
    if (left.texts != right.texts) {
        badArgument(function, "both inputs must be numbers or both lists of texts.");
    }
    auto contains = [](Keys const& keys, Keys const& other, std::size_t index) {
        for (std::size_t j = 0; j < other.size(); ++j) {
            bool const equal =
                keys.texts ? keys.strings[index] == other.strings[j] : keys.numbers[index] == other.numbers[j];
            if (equal) {
                return true;
            }
        }
        return false;
    };
    // All candidates, in the order they appear: for union, the left then the right.
    Keys all = left;
    std::vector<std::size_t> chosen;
    for (std::size_t i = 0; i < left.size(); ++i) {
        bool const inRight = contains(left, right, i);
        if ((mode == 0 && !inRight) || (mode == 1 && inRight) || mode == 2) {
            chosen.push_back(i);
        }
    }
    if (mode == 2) {
        for (std::size_t j = 0; j < right.size(); ++j) {
            if (right.texts) {
                all.strings.push_back(right.strings[j]);
            } else {
                all.numbers.push_back(right.numbers[j]);
            }
            chosen.push_back(all.size() - 1);
        }
    }
    // Each value once.
    std::vector<std::size_t> distinct;
    for (auto const index : chosen) {
        bool seen = false;
        for (auto const kept : distinct) {
            seen = seen || sameKey(all, index, kept);
        }
        if (!seen) {
            distinct.push_back(index);
        }
    }
    if (!stable) {
        std::stable_sort(distinct.begin(), distinct.end(),
                         [&](std::size_t a, std::size_t b) { return lessThan(all, a, b); });
    }
    bool const row = isRow(args[0]->getDimensions()) && (mode != 2 || isRow(args[1]->getDimensions()));
    return one(keysValue(all, distinct, row ? Dims{1, distinct.size()} : Dims{distinct.size(), 1}));
}

// cell2mat(c): the contents of a 2-d cell joined as its layout says: each
// row of the cell horizontally, then the rows vertically.
Values cellToMatrix(Args args) {
    checkCount("cell2mat", args, 1, 1);
    auto const& cell = *args[0];
    if (cell.classID() != qxClassID::Cell) {
        badArgument("cell2mat", fmt::format("the input must be a cell array, got a {}.", cell.getClassName()));
    }
    auto const& dims = cell.getDimensions();
    if (dims.size() > 2) {
        badArgument("cell2mat", "only 2-d cell arrays are joined.");
    }
    if (cell.isEmpty()) {
        return one(makeEmpty());
    }
    std::vector<std::vector<Value>> rows(dims[0]);
    for (std::size_t row = 0; row < dims[0]; ++row) {
        for (std::size_t column = 0; column < dims[1]; ++column) {
            auto const& element = cell.getCell(row + column * dims[0]);
            if (element->classID() == qxClassID::Cell || element->classID() == qxClassID::Object) {
                badArgument("cell2mat", "the cells must hold numbers, logicals, characters or structs.");
            }
            rows[row].push_back(element);
        }
    }
    return one(concatenate(rows));
}

}  // namespace

void registerCollectionBuiltins() {
    defineBuiltin("cell2mat", [](Args args, int) { return cellToMatrix(args); });
    defineBuiltin("cellfun", [](Args args, int nargout) { return mapElements("cellfun", args, nargout, true); });
    defineBuiltin("arrayfun", [](Args args, int nargout) { return mapElements("arrayfun", args, nargout, false); });
    defineBuiltin("sort", sortFunction);
    defineBuiltin("unique", uniqueFunction);
    defineBuiltin("ismember", ismemberFunction);
    defineBuiltin("setdiff", [](Args args, int) { return setFunction("setdiff", args, 0); });
    defineBuiltin("intersect", [](Args args, int) { return setFunction("intersect", args, 1); });
    defineBuiltin("union", [](Args args, int) { return setFunction("union", args, 2); });
}

}  // namespace qlang::detail

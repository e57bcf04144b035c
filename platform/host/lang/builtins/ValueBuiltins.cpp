// Built-ins about values as a whole: sizes, making arrays, class tests,
// conversions, structs and cells, calling functions.

#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Interpreter.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace qlang::detail {

namespace {

Value dimsRow(Dims const& dims) {
    std::vector<double> values(dims.begin(), dims.end());
    return makeRow(values);
}

Values sizeOf(Args args, int nargout) {
    checkCount("size", args, 1, 2);
    auto const& dims = args[0]->getDimensions();
    if (args.size() == 2) {
        auto const dimension = countOf(*args[1], "The dimension given to size");
        if (dimension == 0) {
            badArgument("size", "dimensions are numbered from 1.");
        }
        return one(makeDouble(dimension <= dims.size() ? static_cast<double>(dims[dimension - 1]) : 1.0));
    }
    if (nargout <= 1) {
        return one(dimsRow(dims));
    }
    // [m, n] = size(x): the last output takes the product of the remaining dimensions.
    Values outputs;
    for (int k = 0; k < nargout; ++k) {
        auto const index = static_cast<std::size_t>(k);
        double extent = index < dims.size() ? static_cast<double>(dims[index]) : 1.0;
        if (k + 1 == nargout) {
            for (std::size_t d = index + 1; d < dims.size(); ++d) {
                extent *= static_cast<double>(dims[d]);
            }
        }
        outputs.push_back(makeDouble(extent));
    }
    return outputs;
}

template <class Make>
Values filled(std::string_view function, Args args, Make make) {
    // A trailing class name ('double', 'logical') chooses the kind for zeros and ones.
    auto const dims = sizeArguments(function, args);
    return one(make(dims));
}

Value typeTest(Args args, std::string_view function, bool (*test)(qxArray const&)) {
    checkCount(function, args, 1, 1);
    return makeLogical(test(*args[0]));
}

bool isA(qxArray const& value, std::string const& className) {
    auto const& own = value.getClassName();
    if (own == className) {
        return true;
    }
    auto const id = value.classID();
    if (className == "numeric" || className == "float") {
        return id == qxClassID::Double;
    }
    if (id == qxClassID::Object) {
        if (!value.isEmpty() && value.getObject(0)) {
            return qcos::omIsA(value.getObject(0)->getClassName(), className);
        }
        return qcos::omIsA(own, className);
    }
    return false;
}

Value toDouble(qxArray const& value) {
    if (value.classID() == qxClassID::String) {
        auto result = qxArray::createDouble(value.getDimensions());
        for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
            auto const text = utf8(value.getStringElement(i));
            char* end = nullptr;
            double const number = std::strtod(text.c_str(), &end);
            result->doubles()[i] = (text.empty() || *end != '\0') ? std::numeric_limits<double>::quiet_NaN() : number;
        }
        return share(std::move(result));
    }
    if (!isNumeric(value)) {
        badArgument("double",
                    fmt::format("a value of class '{}' cannot be converted to double.", value.getClassName()));
    }
    auto result = qxArray::createDouble(value.getDimensions());
    for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
        result->doubles()[i] = numberAt(value, i);
    }
    return share(std::move(result));
}

Value toLogical(qxArray const& value) {
    if (!isNumeric(value)) {
        badArgument("logical",
                    fmt::format("a value of class '{}' cannot be converted to logical.", value.getClassName()));
    }
    auto result = qxArray::createLogical(value.getDimensions());
    for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
        double const number = numberAt(value, i);
        if (std::isnan(number)) {
            badArgument("logical", "NaN cannot be converted to logical.");
        }
        result->logicals()[i] = number != 0 ? 1 : 0;
    }
    return share(std::move(result));
}

std::u16string memberName(qxArray const& value) {
    auto const& object = value.getObject(0);
    if (object) {
        if (auto const number = object->getEnumerationValue()) {
            if (auto const info = qcos::omFindClass(object->getClassName())) {
                for (auto const& [name, memberValue] : info->getEnumerationMembers()) {
                    if (memberValue == *number) {
                        return utf16(name);
                    }
                }
            }
        }
    }
    badArgument("char", fmt::format("an object of class '{}' has no text.", value.getClassName()));
}

Value toChar(Args args) {
    checkCount("char", args, 1, 1);
    auto const& value = *args[0];
    switch (value.classID()) {
    case qxClassID::Char:
        return args[0];
    case qxClassID::String:
        if (value.isScalar()) {
            return makeChars(value.getStringElement(0));
        }
        break;
    case qxClassID::Double:
    case qxClassID::Logical: {
        auto result = qxArray::createChar(value.getDimensions());
        for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
            result->chars()[i] = charCode(numberAt(value, i));
        }
        return share(std::move(result));
    }
    case qxClassID::Object:
        if (value.isScalar()) {
            return makeChars(memberName(value));
        }
        break;
    default:
        break;
    }
    if (value.classID() == qxClassID::Cell || value.classID() == qxClassID::String) {
        // Texts become the rows of a char matrix, padded with blanks.
        auto const texts = textsOf(value, "An element given to char");
        std::size_t width = 0;
        for (auto const& text : texts) {
            width = std::max(width, text.size());
        }
        auto result = qxArray::createChar({texts.size(), width});
        for (std::size_t row = 0; row < texts.size(); ++row) {
            for (std::size_t column = 0; column < width; ++column) {
                result->chars()[row + column * texts.size()] = column < texts[row].size() ? texts[row][column] : u' ';
            }
        }
        return share(std::move(result));
    }
    badArgument("char", fmt::format("a value of class '{}' cannot be converted to char.", value.getClassName()));
}

Value toString(Args args) {
    checkCount("string", args, 1, 1);
    auto const& value = *args[0];
    switch (value.classID()) {
    case qxClassID::String:
        return args[0];
    case qxClassID::Char:
    case qxClassID::Double:
    case qxClassID::Logical:
        return binaryOperation(Operator::Plus, *makeString(u""), value);
    case qxClassID::Cell: {
        auto result = qxArray::createStrings(value.getDimensions());
        for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
            result->setStringElement(i, textOf(*value.getCell(i), "An element given to string"));
        }
        return share(std::move(result));
    }
    case qxClassID::Object:
        if (value.isScalar()) {
            return makeString(memberName(value));
        }
        break;
    default:
        break;
    }
    badArgument("string", fmt::format("a value of class '{}' cannot be converted to a string.", value.getClassName()));
}

Values makeStruct(Args args) {
    if (args.size() % 2 != 0) {
        badArgument("struct", "fields are given as name, value pairs.");
    }
    std::vector<std::string> fields;
    Dims dims{1, 1};
    bool sized = false;
    for (std::size_t i = 0; i < args.size(); i += 2) {
        auto const name = utf8(textOf(*args[i], "A field name given to struct"));
        if (std::find(fields.begin(), fields.end(), name) != fields.end()) {
            badArgument("struct", fmt::format("the field '{}' is given twice.", name));
        }
        fields.push_back(name);
        // A cell value makes a struct array of the cell's size (a 1-by-1 cell sets one value).
        auto const& value = *args[i + 1];
        if (value.classID() == qxClassID::Cell && !value.isScalar()) {
            if (sized && value.getDimensions() != dims) {
                badArgument("struct", "the cell values must all have the same size.");
            }
            dims = value.getDimensions();
            sized = true;
        }
    }
    auto result = qxArray::createStruct(dims, fields);
    for (std::size_t f = 0; f < fields.size(); ++f) {
        auto const& value = args[2 * f + 1];
        for (std::size_t i = 0; i < result->getNumberOfElements(); ++i) {
            if (value->classID() == qxClassID::Cell) {
                result->setField(i, f, value->isScalar() ? value->getCell(0) : value->getCell(i));
            } else {
                result->setField(i, f, value);
            }
        }
    }
    return one(share(std::move(result)));
}

Values fieldNames(Args args) {
    checkCount("fieldnames", args, 1, 1);
    auto const& value = *args[0];
    std::vector<std::u16string> names;
    if (value.classID() == qxClassID::Struct) {
        for (auto const& field : value.getFieldNames()) {
            names.push_back(utf16(field));
        }
    } else if (value.classID() == qxClassID::Object) {
        // The properties of the class and its superclasses, in declaration order, each once.
        std::set<std::string> seen;
        std::vector<std::string> pending{value.isEmpty() ? value.getClassName() : value.getObject(0)->getClassName()};
        while (!pending.empty()) {
            auto const name = pending.front();
            pending.erase(pending.begin());
            auto const info = qcos::omFindClass(name);
            if (!info) {
                continue;
            }
            for (auto const& property : info->getProperties()) {
                if (seen.insert(property.name).second) {
                    names.push_back(utf16(property.name));
                }
            }
            for (auto const& super : info->getSuperclassNames()) {
                pending.push_back(super);
            }
        }
    } else {
        badArgument("fieldnames", fmt::format("a value of class '{}' has no fields.", value.getClassName()));
    }
    return one(makeTexts(names, {names.size(), 1}));
}

Values isField(Args args) {
    checkCount("isfield", args, 2, 2);
    auto const& value = *args[0];
    auto const& names = *args[1];
    auto has = [&](std::u16string const& name) {
        return value.classID() == qxClassID::Struct && value.fieldIndex(utf8(name)) >= 0;
    };
    if (names.classID() == qxClassID::Cell) {
        auto result = qxArray::createLogical(names.getDimensions());
        for (std::size_t i = 0; i < names.getNumberOfElements(); ++i) {
            auto const& element = *names.getCell(i);
            result->logicals()[i] = isText(element) && has(element.getString()) ? 1 : 0;
        }
        return one(share(std::move(result)));
    }
    return one(makeLogical(isText(names) && has(names.getString())));
}

Values removeField(Args args) {
    checkCount("rmfield", args, 2, 2);
    if (args[0]->classID() != qxClassID::Struct) {
        badArgument("rmfield", "the first input must be a struct.");
    }
    Value result = args[0];
    for (auto const& name : textsOf(*args[1], "A field name given to rmfield")) {
        int const field = result->fieldIndex(utf8(name));
        if (field < 0) {
            badArgument("rmfield", fmt::format("the struct has no field '{}'.", utf8(name)));
        }
        mutate(result).removeField(static_cast<std::size_t>(field));
    }
    return one(result);
}

Values reshapeOf(Args args) {
    if (args.size() < 2) {
        checkCount("reshape", args, 2, 2);
    }
    auto dims = sizeArguments("reshape", args.subspan(1));
    if (args.size() == 2 && args[1]->isScalar()) {
        badArgument("reshape", "give the size as a row [m n] or as several numbers.");
    }
    Value result = share(args[0]->clone());
    if (countOf(dims) != result->getNumberOfElements()) {
        badArgument("reshape", fmt::format("an array of {} elements cannot become {}.", result->getNumberOfElements(),
                                           dimsText(dims)));
    }
    mutate(result).reshape(dims);
    return one(result);
}

Values repmatOf(Args args) {
    checkCount("repmat", args, 2, 3);
    auto const counts = sizeArguments("repmat", args.subspan(1));
    Value row = args[0];
    std::vector<Value> copies(counts.size() > 1 ? counts[1] : counts[0], args[0]);
    row = horizontal(copies);
    std::vector<Value> rows(counts[0], row);
    auto result = vertical(rows);
    if (counts[0] == 0 || (counts.size() > 1 && counts[1] == 0)) {
        auto const& dims = args[0]->getDimensions();
        return one(share(emptyLike(*args[0], {dims[0] * counts[0], dims[1] * (counts.size() > 1 ? counts[1] : 1)})));
    }
    return one(result);
}

Values numToCell(Args args) {
    checkCount("num2cell", args, 1, 1);
    auto const& value = *args[0];
    auto result = qxArray::createCell(value.getDimensions());
    for (std::size_t i = 0; i < value.getNumberOfElements(); ++i) {
        result->setCell(i, elementOf(value, i));
    }
    return one(share(std::move(result)));
}

Values isMethodOrProperty(Args args, bool method) {
    checkCount(method ? "ismethod" : "isprop", args, 2, 2);
    auto const name = utf8(textOf(*args[1], "The member name"));
    if (args[0]->classID() != qxClassID::Object) {
        return one(makeLogical(false));
    }
    auto const className =
        args[0]->isEmpty() || !args[0]->getObject(0) ? args[0]->getClassName() : args[0]->getObject(0)->getClassName();
    if (method) {
        return one(makeLogical(classHasMethod(className, name)));
    }
    try {
        (void)qcos::omGetPropertyShared(*args[0]->getObject(0), name);
        return one(makeLogical(true));
    } catch (qcos::HostError const&) {
        return one(makeLogical(false));
    }
}

}  // namespace

void registerValueBuiltins() {
    defineBuiltin("size", sizeOf);
    defineBuiltin("numel", [](Args args, int) {
        checkCount("numel", args, 1, 1);
        return one(makeDouble(static_cast<double>(args[0]->getNumberOfElements())));
    });
    defineBuiltin("length", [](Args args, int) {
        checkCount("length", args, 1, 1);
        auto const& dims = args[0]->getDimensions();
        std::size_t longest = args[0]->isEmpty() ? 0 : *std::max_element(dims.begin(), dims.end());
        return one(makeDouble(static_cast<double>(longest)));
    });
    defineBuiltin("ndims", [](Args args, int) {
        checkCount("ndims", args, 1, 1);
        return one(makeDouble(static_cast<double>(args[0]->getDimensions().size())));
    });
    defineBuiltin("isempty", [](Args args, int) {
        return one(typeTest(args, "isempty", [](qxArray const& v) { return v.isEmpty(); }));
    });
    defineBuiltin("isscalar", [](Args args, int) {
        return one(typeTest(args, "isscalar", [](qxArray const& v) { return v.isScalar(); }));
    });
    defineBuiltin("isvector", [](Args args, int) {
        return one(typeTest(args, "isvector",
                            [](qxArray const& v) { return isVectorShape(v.getDimensions()) && !v.isEmpty(); }));
    });
    defineBuiltin("isrow", [](Args args, int) {
        return one(typeTest(args, "isrow", [](qxArray const& v) { return isRow(v.getDimensions()); }));
    });
    defineBuiltin("iscolumn", [](Args args, int) {
        return one(typeTest(args, "iscolumn",
                            [](qxArray const& v) { return v.getDimensions().size() == 2 && v.getN() == 1; }));
    });
    defineBuiltin("zeros", [](Args args, int) {
        return filled("zeros", args, [](Dims const& dims) { return share(qxArray::createDouble(dims)); });
    });
    defineBuiltin("ones", [](Args args, int) {
        return filled("ones", args, [](Dims const& dims) {
            auto array = qxArray::createDouble(dims);
            std::fill(array->doubles().begin(), array->doubles().end(), 1.0);
            return share(std::move(array));
        });
    });
    defineBuiltin("true", [](Args args, int) {
        return filled("true", args, [](Dims const& dims) {
            auto array = qxArray::createLogical(dims);
            std::fill(array->logicals().begin(), array->logicals().end(), std::uint8_t{1});
            return share(std::move(array));
        });
    });
    defineBuiltin("false", [](Args args, int) {
        return filled("false", args, [](Dims const& dims) { return share(qxArray::createLogical(dims)); });
    });
    defineBuiltin("cell", [](Args args, int) {
        return filled("cell", args, [](Dims const& dims) { return share(qxArray::createCell(dims)); });
    });
    // Inf, NaN (also spelt inf, nan): a scalar, or an array of a size as for zeros.
    for (auto const& [name, value] :
         std::initializer_list<std::pair<char const*, double>>{{"Inf", std::numeric_limits<double>::infinity()},
                                                               {"inf", std::numeric_limits<double>::infinity()},
                                                               {"NaN", std::numeric_limits<double>::quiet_NaN()},
                                                               {"nan", std::numeric_limits<double>::quiet_NaN()}}) {
        defineBuiltin(name, [name = std::string(name), value = value](Args args, int) {
            if (args.empty()) {
                return one(makeDouble(value));
            }
            return filled(name, args, [value](Dims const& dims) {
                auto array = qxArray::createDouble(dims);
                std::fill(array->doubles().begin(), array->doubles().end(), value);
                return share(std::move(array));
            });
        });
    }
    defineBuiltin("pi", [](Args args, int) {
        checkCount("pi", args, 0, 0);
        return one(makeDouble(3.14159265358979323846));
    });
    defineBuiltin("eps", [](Args args, int) {
        checkCount("eps", args, 0, 0);
        return one(makeDouble(std::numeric_limits<double>::epsilon()));
    });
    defineBuiltin("struct", [](Args args, int) { return makeStruct(args); });
    defineBuiltin("fieldnames", [](Args args, int) { return fieldNames(args); });
    defineBuiltin("isfield", [](Args args, int) { return isField(args); });
    defineBuiltin("rmfield", [](Args args, int) { return removeField(args); });
    defineBuiltin("class", [](Args args, int) {
        checkCount("class", args, 1, 1);
        auto const& value = *args[0];
        // One object is of its own class; an array of several, of the array's (common) class.
        auto const name = value.classID() == qxClassID::Object && value.isScalar() && value.getObject(0)
                              ? value.getObject(0)->getClassName()
                              : value.getClassName();
        return one(makeChars(utf16(name)));
    });
    defineBuiltin("isa", [](Args args, int) {
        checkCount("isa", args, 2, 2);
        return one(makeLogical(isA(*args[0], utf8(textOf(*args[1], "The class name given to isa")))));
    });
    defineBuiltin("ischar", [](Args args, int) {
        return one(typeTest(args, "ischar", [](qxArray const& v) { return v.classID() == qxClassID::Char; }));
    });
    defineBuiltin("isstring", [](Args args, int) {
        return one(typeTest(args, "isstring", [](qxArray const& v) { return v.classID() == qxClassID::String; }));
    });
    defineBuiltin("iscell", [](Args args, int) {
        return one(typeTest(args, "iscell", [](qxArray const& v) { return v.classID() == qxClassID::Cell; }));
    });
    defineBuiltin("iscellstr", [](Args args, int) {
        return one(typeTest(args, "iscellstr",
                            [](qxArray const& v) { return v.classID() == qxClassID::Cell && isTextList(v); }));
    });
    defineBuiltin("isstruct", [](Args args, int) {
        return one(typeTest(args, "isstruct", [](qxArray const& v) { return v.classID() == qxClassID::Struct; }));
    });
    defineBuiltin("islogical", [](Args args, int) {
        return one(typeTest(args, "islogical", [](qxArray const& v) { return v.classID() == qxClassID::Logical; }));
    });
    defineBuiltin("isnumeric", [](Args args, int) {
        return one(typeTest(args, "isnumeric", [](qxArray const& v) { return v.classID() == qxClassID::Double; }));
    });
    defineBuiltin("isobject", [](Args args, int) {
        return one(typeTest(args, "isobject", [](qxArray const& v) { return v.classID() == qxClassID::Object; }));
    });
    defineBuiltin("isequal", [](Args args, int) {
        if (args.size() < 2) {
            checkCount("isequal", args, 2, 2);
        }
        bool equal = true;
        for (std::size_t i = 1; i < args.size() && equal; ++i) {
            equal = valuesEqual(*args[0], *args[i]);
        }
        return one(makeLogical(equal));
    });
    defineBuiltin("double", [](Args args, int) {
        checkCount("double", args, 1, 1);
        return one(toDouble(*args[0]));
    });
    defineBuiltin("logical", [](Args args, int) {
        checkCount("logical", args, 1, 1);
        return one(toLogical(*args[0]));
    });
    defineBuiltin("char", [](Args args, int) { return one(toChar(args)); });
    defineBuiltin("string", [](Args args, int) { return one(toString(args)); });
    defineBuiltin("reshape", [](Args args, int) { return reshapeOf(args); });
    defineBuiltin("repmat", [](Args args, int) { return repmatOf(args); });
    defineBuiltin("horzcat", [](Args args, int) { return one(horizontal(args)); });
    defineBuiltin("vertcat", [](Args args, int) { return one(vertical(args)); });
    defineBuiltin("num2cell", [](Args args, int) { return numToCell(args); });
    defineBuiltin("deal", [](Args args, int nargout) {
        auto const wanted = static_cast<std::size_t>(std::max(nargout, 1));
        if (args.size() != 1 && args.size() != wanted) {
            badArgument("deal", fmt::format("give one input or as many as outputs ({}).", wanted));
        }
        Values outputs;
        for (std::size_t i = 0; i < wanted; ++i) {
            outputs.push_back(args.size() == 1 ? args[0] : args[i]);
        }
        return outputs;
    });
    defineBuiltin("feval", [](Args args, int nargout) {
        if (args.empty()) {
            checkCount("feval", args, 1, 1);
        }
        return callCallable(args[0], args.subspan(1), nargout);
    });
    defineBuiltin("func2str", [](Args args, int) {
        checkCount("func2str", args, 1, 1);
        if (args[0]->classID() != qxClassID::FunctionHandle) {
            badArgument("func2str", "the input must be a function handle.");
        }
        auto text = args[0]->getFunctionHandle()->text();
        // A named handle reads as its name.
        if (!text.empty() && text.front() == u'@' && text.size() > 1 && text[1] != u'(') {
            text.erase(0, 1);
        }
        return one(makeChars(text));
    });
    defineBuiltin("str2func", [](Args args, int) {
        checkCount("str2func", args, 1, 1);
        auto name = utf8(textOf(*args[0], "The function name given to str2func"));
        if (!name.empty() && name.front() == '@') {
            badArgument("str2func", "anonymous functions cannot be made from text.");
        }
        return one(makeNamedHandle(name));
    });
    defineBuiltin("ismethod", [](Args args, int) { return isMethodOrProperty(args, true); });
    defineBuiltin("isprop", [](Args args, int) { return isMethodOrProperty(args, false); });
}

}  // namespace qlang::detail

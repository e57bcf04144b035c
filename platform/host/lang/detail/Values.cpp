#include "platform/host/lang/detail/Values.hpp"

#include "platform/host/HostFunctions.hpp"

#include <boost/locale/encoding_utf.hpp>

#include <cmath>
#include <set>

namespace qlang::detail {

void raise(std::string identifier, std::string message) {
    throw qcos::HostError(std::move(identifier), message);
}

std::string utf8(std::u16string_view text) {
    return boost::locale::conv::utf_to_utf<char>(text.data(), text.data() + text.size());
}

std::u16string utf16(std::string_view text) {
    return boost::locale::conv::utf_to_utf<char16_t>(text.data(), text.data() + text.size());
}

Value makeDouble(double value) {
    return share(qxArray::createScalar(value));
}

Value makeLogical(bool value) {
    return share(qxArray::createLogicalScalar(value));
}

Value makeChars(std::u16string_view text) {
    return share(text.empty() ? qxArray::createChar({0, 0}) : qxArray::createString(text));
}

Value makeString(std::u16string_view text) {
    return share(qxArray::createStringScalar(text));
}

Value makeEmpty() {
    return share(qxArray::createDouble({0, 0}));
}

Value makeTexts(std::vector<std::u16string> const& texts, Dims dims) {
    auto cell = qxArray::createCell(std::move(dims));
    for (std::size_t i = 0; i < texts.size() && i < cell->getNumberOfElements(); ++i) {
        cell->setCell(i, makeChars(texts[i]));
    }
    return share(std::move(cell));
}

Value makeRow(std::vector<double> const& values) {
    auto row = qxArray::createDouble({1, values.size()});
    std::copy(values.begin(), values.end(), row->doubles().begin());
    return share(std::move(row));
}

qxArray& mutate(Value& value) {
    if (value->isShared()) {
        value = share(value->clone());
    }
    return const_cast<qxArray&>(*value);
}

bool isNumeric(qxArray const& array) noexcept {
    auto const id = array.classID();
    return id == qxClassID::Double || id == qxClassID::Logical || id == qxClassID::Char;
}

double numberAt(qxArray const& array, std::size_t index) {
    switch (array.classID()) {
    case qxClassID::Double:
        return array.doubles()[index];
    case qxClassID::Logical:
        return array.logicals()[index];
    case qxClassID::Char:
        return array.chars()[index];
    default:
        raise("qlang:type:notNumeric",
              fmt::format("Expected a number, got a value of class '{}'.", array.getClassName()));
    }
}

char16_t charCode(double number) noexcept {
    if (!(number > 0)) {
        return 0;  // negative, zero or NaN
    }
    if (number >= 0xFFFF) {
        return 0xFFFF;
    }
    return static_cast<char16_t>(std::round(number));
}

bool isText(qxArray const& array) noexcept {
    if (array.classID() == qxClassID::Char) {
        return array.getDimensions().size() == 2 && (array.getM() == 1 || array.isEmpty());
    }
    return array.classID() == qxClassID::String && array.isScalar();
}

std::u16string textOf(qxArray const& array, std::string_view what) {
    if (!isText(array)) {
        raise("qlang:type:notText", fmt::format("{} must be text (a char row or a string), got a {} {}.", what,
                                                dimsText(array.getDimensions()), array.getClassName()));
    }
    return array.getString();
}

bool isTextList(qxArray const& array) noexcept {
    if (array.classID() == qxClassID::String) {
        return true;
    }
    if (array.classID() != qxClassID::Cell) {
        return false;
    }
    for (auto const& element : array.cells()) {
        if (!isText(*element)) {
            return false;
        }
    }
    return true;
}

std::vector<std::u16string> textsOf(qxArray const& array, std::string_view what) {
    std::vector<std::u16string> texts;
    if (array.classID() == qxClassID::String) {
        for (std::size_t i = 0; i < array.getNumberOfElements(); ++i) {
            texts.push_back(array.getStringElement(i));
        }
        return texts;
    }
    if (array.classID() == qxClassID::Cell) {
        for (auto const& element : array.cells()) {
            texts.push_back(textOf(*element, what));
        }
        return texts;
    }
    texts.push_back(textOf(array, what));
    return texts;
}

double scalarOf(qxArray const& array, std::string_view what) {
    if ((array.classID() != qxClassID::Double && array.classID() != qxClassID::Logical) || !array.isScalar()) {
        raise("qlang:type:notScalar", fmt::format("{} must be a number, got a {} {}.", what,
                                                  dimsText(array.getDimensions()), array.getClassName()));
    }
    return numberAt(array, 0);
}

std::size_t countOf(qxArray const& array, std::string_view what) {
    double const value = scalarOf(array, what);
    if (!(value >= 0) || value != std::floor(value) || value > 1e15) {
        raise("qlang:type:notCount",
              fmt::format("{} must be a non-negative whole number, got {}.", what, numberText(value)));
    }
    return static_cast<std::size_t>(value);
}

bool truthOf(qxArray const& array) {
    if (array.isEmpty()) {
        return false;
    }
    switch (array.classID()) {
    case qxClassID::Logical:
        for (auto const flag : array.logicals()) {
            if (flag == 0) {
                return false;
            }
        }
        return true;
    case qxClassID::Double:
        for (auto const value : array.doubles()) {
            if (std::isnan(value)) {
                raise("qlang:type:nanCondition", "NaN cannot be converted to a logical value.");
            }
            if (value == 0) {
                return false;
            }
        }
        return true;
    case qxClassID::Char:
        for (auto const c : array.chars()) {
            if (c == 0) {
                return false;
            }
        }
        return true;
    default:
        raise("qlang:type:notLogical",
              fmt::format("A value of class '{}' cannot be used as a condition.", array.getClassName()));
    }
}

bool isHandleClass(std::string_view className) {
    std::vector<std::string> pending{std::string(className)};
    std::set<std::string> seen;
    while (!pending.empty()) {
        auto name = std::move(pending.back());
        pending.pop_back();
        if (name == "handle") {
            return true;
        }
        if (!seen.insert(name).second) {
            continue;
        }
        auto const info = qcos::omFindClass(name);
        if (!info) {
            continue;
        }
        if (info->isNativeBinding() || info->isEnumeration()) {
            return true;
        }
        for (auto const& super : info->getSuperclassNames()) {
            pending.push_back(super);
        }
    }
    return false;
}

bool isRow(Dims const& dims) noexcept {
    return dims.size() == 2 && dims[0] == 1;
}

bool isVectorShape(Dims const& dims) noexcept {
    return dims.size() == 2 && (dims[0] == 1 || dims[1] == 1);
}

std::size_t countOf(Dims const& dims) noexcept {
    std::size_t count = 1;
    for (auto const extent : dims) {
        count *= extent;
    }
    return count;
}

std::string dimsText(Dims const& dims) {
    return fmt::format("{}", fmt::join(dims, "x"));
}

std::string numberText(double value) {
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "Inf" : "-Inf";
    }
    if (value == std::floor(value) && std::fabs(value) < 1e15) {
        return fmt::format("{}", static_cast<long long>(value));
    }
    // The shortest of 15 or 17 significant digits that reads back the same.
    auto text = fmt::format("{:.15g}", value);
    if (std::stod(text) != value) {
        text = fmt::format("{:.17g}", value);
    }
    return text;
}

std::string shortNumberText(double value) {
    if (std::isnan(value) || std::isinf(value) || (value == std::floor(value) && std::fabs(value) < 1e15)) {
        return numberText(value);
    }
    return fmt::format("{:.5g}", value);
}

std::u16string quotedText(std::u16string_view text, char16_t quote) {
    std::u16string out(1, quote);
    for (auto const c : text) {
        out.push_back(c);
        if (c == quote) {
            out.push_back(c);
        }
    }
    out.push_back(quote);
    return out;
}

namespace {

std::u16string elementText(qxArray const& array, std::size_t index) {
    switch (array.classID()) {
    case qxClassID::Double:
        return utf16(numberText(array.doubles()[index]));
    case qxClassID::Logical:
        return array.logicals()[index] != 0 ? u"true" : u"false";
    case qxClassID::String:
        return quotedText(array.getStringElement(index), u'"');
    case qxClassID::Cell:
        return describe(*array.getCell(index));
    case qxClassID::Object: {
        auto const& object = array.getObject(index);
        if (!object) {
            return u"<empty>";
        }
        if (auto const value = object->getEnumerationValue()) {
            auto const info = qcos::omFindClass(object->getClassName());
            for (auto const& [name, number] :
                 info ? info->getEnumerationMembers() : std::vector<std::pair<std::string, std::int64_t>>{}) {
                if (number == *value) {
                    return utf16(name);
                }
            }
        }
        return u"<" + utf16(object->getClassName()) + u">";
    }
    case qxClassID::FunctionHandle:
        return array.getFunctionHandle()->text();
    default:
        return u"?";
    }
}

// Elements in rows: "a b;c d".
std::u16string gridText(qxArray const& array, std::u16string_view separator) {
    auto const& dims = array.getDimensions();
    std::u16string out;
    for (std::size_t row = 0; row < dims[0]; ++row) {
        if (row > 0) {
            out += u";";
        }
        for (std::size_t column = 0; column < dims[1]; ++column) {
            if (column > 0) {
                out += separator;
            }
            out += elementText(array, row + column * dims[0]);
        }
    }
    return out;
}

}  // namespace

std::u16string describe(qxArray const& array) {
    auto const& dims = array.getDimensions();
    auto const id = array.classID();
    if (dims.size() > 2) {
        return utf16(fmt::format("<{} {}>", dimsText(dims), array.getClassName()));
    }
    if (id == qxClassID::Char) {
        if (array.getM() == 1 || (array.isEmpty() && dims[1] == 0)) {
            return quotedText(array.getString(), u'\'');
        }
        if (array.isEmpty()) {
            return utf16(fmt::format("char({})", fmt::join(dims, ",")));
        }
        std::u16string out = u"[";
        for (std::size_t row = 0; row < dims[0]; ++row) {
            std::u16string text;
            for (std::size_t column = 0; column < dims[1]; ++column) {
                text.push_back(array.chars()[row + column * dims[0]]);
            }
            out += (row > 0 ? u";" : u"") + quotedText(text, u'\'');
        }
        return out + u"]";
    }
    if (id == qxClassID::Struct) {
        auto const& fields = array.getFieldNames();
        if (!array.isScalar()) {
            return utf16(fmt::format("<{} struct {}>", dimsText(dims), fmt::join(fields, ",")));
        }
        std::u16string out = u"struct(";
        for (std::size_t f = 0; f < fields.size(); ++f) {
            out += (f > 0 ? u"," : u"") + utf16(fields[f]) + u"=" + describe(*array.getField(0, f));
        }
        return out + u")";
    }
    if (array.isEmpty()) {
        bool const square = dims[0] == 0 && dims[1] == 0;
        switch (id) {
        case qxClassID::Double:
            return square ? u"[]" : utf16(fmt::format("zeros({},{})", dims[0], dims[1]));
        case qxClassID::Logical:
            return utf16(fmt::format("false({},{})", dims[0], dims[1]));
        case qxClassID::Cell:
            return square ? u"{}" : utf16(fmt::format("cell({},{})", dims[0], dims[1]));
        case qxClassID::String:
            return utf16(fmt::format("strings({},{})", dims[0], dims[1]));
        default:
            return utf16(fmt::format("<{} {}>", dimsText(dims), array.getClassName()));
        }
    }
    if (id == qxClassID::Object && !array.isScalar()) {
        return utf16(fmt::format("<{} {}>", dimsText(dims), array.getClassName()));
    }
    if (id == qxClassID::Cell) {
        return u"{" + gridText(array, u",") + u"}";
    }
    if (array.isScalar()) {
        return elementText(array, 0);
    }
    return u"[" + gridText(array, u" ") + u"]";
}

std::u16string displayText(qxArray const& array) {
    auto const& dims = array.getDimensions();
    switch (array.classID()) {
    case qxClassID::Char: {
        if (dims.size() > 2) {
            break;
        }
        std::u16string out;
        for (std::size_t row = 0; row < dims[0]; ++row) {
            if (row > 0) {
                out += u"\n";
            }
            for (std::size_t column = 0; column < dims[1]; ++column) {
                out.push_back(array.chars()[row + column * dims[0]]);
            }
        }
        return out;
    }
    case qxClassID::String:
        if (array.isScalar()) {
            return array.getStringElement(0);
        }
        break;
    case qxClassID::Double:
    case qxClassID::Logical: {
        if (dims.size() > 2 || array.isEmpty()) {
            break;
        }
        std::u16string out;
        for (std::size_t row = 0; row < dims[0]; ++row) {
            if (row > 0) {
                out += u"\n";
            }
            for (std::size_t column = 0; column < dims[1]; ++column) {
                auto const index = row + column * dims[0];
                double const value = numberAt(array, index);
                out += (column > 0 ? u"  " : u"") +
                       utf16(array.classID() == qxClassID::Logical ? numberText(value) : shortNumberText(value));
            }
        }
        return out;
    }
    default:
        break;
    }
    return describe(array);
}

}  // namespace qlang::detail

#include "platform/host/lang/detail/Indexing.hpp"

#include "platform/host/lang/detail/Operations.hpp"

#include <algorithm>
#include <cmath>
#include <set>

namespace qlang::detail {

namespace {

// One subscript turned into 0-based positions.
struct Positions {
    bool colon = false;
    bool logical = false;
    std::vector<std::size_t> indices;
    Dims shape;               // the subscript's own shape (for linear indexing results)
    std::size_t maximum = 0;  // the largest position + 1
};

Positions positionsOf(Value const& subscript, std::size_t extent) {
    Positions positions;
    if (isColon(subscript)) {
        positions.colon = true;
        positions.indices.resize(extent);
        for (std::size_t i = 0; i < extent; ++i) {
            positions.indices[i] = i;
        }
        positions.shape = {extent, 1};
        positions.maximum = extent;
        return positions;
    }
    auto const& array = *subscript;
    positions.shape = array.getDimensions();
    auto const count = array.getNumberOfElements();
    if (array.classID() == qxClassID::Logical) {
        positions.logical = true;
        auto const flags = array.logicals();
        for (std::size_t i = 0; i < count; ++i) {
            if (flags[i] != 0) {
                positions.indices.push_back(i);
                positions.maximum = i + 1;
            }
        }
        // A mask selects like find(mask): a row stays a row, anything else is a column.
        positions.shape =
            isRow(array.getDimensions()) ? Dims{1, positions.indices.size()} : Dims{positions.indices.size(), 1};
        return positions;
    }
    if (array.classID() != qxClassID::Double && array.classID() != qxClassID::Char) {
        raise("qlang:index:badSubscript",
              fmt::format("A value of class '{}' cannot be used as an index.", array.getClassName()));
    }
    positions.indices.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        double const value = numberAt(array, i);
        if (!(value >= 1) || value != std::floor(value) || value > 1e15) {
            raise("qlang:index:badSubscript",
                  fmt::format("Array indices must be positive whole numbers or logical values, got {}.",
                              numberText(value)));
        }
        auto const index = static_cast<std::size_t>(value) - 1;
        positions.indices[i] = index;
        positions.maximum = std::max(positions.maximum, index + 1);
    }
    return positions;
}

// The extent each of `count` subscripts addresses: the dimensions, with the
// last subscript taking all remaining ones.
std::vector<std::size_t> extentsFor(Dims const& dims, std::size_t count) {
    std::vector<std::size_t> extents(count, 1);
    for (std::size_t k = 0; k < count; ++k) {
        if (k + 1 < count) {
            extents[k] = k < dims.size() ? dims[k] : 1;
        } else {
            std::size_t rest = 1;
            for (std::size_t d = k; d < dims.size(); ++d) {
                rest *= dims[d];
            }
            extents[k] = rest;
        }
    }
    return extents;
}

[[noreturn]] void outOfBounds(std::size_t index, std::size_t extent, std::size_t position, std::size_t count) {
    if (count == 1) {
        raise("qlang:index:outOfBounds",
              fmt::format("Index {} exceeds the number of array elements ({}).", index + 1, extent));
    }
    raise("qlang:index:outOfBounds",
          fmt::format("Index {} in position {} exceeds the array's size ({}) in that dimension.", index + 1,
                      position + 1, extent));
}

// Visits the linear positions that a list of per-dimension positions selects,
// the first dimension fastest.
template <class Visit>
void forEachSelected(std::vector<Positions> const& lists, std::vector<std::size_t> const& strides, Visit&& visit) {
    std::size_t total = 1;
    for (auto const& list : lists) {
        total *= list.indices.size();
    }
    if (total == 0) {
        return;
    }
    std::vector<std::size_t> counter(lists.size(), 0);
    for (std::size_t n = 0; n < total; ++n) {
        std::size_t linear = 0;
        for (std::size_t k = 0; k < lists.size(); ++k) {
            linear += lists[k].indices[counter[k]] * strides[k];
        }
        visit(linear, n);
        for (std::size_t k = 0; k < lists.size(); ++k) {
            if (++counter[k] < lists[k].indices.size()) {
                break;
            }
            counter[k] = 0;
        }
    }
}

std::vector<std::size_t> stridesOf(std::vector<std::size_t> const& extents) {
    std::vector<std::size_t> strides(extents.size(), 1);
    for (std::size_t k = 1; k < extents.size(); ++k) {
        strides[k] = strides[k - 1] * extents[k - 1];
    }
    return strides;
}

// `value` converted to the kind of `target` for storing into it.
Value convertForStore(Value const& value, qxArray const& target) {
    auto const targetKind = target.classID();
    auto const valueKind = value->classID();
    if (targetKind == valueKind) {
        if (targetKind == qxClassID::Struct && value->getFieldNames() != target.getFieldNames()) {
            auto const& fields = target.getFieldNames();
            std::set<std::string> const wanted(fields.begin(), fields.end());
            auto const& given = value->getFieldNames();
            if (std::set<std::string>(given.begin(), given.end()) != wanted) {
                raise("qlang:index:fieldMismatch", "A struct with other fields cannot be stored in this struct array.");
            }
            auto reordered = qxArray::createStruct(value->getDimensions(), fields);
            for (std::size_t i = 0; i < value->getNumberOfElements(); ++i) {
                for (std::size_t f = 0; f < fields.size(); ++f) {
                    reordered->setField(i, f,
                                        value->getField(i, static_cast<std::size_t>(value->fieldIndex(fields[f]))));
                }
            }
            return share(std::move(reordered));
        }
        return value;
    }
    if (isNumeric(target) && isNumeric(*value)) {
        auto converted = targetKind == qxClassID::Char      ? qxArray::createChar(value->getDimensions())
                         : targetKind == qxClassID::Logical ? qxArray::createLogical(value->getDimensions())
                                                            : qxArray::createDouble(value->getDimensions());
        for (std::size_t i = 0; i < value->getNumberOfElements(); ++i) {
            double const number = numberAt(*value, i);
            switch (targetKind) {
            case qxClassID::Char:
                converted->chars()[i] = charCode(number);
                break;
            case qxClassID::Logical:
                converted->logicals()[i] = number != 0 ? 1 : 0;
                break;
            default:
                converted->doubles()[i] = number;
                break;
            }
        }
        return share(std::move(converted));
    }
    if (targetKind == qxClassID::String && isNumeric(*value)) {
        // Text as one string; numbers element by element.
        if (value->classID() == qxClassID::Char) {
            return makeString(value->getString());
        }
        auto strings = qxArray::createStrings(value->getDimensions());
        for (std::size_t i = 0; i < value->getNumberOfElements(); ++i) {
            strings->setStringElement(i, utf16(shortNumberText(numberAt(*value, i))));
        }
        return share(std::move(strings));
    }
    raise("qlang:index:classMismatch", fmt::format("A value of class '{}' cannot be stored in an array of class '{}'.",
                                                   value->getClassName(), target.getClassName()));
}

// The kind an assignment gives an array that holds `current` and receives `incoming`.
bool widensToDouble(qxArray const& current, qxArray const& incoming) {
    return current.classID() == qxClassID::Logical &&
           (incoming.classID() == qxClassID::Double || incoming.classID() == qxClassID::Char);
}

qxArrayPtr resized(qxArray const& array, Dims const& newDims) {
    auto result = emptyLike(array, newDims);
    auto const& oldDims = array.getDimensions();
    auto const count = array.getNumberOfElements();
    if (count == 0) {
        return result;
    }
    // Copy each old element to its place in the new shape.
    std::vector<std::size_t> position(oldDims.size(), 0);
    auto const newStrides = stridesOf(std::vector<std::size_t>(newDims.begin(), newDims.end()));
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t target = 0;
        for (std::size_t d = 0; d < oldDims.size(); ++d) {
            target += position[d] * (d < newStrides.size() ? newStrides[d] : 0);
        }
        copyElement(*result, target, array, i);
        for (std::size_t d = 0; d < oldDims.size(); ++d) {
            if (++position[d] < oldDims[d]) {
                break;
            }
            position[d] = 0;
        }
    }
    return result;
}

}  // namespace

void copyElement(qxArray& to, std::size_t toIndex, qxArray const& from, std::size_t fromIndex) {
    switch (to.classID()) {
    case qxClassID::Double:
        to.doubles()[toIndex] = from.doubles()[fromIndex];
        break;
    case qxClassID::Logical:
        to.logicals()[toIndex] = from.logicals()[fromIndex];
        break;
    case qxClassID::Char:
        to.chars()[toIndex] = from.chars()[fromIndex];
        break;
    case qxClassID::Cell:
        to.setCell(toIndex, from.getCell(fromIndex));
        break;
    case qxClassID::String:
        to.setStringElement(toIndex, from.getStringElement(fromIndex));
        break;
    case qxClassID::Object:
        to.setObject(toIndex, from.getObject(fromIndex));
        break;
    case qxClassID::Struct:
        for (std::size_t f = 0; f < to.getFieldNames().size(); ++f) {
            to.setField(toIndex, f, from.getField(fromIndex, f));
        }
        break;
    case qxClassID::FunctionHandle:
        raise("qlang:index:functionHandle", "Function handles cannot be put in arrays; use a cell array.");
    }
}

Value const& colonMarker() {
    static auto const* marker = new Value(makeChars(u":"));
    return *marker;
}

std::size_t endOf(qxArray const& array, std::size_t position, std::size_t count) {
    return extentsFor(array.getDimensions(), count)[position];
}

qxArrayPtr emptyLike(qxArray const& like, Dims dims) {
    switch (like.classID()) {
    case qxClassID::Double:
        return qxArray::createDouble(std::move(dims));
    case qxClassID::Logical:
        return qxArray::createLogical(std::move(dims));
    case qxClassID::Char:
        return qxArray::createChar(std::move(dims));
    case qxClassID::Cell:
        return qxArray::createCell(std::move(dims));
    case qxClassID::String:
        return qxArray::createStrings(std::move(dims));
    case qxClassID::Struct:
        return qxArray::createStruct(std::move(dims), like.getFieldNames());
    case qxClassID::Object: {
        auto objects = qxArray::createObjects(std::move(dims), like.getClassName());
        objects->setObjectClass(like.getClassName(), like.isHeterogeneous());
        return objects;
    }
    case qxClassID::FunctionHandle:
        break;
    }
    raise("qlang:index:functionHandle", "Function handles cannot be indexed into arrays; use a cell array.");
}

Value elementOf(qxArray const& array, std::size_t index) {
    switch (array.classID()) {
    case qxClassID::Double:
        return makeDouble(array.doubles()[index]);
    case qxClassID::Logical:
        return makeLogical(array.logicals()[index] != 0);
    case qxClassID::FunctionHandle:
        return share(array.clone());
    default: {
        auto element = emptyLike(array, {1, 1});
        copyElement(*element, 0, array, index);
        return share(std::move(element));
    }
    }
}

Value indexParen(qxArray const& array, std::span<Value const> subscripts) {
    if (array.classID() == qxClassID::FunctionHandle) {
        raise("qlang:index:functionHandle", "A function handle cannot be indexed.");
    }
    auto const count = subscripts.size();
    if (count == 0) {
        return share(array.clone());
    }
    // The commonest case: one whole-number subscript.
    if (count == 1 && !isColon(subscripts[0]) && subscripts[0]->classID() == qxClassID::Double &&
        subscripts[0]->isScalar()) {
        double const value = subscripts[0]->doubles()[0];
        if (value >= 1 && value == std::floor(value) && value <= static_cast<double>(array.getNumberOfElements())) {
            return elementOf(array, static_cast<std::size_t>(value) - 1);
        }
    }
    auto const extents = extentsFor(array.getDimensions(), count);
    std::vector<Positions> lists;
    lists.reserve(count);
    for (std::size_t k = 0; k < count; ++k) {
        lists.push_back(positionsOf(subscripts[k], extents[k]));
        if (lists.back().maximum > extents[k]) {
            auto const& indices = lists.back().indices;
            auto const bad = *std::max_element(indices.begin(), indices.end());
            outOfBounds(bad, extents[k], k, count);
        }
    }
    Dims dims;
    if (count == 1) {
        auto const& list = lists.front();
        auto const selected = list.indices.size();
        if (list.colon) {
            dims = {selected, 1};
        } else if (isVectorShape(list.shape) && isVectorShape(array.getDimensions()) && !array.isScalar()) {
            dims = isRow(array.getDimensions()) ? Dims{1, selected} : Dims{selected, 1};
        } else {
            dims = list.shape;
        }
    } else {
        for (auto const& list : lists) {
            dims.push_back(list.indices.size());
        }
    }
    auto result = emptyLike(array, dims);
    forEachSelected(lists, stridesOf(extents),
                    [&](std::size_t from, std::size_t to) { copyElement(*result, to, array, from); });
    return share(std::move(result));
}

void indexBrace(qxArray const& array, std::span<Value const> subscripts, std::vector<Value>& out) {
    if (array.classID() == qxClassID::String) {
        // s{k} of a string array: the text of each selected element as a char row.
        auto const selected = indexParen(array, subscripts);
        for (std::size_t i = 0; i < selected->getNumberOfElements(); ++i) {
            out.push_back(makeChars(selected->getStringElement(i)));
        }
        return;
    }
    if (array.classID() != qxClassID::Cell) {
        raise("qlang:index:braceOnNonCell",
              fmt::format("Brace indexing needs a cell array, got a value of class '{}'.", array.getClassName()));
    }
    auto const count = subscripts.size();
    if (count == 1 && !isColon(subscripts[0]) && subscripts[0]->classID() == qxClassID::Double &&
        subscripts[0]->isScalar()) {
        double const value = subscripts[0]->doubles()[0];
        if (value >= 1 && value == std::floor(value) && value <= static_cast<double>(array.getNumberOfElements())) {
            out.push_back(array.getCell(static_cast<std::size_t>(value) - 1));
            return;
        }
    }
    auto const selected = indexParen(array, subscripts);
    for (auto const& element : selected->cells()) {
        out.push_back(element);
    }
}

void assignParen(Value& target, std::span<Value const> subscripts, Value const& incoming) {
    auto const count = subscripts.size();
    if (count == 0) {
        raise("qlang:index:noSubscripts", "An indexed assignment needs at least one subscript.");
    }
    if (incoming->classID() == qxClassID::FunctionHandle) {
        raise("qlang:index:functionHandle", "Function handles cannot be stored in arrays; use a cell array.");
    }
    // An unset variable or [] takes the class of what is stored.
    bool const startsEmpty = !target || (target->classID() == qxClassID::Double && target->isEmpty());
    if (startsEmpty) {
        Dims dims = target ? target->getDimensions() : Dims{0, 0};
        target = share(emptyLike(*incoming, dims));
    } else if (widensToDouble(*target, *incoming)) {
        target = convertForStore(target, *qxArray::createDouble({0, 0}));
    } else if (target->classID() == qxClassID::Object && incoming->classID() == qxClassID::Object &&
               !incoming->isEmpty()) {
        // Objects of another class: the array widens to a common heterogeneous class.
        std::vector<std::string> classes{target->getClassName()};
        for (auto const& object : incoming->objects()) {
            classes.push_back(object ? object->getClassName() : incoming->getClassName());
        }
        auto const common = commonObjectClass(classes);
        if (common.empty()) {
            raise("qlang:index:classMismatch",
                  fmt::format("An object of class '{}' cannot be stored in an array of class '{}'.",
                              incoming->getClassName(), target->getClassName()));
        }
        if (common != target->getClassName()) {
            mutate(target).setObjectClass(common, true);
        } else if (incoming->getClassName() != common) {
            mutate(target).setObjectClass(common, true);
        }
    }
    Value value = convertForStore(incoming, *target);
    if (target->classID() == qxClassID::Object) {
        value = incoming;
    }
    auto const& dims = target->getDimensions();
    auto const extents = extentsFor(dims, count);
    std::vector<Positions> lists;
    lists.reserve(count);
    for (std::size_t k = 0; k < count; ++k) {
        std::size_t extent = extents[k];
        if (isColon(subscripts[k]) && extent == 0 && target->isEmpty()) {
            // A(:, 1) = v on an empty A: the colon takes the extent of v.
            auto const& valueDims = value->getDimensions();
            extent = count == 1 ? value->getNumberOfElements() : (k < valueDims.size() ? valueDims[k] : 1);
            if (value->isScalar()) {
                extent = 1;
            }
        }
        lists.push_back(positionsOf(subscripts[k], extent));
    }
    std::size_t selected = 1;
    for (auto const& list : lists) {
        selected *= list.indices.size();
    }
    if (!value->isScalar() && value->getNumberOfElements() != selected) {
        raise("qlang:index:sizeMismatch", fmt::format("Cannot assign {} elements to {} indexed positions.",
                                                      value->getNumberOfElements(), selected));
    }
    // Objects are checked before the array grows, so that a failed assignment leaves it as it was.
    if (target->classID() == qxClassID::Object) {
        for (auto const& object : value->objects()) {
            if (object && !qcos::omIsA(object->getClassName(), target->getClassName())) {
                raise("qlang:index:classMismatch",
                      fmt::format("An object of class '{}' cannot be stored in an array of class '{}'.",
                                  object->getClassName(), target->getClassName()));
            }
        }
    }
    // Growth.
    Dims newDims = dims;
    if (count == 1) {
        auto const needed = lists.front().maximum;
        if (needed > target->getNumberOfElements()) {
            if (target->isEmpty() && dims.size() == 2 && ((dims[1] == 0 && dims[0] > 1) || dims[1] == 1)) {
                // An empty column (0-by-1, say from zeros(0, 1)) grows as a column.
                newDims = {needed, 1};
            } else if (target->isEmpty() || isRow(dims)) {
                newDims = {1, needed};
            } else if (dims.size() == 2 && dims[1] == 1) {
                newDims = {needed, 1};
            } else {
                raise("qlang:index:growMatrix",
                      fmt::format("A {} array cannot grow through a linear index; use one subscript per "
                                  "dimension.",
                                  dimsText(dims)));
            }
        }
    } else {
        while (newDims.size() < count) {
            newDims.push_back(1);
        }
        if (count < dims.size()) {
            // Fewer subscripts than dimensions: the last one spans the rest; no growth there.
            if (lists.back().maximum > extents.back()) {
                raise("qlang:index:growMatrix",
                      "An array cannot grow through a subscript that spans several "
                      "dimensions.");
            }
        }
        for (std::size_t k = 0; k < count && k < newDims.size(); ++k) {
            if (count < dims.size() && k + 1 == count) {
                break;
            }
            newDims[k] = std::max(newDims[k], lists[k].maximum);
        }
    }
    if (newDims != target->getDimensions()) {
        if (target->canGrowInPlace(newDims)) {
            // Appending keeps every element in place: the storage grows with
            // spare room, so x(end+1) = v in a loop costs amortised constant time.
            mutate(target).growInPlace(newDims);
        } else {
            target = share(resized(*target, newDims));
        }
    }
    auto& out = mutate(target);
    auto const strides = stridesOf(extentsFor(out.getDimensions(), count));
    bool const scalar = value->isScalar();
    forEachSelected(lists, strides, [&](std::size_t to, std::size_t n) {
        if (out.classID() == qxClassID::Object) {
            out.setObject(to, value->getObject(scalar ? 0 : n));
            return;
        }
        copyElement(out, to, *value, scalar ? 0 : n);
    });
}

void deleteParen(Value& target, std::span<Value const> subscripts) {
    if (!target) {
        raise("qlang:index:undefinedDeletion", "Cannot delete elements of an undefined variable.");
    }
    auto const count = subscripts.size();
    if (count == 0) {
        raise("qlang:index:noSubscripts", "Deleting elements needs at least one subscript.");
    }
    auto const& dims = target->getDimensions();
    auto const extents = extentsFor(dims, count);
    std::vector<Positions> lists;
    for (std::size_t k = 0; k < count; ++k) {
        lists.push_back(positionsOf(subscripts[k], extents[k]));
        if (lists.back().maximum > extents[k]) {
            auto const& indices = lists.back().indices;
            outOfBounds(*std::max_element(indices.begin(), indices.end()), extents[k], k, count);
        }
    }
    if (count == 1) {
        std::vector<bool> removed(target->getNumberOfElements(), false);
        for (auto const index : lists.front().indices) {
            removed[index] = true;
        }
        std::size_t const kept = static_cast<std::size_t>(std::count(removed.begin(), removed.end(), false));
        Dims newDims = (dims.size() == 2 && dims[1] == 1 && dims[0] != 1) ? Dims{kept, 1} : Dims{1, kept};
        if (lists.front().colon) {
            newDims = {0, 0};
        }
        auto result = emptyLike(*target, newDims);
        std::size_t next = 0;
        for (std::size_t i = 0; i < removed.size(); ++i) {
            if (!removed[i] && next < result->getNumberOfElements()) {
                copyElement(*result, next++, *target, i);
            }
        }
        target = share(std::move(result));
        return;
    }
    // Exactly one subscript may select less than its whole dimension.
    std::size_t partial = count;
    for (std::size_t k = 0; k < count; ++k) {
        std::set<std::size_t> const distinct(lists[k].indices.begin(), lists[k].indices.end());
        if (!lists[k].colon && distinct.size() != extents[k]) {
            if (partial != count) {
                raise("qlang:index:deletion", "Deleting elements needs ':' in every subscript but one.");
            }
            partial = k;
        }
    }
    if (partial == count) {
        partial = 0;
    }
    std::set<std::size_t> const removed(lists[partial].indices.begin(), lists[partial].indices.end());
    Dims newExtents(extents.begin(), extents.end());
    newExtents[partial] = extents[partial] - (partial == 0 && lists[0].colon ? extents[0] : removed.size());
    if (partial == 0 && lists[0].colon) {
        newExtents[0] = 0;
    }
    std::vector<Positions> keep(count);
    for (std::size_t k = 0; k < count; ++k) {
        for (std::size_t i = 0; i < extents[k]; ++i) {
            if (k != partial || (!removed.contains(i) && !(partial == 0 && lists[0].colon))) {
                keep[k].indices.push_back(i);
            }
        }
    }
    auto result = emptyLike(*target, newExtents);
    forEachSelected(keep, stridesOf(extents),
                    [&](std::size_t from, std::size_t to) { copyElement(*result, to, *target, from); });
    target = share(std::move(result));
}

void assignBrace(Value& target, std::span<Value const> subscripts, Value const& value) {
    if (!target || (target->classID() == qxClassID::Double && target->isEmpty())) {
        target = share(qxArray::createCell(target ? target->getDimensions() : Dims{0, 0}));
    }
    if (target->classID() == qxClassID::String) {
        // s{k} = text on a string array sets one element's text.
        if (!isText(*value)) {
            raise("qlang:index:classMismatch",
                  fmt::format("A value of class '{}' cannot be stored as the text of a string array element.",
                              value->getClassName()));
        }
        assignParen(target, subscripts, makeString(textOf(*value, "A string element")));
        return;
    }
    if (target->classID() != qxClassID::Cell) {
        raise("qlang:index:braceOnNonCell",
              fmt::format("Brace indexing needs a cell array, got a value of class '{}'.", target->getClassName()));
    }
    // Put the value in a 1-by-1 cell and assign that with ().
    auto wrapper = qxArray::createCell({1, 1});
    wrapper->setCell(0, value);
    std::size_t selected = 1;
    auto const extents = extentsFor(target->getDimensions(), subscripts.size());
    for (std::size_t k = 0; k < subscripts.size(); ++k) {
        selected *= isColon(subscripts[k]) ? extents[k] : positionsOf(subscripts[k], extents[k]).indices.size();
    }
    if (selected != 1) {
        raise("qlang:index:braceAssignment",
              fmt::format("Assigning with {{}} needs exactly one element; the subscripts select {}.", selected));
    }
    assignParen(target, subscripts, share(std::move(wrapper)));
}

std::size_t columnCountOf(qxArray const& array) {
    auto const& dims = array.getDimensions();
    if (array.isEmpty()) {
        return 0;
    }
    std::size_t columns = 1;
    for (std::size_t d = 1; d < dims.size(); ++d) {
        columns *= dims[d];
    }
    return columns;
}

Value columnOf(qxArray const& array, std::size_t column) {
    auto const rows = array.getDimensions()[0];
    if (rows == 1) {
        return elementOf(array, column);
    }
    auto result = emptyLike(array, {rows, 1});
    for (std::size_t r = 0; r < rows; ++r) {
        copyElement(*result, r, array, r + column * rows);
    }
    return share(std::move(result));
}

}  // namespace qlang::detail

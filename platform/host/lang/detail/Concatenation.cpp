// Concatenation: [a, b; c, d] of numbers, text, strings, cells, structs and objects, and {a, b; c, d}.

#include "platform/host/lang/detail/Indexing.hpp"
#include "platform/host/lang/detail/Operations.hpp"

#include <algorithm>
#include <set>

namespace qlang::detail {

std::string commonObjectClass(std::vector<std::string> const& classNames) {
    if (classNames.empty()) {
        return {};
    }
    bool allSame = std::all_of(classNames.begin(), classNames.end(),
                               [&](std::string const& name) { return name == classNames.front(); });
    if (allSame) {
        return classNames.front();
    }
    // Candidates: the first class and its superclasses, nearest first.
    std::vector<std::string> candidates{classNames.front()};
    std::set<std::string> seen{classNames.front()};
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (auto const info = qcos::omFindClass(candidates[i])) {
            for (auto const& super : info->getSuperclassNames()) {
                if (seen.insert(super).second) {
                    candidates.push_back(super);
                }
            }
        }
    }
    for (auto const& candidate : candidates) {
        if (!qcos::omIsA(candidate, "qorvex.mixin.Heterogeneous") || candidate == "qorvex.mixin.Heterogeneous") {
            continue;
        }
        if (std::all_of(classNames.begin(), classNames.end(),
                        [&](std::string const& name) { return qcos::omIsA(name, candidate); })) {
            return candidate;
        }
    }
    return {};
}

namespace {

enum class Family { Numeric, String, Cell, Struct, Object, Handle };

Family familyOf(qxArray const& array) {
    switch (array.classID()) {
    case qxClassID::String:
        return Family::String;
    case qxClassID::Cell:
        return Family::Cell;
    case qxClassID::Struct:
        return Family::Struct;
    case qxClassID::Object:
        return Family::Object;
    case qxClassID::FunctionHandle:
        return Family::Handle;
    default:
        return Family::Numeric;
    }
}

// Values converted to one kind: numbers to the widest of logical, double and
// char; anything to strings when one is a string.
Value convertForConcatenation(Value const& value, Family family, qxClassID numericKind) {
    if (family == Family::String) {
        return share(asStrings(*value));
    }
    if (family != Family::Numeric || value->classID() == numericKind) {
        return value;
    }
    auto const count = value->getNumberOfElements();
    qxArrayPtr converted;
    switch (numericKind) {
    case qxClassID::Double:
        converted = qxArray::createDouble(value->getDimensions());
        for (std::size_t i = 0; i < count; ++i) {
            converted->doubles()[i] = numberAt(*value, i);
        }
        break;
    case qxClassID::Char:
        converted = qxArray::createChar(value->getDimensions());
        for (std::size_t i = 0; i < count; ++i) {
            converted->chars()[i] = charCode(numberAt(*value, i));
        }
        break;
    default:
        return value;
    }
    return share(std::move(converted));
}

// copyElement for concatenation: struct fields are taken by `fieldMap` (the
// parts may list the same fields in another order).
void copyElementMappingFields(qxArray& to, std::size_t toIndex, qxArray const& from, std::size_t fromIndex,
                              std::vector<int> const& fieldMap) {
    if (to.classID() != qxClassID::Struct) {
        copyElement(to, toIndex, from, fromIndex);
        return;
    }
    for (std::size_t f = 0; f < fieldMap.size(); ++f) {
        to.setField(toIndex, f, from.getField(fromIndex, static_cast<std::size_t>(fieldMap[f])));
    }
}

Value concatenateAlong(std::span<Value const> values, std::size_t dimension) {
    std::vector<Value> parts;
    for (auto const& value : values) {
        if (!value->isEmpty()) {
            parts.push_back(value);
        }
    }
    if (parts.empty()) {
        // Every part is empty: the first that is not 0-by-0 keeps its class and shape.
        for (auto const& value : values) {
            auto const& dims = value->getDimensions();
            if (!(dims.size() == 2 && dims[0] == 0 && dims[1] == 0)) {
                return value;
            }
        }
        return values.empty() ? makeEmpty() : values.front();
    }
    if (parts.size() == 1) {
        return parts.front();
    }
    // The family and class of the result.
    std::set<Family> families;
    for (auto const& part : parts) {
        families.insert(familyOf(*part));
    }
    Family family = Family::Numeric;
    if (families.size() == 1) {
        family = *families.begin();
    } else if (families == std::set<Family>{Family::Numeric, Family::String}) {
        family = Family::String;
    } else {
        raise("qlang:concatenate:mixedClasses",
              fmt::format("Values of classes '{}' and '{}' cannot be concatenated.", parts.front()->getClassName(),
                          std::find_if(parts.begin(), parts.end(),
                                       [&](Value const& part) { return familyOf(*part) != familyOf(*parts.front()); })
                              ->get()
                              ->getClassName()));
    }
    if (family == Family::Handle) {
        raise("qlang:concatenate:functionHandles",
              "Function handles cannot be concatenated; put them in a cell array instead.");
    }
    qxClassID numericKind = qxClassID::Logical;
    std::string objectClass;
    bool heterogeneous = false;
    if (family == Family::Numeric) {
        for (auto const& part : parts) {
            if (part->classID() == qxClassID::Char) {
                numericKind = qxClassID::Char;
            } else if (part->classID() == qxClassID::Double && numericKind != qxClassID::Char) {
                numericKind = qxClassID::Double;
            }
        }
    } else if (family == Family::Object) {
        std::vector<std::string> classes;
        for (auto const& part : parts) {
            for (auto const& object : part->objects()) {
                classes.push_back(object ? object->getClassName() : part->getClassName());
            }
        }
        objectClass = commonObjectClass(classes);
        if (objectClass.empty()) {
            raise("qlang:concatenate:objectClasses",
                  fmt::format("Objects of classes '{}' cannot be concatenated: they have no common superclass derived "
                              "from 'qorvex.mixin.Heterogeneous'.",
                              fmt::join(std::set<std::string>(classes.begin(), classes.end()), "', '")));
        }
        heterogeneous =
            std::any_of(classes.begin(), classes.end(), [&](std::string const& name) { return name != objectClass; }) ||
            std::any_of(parts.begin(), parts.end(), [](Value const& p) { return p->isHeterogeneous(); });
    }
    for (auto& part : parts) {
        part = convertForConcatenation(part, family, numericKind);
        if (part->getDimensions().size() > 2) {
            raise("qlang:unsupported", "Concatenating arrays of more than two dimensions is not supported.");
        }
    }
    // Sizes: the other dimension must agree.
    std::size_t const other = 1 - dimension;
    std::size_t const extent = parts.front()->getDimensions()[other];
    std::size_t total = 0;
    for (auto const& part : parts) {
        if (part->getDimensions()[other] != extent) {
            raise("qlang:concatenate:dimensionMismatch",
                  fmt::format("Dimensions of arrays being concatenated are not consistent: {} and {}.",
                              dimsText(parts.front()->getDimensions()), dimsText(part->getDimensions())));
        }
        total += part->getDimensions()[dimension];
    }
    Dims dims{0, 0};
    dims[dimension] = total;
    dims[other] = extent;
    qxArrayPtr result;
    std::vector<std::string> fields;
    switch (parts.front()->classID()) {
    case qxClassID::Double:
        result = qxArray::createDouble(dims);
        break;
    case qxClassID::Logical:
        result = qxArray::createLogical(dims);
        break;
    case qxClassID::Char:
        result = qxArray::createChar(dims);
        break;
    case qxClassID::Cell:
        result = qxArray::createCell(dims);
        break;
    case qxClassID::String:
        result = qxArray::createStrings(dims);
        break;
    case qxClassID::Object:
        result = qxArray::createObjects(dims, objectClass);
        result->setObjectClass(objectClass, heterogeneous);
        break;
    case qxClassID::Struct:
        fields = parts.front()->getFieldNames();
        result = qxArray::createStruct(dims, fields);
        break;
    default:
        break;
    }
    std::size_t offset = 0;
    for (auto const& part : parts) {
        std::vector<int> fieldMap;
        if (family == Family::Struct) {
            auto const& partFields = part->getFieldNames();
            if (partFields.size() != fields.size()) {
                raise("qlang:concatenate:fieldMismatch", "Structs with different fields cannot be concatenated.");
            }
            for (auto const& field : fields) {
                int const index = part->fieldIndex(field);
                if (index < 0) {
                    raise("qlang:concatenate:fieldMismatch", "Structs with different fields cannot be concatenated.");
                }
                fieldMap.push_back(index);
            }
        }
        auto const& partDims = part->getDimensions();
        for (std::size_t r = 0; r < partDims[0]; ++r) {
            for (std::size_t c = 0; c < partDims[1]; ++c) {
                std::size_t const row = dimension == 0 ? offset + r : r;
                std::size_t const column = dimension == 1 ? offset + c : c;
                copyElementMappingFields(*result, row + column * dims[0], *part, r + c * partDims[0], fieldMap);
            }
        }
        offset += partDims[dimension];
    }
    return share(std::move(result));
}

}  // namespace

Value horizontal(std::span<Value const> values) {
    return concatenateAlong(values, 1);
}

Value vertical(std::span<Value const> values) {
    return concatenateAlong(values, 0);
}

Value concatenate(std::vector<std::vector<Value>> const& rows) {
    if (rows.size() == 1) {
        return horizontal(rows.front());
    }
    std::vector<Value> joined;
    joined.reserve(rows.size());
    for (auto const& row : rows) {
        joined.push_back(horizontal(row));
    }
    return vertical(joined);
}

Value cellOf(std::vector<std::vector<Value>> const& rows) {
    std::vector<Value> joined;
    for (auto const& row : rows) {
        std::vector<Value> cells;
        for (auto const& element : row) {
            // Every element is put in a cell of its own, cells too: {c} nests c.
            auto cell = qxArray::createCell({1, 1});
            cell->setCell(0, element);
            cells.push_back(share(std::move(cell)));
        }
        if (!cells.empty()) {
            joined.push_back(horizontal(cells));
        }
    }
    if (joined.empty()) {
        return share(qxArray::createCell({0, 0}));
    }
    auto result = vertical(joined);
    if (result->classID() != qxClassID::Cell) {
        return share(qxArray::createCell({0, 0}));
    }
    return result;
}

}  // namespace qlang::detail

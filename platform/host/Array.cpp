#include "platform/host/Array.hpp"

#include <fmt/format.h>

#include <limits>
#include <utility>

namespace {

std::string const& nameOfKind(qxClassID id) {
    static std::string const names[] = {"double", "logical", "char", "", "function_handle"};
    return names[static_cast<std::size_t>(id)];
}

qxArray::Dimensions normalised(qxArray::Dimensions dims) {
    while (dims.size() > 2 && dims.back() == 1) {
        dims.pop_back();
    }
    if (dims.empty()) {
        dims = {0, 0};
    } else if (dims.size() == 1) {
        dims.push_back(1);
    }
    return dims;
}

std::size_t elementCount(qxArray::Dimensions const& dims) {
    std::size_t count = 1;
    for (auto const extent : dims) {
        if (extent != 0 && count > std::numeric_limits<std::size_t>::max() / extent) {
            throw qcos::HostError("qx:array:tooLarge", "The requested array size is too large.");
        }
        count *= extent;
    }
    return count;
}

}  // namespace

qxArray::qxArray(Dimensions dims, std::string className, Storage storage)
    : dims_(std::move(dims)),
      count_(elementCount(dims_)),
      className_(std::move(className)),
      storage_(std::move(storage)) {}

qxArray::~qxArray() = default;

qxArrayPtr qxArray::createDouble(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), nameOfKind(qxClassID::Double), std::vector<double>(count)));
}

qxArrayPtr qxArray::createLogical(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), nameOfKind(qxClassID::Logical), std::vector<std::uint8_t>(count)));
}

qxArrayPtr qxArray::createChar(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), nameOfKind(qxClassID::Char), std::u16string(count, u'\0')));
}

qxArrayPtr qxArray::createObjects(Dimensions dims, std::string className) {
    if (className.empty()) {
        throw qcos::HostError("qx:array:noClassName", "An object array needs a class name.");
    }
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), std::move(className), std::vector<qcos::COSInterfacePtr>(count)));
}

qxArrayPtr qxArray::createScalar(double value) {
    auto array = createDouble({1, 1});
    array->setDouble(0, value);
    return array;
}

qxArrayPtr qxArray::createLogicalScalar(bool value) {
    auto array = createLogical({1, 1});
    array->setLogical(0, value);
    return array;
}

qxArrayPtr qxArray::createString(std::u16string_view text) {
    return qxArrayPtr(new qxArray({1, text.size()}, nameOfKind(qxClassID::Char), std::u16string(text)));
}

qxArrayPtr qxArray::createEmpty() {
    return createDouble({1, 0});
}

qxArrayPtr qxArray::createFunctionHandle(std::shared_ptr<qvm::FunctionHandle const> handle) {
    if (!handle) {
        throw qcos::HostError("qx:array:nullFunctionHandle", "A function handle needs a function.");
    }
    using Handles = std::vector<std::shared_ptr<qvm::FunctionHandle const>>;
    return qxArrayPtr(
        new qxArray({1, 1}, nameOfKind(qxClassID::FunctionHandle), Handles{std::move(handle)}));
}

qxArrayPtr qxArray::clone() const {
    auto copy = qxArrayPtr(new qxArray(dims_, className_, storage_));
    copy->heterogeneous_ = heterogeneous_;
    return copy;
}

qxClassID qxArray::classID() const noexcept {
    return static_cast<qxClassID>(storage_.index());
}

void qxArray::setObjectClass(std::string className, bool heterogeneous) {
    storageAs<std::vector<qcos::COSInterfacePtr>>("object");
    className_ = std::move(className);
    heterogeneous_ = heterogeneous;
}

std::size_t qxArray::linearIndex(std::initializer_list<std::size_t> subscripts) const {
    std::size_t index = 0;
    std::size_t stride = 1;
    std::size_t dimension = 0;
    for (auto const subscript : subscripts) {
        // Subscripts past the stored dimensions address trailing singleton ones.
        std::size_t const extent = dimension < dims_.size() ? dims_[dimension] : 1;
        if (subscript >= extent) {
            throw qcos::HostError(
                "qx:array:subscriptOutOfRange",
                fmt::format("Subscript {} of dimension {} exceeds its size {}.", subscript + 1, dimension + 1, extent));
        }
        index += subscript * stride;
        stride *= extent;
        ++dimension;
    }
    return index;
}

void qxArray::checkIndex(std::size_t index) const {
    if (index >= count_) {
        throw qcos::HostError("qx:array:indexOutOfRange",
                              fmt::format("Index {} exceeds the number of array elements ({}).", index + 1, count_));
    }
}

template <class Vector>
Vector& qxArray::storageAs(char const* kind) {
    return const_cast<Vector&>(std::as_const(*this).storageAs<Vector>(kind));
}

template <class Vector>
Vector const& qxArray::storageAs(char const* kind) const {
    if (auto const* values = std::get_if<Vector>(&storage_)) {
        return *values;
    }
    throw qcos::HostError("qx:array:wrongElementType",
                          fmt::format("Expected a {} array, got an array of class '{}'.", kind, className_));
}

double qxArray::getDouble(std::size_t index) const {
    auto const& values = storageAs<std::vector<double>>("double");
    checkIndex(index);
    return values[index];
}

void qxArray::setDouble(std::size_t index, double value) {
    auto& values = storageAs<std::vector<double>>("double");
    checkIndex(index);
    values[index] = value;
}

bool qxArray::getLogical(std::size_t index) const {
    auto const& values = storageAs<std::vector<std::uint8_t>>("logical");
    checkIndex(index);
    return values[index] != 0;
}

void qxArray::setLogical(std::size_t index, bool value) {
    auto& values = storageAs<std::vector<std::uint8_t>>("logical");
    checkIndex(index);
    values[index] = value ? 1 : 0;
}

char16_t qxArray::getChar(std::size_t index) const {
    auto const& values = storageAs<std::u16string>("char");
    checkIndex(index);
    return values[index];
}

void qxArray::setChar(std::size_t index, char16_t value) {
    auto& values = storageAs<std::u16string>("char");
    checkIndex(index);
    values[index] = value;
}

std::u16string qxArray::getString() const {
    return storageAs<std::u16string>("char");
}

std::shared_ptr<qvm::FunctionHandle const> const& qxArray::getFunctionHandle() const {
    auto const& handles = storageAs<std::vector<std::shared_ptr<qvm::FunctionHandle const>>>("function_handle");
    checkIndex(0);
    return handles[0];
}

qcos::COSInterfacePtr const& qxArray::getObject(std::size_t index) const {
    auto const& values = storageAs<std::vector<qcos::COSInterfacePtr>>("object");
    checkIndex(index);
    return values[index];
}

void qxArray::setObject(std::size_t index, qcos::COSInterfacePtr object) {
    auto& values = storageAs<std::vector<qcos::COSInterfacePtr>>("object");
    checkIndex(index);
    values[index] = std::move(object);
}

namespace matrix {

qxArrayPtr to_qorvex(double value) {
    return qxArray::createScalar(value);
}

qxArrayPtr to_qorvex(bool value) {
    return qxArray::createLogicalScalar(value);
}

qxArrayPtr to_qorvex(std::u16string_view text) {
    return qxArray::createString(text);
}

namespace detail {

void error_maxlhs() {
    throw qcos::HostError("qorvex:maxlhs", "Too many output arguments.");
}

void error_maxrhs() {
    throw qcos::HostError("qorvex:maxrhs", "Too many input arguments.");
}

void error_minrhs() {
    throw qcos::HostError("qorvex:minrhs", "Not enough input arguments.");
}

}  // namespace detail
}  // namespace matrix

#include "platform/host/Array.hpp"

#include "platform/services/Shareable.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <type_traits>
#include <utility>

namespace {

using Doubles = boost::container::small_vector<double, 1>;
using Logicals = boost::container::small_vector<std::uint8_t, 8>;
using Objects = boost::container::small_vector<qcos::COSInterfacePtr, 1>;
using Handles = boost::container::small_vector<std::shared_ptr<qvm::FunctionHandle const>, 1>;
using Cells = boost::container::small_vector<qxArrayShared, 1>;
using Strings = boost::container::small_vector<std::u16string, 1>;

std::string const& nameOfKind(qxClassID id) {
    static std::string const names[] = {"double", "logical", "char", "", "function_handle", "cell", "struct", "string"};
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

constexpr std::size_t defaultElementLimit = std::size_t{1} << 40;
std::atomic<std::size_t> elementLimit{defaultElementLimit};

std::size_t elementCount(qxArray::Dimensions const& dims) {
    std::size_t count = 1;
    for (auto const extent : dims) {
        if (extent != 0 && count > std::numeric_limits<std::size_t>::max() / extent) {
            throw qcos::HostError("qx:array:tooLarge", "The requested array size is too large.");
        }
        count *= extent;
    }
    qxArray::checkElementCount(count);
    return count;
}

// The value every cell element and field value reads as until it is set: a
// 0-by-0 double array, shared by all (never destroyed: arrays may be released
// while static destructors run).
qxArrayShared const& emptyValue() {
    static auto const* empty = new qxArrayShared(qxArray::share(qxArray::createDouble({0, 0})));
    return *empty;
}

}  // namespace

std::string const& qxInternName(std::string_view name) {
    return dependency::services::internName(name);
}

void intrusive_ptr_add_ref(qxArray const* array) noexcept {
    array->shares_.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(qxArray const* array) noexcept {
    if (array->shares_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete array;
    }
}

qxArray::qxArray(Dimensions dims, std::size_t count, std::string const* className, Storage storage)
    : dims_(std::move(dims)),
      count_(count),
      className_(className),
      classID_(static_cast<qxClassID>(storage.index())),
      storage_(std::move(storage)) {}

qxArray::qxArray(qxArray const& other)
    : dims_(other.dims_),
      count_(other.count_),
      className_(other.className_),
      classID_(other.classID_),
      heterogeneous_(other.heterogeneous_),
      storage_(other.storage_) {}

qxArray::~qxArray() = default;

void qxArray::setElementLimit(std::size_t limit) noexcept {
    elementLimit.store(std::min(limit, defaultElementLimit), std::memory_order_relaxed);
}

void qxArray::checkElementCount(std::size_t count) {
    // Far below what memory could hold, but keeps element counts and byte
    // counts within every integer type the runtime uses.
    if (count > elementLimit.load(std::memory_order_relaxed)) {
        throw qcos::HostError("qx:array:tooLarge", "The requested array size is too large.");
    }
}

qxArrayPtr qxArray::createDouble(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), count, nullptr, std::in_place_type<Doubles>, count));
}

qxArrayPtr qxArray::createLogical(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), count, nullptr, std::in_place_type<Logicals>, count));
}

qxArrayPtr qxArray::createChar(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), count, nullptr, std::in_place_type<std::u16string>, count, u'\0'));
}

qxArrayPtr qxArray::createObjects(Dimensions dims, std::string_view className) {
    if (className.empty()) {
        throw qcos::HostError("qx:array:noClassName", "An object array needs a class name.");
    }
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(
        new qxArray(std::move(dims), count, &qxInternName(className), std::in_place_type<Objects>, count));
}

qxArrayPtr qxArray::createObjectsWithStableName(Dimensions dims, std::string const& className) {
    if (className.empty()) {
        throw qcos::HostError("qx:array:noClassName", "An object array needs a class name.");
    }
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), count, &className, std::in_place_type<Objects>, count));
}

qxArrayPtr qxArray::createCell(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), count, nullptr, std::in_place_type<Cells>, count, emptyValue()));
}

qxArrayPtr qxArray::createStruct(Dimensions dims, std::vector<std::string> fieldNames) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    StructData data;
    data.values.resize(count * fieldNames.size(), emptyValue());
    data.fields = std::move(fieldNames);
    return qxArrayPtr(new qxArray(std::move(dims), count, nullptr, std::move(data)));
}

qxArrayPtr qxArray::createStrings(Dimensions dims) {
    dims = normalised(std::move(dims));
    auto const count = elementCount(dims);
    return qxArrayPtr(new qxArray(std::move(dims), count, nullptr, std::in_place_type<Strings>, count));
}

qxArrayPtr qxArray::createScalar(double value) {
    return qxArrayPtr(new qxArray({1, 1}, 1, nullptr, std::in_place_type<Doubles>, 1, value));
}

qxArrayPtr qxArray::createLogicalScalar(bool value) {
    return qxArrayPtr(
        new qxArray({1, 1}, 1, nullptr, std::in_place_type<Logicals>, 1, static_cast<std::uint8_t>(value)));
}

qxArrayPtr qxArray::createString(std::u16string_view text) {
    return qxArrayPtr(new qxArray({1, text.size()}, text.size(), nullptr, std::in_place_type<std::u16string>, text));
}

qxArrayPtr qxArray::createStringScalar(std::u16string_view text) {
    return qxArrayPtr(new qxArray({1, 1}, 1, nullptr, Strings{std::u16string(text)}));
}

qxArrayPtr qxArray::createEmpty() {
    return qxArrayPtr(new qxArray({1, 0}, 0, nullptr, std::in_place_type<Doubles>));
}

qxArrayPtr qxArray::createFunctionHandle(std::shared_ptr<qvm::FunctionHandle const> handle) {
    if (!handle) {
        throw qcos::HostError("qx:array:nullFunctionHandle", "A function handle needs a function.");
    }
    return qxArrayPtr(new qxArray({1, 1}, 1, nullptr, Handles{std::move(handle)}));
}

qxArrayPtr qxArray::createObjectScalar(qcos::COSInterfacePtr object, std::string const& className) {
    return qxArrayPtr(new qxArray({1, 1}, 1, &className, std::in_place_type<Objects>, 1, std::move(object)));
}

qxArrayPtr qxArray::clone() const {
    return qxArrayPtr(new qxArray(*this));
}

qxArrayShared qxArray::share(qxArrayPtr array) noexcept {
    return qxArrayShared(array.release());
}

qxArrayPtr qxArray::unshare(qxArrayShared array) {
    if (!array) {
        return nullptr;
    }
    if (array->shares_.load(std::memory_order_acquire) == 1) {
        // The only owner: take the array out of shared ownership without a copy.
        auto* owned = const_cast<qxArray*>(array.detach());
        owned->shares_.store(0, std::memory_order_relaxed);
        return qxArrayPtr(owned);
    }
    return array->clone();
}

std::string const& qxArray::getClassName() const noexcept {
    return classID_ == qxClassID::Object ? *className_ : nameOfKind(classID_);
}

void qxArray::setObjectClass(std::string_view className, bool heterogeneous) {
    storageAs<Objects>("object");
    className_ = &qxInternName(className);
    heterogeneous_ = heterogeneous;
}

void qxArray::reshape(Dimensions dims) {
    dims = normalised(std::move(dims));
    if (elementCount(dims) != count_) {
        throw qcos::HostError("qx:array:reshape", fmt::format("Cannot reshape an array of {} elements to {}.", count_,
                                                              fmt::join(dims, "-by-")));
    }
    dims_ = std::move(dims);
}

bool qxArray::canGrowInPlace(Dimensions const& dims) const noexcept {
    if (classID_ == qxClassID::FunctionHandle) {
        return false;
    }
    if (count_ == 0) {
        return true;
    }
    // An element at subscripts (i0, i1, ...) keeps its linear index when every
    // dimension it can have a non-zero subscript in keeps its stride, and no
    // extent gets smaller.
    std::size_t const rank = std::max(dims_.size(), dims.size());
    std::size_t oldStride = 1;
    std::size_t newStride = 1;
    for (std::size_t d = 0; d < rank; ++d) {
        std::size_t const oldExtent = d < dims_.size() ? dims_[d] : 1;
        std::size_t const newExtent = d < dims.size() ? dims[d] : 1;
        if (newExtent < oldExtent || (oldExtent > 1 && oldStride != newStride)) {
            return false;
        }
        oldStride *= oldExtent;
        newStride *= newExtent;
    }
    return true;
}

void qxArray::growInPlace(Dimensions dims) {
    dims = normalised(std::move(dims));
    if (!canGrowInPlace(dims)) {
        throw qcos::HostError("qx:array:grow", fmt::format("An array of size {} cannot grow in place to {}.",
                                                           fmt::join(dims_, "-by-"), fmt::join(dims, "-by-")));
    }
    auto const count = elementCount(dims);
    std::visit(
        [&](auto& values) {
            using Stored = std::decay_t<decltype(values)>;
            if constexpr (std::is_same_v<Stored, StructData>) {
                values.values.resize(count * values.fields.size(), emptyValue());
            } else if constexpr (std::is_same_v<Stored, Cells>) {
                values.resize(count, emptyValue());
            } else if constexpr (std::is_same_v<Stored, std::u16string>) {
                values.resize(count, u'\0');
            } else {
                values.resize(count);
            }
        },
        storage_);
    dims_ = std::move(dims);
    count_ = count;
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
                          fmt::format("Expected a {} array, got an array of class '{}'.", kind, getClassName()));
}

double qxArray::getDouble(std::size_t index) const {
    auto const& values = storageAs<Doubles>("double");
    checkIndex(index);
    return values[index];
}

void qxArray::setDouble(std::size_t index, double value) {
    auto& values = storageAs<Doubles>("double");
    checkIndex(index);
    values[index] = value;
}

bool qxArray::getLogical(std::size_t index) const {
    auto const& values = storageAs<Logicals>("logical");
    checkIndex(index);
    return values[index] != 0;
}

void qxArray::setLogical(std::size_t index, bool value) {
    auto& values = storageAs<Logicals>("logical");
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
    if (auto const* strings = std::get_if<Strings>(&storage_); strings != nullptr && strings->size() == 1) {
        return strings->front();
    }
    return storageAs<std::u16string>("char");
}

std::shared_ptr<qvm::FunctionHandle const> const& qxArray::getFunctionHandle() const {
    auto const& handles = storageAs<Handles>("function_handle");
    checkIndex(0);
    return handles[0];
}

qcos::COSInterfacePtr const& qxArray::getObject(std::size_t index) const {
    auto const& values = storageAs<Objects>("object");
    checkIndex(index);
    return values[index];
}

void qxArray::setObject(std::size_t index, qcos::COSInterfacePtr object) {
    auto& values = storageAs<Objects>("object");
    checkIndex(index);
    values[index] = std::move(object);
}

qxArrayShared const& qxArray::getCell(std::size_t index) const {
    auto const& values = storageAs<Cells>("cell");
    checkIndex(index);
    return values[index];
}

void qxArray::setCell(std::size_t index, qxArrayShared value) {
    auto& values = storageAs<Cells>("cell");
    checkIndex(index);
    values[index] = value ? std::move(value) : emptyValue();
}

std::u16string const& qxArray::getStringElement(std::size_t index) const {
    auto const& values = storageAs<Strings>("string");
    checkIndex(index);
    return values[index];
}

void qxArray::setStringElement(std::size_t index, std::u16string value) {
    auto& values = storageAs<Strings>("string");
    checkIndex(index);
    values[index] = std::move(value);
}

std::vector<std::string> const& qxArray::getFieldNames() const {
    return storageAs<StructData>("struct").fields;
}

int qxArray::fieldIndex(std::string_view name) const {
    auto const& fields = storageAs<StructData>("struct").fields;
    auto const found = std::find(fields.begin(), fields.end(), name);
    return found == fields.end() ? -1 : static_cast<int>(found - fields.begin());
}

qxArrayShared const& qxArray::getField(std::size_t index, std::size_t field) const {
    auto const& data = storageAs<StructData>("struct");
    checkIndex(index);
    if (field >= data.fields.size()) {
        throw qcos::HostError("qx:array:noSuchField", fmt::format("The struct has no field number {}.", field + 1));
    }
    return data.values[index * data.fields.size() + field];
}

void qxArray::setField(std::size_t index, std::size_t field, qxArrayShared value) {
    auto& data = storageAs<StructData>("struct");
    checkIndex(index);
    if (field >= data.fields.size()) {
        throw qcos::HostError("qx:array:noSuchField", fmt::format("The struct has no field number {}.", field + 1));
    }
    data.values[index * data.fields.size() + field] = value ? std::move(value) : emptyValue();
}

std::size_t qxArray::addField(std::string name) {
    auto& data = storageAs<StructData>("struct");
    auto const oldCount = data.fields.size();
    std::vector<qxArrayShared> values(count_ * (oldCount + 1), emptyValue());
    for (std::size_t element = 0; element < count_; ++element) {
        for (std::size_t field = 0; field < oldCount; ++field) {
            values[element * (oldCount + 1) + field] = std::move(data.values[element * oldCount + field]);
        }
    }
    data.values = std::move(values);
    data.fields.push_back(std::move(name));
    return oldCount;
}

void qxArray::removeField(std::size_t field) {
    auto& data = storageAs<StructData>("struct");
    auto const oldCount = data.fields.size();
    if (field >= oldCount) {
        throw qcos::HostError("qx:array:noSuchField", fmt::format("The struct has no field number {}.", field + 1));
    }
    std::vector<qxArrayShared> values;
    values.reserve(count_ * (oldCount - 1));
    for (std::size_t element = 0; element < count_; ++element) {
        for (std::size_t f = 0; f < oldCount; ++f) {
            if (f != field) {
                values.push_back(std::move(data.values[element * oldCount + f]));
            }
        }
    }
    data.values = std::move(values);
    data.fields.erase(data.fields.begin() + static_cast<std::ptrdiff_t>(field));
}

std::span<double> qxArray::doubles() {
    auto& values = storageAs<Doubles>("double");
    return {values.data(), values.size()};
}

std::span<double const> qxArray::doubles() const {
    auto const& values = storageAs<Doubles>("double");
    return {values.data(), values.size()};
}

std::span<std::uint8_t> qxArray::logicals() {
    auto& values = storageAs<Logicals>("logical");
    return {values.data(), values.size()};
}

std::span<std::uint8_t const> qxArray::logicals() const {
    auto const& values = storageAs<Logicals>("logical");
    return {values.data(), values.size()};
}

std::span<char16_t> qxArray::chars() {
    auto& values = storageAs<std::u16string>("char");
    return {values.data(), values.size()};
}

std::span<char16_t const> qxArray::chars() const {
    auto const& values = storageAs<std::u16string>("char");
    return {values.data(), values.size()};
}

std::span<qcos::COSInterfacePtr const> qxArray::objects() const {
    auto const& values = storageAs<Objects>("object");
    return {values.data(), values.size()};
}

std::span<qxArrayShared const> qxArray::cells() const {
    auto const& values = storageAs<Cells>("cell");
    return {values.data(), values.size()};
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

void checkArgumentCounts(int nlhs, int maxOutputs, int nrhs, int minInputs, int maxInputs) {
    if (nlhs > maxOutputs) {
        error_maxlhs();
    }
    if (nrhs > maxInputs) {
        error_maxrhs();
    }
    if (nrhs < minInputs) {
        error_minrhs();
    }
}

}  // namespace detail
}  // namespace matrix

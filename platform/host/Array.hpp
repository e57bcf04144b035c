#pragma once
// Host arrays: column-major N-d arrays of double, logical, UTF-16 char, host
// objects, function handles, cells, structs and strings. Every value the host
// language sees is one of these; a scalar is a 1-by-1 array and "nothing" is a
// 1-by-0 array.

#include "platform/host/HostError.hpp"

#include <boost/container/small_vector.hpp>
#include <boost/intrusive_ptr.hpp>

#include <algorithm>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qcos {

class COSInterface;
// Host objects are reference counted; the count lives in the object so that a
// raw pointer taken from an array can be turned back into an owner.
void intrusive_ptr_add_ref(COSInterface const* object) noexcept;
void intrusive_ptr_release(COSInterface const* object) noexcept;
// An owning reference to a host object; the object is destroyed when the last
// reference goes.
using COSInterfacePtr = boost::intrusive_ptr<COSInterface>;

}  // namespace qcos

namespace qvm {
class FunctionHandle;
}

// The kinds of host arrays. Cell elements and struct field values are host
// arrays themselves; a string array holds one text per element (class
// "string", written with double quotes in the host language).
enum class qxClassID : std::uint8_t { Double, Logical, Char, Object, FunctionHandle, Cell, Struct, String };

// The dimensions of a host array: a short sequence of extents, the first four
// stored inline so that arrays of up to four dimensions need no allocation for
// them. Offers the parts of the std::vector interface the runtime uses.
class qxDimensions {
public:
    using value_type = std::size_t;
    using iterator = std::size_t*;
    using const_iterator = std::size_t const*;

    qxDimensions() = default;
    qxDimensions(std::initializer_list<std::size_t> values) : qxDimensions(values.begin(), values.end()) {}
    qxDimensions(std::size_t count, std::size_t value) {
        for (std::size_t i = 0; i < count; ++i) {
            push_back(value);
        }
    }
    template <class Iterator>
    qxDimensions(Iterator first, Iterator last) {
        for (; first != last; ++first) {
            push_back(static_cast<std::size_t>(*first));
        }
    }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::size_t* data() noexcept { return heap_.empty() ? inline_ : heap_.data(); }
    std::size_t const* data() const noexcept { return heap_.empty() ? inline_ : heap_.data(); }
    iterator begin() noexcept { return data(); }
    iterator end() noexcept { return data() + size_; }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size_; }
    std::size_t& operator[](std::size_t index) noexcept { return data()[index]; }
    std::size_t operator[](std::size_t index) const noexcept { return data()[index]; }
    std::size_t& front() noexcept { return data()[0]; }
    std::size_t front() const noexcept { return data()[0]; }
    std::size_t& back() noexcept { return data()[size_ - 1]; }
    std::size_t back() const noexcept { return data()[size_ - 1]; }

    void push_back(std::size_t value) {
        if (heap_.empty() && size_ < inlineCapacity) {
            inline_[size_++] = value;
            return;
        }
        if (heap_.empty()) {
            heap_.assign(inline_, inline_ + size_);
        }
        heap_.push_back(value);
        ++size_;
    }
    void pop_back() noexcept {
        --size_;
        if (!heap_.empty()) {
            heap_.pop_back();
            if (size_ <= inlineCapacity) {
                std::copy(heap_.begin(), heap_.end(), inline_);
                heap_.clear();
            }
        }
    }
    void clear() noexcept {
        size_ = 0;
        heap_.clear();
    }

    friend bool operator==(qxDimensions const& a, qxDimensions const& b) noexcept {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }

private:
    static constexpr std::size_t inlineCapacity = 4;
    std::size_t size_ = 0;
    std::size_t inline_[inlineCapacity] = {};
    std::vector<std::size_t> heap_;  // used instead of inline_ beyond inlineCapacity
};

// A process-wide copy of a name that lives until the process ends: the same
// text gives the same string. Object arrays and host objects keep their class
// names this way, so that making one copies no text.
std::string const& qxInternName(std::string_view name);

class qxArray;
// An owning slot for a host array: resetting it destroys the array, and with it
// the array's references to host objects.
using qxArrayPtr = std::unique_ptr<qxArray>;

// Shared ownership of a host array that is no longer changed while shared (the
// language's values, cell elements and struct fields are held this way, so that
// copying a value copies a pointer). The count lives in the array.
void intrusive_ptr_add_ref(qxArray const* array) noexcept;
void intrusive_ptr_release(qxArray const* array) noexcept;
using qxArrayShared = boost::intrusive_ptr<qxArray const>;

class qxArray {
public:
    using Dimensions = qxDimensions;

    // Zero-filled (false, U+0000, empty object slot, empty cell element, empty
    // field value, empty text) arrays of the given size. Dimensions are
    // normalised: at least two, trailing singleton ones beyond the second
    // dropped. A size whose element count overflows is a HostError.
    static qxArrayPtr createDouble(Dimensions dims);
    static qxArrayPtr createLogical(Dimensions dims);
    static qxArrayPtr createChar(Dimensions dims);
    static qxArrayPtr createObjects(Dimensions dims, std::string_view className);
    // The same with a class name that lives for the process (from
    // qxInternName, or the name of a registered class), which is kept as is.
    static qxArrayPtr createObjectsWithStableName(Dimensions dims, std::string const& className);
    static qxArrayPtr createCell(Dimensions dims);
    // A struct array with the given fields, in order; every value starts as a
    // 0-by-0 double array.
    static qxArrayPtr createStruct(Dimensions dims, std::vector<std::string> fieldNames);
    static qxArrayPtr createStrings(Dimensions dims);
    // The most elements an array made by these functions may have, for the
    // whole process (default and upper bound 2^40): a larger size is the
    // HostError "qx:array:tooLarge" before any memory is taken. Lowered to run
    // untrusted code within a memory limit.
    static void setElementLimit(std::size_t limit) noexcept;
    // Throws "qx:array:tooLarge" when an array of `count` elements would pass
    // the limit in force; text that will become one array checks as it grows.
    static void checkElementCount(std::size_t count);

    static qxArrayPtr createScalar(double value);
    static qxArrayPtr createLogicalScalar(bool value);
    // A 1-by-N char row; 1-by-0 for the empty string.
    static qxArrayPtr createString(std::u16string_view text);
    // A 1-by-1 string array.
    static qxArrayPtr createStringScalar(std::u16string_view text);
    // The host's "nothing": a 1-by-0 double array.
    static qxArrayPtr createEmpty();
    // A scalar of class "function_handle".
    static qxArrayPtr createFunctionHandle(std::shared_ptr<qvm::FunctionHandle const> handle);
    // A 1-by-1 object array holding `object` (not null), of `className`,
    // which must live for the process like createObjectsWithStableName's.
    static qxArrayPtr createObjectScalar(qcos::COSInterfacePtr object, std::string const& className);

    // A copy of the array. Object elements are shared, not copied (host
    // objects are handles); cell elements and field values are shared too,
    // since they are not changed while shared.
    qxArrayPtr clone() const;

    // Shared ownership: share() takes the array over; unshare() gives the
    // array itself back when the shared pointer was its only owner, else a copy.
    static qxArrayShared share(qxArrayPtr array) noexcept;
    static qxArrayPtr unshare(qxArrayShared array);
    // True when more than one qxArrayShared owns this array.
    bool isShared() const noexcept { return shares_.load(std::memory_order_acquire) > 1; }

    qxClassID classID() const noexcept { return classID_; }
    // "double", "logical", "char", "function_handle", "cell", "struct",
    // "string" or the host class name of an object array.
    std::string const& getClassName() const noexcept;
    // An object array whose elements may be of different subclasses of its class.
    bool isHeterogeneous() const noexcept { return heterogeneous_; }
    // Sets class name and heterogeneous flag of an object array. No checks here:
    // qcos::omSetClassOfHeterogeneousArray is the checked way.
    void setObjectClass(std::string_view className, bool heterogeneous);

    Dimensions const& getDimensions() const noexcept { return dims_; }
    std::size_t getM() const noexcept { return dims_[0]; }
    std::size_t getN() const noexcept { return dims_[1]; }
    std::size_t getNumberOfElements() const noexcept { return count_; }
    bool isEmpty() const noexcept { return count_ == 0; }
    bool isScalar() const noexcept { return count_ == 1; }
    // Gives the array other dimensions with the same element count (HostError
    // "qx:array:reshape" otherwise); the elements keep their linear order.
    void reshape(Dimensions dims);
    // Gives the array larger dimensions under which every element keeps its
    // linear index (a row or column longer at its end, an array with more
    // pages, an empty array any size), the new elements zero-filled as by
    // the create functions. The storage keeps spare room and grows
    // geometrically, so that growing an array by one element at a time costs
    // amortised constant time. HostError "qx:array:grow" when an element
    // would move or the array would shrink.
    void growInPlace(Dimensions dims);
    // True when growInPlace(dims) can give the array those dimensions.
    bool canGrowInPlace(Dimensions const& dims) const noexcept;

    // Column-major linear index of a subscript (0-based, one per dimension;
    // missing trailing subscripts are 0). Out-of-range subscripts are a HostError.
    std::size_t linearIndex(std::initializer_list<std::size_t> subscripts) const;

    // Element access by linear index. The wrong element kind or an index past
    // the end is a HostError.
    double getDouble(std::size_t index) const;
    void setDouble(std::size_t index, double value);
    bool getLogical(std::size_t index) const;
    void setLogical(std::size_t index, bool value);
    char16_t getChar(std::size_t index) const;
    void setChar(std::size_t index, char16_t value);
    // Every character in element order; for a 1-by-1 string array, its text.
    std::u16string getString() const;
    // The handle of a function-handle scalar (HostError for other arrays).
    std::shared_ptr<qvm::FunctionHandle const> const& getFunctionHandle() const;
    // Object elements; an unset slot holds a null pointer.
    qcos::COSInterfacePtr const& getObject(std::size_t index) const;
    void setObject(std::size_t index, qcos::COSInterfacePtr object);
    // Cell elements; an element never set reads as a 0-by-0 double array.
    qxArrayShared const& getCell(std::size_t index) const;
    void setCell(std::size_t index, qxArrayShared value);
    // String array elements.
    std::u16string const& getStringElement(std::size_t index) const;
    void setStringElement(std::size_t index, std::u16string value);

    // Struct arrays: the field names in order, a field's position (or -1), the
    // value of a field of one element (0-by-0 double when never set), and
    // adding or removing a field for every element.
    std::vector<std::string> const& getFieldNames() const;
    int fieldIndex(std::string_view name) const;
    qxArrayShared const& getField(std::size_t index, std::size_t field) const;
    void setField(std::size_t index, std::size_t field, qxArrayShared value);
    std::size_t addField(std::string name);
    void removeField(std::size_t field);

    // The elements of numeric, logical, char, object and cell arrays as one
    // span, in linear order (HostError for another kind).
    std::span<double> doubles();
    std::span<double const> doubles() const;
    std::span<std::uint8_t> logicals();
    std::span<std::uint8_t const> logicals() const;
    std::span<char16_t> chars();
    std::span<char16_t const> chars() const;
    std::span<qcos::COSInterfacePtr const> objects() const;
    std::span<qxArrayShared const> cells() const;

    ~qxArray();

private:
    struct StructData {
        std::vector<std::string> fields;
        std::vector<qxArrayShared> values;  // element-major: element i, field f at i * fields + f
    };
    // One element of every kind is stored in the array itself: a scalar needs
    // one allocation.
    using Storage =
        std::variant<boost::container::small_vector<double, 1>, boost::container::small_vector<std::uint8_t, 8>,
                     std::u16string, boost::container::small_vector<qcos::COSInterfacePtr, 1>,
                     boost::container::small_vector<std::shared_ptr<qvm::FunctionHandle const>, 1>,
                     boost::container::small_vector<qxArrayShared, 1>, StructData,
                     boost::container::small_vector<std::u16string, 1>>;

    friend void intrusive_ptr_add_ref(qxArray const* array) noexcept;
    friend void intrusive_ptr_release(qxArray const* array) noexcept;

    qxArray(Dimensions dims, std::size_t count, std::string const* className, Storage storage);
    // Builds the storage in place from `args`: making an array moves no
    // temporary storage, which matters for the many scalars host code makes.
    template <class Kind, class... Args>
    qxArray(Dimensions dims, std::size_t count, std::string const* className, std::in_place_type_t<Kind> kind,
            Args&&... args)
        : dims_(std::move(dims)),
          count_(count),
          className_(className),
          classID_(qxClassID::Double),
          storage_(kind, std::forward<Args>(args)...) {
        classID_ = static_cast<qxClassID>(storage_.index());
    }
    // For clone(): the same dimensions, class and elements, not shared.
    qxArray(qxArray const& other);
    void checkIndex(std::size_t index) const;
    template <class Vector>
    Vector& storageAs(char const* kind);
    template <class Vector>
    Vector const& storageAs(char const* kind) const;

    Dimensions dims_;
    std::size_t count_ = 0;
    std::string const* className_ = nullptr;  // object arrays only (interned); the built-in kinds have fixed names
    qxClassID classID_;
    bool heterogeneous_ = false;
    mutable std::atomic<std::uint32_t> shares_{0};
    Storage storage_;
};

namespace matrix {

qxArrayPtr to_qorvex(double value);
qxArrayPtr to_qorvex(bool value);
qxArrayPtr to_qorvex(std::u16string_view text);

namespace detail {

// The host's argument-count errors, raised by gateways before they do any work.
[[noreturn]] void error_maxlhs();
[[noreturn]] void error_maxrhs();
[[noreturn]] void error_minrhs();
// Raises the first of those errors that applies, in that order.
void checkArgumentCounts(int nlhs, int maxOutputs, int nrhs, int minInputs, int maxInputs);

}  // namespace detail
}  // namespace matrix

#pragma once
// Host arrays: column-major N-d arrays of double, logical, UTF-16 char or host
// objects, and function handles. Every value the host language sees is one of these; a scalar is a
// 1-by-1 array and "nothing" is a 1-by-0 array.

#include "platform/host/HostError.hpp"

#include <boost/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
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

enum class qxClassID : std::uint8_t { Double, Logical, Char, Object, FunctionHandle };

class qxArray;
// An owning slot for a host array: resetting it destroys the array, and with it
// the array's references to host objects.
using qxArrayPtr = std::unique_ptr<qxArray>;

class qxArray {
public:
    using Dimensions = std::vector<std::size_t>;

    // Zero-filled (false, U+0000, empty object slot) arrays of the given size.
    // Dimensions are normalised: at least two, trailing singleton ones beyond
    // the second dropped. A size whose element count overflows is a HostError.
    static qxArrayPtr createDouble(Dimensions dims);
    static qxArrayPtr createLogical(Dimensions dims);
    static qxArrayPtr createChar(Dimensions dims);
    static qxArrayPtr createObjects(Dimensions dims, std::string className);

    static qxArrayPtr createScalar(double value);
    static qxArrayPtr createLogicalScalar(bool value);
    // A 1-by-N char row; 1-by-0 for the empty string.
    static qxArrayPtr createString(std::u16string_view text);
    // The host's "nothing": a 1-by-0 double array.
    static qxArrayPtr createEmpty();
    // A scalar of class "function_handle".
    static qxArrayPtr createFunctionHandle(std::shared_ptr<qvm::FunctionHandle const> handle);

    // A copy of the array; object elements are shared, not copied (host
    // objects are handles).
    qxArrayPtr clone() const;

    qxClassID classID() const noexcept;
    // "double", "logical", "char" or the host class name of an object array.
    std::string const& getClassName() const noexcept { return className_; }
    // An object array whose elements may be of different subclasses of its class.
    bool isHeterogeneous() const noexcept { return heterogeneous_; }
    // Sets class name and heterogeneous flag of an object array. No checks here:
    // qcos::omSetClassOfHeterogeneousArray is the checked way.
    void setObjectClass(std::string className, bool heterogeneous);

    Dimensions const& getDimensions() const noexcept { return dims_; }
    std::size_t getM() const noexcept { return dims_[0]; }
    std::size_t getN() const noexcept { return dims_[1]; }
    std::size_t getNumberOfElements() const noexcept { return count_; }
    bool isEmpty() const noexcept { return count_ == 0; }
    bool isScalar() const noexcept { return count_ == 1; }

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
    // Every character in element order.
    std::u16string getString() const;
    // The handle of a function-handle scalar (HostError for other arrays).
    std::shared_ptr<qvm::FunctionHandle const> const& getFunctionHandle() const;
    // Object elements; an unset slot holds a null pointer.
    qcos::COSInterfacePtr const& getObject(std::size_t index) const;
    void setObject(std::size_t index, qcos::COSInterfacePtr object);

    ~qxArray();

private:
    using Storage = std::variant<std::vector<double>, std::vector<std::uint8_t>, std::u16string,
                                 std::vector<qcos::COSInterfacePtr>,
                                 std::vector<std::shared_ptr<qvm::FunctionHandle const>>>;

    qxArray(Dimensions dims, std::string className, Storage storage);
    void checkIndex(std::size_t index) const;
    template <class Vector>
    Vector& storageAs(char const* kind);
    template <class Vector>
    Vector const& storageAs(char const* kind) const;

    Dimensions dims_;
    std::size_t count_ = 0;
    std::string className_;
    bool heterogeneous_ = false;
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

}  // namespace detail
}  // namespace matrix

// Method calls: type names, choosing a signature, dispatch to the most derived
// class, and the error kept for the caller of a failed call.

#include "platform/host/Qcos.hpp"

#include "platform/host/detail/Runtime.hpp"

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace qcos {

namespace {

thread_local std::exception_ptr lastCallError;

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool matchesType(qxArray const& array, std::string_view type) {
    if (type == "any") {
        return true;
    }
    enum class Shape { Any, Scalar, Vector } shape = Shape::Any;
    if (endsWith(type, " scalar")) {
        shape = Shape::Scalar;
        type.remove_suffix(7);
    } else if (endsWith(type, " vector")) {
        shape = Shape::Vector;
        type.remove_suffix(7);
    }
    auto const& dims = array.getDimensions();
    bool const isRow = dims.size() == 2 && dims[0] == 1;
    if (type == "QcosFactoryString") {
        // One string is a char row or a string scalar, whatever the shape word says.
        return (array.classID() == qxClassID::Char && (isRow || array.isEmpty())) ||
               (array.classID() == qxClassID::String && array.isScalar());
    }
    bool const shapeFits = shape == Shape::Any || (shape == Shape::Scalar && array.isScalar()) ||
                           (shape == Shape::Vector && dims.size() == 2 && (dims[0] <= 1 || dims[1] <= 1));
    if (!shapeFits) {
        return false;
    }
    if (type == "double") {
        return array.classID() == qxClassID::Double;
    }
    if (type == "logical") {
        return array.classID() == qxClassID::Logical;
    }
    if (type == "char") {
        return array.classID() == qxClassID::Char;
    }
    if (type == "function_handle") {
        return array.classID() == qxClassID::FunctionHandle;
    }
    if (type == "cell") {
        return array.classID() == qxClassID::Cell;
    }
    if (type == "struct") {
        return array.classID() == qxClassID::Struct;
    }
    if (type == "string") {
        return array.classID() == qxClassID::String;
    }
    if (type == "void") {
        return false;
    }
    return array.classID() == qxClassID::Object && omIsA(array.getClassName(), type);
}

QcosMethod::Overload const& chooseOverload(QcosMethod const& method, std::string_view className,
                                           std::span<qxArray const* const> inputs) {
    QcosMethod::Overload const* firstOfRightArity = nullptr;
    for (auto const& overload : method.getOverloads()) {
        auto const& types = overload.signature.inputTypes;
        if (overload.signature.untyped) {
            return overload;
        }
        if (types.size() != inputs.size()) {
            continue;
        }
        if (firstOfRightArity == nullptr) {
            firstOfRightArity = &overload;
        }
        bool matches = true;
        for (std::size_t i = 0; i < inputs.size() && matches; ++i) {
            matches = matchesType(*inputs[i], types[i]);
        }
        if (matches) {
            return overload;
        }
    }
    if (firstOfRightArity == nullptr) {
        throw HostError("qcos:method:wrongArgumentCount",
                        fmt::format("No signature of method '{}' of class '{}' takes {} input(s).", method.getName(),
                                    className, inputs.size()));
    }
    auto const& types = firstOfRightArity->signature.inputTypes;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (!matchesType(*inputs[i], types[i])) {
            throw HostError("qcos:method:wrongArgumentType",
                            fmt::format("Input {} of method '{}' of class '{}' must be of type '{}', got class '{}'.",
                                        i + 1, method.getName(), className, types[i], inputs[i]->getClassName()));
        }
    }
    throw std::logic_error("chooseOverload: a signature matched on the second pass only");
}

void invoke(COSClient const& client, QcosMethod const& method, std::string_view className, int nlhs, qxArrayPtr* plhs,
            int nrhs, qxArray const* const* prhs) {
    if (nlhs < 0 || nrhs < 0 || (nlhs > 0 && plhs == nullptr) || (nrhs > 0 && prhs == nullptr)) {
        throw HostError("qcos:method:badArguments", "Negative argument counts or missing argument slots.");
    }
    if (!client.mayCall(method.getAttributes().access)) {
        throw HostError("qcos:method:noAccess",
                        fmt::format("Method '{}' of class '{}' is private.", method.getName(), className));
    }
    std::span<qxArray const* const> const inputs(prhs, static_cast<std::size_t>(nrhs));
    for (auto const* input : inputs) {
        if (input == nullptr) {
            throw HostError("qcos:method:badArguments", "A method input is missing.");
        }
    }
    auto const& overload = chooseOverload(method, className, inputs);
    auto outputs = overload.function(inputs, nlhs);
    if (outputs.size() < static_cast<std::size_t>(nlhs)) {
        throw HostError("qcos:method:tooManyOutputs",
                        fmt::format("Method '{}' of class '{}' returns {} output(s); {} requested.", method.getName(),
                                    className, outputs.size(), nlhs));
    }
    if (!overload.signature.untyped) {
        auto const& types = overload.signature.outputTypes;
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            if (!outputs[i] || i >= types.size() || !matchesType(*outputs[i], types[i])) {
                throw HostError("qcos:method:wrongOutputType",
                                fmt::format("Output {} of method '{}' of class '{}' does not match its signature.",
                                            i + 1, method.getName(), className));
            }
        }
    }
    for (int i = 0; i < nlhs; ++i) {
        plhs[i] = std::move(outputs[static_cast<std::size_t>(i)]);
    }
}

}  // namespace

COSClient const& COSGetPublicClient() noexcept {
    static constexpr COSClient client(false);
    return client;
}

COSClient const& COSGetInternalClient() noexcept {
    static constexpr COSClient client(true);
    return client;
}

namespace {

// Runs a method call, keeping its failure for omGetLastError instead of throwing.
template <class Call>
bool recordingFailure(Call&& call) noexcept {
    try {
        call();
        lastCallError = nullptr;
        return true;
    } catch (...) {
        lastCallError = std::current_exception();
        return false;
    }
}

// The class of the object a method is called on: the most derived one, that
// is the element's own class rather than the array's.
std::string const& classOfSelf(std::string_view methodName, int nrhs, qxArray const* const* prhs) {
    if (nrhs < 1 || prhs == nullptr || prhs[0] == nullptr || prhs[0]->classID() != qxClassID::Object) {
        throw HostError("qcos:method:noObject",
                        fmt::format("Method '{}' needs an object as its first input.", methodName));
    }
    auto const& self = *prhs[0];
    return self.isEmpty() ? self.getClassName() : cosiGetArrayElement(self, 0)->getClassName();
}

// The method `methodName` of `className` or of a superclass, or null. A
// thread calls the same few methods again and again (an analyzer's "analyze",
// node after node): the last ones it found are kept until another class is
// registered, so a repeated call neither looks up the class nor walks its
// superclasses. An unregistered class is a HostError.
QcosMethod const* lookUpMethod(std::string_view className, std::string_view methodName) {
    struct Found {
        std::string className;
        std::string methodName;
        QcosMethod const* method = nullptr;
    };
    struct Cache {
        std::uint64_t generation = ~std::uint64_t{0};
        std::array<Found, 4> entries;
        std::size_t next = 0;
    };
    thread_local Cache cache;
    auto const generation = detail::currentClassGeneration();
    if (cache.generation != generation) {
        cache = Cache{};
        cache.generation = generation;
    }
    for (auto const& entry : cache.entries) {
        if (entry.method != nullptr && entry.className == className && entry.methodName == methodName) {
            return entry.method;
        }
    }
    detail::requireClass(className);
    auto const* method = detail::findMethod(className, methodName);
    if (method != nullptr) {
        // Registered classes are never taken out, so the method stays where it is.
        auto& entry = cache.entries[cache.next];
        cache.next = (cache.next + 1) % cache.entries.size();
        entry.className.assign(className);
        entry.methodName.assign(methodName);
        entry.method = method;
    }
    return method;
}

// Finds `methodName` in `className` (and its superclasses) and invokes it.
void findAndInvoke(COSClient const& client, std::string_view className, std::string_view methodName, bool onlyStatic,
                   int nlhs, qxArrayPtr* plhs, int nrhs, qxArray const* const* prhs) {
    auto const* method = lookUpMethod(className, methodName);
    if (method == nullptr || (onlyStatic && !method->getAttributes().isStatic)) {
        throw HostError("qcos:method:undefined", fmt::format("No {}method '{}' for class '{}'.",
                                                             onlyStatic ? "static " : "", methodName, className));
    }
    invoke(client, *method, className, nlhs, plhs, nrhs, prhs);
}

}  // namespace

bool omCallMethod(COSClient const& client, std::string_view methodName, int nlhs, qxArrayPtr* plhs, int nrhs,
                  qxArray const* const* prhs) noexcept {
    return recordingFailure([&] {
        auto const& className = classOfSelf(methodName, nrhs, prhs);
        findAndInvoke(client, className, methodName, false, nlhs, plhs, nrhs, prhs);
    });
}

bool omCallStaticMethod(COSClient const& client, std::string_view className, std::string_view methodName, int nlhs,
                        qxArrayPtr* plhs, int nrhs, qxArray const* const* prhs) noexcept {
    return recordingFailure([&] { findAndInvoke(client, className, methodName, true, nlhs, plhs, nrhs, prhs); });
}

bool omCallMethodOfClass(COSClient const& client, std::string_view className, std::string_view methodName, int nlhs,
                         qxArrayPtr* plhs, int nrhs, qxArray const* const* prhs) noexcept {
    return recordingFailure([&] {
        auto const& objectClass = classOfSelf(methodName, nrhs, prhs);
        if (!omIsA(objectClass, className)) {
            throw HostError("qcos:method:notSubclass",
                            fmt::format("An object of class '{}' is not a '{}'.", objectClass, className));
        }
        findAndInvoke(client, className, methodName, false, nlhs, plhs, nrhs, prhs);
    });
}

std::exception_ptr omGetLastError() noexcept {
    return lastCallError;
}

}  // namespace qcos

namespace computils::qcos {

void throwErrorCallingQorvexException(std::string const& context) {
    auto const error = ::qcos::omGetLastError();
    if (!error) {
        ::qcos::HostError failure("qcos:call:unknownFailure", context + ": the call failed without an error.");
        failure.setContext(context);
        throw failure;
    }
    try {
        std::rethrow_exception(error);
    } catch (::qcos::HostError const& hostError) {
        // A copy keeps the identifier, the message and the host-language stack.
        ::qcos::HostError withContext(hostError);
        withContext.setContext(context);
        throw withContext;
    } catch (std::exception const& nativeError) {
        ::qcos::HostError wrapped("qcos:call:nativeError", nativeError.what());
        wrapped.setContext(context);
        throw wrapped;
    } catch (...) {
        ::qcos::HostError wrapped("qcos:call:nativeError", "A native operation failed with a non-standard exception.");
        wrapped.setContext(context);
        throw wrapped;
    }
}

void validateType(qxArray const& array, std::string_view className) {
    if (array.classID() != qxClassID::Object || !::qcos::omIsA(array.getClassName(), className)) {
        throw ::qcos::HostError("qcos:type:wrongClass", fmt::format("Expected an array of class '{}', got class '{}'.",
                                                                    className, array.getClassName()));
    }
}

}  // namespace computils::qcos

// What every built-in needs: registration and argument checks.

#include "platform/host/HostFunctions.hpp"
#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Interpreter.hpp"

#include <algorithm>
#include <cctype>

namespace qlang::detail {

void defineBuiltin(std::string name, BuiltinFunction function) {
    // Host code and native code (feval, function handles made in C++) find built-ins alike.
    qvm::registerHostFunction(name, [function](std::span<qxArray const* const> inputs, int outputCount) {
        return arraysOf(function(valuesOf(inputs), outputCount));
    });
    CodeRuntime::get().addBuiltin(std::move(name), std::move(function));
}

void badArgument(std::string_view function, std::string const& message) {
    raise(fmt::format("qlang:{}:badArgument", function), fmt::format("{}: {}", function, message));
}

void checkCount(std::string_view function, Args args, std::size_t minimum, std::size_t maximum) {
    if (args.size() < minimum) {
        raise("qlang:call:notEnoughInputs",
              fmt::format("Not enough input arguments: {} takes at least {}, got {}.", function, minimum, args.size()));
    }
    if (args.size() > maximum) {
        raise("qlang:call:tooManyInputs",
              fmt::format("Too many input arguments: {} takes at most {}, got {}.", function, maximum, args.size()));
    }
}

namespace {

bool equalsIgnoringCase(std::u16string const& a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] > 127 || std::tolower(static_cast<int>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::size_t optionsStart(std::string_view function, Args args, std::initializer_list<std::string_view> names) {
    // Options are pairs at the end: walk back over text names followed by a value.
    std::size_t start = args.size();
    while (start >= 2 && isText(*args[start - 2])) {
        auto const name = args[start - 2]->getString();
        bool known = std::any_of(names.begin(), names.end(),
                                 [&](std::string_view option) { return equalsIgnoringCase(name, option); });
        if (!known) {
            break;
        }
        start -= 2;
    }
    (void)function;
    return start;
}

Value optionValue(Args args, std::size_t start, std::string_view name) {
    Value found;
    for (std::size_t i = start; i + 1 < args.size(); i += 2) {
        if (equalsIgnoringCase(args[i]->getString(), name)) {
            found = args[i + 1];
        }
    }
    return found;
}

Dims sizeArguments(std::string_view function, Args args) {
    if (args.empty()) {
        return {1, 1};
    }
    if (args.size() == 1) {
        auto const& size = *args[0];
        if (size.isScalar()) {
            auto const n = countOf(size, fmt::format("The size given to {}", function));
            return {n, n};
        }
        if (!isNumeric(size) || !isVectorShape(size.getDimensions())) {
            badArgument(function, "the size must be a row of whole numbers.");
        }
        Dims dims;
        for (std::size_t i = 0; i < size.getNumberOfElements(); ++i) {
            double const value = numberAt(size, i);
            if (!(value >= 0) || value != std::floor(value)) {
                badArgument(function, "sizes must be non-negative whole numbers.");
            }
            if (value > 1e15) {
                raise("qx:array:tooLarge", "The array has too many elements.");
            }
            dims.push_back(static_cast<std::size_t>(value));
        }
        return dims;
    }
    Dims dims;
    for (auto const& arg : args) {
        dims.push_back(countOf(*arg, fmt::format("A size given to {}", function)));
    }
    return dims;
}

}  // namespace qlang::detail

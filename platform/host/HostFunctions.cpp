// The host function table and the loading of libraries whose gateways join it.

#include "platform/host/HostFunctions.hpp"

#include "platform/host/HostError.hpp"
#include "platform/host/Vm.hpp"

#include <fmt/format.h>

#include <dlfcn.h>

#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <typeinfo>

namespace qvm {

namespace {

struct LoadedLibrary {
    std::filesystem::path path;
    void* handle = nullptr;
    // Where the library's own code lies: a symbol found by name must lie in
    // the library itself, not in one it depends on (the C library, say).
    void const* base = nullptr;
    // The names the library declares as its gateways; nothing else of it is
    // callable by name.
    std::set<std::string, std::less<>> gateways;
};

// Never destroyed: host code may still call functions while static
// destructors run, and loaded libraries stay loaded for the process.
struct FunctionTable {
    std::shared_mutex mutex;
    std::map<std::string, std::shared_ptr<HostFunction const>, std::less<>> functions;
    std::vector<LoadedLibrary> libraries;
    std::mutex loadMutex;
};

// The runtime's own function: eval of a dotted expression held in one char array.
std::vector<qxArrayPtr> evalFunction(std::span<qxArray const* const> inputs, int outputCount) {
    if (inputs.size() != 1 || inputs[0]->classID() != qxClassID::Char) {
        throw qcos::HostError("qvm:eval:notText", "eval takes one char array holding the expression.");
    }
    if (outputCount > 1) {
        throw qcos::HostError("qvm:eval:tooManyOutputs", "eval returns one output.");
    }
    std::vector<qxArrayPtr> outputs;
    outputs.push_back(evaluate(inputs[0]->getString()));
    return outputs;
}

FunctionTable& functionTable() {
    static auto* table = [] {
        auto* created = new FunctionTable;
        created->functions.emplace("eval", std::make_shared<HostFunction const>(&evalFunction));
        return created;
    }();
    return *table;
}

// The symbol of a global-namespace function with the Gateway signature: the
// Itanium C++ name of the function is "_Z", the length of its name, the name,
// and the encoding of its parameter types, which is the encoding of the
// Gateway function type without its "Fv" (function returning void) and "E".
std::string gatewaySymbol(std::string_view name) {
    static std::string const parameters = [] {
        std::string type = typeid(Gateway).name();
        return type.substr(2, type.size() - 3);
    }();
    return fmt::format("_Z{}{}{}", name.size(), name, parameters);
}

bool isIdentifier(std::string_view name) {
    if (name.empty() || !((name[0] >= 'a' && name[0] <= 'z') || (name[0] >= 'A' && name[0] <= 'Z'))) {
        return false;
    }
    for (char const c : name) {
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) {
            return false;
        }
    }
    return true;
}

// The load address of the object that defines the symbol at that address.
void const* objectBase(void const* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0) {
        return nullptr;
    }
    return info.dli_fbase;
}

bool definedIn(LoadedLibrary const& library, void const* symbol) {
    return library.base != nullptr && objectBase(symbol) == library.base;
}

std::shared_ptr<HostFunction const> findGateway(FunctionTable& table, std::string_view name) {
    if (!isIdentifier(name)) {
        return nullptr;
    }
    std::string const symbol = gatewaySymbol(name);
    std::string const plainSymbol(name);
    for (auto const& library : table.libraries) {
        if (!library.gateways.contains(name)) {
            continue;
        }
        if (void* found = dlsym(library.handle, symbol.c_str()); found != nullptr && definedIn(library, found)) {
            return std::make_shared<HostFunction const>(fromGateway(reinterpret_cast<Gateway*>(found)));
        }
        if (void* found = dlsym(library.handle, plainSymbol.c_str()); found != nullptr && definedIn(library, found)) {
            return std::make_shared<HostFunction const>(fromPlainGateway(reinterpret_cast<PlainGateway*>(found)));
        }
    }
    return nullptr;
}

// The library's name as its entry points spell it: "libdepattr.so.1" gives "depattr".
std::string libraryName(std::filesystem::path const& library) {
    std::string name = library.filename().string();
    if (name.starts_with("lib")) {
        name.erase(0, 3);
    }
    if (auto const dot = name.find('.'); dot != std::string::npos) {
        name.erase(dot);
    }
    return name;
}

class NamedFunctionHandle final : public FunctionHandle {
public:
    explicit NamedFunctionHandle(std::string name) : name_(std::move(name)) {}

    std::vector<qxArrayPtr> call(std::span<qxArray const* const> inputs, int outputCount) const override {
        return callHostFunction(name_, inputs, outputCount);
    }
    std::u16string text() const override { return u"@" + std::u16string(name_.begin(), name_.end()); }

private:
    std::string name_;
};

}  // namespace

void registerHostFunction(std::string name, HostFunction function) {
    auto& table = functionTable();
    auto shared = std::make_shared<HostFunction const>(std::move(function));
    std::unique_lock lock(table.mutex);
    table.functions.insert_or_assign(std::move(name), std::move(shared));
}

std::shared_ptr<HostFunction const> findHostFunction(std::string_view name) {
    auto& table = functionTable();
    {
        std::shared_lock lock(table.mutex);
        if (auto const found = table.functions.find(name); found != table.functions.end()) {
            return found->second;
        }
    }
    std::unique_lock lock(table.mutex);
    if (auto const found = table.functions.find(name); found != table.functions.end()) {
        return found->second;
    }
    auto gateway = findGateway(table, name);
    if (gateway) {
        table.functions.emplace(std::string(name), gateway);
    }
    return gateway;
}

std::vector<qxArrayPtr> callHostFunction(std::string_view name, std::span<qxArray const* const> inputs,
                                         int outputCount) {
    auto const function = findHostFunction(name);
    if (!function) {
        throw qcos::HostError("qvm:feval:undefinedFunction", fmt::format("Undefined function '{}'.", name));
    }
    return (*function)(inputs, outputCount);
}

HostFunction fromGateway(Gateway* gateway) {
    return [gateway](std::span<qxArray const* const> inputs, int outputCount) {
        // A gateway sets output slot 1 even when no output was asked for.
        std::vector<qxArrayPtr> outputs(static_cast<std::size_t>(std::max(outputCount, 1)));
        std::vector<qxArray const*> arguments(inputs.begin(), inputs.end());
        gateway(outputCount, outputs.data(), static_cast<int>(arguments.size()), arguments.data());
        while (!outputs.empty() && !outputs.back()) {
            outputs.pop_back();
        }
        return outputs;
    };
}

HostFunction fromPlainGateway(PlainGateway* gateway) {
    return [gateway](std::span<qxArray const* const> inputs, int outputCount) {
        std::vector<qxArray*> slots(static_cast<std::size_t>(std::max(outputCount, 1)), nullptr);
        std::vector<qxArray const*> arguments(inputs.begin(), inputs.end());
        std::vector<qxArrayPtr> outputs;
        try {
            gateway(outputCount, slots.data(), static_cast<int>(arguments.size()), arguments.data());
        } catch (...) {
            for (auto* slot : slots) {
                delete slot;
            }
            throw;
        }
        for (auto* slot : slots) {
            outputs.emplace_back(slot);
        }
        while (!outputs.empty() && !outputs.back()) {
            outputs.pop_back();
        }
        return outputs;
    };
}

void loadLibrary(std::filesystem::path const& library) {
    auto& table = functionTable();
    std::lock_guard loading(table.loadMutex);
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        char const* reason = dlerror();
        throw qcos::HostError("qvm:library:cannotLoad", fmt::format("Cannot load library '{}': {}", library.string(),
                                                                    reason != nullptr ? reason : "unknown reason"));
    }
    {
        std::shared_lock lock(table.mutex);
        for (auto const& loaded : table.libraries) {
            if (loaded.handle == handle) {
                // Already loaded: the loader counted one more reference; give it back.
                dlclose(handle);
                return;
            }
        }
    }
    std::string const entryPoint = "QLInitialize_" + libraryName(library);
    auto* initialize = reinterpret_cast<void (*)()>(dlsym(handle, entryPoint.c_str()));
    if (initialize == nullptr) {
        dlclose(handle);
        throw qcos::HostError("qvm:library:noEntryPoint",
                              fmt::format("Library '{}' has no entry point '{}'.", library.string(), entryPoint));
    }
    initialize();
    LoadedLibrary loaded{library, handle, objectBase(reinterpret_cast<void const*>(initialize)), {}};
    // The gateway table: a null-terminated list of names. A library without
    // one has no gateways.
    std::string const tableName = "QLGateways_" + libraryName(library);
    if (auto* gatewayTable = reinterpret_cast<char const* const* (*)()>(dlsym(handle, tableName.c_str()));
        gatewayTable != nullptr && definedIn(loaded, reinterpret_cast<void const*>(gatewayTable))) {
        for (char const* const* name = gatewayTable(); name != nullptr && *name != nullptr; ++name) {
            loaded.gateways.emplace(*name);
        }
    }
    std::unique_lock lock(table.mutex);
    table.libraries.push_back(std::move(loaded));
}

FunctionHandle::~FunctionHandle() = default;

std::shared_ptr<FunctionHandle const> makeNamedFunctionHandle(std::string name) {
    return std::make_shared<NamedFunctionHandle>(std::move(name));
}

}  // namespace qvm

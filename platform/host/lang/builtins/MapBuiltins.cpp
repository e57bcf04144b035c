// containers.Map: a handle object mapping char or numeric keys to values.
// The entries live in a native object that every copy of the handle shares;
// keys stay sorted (text by character code, numbers ascending).

#include "platform/host/lang/detail/Builtins.hpp"
#include "platform/host/lang/detail/Maps.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <map>
#include <mutex>

namespace qlang::detail {

namespace {

constexpr char const* mapClassName = "containers.Map";

class MapData final : public dependency::services::Shareable {
public:
    MapData() : Shareable(mapClassName) {}

    mutable std::mutex mutex;
    bool numericKeys = false;
    std::string valueType = "any";
    std::map<std::u16string, Value> texts;
    std::map<double, Value> numbers;

    std::size_t count() const { return numericKeys ? numbers.size() : texts.size(); }
};

MapData& dataOf(qcos::COSInterface const& object) {
    auto* data = dynamic_cast<MapData*>(object.getNative().get());
    if (data == nullptr) {
        raise("qlang:map:notMap",
              fmt::format("Expected a containers.Map, got an object of class '{}'.", object.getClassName()));
    }
    return *data;
}

MapData& dataOf(qxArray const& map) {
    auto* data = map.classID() == qxClassID::Object && map.isScalar() && map.getObject(0)
                     ? dynamic_cast<MapData*>(map.getObject(0)->getNative().get())
                     : nullptr;
    if (data == nullptr) {
        raise("qlang:map:notMap",
              fmt::format("Expected a containers.Map, got a value of class '{}'.", map.getClassName()));
    }
    return *data;
}

// One key as the map holds it: a number for a numeric map, else text.
struct Key {
    double number = 0;
    std::u16string text;
};

Key keyOf(MapData const& data, qxArray const& key) {
    Key result;
    if (data.numericKeys) {
        if (!(key.classID() == qxClassID::Double || key.classID() == qxClassID::Logical) || !key.isScalar()) {
            raise("qlang:map:badKey", fmt::format("The keys of this map are numbers; a value of class '{}' is not one.",
                                                  key.getClassName()));
        }
        result.number = numberAt(key, 0);
        return result;
    }
    if (!isText(key)) {
        raise("qlang:map:badKey",
              fmt::format("The keys of this map are text; a value of class '{}' is not.", key.getClassName()));
    }
    result.text = key.getString();
    return result;
}

std::string keyText(MapData const& data, Key const& key) {
    return data.numericKeys ? numberText(key.number) : "'" + utf8(key.text) + "'";
}

Value const* findKey(MapData const& data, Key const& key) {
    if (data.numericKeys) {
        auto const found = data.numbers.find(key.number);
        return found == data.numbers.end() ? nullptr : &found->second;
    }
    auto const found = data.texts.find(key.text);
    return found == data.texts.end() ? nullptr : &found->second;
}

Value const& lookup(MapData const& data, Key const& key) {
    auto const* found = findKey(data, key);
    if (found == nullptr) {
        raise("qlang:map:noKey", fmt::format("The key {} is not in the map.", keyText(data, key)));
    }
    return *found;
}

void store(MapData& data, Key key, Value value) {
    if (data.numericKeys) {
        data.numbers.insert_or_assign(key.number, std::move(value));
    } else {
        data.texts.insert_or_assign(std::move(key.text), std::move(value));
    }
}

// The keys a call names: the elements of a cell array or of an array of
// numbers, else the one key given.
std::vector<Value> keysIn(Value const& keys) {
    std::vector<Value> list;
    if (keys->classID() == qxClassID::Cell) {
        list.assign(keys->cells().begin(), keys->cells().end());
    } else if (!isText(*keys) && isNumeric(*keys)) {
        for (std::size_t i = 0; i < keys->getNumberOfElements(); ++i) {
            list.push_back(makeDouble(numberAt(*keys, i)));
        }
    } else {
        list.push_back(keys);
    }
    return list;
}

Value newMap(Args args) {
    auto data = std::make_shared<MapData>();
    bool const options = !args.empty() && args.size() % 2 == 0 && isText(*args[0]) &&
                         (boost::iequals(utf8(args[0]->getString()), "KeyType") ||
                          boost::iequals(utf8(args[0]->getString()), "ValueType") ||
                          boost::iequals(utf8(args[0]->getString()), "UniformValues"));
    std::size_t optionStart = args.size();
    if (options) {
        optionStart = 0;
    } else if (args.size() == 1 || (args.size() > 2 && args.size() % 2 == 1)) {
        badArgument("containers.Map", "give keys and values, or 'KeyType' and 'ValueType' options.");
    } else if (args.size() >= 2) {
        optionStart = 2;
    }
    for (std::size_t i = optionStart; i + 1 < args.size(); i += 2) {
        auto const name = utf8(textOf(*args[i], "An option name"));
        if (boost::iequals(name, "KeyType")) {
            auto const type = utf8(textOf(*args[i + 1], "KeyType"));
            if (type == "char") {
                data->numericKeys = false;
            } else if (type == "double" || type == "single" || type == "int32" || type == "uint32" || type == "int64" ||
                       type == "uint64") {
                data->numericKeys = true;
            } else {
                badArgument("containers.Map", fmt::format("the KeyType '{}' is not 'char' or a numeric class.", type));
            }
        } else if (boost::iequals(name, "ValueType")) {
            data->valueType = utf8(textOf(*args[i + 1], "ValueType"));
        } else if (!boost::iequals(name, "UniformValues")) {
            badArgument("containers.Map", fmt::format("unknown option '{}'.", name));
        }
    }
    if (optionStart == 2) {
        auto const keys = keysIn(args[0]);
        std::vector<Value> values;
        if (args[0]->classID() == qxClassID::Cell || keys.size() != 1) {
            if (args[1]->classID() != qxClassID::Cell || args[1]->getNumberOfElements() != keys.size()) {
                badArgument("containers.Map", "give as many values in a cell array as there are keys.");
            }
            values.assign(args[1]->cells().begin(), args[1]->cells().end());
        } else {
            values.push_back(args[1]);
        }
        data->numericKeys = !keys.empty() && !isText(*keys.front());
        for (std::size_t i = 0; i < keys.size(); ++i) {
            store(*data, keyOf(*data, *keys[i]), values[i]);
        }
    }
    qcos::factory::basic::BindingRegistry::announce(data, mapClassName);
    return share(qcos::omCreateQCOSScalar(qcos::factory::full::acquireReference(data)));
}

Value keysOf(MapData const& data) {
    std::lock_guard const lock(data.mutex);
    auto keys = qxArray::createCell({1, data.count()});
    std::size_t i = 0;
    if (data.numericKeys) {
        for (auto const& entry : data.numbers) {
            keys->setCell(i++, makeDouble(entry.first));
        }
    } else {
        for (auto const& entry : data.texts) {
            keys->setCell(i++, makeChars(entry.first));
        }
    }
    return share(std::move(keys));
}

Value mapValues(MapData const& data, Value const* wanted) {
    std::lock_guard const lock(data.mutex);
    if (wanted != nullptr) {
        if ((*wanted)->classID() != qxClassID::Cell) {
            badArgument("values", "give the keys as a cell array.");
        }
        auto values = qxArray::createCell((*wanted)->getDimensions());
        auto const keys = (*wanted)->cells();
        for (std::size_t i = 0; i < keys.size(); ++i) {
            values->setCell(i, lookup(data, keyOf(data, *keys[i])));
        }
        return share(std::move(values));
    }
    auto values = qxArray::createCell({1, data.count()});
    std::size_t i = 0;
    if (data.numericKeys) {
        for (auto const& entry : data.numbers) {
            values->setCell(i++, entry.second);
        }
    } else {
        for (auto const& entry : data.texts) {
            values->setCell(i++, entry.second);
        }
    }
    return share(std::move(values));
}

Value isKeyOf(MapData const& data, Value const& keys) {
    std::lock_guard const lock(data.mutex);
    // A key of the wrong kind is simply not in the map.
    auto const has = [&](qxArray const& key) {
        bool const fits =
            data.numericKeys
                ? (key.classID() == qxClassID::Double || key.classID() == qxClassID::Logical) && key.isScalar()
                : isText(key);
        return fits && findKey(data, keyOf(data, key)) != nullptr;
    };
    if (keys->classID() != qxClassID::Cell) {
        return makeLogical(has(*keys));
    }
    auto result = qxArray::createLogical(keys->getDimensions());
    auto const list = keys->cells();
    for (std::size_t i = 0; i < list.size(); ++i) {
        result->logicals()[i] = has(*list[i]) ? 1 : 0;
    }
    return share(std::move(result));
}

void removeFrom(MapData& data, Value const& keys) {
    std::lock_guard const lock(data.mutex);
    std::vector<Key> found;
    for (auto const& key : keysIn(keys)) {
        auto k = keyOf(data, *key);
        (void)lookup(data, k);
        found.push_back(std::move(k));
    }
    for (auto const& key : found) {
        if (data.numericKeys) {
            data.numbers.erase(key.number);
        } else {
            data.texts.erase(key.text);
        }
    }
}

// A method over host arrays from one over values.
qcos::MethodFunction method(std::function<Value(Args)> body) {
    return [body = std::move(body)](std::span<qxArray const* const> inputs, int) {
        Values args;
        args.reserve(inputs.size());
        for (auto const* input : inputs) {
            // The map object itself is shared, not copied: it is a handle.
            args.push_back(share(input->clone()));
        }
        std::vector<qxArrayPtr> outputs;
        outputs.push_back(qxArray::unshare(body(args)));
        return outputs;
    };
}

void addMethod(qcos::COSClassInfo& info, std::string name, std::size_t minimum, std::size_t maximum,
               std::function<Value(Args)> body) {
    qcos::QcosMethod entry(name);
    entry.addSignature(qcos::createUntypedSignature(), method([name, minimum, maximum, body](Args args) {
                           checkCount(name, args, minimum, maximum);
                           return body(args);
                       }));
    info.addMethod(std::move(entry));
}

}  // namespace

bool isMap(qxArray const& value) noexcept {
    return value.classID() == qxClassID::Object && value.getClassName() == mapClassName;
}

Value mapLookup(qxArray const& map, std::span<Value const> subscripts) {
    auto const& data = dataOf(map);
    if (subscripts.size() != 1) {
        raise("qlang:map:badKey", fmt::format("A map is indexed with one key, got {}.", subscripts.size()));
    }
    std::lock_guard const lock(data.mutex);
    return lookup(data, keyOf(data, *subscripts[0]));
}

void mapStore(qxArray const& map, std::span<Value const> subscripts, Value const& value) {
    auto& data = dataOf(map);
    if (subscripts.size() != 1) {
        raise("qlang:map:badKey", fmt::format("A map is indexed with one key, got {}.", subscripts.size()));
    }
    std::lock_guard const lock(data.mutex);
    store(data, keyOf(data, *subscripts[0]), value);
}

void registerMapClass() {
    if (qcos::omFindClass(mapClassName)) {
        return;
    }
    auto info = std::make_shared<qcos::QcosFactoryClassInfo>(mapClassName);
    info->addSuperclass("handle");
    info->addProperty(qcos::QcosProperty::withGetter("Count", "double", [](qcos::COSInterface const& self) {
        auto const& data = dataOf(self);
        std::lock_guard const lock(data.mutex);
        return qxArray::createScalar(static_cast<double>(data.count()));
    }));
    info->addProperty(qcos::QcosProperty::withGetter("KeyType", "char", [](qcos::COSInterface const& self) {
        auto const& data = dataOf(self);
        return qxArray::createString(data.numericKeys ? u"double" : u"char");
    }));
    info->addProperty(qcos::QcosProperty::withGetter("ValueType", "char", [](qcos::COSInterface const& self) {
        auto const& data = dataOf(self);
        return qxArray::createString(utf16(data.valueType));
    }));
    qcos::QcosMethod constructor("Map", qcos::MethodAttributes{true, qcos::Access::Public});
    constructor.addSignature(qcos::createUntypedSignature(), method([](Args args) { return newMap(args); }));
    info->addMethod(std::move(constructor));
    addMethod(*info, "keys", 1, 1, [](Args args) { return keysOf(dataOf(*args[0])); });
    addMethod(*info, "values", 1, 2,
              [](Args args) { return mapValues(dataOf(*args[0]), args.size() > 1 ? &args[1] : nullptr); });
    addMethod(*info, "isKey", 2, 2, [](Args args) { return isKeyOf(dataOf(*args[0]), args[1]); });
    addMethod(*info, "remove", 2, 2, [](Args args) {
        removeFrom(dataOf(*args[0]), args[1]);
        return args[0];
    });
    auto const count = [](Args args) {
        auto const& data = dataOf(*args[0]);
        std::lock_guard const lock(data.mutex);
        return makeDouble(static_cast<double>(data.count()));
    };
    addMethod(*info, "length", 1, 1, count);
    addMethod(*info, "isempty", 1, 1, [](Args args) {
        auto const& data = dataOf(*args[0]);
        std::lock_guard const lock(data.mutex);
        return makeLogical(data.count() == 0);
    });
    qcos::omGetNamespace("containers").addClass(std::move(info));
}

}  // namespace qlang::detail

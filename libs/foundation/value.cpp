#include "foundation/value.h"
#include "base/exceptions.h"
#include "foundation/detail/value_private.h"
#include "foundation/value_map.h"

namespace fn {
namespace {

// Functions and not variables: initialisers of other files may use them.
const Value& nil() noexcept
{
    static const Value value;
    return value;
}
const Value::Array& noElements() noexcept
{
    static const Value::Array elements;
    return elements;
}
const ValueMap& noEntries() noexcept
{
    static const ValueMap entries;
    return entries;
}

[[noreturn]] void throwWrongKind(const fn::String& message, const Value& value)
{
    throw with(RangeException(message), DetailInfo { value.detailInfo() });
}

} // namespace

namespace internal {
BoxBase::~BoxBase() = default;
}

Value::Value(Type type) : _kind(Kind::Nil)
{
    switch (type) {
    case NIL:
    case BOXED:
    case OBJECT: break;
    case BOOL:
        _data.boolean = false;
        _kind = Kind::Bool;
        break;
    case INT:
        _data.integer = 0;
        _kind = Kind::Int;
        break;
    case DOUBLE:
        _data.real = 0;
        _kind = Kind::Double;
        break;
    case STRING: *this = Value(fn::String()); break;
    case BYTE_ARRAY: *this = Value(ByteArray()); break;
    case ARRAY:
        _data.array = nullptr;
        _kind = Kind::Array;
        break;
    case MAP:
        _data.map = nullptr;
        _kind = Kind::Map;
        break;
    }
}

Value::Value(Array elements) : _kind(Kind::Array)
{
    _data.array = elements.empty() ? nullptr : new internal::ArrayStorage(std::move(elements));
}

Value::Value(Map map) : _kind(Kind::Map)
{
    _data.map = map.empty() ? nullptr : new internal::MapStorage(std::move(map));
}

Value Value::map(std::initializer_list<std::pair<Value, Value>> entries)
{
    Map map;
    map.reserve(entries.size());
    for (const auto& [key, value] : entries) map.set(key, value);
    return map;
}

Value Value::array(std::initializer_list<Value> elements) { return Array(elements); }

void Value::setObject(Object* object, RefCountedBase* counted) noexcept
{
    counted->retain();
    _data.object = { object, counted };
    _kind = Kind::Object;
}

void Value::setBox(internal::BoxBase* box) noexcept
{
    box->retain();
    _data.box = box;
    _kind = Kind::Boxed;
}

internal::ContainerStorage* Value::container() const noexcept
{
    if (_kind == Kind::Array) return _data.array;
    return _kind == Kind::Map ? _data.map : nullptr;
}

void Value::share(const Value& other) noexcept
{
    switch (_kind) {
    case Kind::String: new (&_data.string) fn::String(other._data.string); return;
    case Kind::Bytes: new (&_data.bytes) ByteArray(other._data.bytes); return;
    case Kind::Boxed: other._data.box->retain(); break;
    case Kind::Object: other._data.object.counted->retain(); break;
    default:
        if (auto* storage = other.container()) storage->references.fetch_add(1, std::memory_order_relaxed);
    }
    takeBits(other);
}

void Value::destroy() noexcept
{
    switch (_kind) {
    case Kind::String: _data.string.~String(); break;
    case Kind::Bytes: _data.bytes.~ByteArray(); break;
    case Kind::Boxed: _data.box->release(); break;
    case Kind::Object: _data.object.counted->release(); break;
    default:
        if (auto* storage = container(); storage && storage->drop()) destroyContainers(storage);
    }
}

// A list instead of recursion: a program may nest containers deeper than its stack allows.
void Value::destroyContainers(internal::ContainerStorage* first) noexcept
{
    auto* dead = first;
    const auto takeOut = [&dead](Value& value) {
        auto* storage = value.container();
        if (!storage) return;
        value._kind = Kind::Nil;
        if (storage->drop()) storage->nextDead = std::exchange(dead, storage);
    };
    while (dead) {
        auto* storage = std::exchange(dead, dead->nextDead);
        if (storage->kind == Kind::Array) {
            auto* array = static_cast<internal::ArrayStorage*>(storage);
            for (auto& element : array->elements) takeOut(element);
            delete array;
        } else {
            auto* map = static_cast<internal::MapStorage*>(storage);
            auto* run = map->entries.firstRun();
            for (const auto* end = run + map->entries.runCount(); run != end; ++run) {
                for (auto& entry : *run) {
                    takeOut(entry.key);
                    takeOut(entry.value);
                }
            }
            delete map;
        }
    }
}

bool Value::is(Type type) const noexcept
{
    switch (type) {
    case NIL: return _kind == Kind::Nil;
    case BOOL: return _kind == Kind::Bool;
    case INT: return isInteger();
    case DOUBLE: return _kind == Kind::Double;
    case STRING: return _kind == Kind::String;
    case BYTE_ARRAY: return _kind == Kind::Bytes;
    case ARRAY: return _kind == Kind::Array;
    case MAP: return _kind == Kind::Map;
    case BOXED: return _kind == Kind::Boxed;
    case OBJECT: return _kind == Kind::Object;
    }
    return false;
}

bool Value::empty() const noexcept
{
    switch (_kind) {
    case Kind::Nil: return true;
    case Kind::String: return _data.string.empty();
    case Kind::Bytes: return _data.bytes.empty();
    case Kind::Array:
    case Kind::Map: return size() == 0;
    default: return false;
    }
}

std::size_t Value::size() const noexcept
{
    if (!container()) return 0;
    return _kind == Kind::Array ? _data.array->elements.size() : _data.map->entries.size();
}

const fn::String& Value::string() const
{
    if (_kind != Kind::String) throwInvalidBoxedType();
    return _data.string;
}

void Value::throwInvalidBoxedType() const { throwWrongKind("Invalid boxed type", *this); }

Object* Value::objectPointer() const
{
    if (_kind == Kind::Nil) return nullptr;
    if (_kind != Kind::Object) throwWrongKind("Value can not be converted to object", *this);
    return _data.object.object;
}

const Value::Array& Value::elements() const
{
    if (_kind != Kind::Array) throwWrongKind("Value is not an array", *this);
    return _data.array ? _data.array->elements : noElements();
}

const Value::Map& Value::entries() const
{
    if (_kind != Kind::Map) throwWrongKind("Value is not a map", *this);
    return _data.map ? _data.map->entries : noEntries();
}

Value::Array& Value::mutableElements()
{
    if (_kind == Kind::Nil) *this = Value(ARRAY);
    if (_kind != Kind::Array) throwWrongKind("Value is not an array", *this);
    if (_data.array && !_data.array->isUnique()) *this = Value(Array(_data.array->elements));
    if (!_data.array) _data.array = new internal::ArrayStorage;
    return _data.array->elements;
}

Value::Map& Value::mutableEntries()
{
    if (_kind == Kind::Nil) *this = Value(MAP);
    if (_kind != Kind::Map) throwWrongKind("Value is not a map", *this);
    if (_data.map && !_data.map->isUnique()) *this = Value(Map(_data.map->entries));
    if (!_data.map) _data.map = new internal::MapStorage;
    return _data.map->entries;
}

const Value* Value::find(const Value& key) const noexcept
{
    if (_kind != Kind::Map || !_data.map) return nullptr;
    return std::as_const(_data.map->entries).find(key);
}

const Value& Value::at(const Value& key) const
{
    if (const auto* value = find(key)) return *value;
    throwWrongKind(("Missing key: " + key.detailInfo()), *this);
}

const Value& Value::get(const Value& key) const noexcept { return get(key, nil()); }

const Value& Value::get(const Value& key, const Value& defaultValue) const noexcept
{
    const auto* value = find(key);
    return value ? *value : defaultValue;
}

void Value::set(const Value& key, Value value)
{
    Value ownKey = key; // `key` may lie in the map that is about to be copied.
    mutableEntries().set(std::move(ownKey), std::move(value));
}

bool Value::remove(const Value& key)
{
    if (!has(key)) return false; // A shared map is not copied.
    return mutableEntries().remove(Value(key)); // A copy: `key` may be in the map.
}

const Value& Value::operator[](std::size_t index) const
{
    const auto& all = elements();
    if (index >= all.size()) {
        throw with(RangeException("Array index is out of range"),
            DetailInfo { fmt::format("Index: {}, size: {}", index, all.size()) });
    }
    return all[index];
}

void Value::append(Value value) { mutableElements().push_back(std::move(value)); }

} // namespace fn

#pragma once
#include "base/auto_ptr.h"
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "base/string.h"
#include <compare>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iosfwd>
#include <limits>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace fn {

class Value;
class ValueMap;

namespace internal {

/// A Value's object of a boxed type. Types are compared by `std::type_info`, never by its address.
class FN_EXPORT BoxBase : public RefCountedBase {
public:
    virtual const std::type_info& type() const noexcept = 0;
    virtual String toString() const = 0;
    /// Negative, 0 or positive. `other` holds an object of the same type.
    virtual int compare(const BoxBase& other) const noexcept = 0;

protected:
    ~BoxBase() override;
};

template <typename T> class Box;
struct ContainerStorage;
struct ArrayStorage;
struct MapStorage;

template <typename T>
concept Integral = std::integral<T> && !std::same_as<std::remove_cv_t<T>, bool>;

template <typename T>
concept HasValueOrder = requires(const T& a, const T& b)
{
    T::valueOrder(a, b);
};

} // namespace internal

/// True for the types that a Value boxes; a type joins by a specialisation. It needs a copy constructor, `toString()`, and a `<`
/// that orders its objects, since a boxed object may be a key. If it has an `==`, too, objects that are unequal, but that `<` does
/// not order, are ordered by their text. A type whose `<` is no such order defines its order as a value:
/// `static int valueOrder(const T& a, const T& b) noexcept`, negative, 0 or positive.
template <typename T> inline constexpr bool isBoxable = false;

/// A document: nil, boolean, integer, double, text, bytes, array, map with any key, or a boxed object that keeps its exact
/// type. 24 bytes large. Copying never copies bytes, long text, arrays or maps: they are shared, and copied on the first
/// change. Values have one total order over all kinds:
///
///     nil < bool < number < string < bytes < array < map < boxed (objects among them)
///
/// Numbers compare by exact mathematical value whatever their kind (1 == 1u == 1.0; NaN last and equal to itself).
/// Distinct values may be used on distinct threads even where they share storage.
class FN_EXPORT Value {
public:
    /// How a value is stored. Integers are UInt only above INT64_MAX.
    enum class Kind : std::uint8_t { Nil, Bool, Int, UInt, Double, String, Bytes, Array, Map, Boxed, Object };

    /// The types that `is()` tests for. INT stands for every integer.
    enum Type { NIL, BOOL, INT, DOUBLE, STRING, BYTE_ARRAY, ARRAY, MAP, BOXED, OBJECT };

    using Array = std::vector<Value>; ///< The elements of an array.
    using Map = ValueMap; ///< The entries of a map.

    Value() noexcept : _kind(Kind::Nil) { }
    Value(Type type); ///< An empty value of that type: `Value(Value::MAP)` is an empty map. BOXED and OBJECT give nil.
    /// A boolean; numbers and pointers do not turn into one.
    template <std::same_as<bool> B> Value(B value) noexcept : _kind(Kind::Bool) { _data.boolean = value; }
    /// An integer of any size and sign.
    template <internal::Integral T> Value(T value) noexcept
    {
        // Stored signed unless above INT64_MAX, so that equal integers have one form.
        if constexpr (std::unsigned_integral<T> && sizeof(T) == 8) {
            _kind = value > static_cast<std::uint64_t>(INT64_MAX) ? Kind::UInt : Kind::Int;
        } else {
            _kind = Kind::Int;
        }
        internal::storeWords(&_data, static_cast<std::uint64_t>(value), 0);
    }
    /// Unscoped enumerators are the integers they stand for.
    template <typename E>
    requires(std::is_enum_v<E>&& std::convertible_to<E, std::underlying_type_t<E>>) Value(E value)
    noexcept : Value(static_cast<std::underlying_type_t<E>>(value)) { }
    /// NaN and infinities included.
    template <std::floating_point T> Value(T value) noexcept : _kind(Kind::Double)
    {
        _data.real = static_cast<double>(value);
    }
    Value(const char* text) : Value(fn::String(text)) { } ///< Text, which ends at the first zero.
    Value(std::string_view text) : Value(fn::String(text)) { } ///< Text.
    Value(const std::string& text) : Value(fn::String(text)) { } ///< Text.
    /// Text, shared.
    Value(fn::String text) noexcept : _kind(Kind::String) { new (&_data.string) fn::String(std::move(text)); }
    /// Bytes, shared.
    Value(ByteArray bytes) noexcept : _kind(Kind::Bytes) { new (&_data.bytes) ByteArray(std::move(bytes)); }
    Value(Array elements); ///< An array of them.
    Value(Map map); ///< A map of them.
    Value(std::initializer_list<std::pair<Value, Value>> entries) = delete; // Ambiguous with arrays; use map().
    template <typename T>
    requires isBoxable<T> Value(T object); ///< Boxes an object of a type that says it can be boxed (`isBoxable`).
    /// Holds the object (which derives from fn::Object and fn::RefCountedBase); an empty pointer gives nil.
    template <typename T> Value(const AutoPtr<T>& object) : _kind(Kind::Nil)
    {
        if (object) setObject(object.get(), object.get());
    }
    template <typename T> Value(T*) = delete; // A pointer would turn into a boolean.

    Value(const Value& other) noexcept : _kind(other._kind)
    {
        if (_kind < Kind::String)
            takeBits(other);
        else
            share(other);
    }
    Value(Value&& other) noexcept : _kind(std::exchange(other._kind, Kind::Nil)) { takeBits(other); }
    // Through a temporary: `other` may lie inside the array or map that this value holds.
    Value& operator=(const Value& other) noexcept { return *this = Value(other); }
    Value& operator=(Value&& other) noexcept
    {
        Value old(std::move(*this));
        _kind = std::exchange(other._kind, Kind::Nil);
        takeBits(other);
        return *this;
    }
    ~Value()
    {
        if (_kind >= Kind::String) destroy();
    }

    /// A map of the given entries; later ones win over earlier ones with an equal key.
    static Value map(std::initializer_list<std::pair<Value, Value>> entries);
    static Value array(std::initializer_list<Value> elements); ///< An array of the given elements.

    Kind kind() const noexcept { return _kind; } ///< How it is stored.
    bool is(Type type) const noexcept; ///< Whether it is of that type; INT stands for every integer.
    bool isNil() const noexcept { return _kind == Kind::Nil; } ///< Whether it is nothing.
    bool isMap() const noexcept { return _kind == Kind::Map; } ///< Whether it has entries.
    bool isArray() const noexcept { return _kind == Kind::Array; } ///< Whether it has elements.
    bool isString() const noexcept { return _kind == Kind::String; } ///< Whether it is text.
    bool isObject() const noexcept { return _kind == Kind::Object; } ///< Whether it is a counted object.
    bool isInteger() const noexcept { return _kind == Kind::Int || _kind == Kind::UInt; } ///< Of either sign.
    bool isNumber() const noexcept { return isInteger() || _kind == Kind::Double; } ///< An integer or a double.

    /// Whether this is nil, "", no bytes, or no elements. 0 and false are not empty.
    bool empty() const noexcept;

    // --- Conversions

    /// Converts without loss: nil to 0, booleans to 0 or 1, numbers to an equal T.
    /// `fn::RangeException` "Value can not be converted to requested type without loss" for a number that has no equal T,
    /// "Value can not be implicitly converted to integral type" for another kind; both carry `detailInfo()`.
    template <internal::Integral T> T to() const
    {
        if (_kind == Kind::Int && std::in_range<T>(_data.integer)) [[likely]]
            return static_cast<T>(_data.integer);
        if constexpr (std::is_signed_v<T>) {
            return static_cast<T>(toSigned(std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
        } else {
            return static_cast<T>(toUnsigned(std::numeric_limits<T>::max()));
        }
    }

    /// Nil gives false, a number whether it is not 0, a string its `String::toBool()`. Other kinds: the RangeException of `to()`.
    bool toBool() const;
    double toDouble() const; ///< Converts nil to 0, booleans to 0 or 1, and numbers. Other kinds: as `to()`.

    /// A string's own text; "" for nil; otherwise `toString()`.
    fn::String asString() const;

    /// A text for people: a string's own text, "nil", bytes in hex. Containers show at most 1,000 elements, 64 levels deep; texts in
    /// them are quoted and escaped, and texts and bytes are cut after 256 bytes.
    fn::String toString() const;

    /// The kind and a short text of the value, for error details.
    fn::String detailInfo() const;

    /// The borrowed text of a string value, valid while the value lives unchanged. Another kind: `fn::RangeException`.
    const fn::String& string() const;
    /// The bytes; another kind: `fn::RangeException` "Invalid boxed type".
    const ByteArray& byteArray() const { return boxed<ByteArray>(); }

    /// Whether it holds a T (bytes, if T is ByteArray), so that `boxed<T>()` gives it.
    template <typename T> bool isBoxed() const noexcept
    {
        if constexpr (std::same_as<T, ByteArray>) {
            return _kind == Kind::Bytes;
        } else {
            return _kind == Kind::Boxed && box().type() == typeid(T);
        }
    }
    /// The boxed T. Another kind or type: `fn::RangeException` "Invalid boxed type" with `detailInfo()`.
    template <typename T> const T& boxed() const;

    /// The object as a T; nil, or an object of another class, gives an empty pointer. Another kind:
    /// `fn::RangeException` "Value can not be converted to object".
    template <typename T> AutoPtr<T> object() const { return AutoPtr<T>(dynamic_cast<T*>(objectPointer())); }

    /// The object held, borrowed; null for nil. Another kind: the RangeException of `object()`.
    Object* objectPointer() const;

    // --- Arrays and maps

    std::size_t size() const noexcept; ///< Elements or entries; 0 for other kinds.

    /// The elements or entries to read. Another kind: `fn::RangeException`.
    const Array& elements() const;
    const Map& entries() const; ///< As `elements()`, for a map.

    /// The elements or entries to change: shared ones are copied first; nil becomes an empty array or map.
    Array& mutableElements();
    Map& mutableEntries(); ///< As `mutableElements()`, for a map.

    /// The value at `key`, borrowed; null if there is none or this is no map.
    const Value* find(const Value& key) const noexcept;
    /// Whether there is an entry with that key; false for what is no map.
    bool has(const Value& key) const noexcept { return find(key) != nullptr; }

    /// The value at `key`, borrowed. A missing key or another kind: `fn::RangeException` that names the key.
    const Value& at(const Value& key) const;

    /// The value at `key`, borrowed; nil, or `defaultValue` itself, if there is none or this is no map.
    const Value& get(const Value& key) const noexcept;
    const Value& get(const Value& key, const Value& defaultValue) const noexcept;
    const Value& get(const Value& key, Value&& defaultValue) const = delete; // The result would dangle.

    /// Adds or replaces an entry; nil becomes a map. Another kind: `fn::RangeException`.
    void set(const Value& key, Value value);
    bool remove(const Value& key); ///< Returns whether there was an entry.

    // A path names an entry of a map in a map, and so on, by text keys with '.' between them: "a.b" is the entry "b" of the
    // map that is the entry "a" of this one. "" is this value; each of the parts of ".." is the key "".

    /// The map at that path. Maps that are missing or nil at the path, or on the way, are made. If a value there is of another
    /// kind: `fn::RangeException`, and nothing has changed.
    Value& mapForPath(std::string_view path);
    /// The value of any kind at that path, borrowed; null if there is none.
    const Value* valueForPathIfExists(std::string_view path) const;

    const Value& operator[](std::size_t index) const; ///< An element. Out of range: `fn::RangeException`.
    void append(Value value); ///< Adds an element; nil becomes an array. Another kind: `fn::RangeException`.

    // --- Order

    /// Negative, 0, positive.
    static int compare(const Value& a, const Value& b) noexcept
    {
        if (a._kind == Kind::Int && b._kind == Kind::Int) {
            return a._data.integer < b._data.integer ? -1 : a._data.integer > b._data.integer;
        }
        if (a._kind == Kind::String && b._kind == Kind::String)
            return fn::String::compare(a._data.string, b._data.string);
        return compareSlow(a, b);
    }
    friend bool operator==(const Value& a, const Value& b) noexcept { return compare(a, b) == 0; }
    friend std::strong_ordering operator<=>(const Value& a, const Value& b) noexcept { return compare(a, b) <=> 0; }

    friend FN_EXPORT std::ostream& operator<<(std::ostream& stream, const Value& value); ///< Writes `toString()`.

private:
    friend class ValueMap;

    static bool areSameText(const Value& a, const Value& b) noexcept
    {
        return a._kind == Kind::String && b._kind == Kind::String && a._data.string == b._data.string;
    }
    // Copies the bits: no member of Data refers to its own address. The caller takes care of ownership.
    void takeBits(const Value& other) noexcept
    {
        std::memcpy(static_cast<void*>(&_data), static_cast<const void*>(&other._data), sizeof _data);
    }
    void share(const Value& other) noexcept;
    static int compareSlow(const Value& a, const Value& b) noexcept;
    internal::ContainerStorage* container() const noexcept;
    static void destroyContainers(internal::ContainerStorage* first) noexcept;
    const internal::BoxBase& box() const noexcept { return *_data.box; }
    std::int64_t toSigned(std::int64_t least, std::int64_t most) const;
    std::uint64_t toUnsigned(std::uint64_t most) const;
    void setObject(Object* object, RefCountedBase* counted) noexcept;
    void setBox(internal::BoxBase* box) noexcept;
    [[noreturn]] void throwInvalidBoxedType() const;
    void destroy() noexcept;

    struct ObjectPair {
        Object* object;
        RefCountedBase* counted;
    };
    union Data {
        Data() noexcept : bits {} { } // Sets all bits: a scalar sets only a part of them, and moving copies all.
        ~Data() { }
        std::uint64_t bits[2];
        bool boolean;
        std::int64_t integer;
        std::uint64_t unsignedInteger;
        double real;
        fn::String string;
        ByteArray bytes;
        internal::ArrayStorage* array; // Null for no elements; `map` is null for no entries.
        internal::MapStorage* map;
        internal::BoxBase* box;
        ObjectPair object;
    } _data;
    Kind _kind;
};

static_assert(sizeof(Value) <= 24);

namespace internal {

template <typename T> class Box final : public BoxBase {
    static_assert(
        HasValueOrder<T> || requires(const T& a, const T& b) { a < b; },
        "This type cannot be boxed: it has no operator <, by which the values that hold one are ordered");

public:
    explicit Box(T value) : _value(std::move(value)) { }
    const T& value() const noexcept { return _value; }
    const std::type_info& type() const noexcept override { return typeid(T); }
    fn::String toString() const override { return _value.toString(); }
    int compare(const BoxBase& other) const noexcept override
    {
        const auto& theirs = static_cast<const Box&>(other)._value;
        if constexpr (HasValueOrder<T>) {
            return T::valueOrder(_value, theirs);
        } else {
            if (_value < theirs) return -1;
            if (theirs < _value) return 1;
            if constexpr (requires(const T& a, const T& b) { a == b; }) {
                if (!(_value == theirs)) return fn::String::compare(_value.toString(), theirs.toString());
            }
            return 0;
        }
    }

private:
    T _value;
};

} // namespace internal

template <typename T>
requires isBoxable<T> Value::Value(T object) : _kind(Kind::Nil) { setBox(new internal::Box<T>(std::move(object))); }

template <typename T> const T& Value::boxed() const
{
    if constexpr (std::same_as<T, ByteArray>) {
        if (_kind != Kind::Bytes) throwInvalidBoxedType();
        return _data.bytes;
    } else {
        if (!isBoxed<T>()) throwInvalidBoxedType();
        return static_cast<const internal::Box<T>&>(box()).value();
    }
}

} // namespace fn

/// Formats as `toString()`.
template <> struct fmt::formatter<fn::Value> : fmt::formatter<fn::String> {
    template <typename Context> auto format(const fn::Value& value, Context& context) const
    {
        return fmt::formatter<fn::String>::format(value.toString(), context);
    }
};

#include "foundation/value.h"
#include "foundation/value_map.h"
#include <cmath>
#include <functional>
#include <vector>

namespace fn {
namespace {

template <typename T> int order(const T& a, const T& b) noexcept { return a < b ? -1 : b < a ? 1 : 0; }

int orderText(std::string_view a, std::string_view b) noexcept { return a.compare(b); }

// Compares exact values: converting the integer to a double would round it.
template <internal::Integral T> int orderIntegerAndDouble(T integer, double real) noexcept
{
    constexpr double above = 2.0 * static_cast<double>(T(1) << (std::numeric_limits<T>::digits - 1));
    if (std::isnan(real) || real >= above) return -1;
    if (real < static_cast<double>(std::numeric_limits<T>::min())) return 1;
    const auto whole = static_cast<T>(real);
    return integer != whole ? order(integer, whole) : order(0.0, real - static_cast<double>(whole));
}

int orderDoubles(double a, double b) noexcept
{
    if (std::isnan(a) || std::isnan(b)) return order(std::isnan(a), std::isnan(b));
    return order(a, b);
}

// The place of a kind in the order of kinds; all numbers have the same place.
int rank(Value::Kind kind) noexcept
{
    switch (kind) {
    case Value::Kind::Int:
    case Value::Kind::UInt:
    case Value::Kind::Double: return static_cast<int>(Value::Kind::Int);
    default: return static_cast<int>(kind);
    }
}

// Walks the elements of an array, or the keys and values of a map in turn.
class Cursor {
public:
    explicit Cursor(const Value& container)
    {
        if (container.isArray()) {
            _element = container.elements().data();
            _lastElement = _element + container.size();
        } else {
            _entry = container.entries().begin();
            _lastEntry = container.entries().end();
        }
    }

    const Value* next() noexcept
    {
        if (_element != _lastElement) return _element++;
        if (_entry == _lastEntry) return nullptr;
        _atValue = !_atValue;
        return _atValue ? &_entry->key : &(_entry++)->value;
    }

private:
    const Value* _element = nullptr;
    const Value* _lastElement = nullptr;
    ValueMap::const_iterator _entry, _lastEntry;
    bool _atValue = false; // Whether the value of `_entry` is next.
};

bool areContainers(const Value& a, const Value& b) noexcept
{
    return (a.isArray() && b.isArray()) || (a.isMap() && b.isMap());
}

bool shareStorage(const Value& a, const Value& b) noexcept
{
    return a.isArray() ? &a.elements() == &b.elements() : &a.entries() == &b.entries();
}

// Lexicographic, with a list instead of recursion: a program may nest containers deeper than its stack allows.
int orderContainers(const Value& a, const Value& b) noexcept
{
    if (shareStorage(a, b)) return 0;
    std::vector<std::pair<Cursor, Cursor>> outer;
    auto current = std::pair(Cursor(a), Cursor(b));
    while (true) {
        const auto* left = current.first.next();
        const auto* right = current.second.next();
        if (!left || !right) {
            if (left || right) return left ? 1 : -1;
            if (outer.empty()) return 0;
            current = outer.back();
            outer.pop_back();
        } else if (areContainers(*left, *right)) {
            if (shareStorage(*left, *right)) continue;
            outer.push_back(current);
            current = { Cursor(*left), Cursor(*right) };
        } else if (const int result = Value::compare(*left, *right)) {
            return result;
        }
    }
}

} // namespace

int Value::compareSlow(const Value& a, const Value& b) noexcept
{
    if (a._kind != b._kind) {
        if (rank(a._kind) != rank(b._kind)) return order(rank(a._kind), rank(b._kind));
        if (a._kind == Kind::Double) return -compareSlow(b, a);
        if (b._kind == Kind::Double) {
            return a._kind == Kind::Int ? orderIntegerAndDouble(a._data.integer, b._data.real)
                                        : orderIntegerAndDouble(a._data.unsignedInteger, b._data.real);
        }
        return order(a._kind, b._kind); // A UInt is above every Int.
    }
    switch (a._kind) {
    case Kind::Nil: return 0;
    case Kind::Bool: return order(a._data.boolean, b._data.boolean);
    case Kind::Int: return order(a._data.integer, b._data.integer);
    case Kind::UInt: return order(a._data.unsignedInteger, b._data.unsignedInteger);
    case Kind::Double: return orderDoubles(a._data.real, b._data.real);
    case Kind::String: break; // The caller has compared them.
    case Kind::Bytes: return orderText(a._data.bytes.view(), b._data.bytes.view());
    case Kind::Array:
    case Kind::Map: return orderContainers(a, b);
    case Kind::Boxed:
        if (a.box().type() != b.box().type()) return a.box().type().before(b.box().type()) ? -1 : 1;
        return &a.box() == &b.box() ? 0 : a.box().compare(b.box());
    case Kind::Object:
        if (a._data.object.object == b._data.object.object) return 0;
        return std::less<>()(a._data.object.object, b._data.object.object) ? -1 : 1;
    }
    return 0;
}

} // namespace fn

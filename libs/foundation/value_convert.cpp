#include "base/exceptions.h"
#include "foundation/value.h"
#include "foundation/value_map.h"
#include <cmath>

namespace fn {
namespace {

[[noreturn]] void throwLossy(const Value& value)
{
    throw with(
        RangeException("Value can not be converted to requested type without loss"), DetailInfo { value.detailInfo() });
}

[[noreturn]] void throwNotIntegral(const Value& value)
{
    throw with(
        RangeException("Value can not be implicitly converted to integral type"), DetailInfo { value.detailInfo() });
}

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 2 * twoTo63;

/// Whether `first` <= `number` < `end`; NaN is not.
bool isBetween(double first, double number, double end) { return number >= first && number < end; }

} // namespace

std::int64_t Value::toSigned(std::int64_t least, std::int64_t most) const
{
    std::int64_t result = 0;
    switch (_kind) {
    case Kind::Nil: return 0;
    case Kind::Bool: return _data.boolean;
    case Kind::Int: result = _data.integer; break;
    case Kind::UInt: throwLossy(*this); // A UInt is above every signed integer.
    case Kind::Double:
        if (!isBetween(-twoTo63, _data.real, twoTo63) || std::trunc(_data.real) != _data.real) throwLossy(*this);
        result = static_cast<std::int64_t>(_data.real);
        break;
    default: throwNotIntegral(*this);
    }
    if (result < least || result > most) throwLossy(*this);
    return result;
}

std::uint64_t Value::toUnsigned(std::uint64_t most) const
{
    std::uint64_t result = 0;
    switch (_kind) {
    case Kind::Nil: return 0;
    case Kind::Bool: return _data.boolean;
    case Kind::Int:
        if (_data.integer < 0) throwLossy(*this);
        result = _data.unsignedInteger;
        break;
    case Kind::UInt: result = _data.unsignedInteger; break;
    case Kind::Double:
        if (!isBetween(0, _data.real, twoTo64) || std::trunc(_data.real) != _data.real) throwLossy(*this);
        result = static_cast<std::uint64_t>(_data.real);
        break;
    default: throwNotIntegral(*this);
    }
    if (result > most) throwLossy(*this);
    return result;
}

bool Value::toBool() const
{
    switch (_kind) {
    case Kind::Nil: return false;
    case Kind::Bool: return _data.boolean;
    case Kind::Int: return _data.integer != 0;
    case Kind::UInt: return true;
    case Kind::Double: return _data.real != 0;
    case Kind::String: return _data.string.toBool();
    default: throwNotIntegral(*this);
    }
}

double Value::toDouble() const
{
    switch (_kind) {
    case Kind::Nil: return 0;
    case Kind::Bool: return _data.boolean;
    case Kind::Int: return static_cast<double>(_data.integer);
    case Kind::UInt: return static_cast<double>(_data.unsignedInteger);
    case Kind::Double: return _data.real;
    default: throwNotIntegral(*this);
    }
}

fn::String Value::asString() const
{
    if (_kind == Kind::String) return _data.string;
    return _kind == Kind::Nil ? fn::String() : toString();
}

} // namespace fn

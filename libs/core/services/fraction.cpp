#include "core/services/fraction.h"
#include "core/services/detail/stream_form.h"
#include "foundation/mpack/serializer.h"
#include <limits>
#include <utility>

namespace core {

double Fraction::asDouble() const noexcept
{
    return valid() ? static_cast<double>(_numerator) / static_cast<double>(_denominator) : 0.0;
}

fn::String Fraction::toString() const
{
    return fn::String::number(_numerator) + "/" + fn::String::number(_denominator);
}

Fraction Fraction::fromString(const fn::String& text)
{
    const auto parts = text.split('/', fn::String::KeepEmptyParts);
    if (parts.size() != 2) return {};
    return { parts[0].toInt(0, 10), parts[1].toInt(0, 10) };
}

std::int32_t Fraction::greatestCommonDivisor() const noexcept
{
    auto divisor = _numerator;
    auto remainder = _denominator;
    while (remainder > 0) divisor = std::exchange(remainder, divisor % remainder);
    return divisor;
}

Fraction Fraction::reduce() const noexcept
{
    constexpr auto least = std::numeric_limits<std::int32_t>::min();
    const auto divisor = greatestCommonDivisor();
    const bool overflows = divisor == -1 && (_numerator == least || _denominator == least);
    if (divisor == 0 || overflows) return *this;
    return { _numerator / divisor, _denominator / divisor };
}

void Fraction::swap(Fraction& other) noexcept
{
    std::swap(_numerator, other._numerator);
    std::swap(_denominator, other._denominator);
}

int Fraction::valueOrder(const Fraction& a, const Fraction& b) noexcept
{
    if (!a.valid() || !b.valid()) return static_cast<int>(b.valid()) - static_cast<int>(a.valid());
    // Over positive denominators: the sign moves to the numerator. At most 2^62.
    const auto scaled = [](const Fraction& fraction, const Fraction& other) {
        const std::int64_t numerator = fraction._numerator;
        return (fraction._denominator < 0 ? -numerator : numerator) * std::abs(std::int64_t { other._denominator });
    };
    const auto left = scaled(a, b), right = scaled(b, a);
    return left < right ? -1 : left > right;
}

void Fraction::serialize(fn::OutputStream& stream) const
{
    fn::mpack::Serializer serializer(stream);
    serializer.serialize(_numerator);
    serializer.serialize(_denominator);
}

Fraction Fraction::deserialize(fn::InputStream& stream)
{
    fn::mpack::Deserializer deserializer(stream);
    // Both numbers are read before either is converted, so that the stream has the same position whichever is refused.
    const auto numerator = detail::nextField(deserializer, "numerator");
    const auto denominator = detail::nextField(deserializer, "denominator");
    return { numerator.to<std::int32_t>(), denominator.to<std::int32_t>() };
}

} // namespace core

#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include "foundation/value.h"
#include <cstdint>

namespace fn {
class InputStream;
class OutputStream;
} // namespace fn

namespace core {

/// A rational number of two 32-bit integers, kept as given: nothing is reduced and no sign is moved unless asked for.
/// A denominator of 0 marks an invalid fraction; the default is 0/0.
///
/// Comparisons multiply crosswise in 32 bits and wrap, so that they agree between processes of any age; they order
/// fractions by size as long as the products fit. As values, keys of maps among them, fractions have an order of their own:
/// `valueOrder()`.
class FN_EXPORT Fraction {
public:
    Fraction() noexcept = default;
    /// Kept as given.
    Fraction(int numerator, int denominator) noexcept : _numerator(numerator), _denominator(denominator) { }

    std::int32_t numerator() const noexcept { return _numerator; } ///< As given.
    std::int32_t denominator() const noexcept { return _denominator; } ///< As given; 0 marks an invalid fraction.
    bool valid() const noexcept { return _denominator != 0; } ///< Whether the denominator is not 0.

    double asDouble() const noexcept; ///< 0.0 for an invalid fraction.
    fn::String toString() const; ///< "16/9".

    /// Reads what `toString()` writes. Text that does not have exactly one '/' gives 0/0, a part that is no number 0.
    static Fraction fromString(const fn::String& text);

    /// Divided by `greatestCommonDivisor()`, truncating: lowest terms where both numbers are positive, maybe coarser
    /// where one is not (-3/6 gives 0/1). Unchanged where the division is not defined (by zero, or beyond 32 bits).
    Fraction reduce() const noexcept;

    /// By Euclid's algorithm; it ends at the first remainder that is not positive. The numerator where the denominator
    /// is not positive.
    std::int32_t greatestCommonDivisor() const noexcept;

    void swap(Fraction& other) noexcept; ///< Exchanges the two.

    /// Two invalid fractions are equal whatever their numerators, an invalid one never equals a valid one.
    friend bool operator==(const Fraction& a, const Fraction& b) noexcept
    {
        return a.valid() == b.valid() && a.scaledTo(b) == b.scaledTo(a);
    }
    // Only <= and > look at validity, through ==.
    friend bool operator<(const Fraction& a, const Fraction& b) noexcept { return a.scaledTo(b) < b.scaledTo(a); }
    friend bool operator>=(const Fraction& a, const Fraction& b) noexcept { return !(a < b); }
    friend bool operator<=(const Fraction& a, const Fraction& b) noexcept { return a == b || a < b; }
    friend bool operator>(const Fraction& a, const Fraction& b) noexcept { return !(a == b) && !(a < b); }

    /// The order of the values that hold them, exact by size: 1/2, 2/4 and -1/-2 are one key. Invalid fractions are equal
    /// to each other, and last.
    static int valueOrder(const Fraction& a, const Fraction& b) noexcept;

    /// Two MessagePack integers, numerator and denominator.
    void serialize(fn::OutputStream& stream) const;

    /// `fn::RangeException` for a value that is no 32-bit integer, `fn::EndOfStreamException` if one is missing.
    static Fraction deserialize(fn::InputStream& stream);

private:
    /// The numerator over the product of both denominators, modulo 2^32.
    std::int32_t scaledTo(const Fraction& other) const noexcept
    {
        return static_cast<std::int32_t>(
            static_cast<std::uint32_t>(_numerator) * static_cast<std::uint32_t>(other._denominator));
    }

    std::int32_t _numerator = 0;
    std::int32_t _denominator = 0;
};

} // namespace core

template <> inline constexpr bool fn::isBoxable<core::Fraction> = true;

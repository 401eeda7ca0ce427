#pragma once
#include "foundation/value.h"
#include "foundation/value_map.h"
#include <cmath>
#include <random>

namespace test {

/// A document with every kind that MessagePack knows, sizes around the borders of its forms included.
inline fn::Value randomValue(std::mt19937_64& random, int levels)
{
    const auto pick = [&](std::uint64_t count) { return random() % count; };
    const auto anySize = [&] {
        static constexpr std::size_t borders[] = { 0, 15, 16, 31, 32, 255, 256, 65535, 65536 };
        return pick(8) ? pick(20) : borders[pick(levels > 2 ? 7 : std::size(borders))];
    };
    switch (pick(levels > 0 ? 9 : 6)) {
    case 0: return pick(2) ? fn::Value() : fn::Value(pick(2) == 0);
    case 1: // Every magnitude, and the numbers beside powers of two.
        return static_cast<std::int64_t>(random()) >> pick(64);
    case 2: return (std::uint64_t(1) << pick(64)) - pick(2);
    case 3: {
        const auto real = std::bit_cast<double>(random());
        return std::isnan(real) ? 0.5 : real;
    }
    case 4: return std::string(anySize(), static_cast<char>(pick(256)));
    case 5: return fn::ByteArray(std::string(anySize(), static_cast<char>(pick(256))));
    case 6:
    case 7: {
        fn::Value::Array elements(pick(100) ? pick(6) : anySize());
        for (auto& element : elements) element = elements.size() > 20 ? fn::Value(7) : randomValue(random, levels - 1);
        return elements;
    }
    default: {
        fn::ValueMap entries;
        for (auto left = pick(100) ? pick(6) : anySize(); left > 0; --left) {
            if (left > 20)
                entries.set(left, left);
            else
                entries.set(randomValue(random, levels > 1 ? 1 : 0), randomValue(random, levels - 1));
        }
        return entries;
    }
    }
}

} // namespace test

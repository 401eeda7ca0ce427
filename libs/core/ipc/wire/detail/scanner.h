#pragma once
#include "base/byte_view.h"
#include "core/ipc/limits.h"
#include "foundation/mpack/codes.h"
#include "foundation/mpack/hooks.h"
#include <cstdint>

namespace ipc {

/// Walks over MessagePack bytes without making values. Each method gives the place behind what it has passed, or null where the
/// bytes are malformed or beyond a bound. The place is passed by value, so that it stays in a register: each frame is scanned twice.
class Scanner {
public:
    explicit Scanner(fn::ByteView bytes) : _end(bytes.data() + bytes.size()) { }

    /// Passes the value at `at`, which lies in `depth` containers.
    const std::uint8_t* skip(const std::uint8_t* at, int depth)
    {
        namespace code = fn::mpack::code;
        if (at == _end) return nullptr;
        // Nearly all fields of a message have one of these forms. A branch is guessed, where the table has to be waited for: the four
        // scans of a call take 77 ns, with the table alone 105.
        if (*at <= code::FixMap) return *at < code::FixMap || depth < fn::mpack::maxDepth ? at + 1 : nullptr;
        if (*at == code::UInt32) return pass(at, 5);
        if (*at == code::Bin32) return passCounted<std::uint32_t>(at + 1);
        if (const auto size = fn::mpack::plainSizes[*at]; size > 0) return pass(at, size);
        return skipLong(at, depth);
    }

    /// Passes the head of the map that begins at `at`, and sets `count` to its number of entries. Null if no map begins there.
    const std::uint8_t* enterMap(const std::uint8_t* at, std::uint32_t& count)
    {
        namespace code = fn::mpack::code;
        if (at == _end) return nullptr;
        const auto first = *at++;
        std::uint64_t number = first - code::FixMap;
        if (first == code::Map16)
            at = read<std::uint16_t>(at, number);
        else if (first == code::Map32)
            at = read<std::uint32_t>(at, number);
        else if (first < code::FixMap || first >= code::FixArray)
            return nullptr;
        count = static_cast<std::uint32_t>(number);
        return at && enter(2 * number, 0) ? at : nullptr;
    }

private:
    const std::uint8_t* skipLong(const std::uint8_t* at, int depth);
    const std::uint8_t* skipAll(const std::uint8_t* at, std::uint64_t values, int depth);
    template <typename T> const std::uint8_t* skipCounted(const std::uint8_t* at, int valuesEach, int depth);

    bool enter(std::uint64_t values, int depth)
    {
        if (depth >= fn::mpack::maxDepth || values > _valuesLeft) return false;
        _valuesLeft -= values;
        return true;
    }

    const std::uint8_t* pass(const std::uint8_t* at, std::uint64_t size) const
    {
        return size <= static_cast<std::uint64_t>(_end - at) ? at + size : nullptr;
    }

    template <typename T> const std::uint8_t* passCounted(const std::uint8_t* at, std::uint64_t more = 0) const
    {
        std::uint64_t size = 0;
        at = read<T>(at, size);
        return at ? pass(at, size + more) : nullptr;
    }

    template <typename T> const std::uint8_t* read(const std::uint8_t* at, std::uint64_t& number) const
    {
        auto* const next = pass(at, sizeof(T));
        if (!next) return nullptr;
        T value;
        std::memcpy(&value, at, sizeof(value));
        number = fn::mpack::bigEndian(value);
        return next;
    }

    const std::uint8_t* const _end;
    std::uint64_t _valuesLeft = limits::frameValues;
};

} // namespace ipc

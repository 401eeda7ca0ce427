// Any bytes as MessagePack. Read in one piece and byte by byte they give the same value or the same error; who passes over them
// passes what is read; what is read comes back from its own encoding; and no announced size makes the reader allocate more than the bytes can fill.
#include "base/exceptions.h"
#include "foundation/io/byte_array_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/reader.h"
#include "foundation/mpack/serializer.h"
#include <algorithm>
#include <cstdlib>
#include <new>
#include <variant>

namespace {

std::size_t largestAllocation = SIZE_MAX;

void require(bool condition)
{
    if (!condition) std::abort();
}

/// An extension value of any type, as it came.
struct Extension {
    std::int8_t type;
    fn::ByteArray bytes;
    fn::String toString() const { return fn::String::number(type) + ":" + bytes.hex(); }
    friend auto operator<=>(const Extension&, const Extension&) = default;
};

} // namespace

template <> inline constexpr bool fn::isBoxable<Extension> = true;

// Containers grow in here, also those of the libraries.
void* operator new(std::size_t size)
{
    require(size <= largestAllocation);
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

/// Takes all of the bytes of some types and a half of those of others.
class Hook final : public fn::mpack::ValueSerializer, public fn::mpack::ValueDeserializer {
public:
    std::int8_t typeForValue(const fn::Value& value) override
    {
        return value.isBoxed<Extension>() ? value.boxed<Extension>().type : std::int8_t(-1);
    }
    void serializeValue(const fn::Value& value, fn::OutputStream& stream) override
    {
        const auto& extension = value.boxed<Extension>();
        stream.writeShared(extension.bytes);
        // Reading takes half of it off again.
        if (extension.type % 2) stream.writeShared(fn::ByteArray(static_cast<unsigned>(extension.bytes.size())));
    }
    fn::Value deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream) override
    {
        return Extension { type, stream.readByteArray(type % 2 ? size / 2 : size) };
    }
};

/// One byte at a time, without a word about how many are left.
class Trickle final : public fn::InputStream {
public:
    Trickle(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) { }
    std::uint64_t position() const override { return _position; }

private:
    std::size_t readSlow(void* data, std::size_t size) override
    {
        if (size == 0 || _position == _size) return 0;
        *static_cast<std::uint8_t*>(data) = _data[_position++];
        return 1;
    }
    const std::uint8_t* _data;
    const std::size_t _size;
    std::size_t _position = 0;
};

enum class Problem { BadFormat, TooShort };
using Result = std::variant<fn::Value, Problem>;

Result decode(fn::InputStream& stream)
{
    Hook hook;
    try {
        return fn::mpack::Deserializer(stream, &hook).deserialize().value_or(fn::Value());
    } catch (const fn::DataFormatException&) {
        return Problem::BadFormat;
    } catch (const fn::EndOfStreamException&) {
        return Problem::TooShort;
    }
}

/// The number of bytes that a reader passes; 0 where it fails.
std::size_t pass(const std::uint8_t* data, std::size_t size)
{
    fn::mpack::Reader reader({ data, size });
    try {
        reader.skip();
        return reader.offset();
    } catch (const fn::mpack::MismatchException&) {
        return 0;
    }
}

fn::ByteArray encode(const fn::Value& value)
{
    Hook hook;
    fn::ByteArray bytes;
    fn::ByteArrayOutputStream stream(bytes);
    fn::mpack::Serializer(stream, &hook).serialize(value);
    stream.flush();
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // An element takes one byte at least there and 24 here; a list that grows has room for twice as many.
    largestAllocation = 64 * 1024 + 64 * size;
    fn::MemoryInputStream whole(fn::ByteArray(data, size));
    const auto result = decode(whole);
    const auto passed = pass(data, size);
    Trickle trickle(data, size);
    const auto again = decode(trickle);
    if (const auto* value = std::get_if<fn::Value>(&result)) {
        require(std::holds_alternative<fn::Value>(again) && std::get<fn::Value>(again) == *value);
        require(whole.position() == trickle.position() && whole.position() == passed);
        value->toString();
        const auto encoded = encode(*value);
        largestAllocation = 64 * 1024 + 64 * encoded.size();
        fn::MemoryInputStream stream(encoded);
        const auto back = decode(stream);
        require(std::holds_alternative<fn::Value>(back) && std::get<fn::Value>(back) == *value);
        require(stream.remaining() == 0u && encode(std::get<fn::Value>(back)) == encoded);
    } else {
        // A size beyond the end is known at once in memory; a byte by byte reader may meet a bad byte before.
        require(std::holds_alternative<Problem>(again));
    }
    largestAllocation = SIZE_MAX;
    return 0;
}

#include "core/ipc/wire/object_message.h"
#include "core/ipc/wire/frame_output_stream.h"
#include "foundation/mpack/serializer.h"

namespace ipc {
namespace {

constexpr std::uint8_t smallMap = 0x80; // The number of entries is in the low bits.

/// Takes bytes from the front; anything unexpected makes it invalid for good.
class Reader {
public:
    explicit Reader(const fn::ByteArray& body) : _body(body), _rest(body.bytes()) { }

    bool isValid() const { return _valid; }
    bool isAtEnd() const { return _rest.empty(); }

    bool skip(std::uint8_t expected)
    {
        if (_rest.empty() || _rest[0] != expected) return false;
        _rest = _rest.subspan(1);
        return true;
    }
    void require(std::uint8_t expected) { _valid = skip(expected) && _valid; }

    /// A non-negative integer of any size.
    std::uint64_t integer()
    {
        const auto first = byte();
        if (first < 0x80) return first;
        if (first < 0xcc || first > 0xcf) return fail();
        return bigEndian(std::size_t(1) << (first - 0xcc));
    }

    template <typename T> T integerOf()
    {
        const auto value = integer();
        if (value > static_cast<T>(-1)) _valid = false;
        return static_cast<T>(value);
    }

    fn::ByteArray bytes()
    {
        const auto first = byte();
        if (first < 0xc4 || first > 0xc6) return fail(), fn::ByteArray();
        const auto size = bigEndian(std::size_t(1) << (first - 0xc4));
        if (!_valid || size > _rest.size()) return fail(), fn::ByteArray();
        const auto offset = _body.size() - _rest.size();
        _rest = _rest.subspan(size);
        return _body.slice(offset, size);
    }

private:
    std::uint64_t fail()
    {
        _valid = false;
        return 0;
    }

    std::uint8_t byte()
    {
        if (_rest.empty()) return static_cast<std::uint8_t>(fail());
        const auto value = _rest[0];
        _rest = _rest.subspan(1);
        return value;
    }

    std::uint64_t bigEndian(std::size_t size)
    {
        if (_rest.size() < size) return fail();
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) value = value << 8 | _rest[i];
        _rest = _rest.subspan(size);
        return value;
    }

    const fn::ByteArray& _body;
    std::span<const std::uint8_t> _rest;
    bool _valid = true;
};

} // namespace

std::optional<ObjectMessage> ObjectMessage::parse(const fn::ByteArray& body)
{
    Reader reader(body);
    ObjectMessage message;
    const bool isForwarded = reader.skip(smallMap | 6);
    if (!isForwarded) reader.require(smallMap | 5);
    reader.require(field::TYPE);
    reader.require(type::MESSAGE);
    reader.require(field::OBJECT_ID);
    message.objectId = reader.integer();
    if (isForwarded) {
        reader.require(field::SOURCE_WORKER_ID);
        message.source = reader.integerOf<WorkerId>();
    }
    reader.require(field::TARGET_WORKER_ID);
    message.target = reader.integerOf<WorkerId>();
    reader.require(field::PAYLOAD);
    if (!reader.isValid()) return std::nullopt; // Before a slice is taken of what is most likely something else.
    message.payload = reader.bytes();
    reader.require(field::OBJECTS);
    reader.require(smallMap);
    if (!reader.isValid() || !reader.isAtEnd()) return std::nullopt;
    return message;
}

Frame ObjectMessage::encode(std::size_t maxBytes) const
{
    FrameOutputStream stream(payload.size());
    fn::mpack::Serializer serializer(stream);
    stream.writeByte(static_cast<std::uint8_t>(smallMap | (source ? 6 : 5)));
    stream.writeByte(field::TYPE);
    stream.writeByte(type::MESSAGE);
    stream.writeByte(field::OBJECT_ID);
    serializer.serialize(objectId);
    if (source) {
        stream.writeByte(field::SOURCE_WORKER_ID);
        serializer.serialize(*source);
    }
    stream.writeByte(field::TARGET_WORKER_ID);
    serializer.serialize(target);
    stream.writeByte(field::PAYLOAD);
    serializer.serialize(payload);
    stream.writeByte(field::OBJECTS);
    stream.writeByte(smallMap);
    return stream.finish(maxBytes);
}

} // namespace ipc

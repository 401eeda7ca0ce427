#include "core/ipc/wire/object_message.h"
#include "foundation/mpack/serializer.h"
#include <array>

namespace ipc {
namespace {

constexpr std::uint8_t smallMap = 0x80; // The number of entries is in the low bits.

/// Takes bytes from the front; anything unexpected makes it invalid for good.
class Reader {
public:
    explicit Reader(fn::ByteView body) : _rest(body) { }

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

    fn::ByteView bytes()
    {
        const auto first = byte();
        if (first < 0xc4 || first > 0xc6) return fail(), fn::ByteView();
        const auto size = bigEndian(std::size_t(1) << (first - 0xc4));
        if (!_valid || size > _rest.size()) return fail(), fn::ByteView();
        const auto taken = _rest.first(size);
        _rest = _rest.subspan(size);
        return taken;
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

    fn::ByteView _rest;
    bool _valid = true;
};

/// The fields of a MESSAGE that stand before the bytes of its payload.
class Prefix {
public:
    static constexpr std::size_t maxBytes = 3 + 10 + 4 + 4 + 6;

    Prefix(ObjectId objectId, std::optional<WorkerId> source, WorkerId target, std::size_t payloadBytes)
    {
        add(static_cast<std::uint8_t>(smallMap | (source ? 6 : 5)));
        add(field::TYPE);
        add(type::MESSAGE);
        add(field::OBJECT_ID);
        addInteger(objectId);
        if (source) {
            add(field::SOURCE_WORKER_ID);
            addInteger(*source);
        }
        add(field::TARGET_WORKER_ID);
        addInteger(target);
        add(field::PAYLOAD);
        const auto size = payloadBytes <= UINT8_MAX ? 0 : payloadBytes <= UINT16_MAX ? 1 : 2;
        add(static_cast<std::uint8_t>(0xc4 + size));
        addBigEndian(payloadBytes, 1 << size);
    }

    fn::ByteView bytes() const { return fn::ByteView(_bytes).first(_size); }

private:
    void add(std::uint8_t byte) { _bytes[_size++] = byte; }

    void addBigEndian(std::uint64_t value, int size)
    {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) add(static_cast<std::uint8_t>(value >> shift));
    }

    /// In its shortest form.
    void addInteger(std::uint64_t value)
    {
        if (value < 0x80) return add(static_cast<std::uint8_t>(value));
        const auto size = value <= UINT8_MAX ? 0 : value <= UINT16_MAX ? 1 : value <= UINT32_MAX ? 2 : 3;
        add(static_cast<std::uint8_t>(0xcc + size));
        addBigEndian(value, 1 << size);
    }

    std::array<std::uint8_t, maxBytes> _bytes;
    std::size_t _size = 0;
};

} // namespace

std::optional<ObjectMessage> ObjectMessage::parse(const FrameBody& body)
{
    Reader reader(body.bytes);
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
    message.payload = reader.bytes();
    reader.require(field::OBJECTS);
    reader.require(smallMap);
    if (!reader.isValid() || !reader.isAtEnd()) return std::nullopt;
    if (body.array) {
        const auto offset = static_cast<std::size_t>(message.payload.data() - body.bytes.data());
        message.shared = body.array->slice(offset, message.payload.size());
    }
    return message;
}

Frame ObjectMessage::encode(std::size_t maxBytes) const
{
    const auto copiedBytes = shared.size() < FrameOutputStream::sharedFrom ? payload.size() : 0;
    FrameOutputStream stream(copiedBytes + 2, Prefix::maxBytes);
    if (shared.empty())
        stream.write(payload.data(), payload.size());
    else
        stream.writeShared(shared);
    stream.writeByte(field::OBJECTS);
    stream.writeByte(smallMap);
    return stream.finish(maxBytes, Prefix(objectId, source, target, payload.size()).bytes());
}

ObjectMessageWriter::ObjectMessageWriter() : _stream(0, Prefix::maxBytes) { }

Frame ObjectMessageWriter::finish(ObjectId objectId, WorkerId target, const fn::Value& objects, std::size_t maxBytes)
{
    const auto payloadBytes = _stream.size();
    _stream.writeByte(field::OBJECTS);
    if (objects.isNil())
        _stream.writeByte(smallMap);
    else
        fn::mpack::Serializer(_stream).serialize(objects);
    return _stream.finish(maxBytes, Prefix(objectId, {}, target, payloadBytes).bytes());
}

} // namespace ipc

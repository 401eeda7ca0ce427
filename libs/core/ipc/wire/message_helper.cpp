#include "core/ipc/wire/message_helper.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/frame_output_stream.h"
#include "foundation/exceptions.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include <algorithm>
#include <cerrno>
#include <optional>

namespace ipc {
namespace {

constexpr std::uint32_t headerBytes = 4;
constexpr std::ptrdiff_t endOfStream = -4095; // libuv's UV_EOF.

/// The value that fills `body` exactly; empty for anything else.
std::optional<fn::Value> decode(const fn::ByteArray& body)
{
    try {
        fn::MemoryInputStream stream(body);
        fn::mpack::Deserializer deserializer(stream);
        deserializer.setMaxValues(limits::frameValues);
        auto value = deserializer.deserialize();
        if (stream.remaining() != 0) return std::nullopt;
        return value;
    } catch (const std::exception&) {
        return std::nullopt; // Not MessagePack, or too large for our memory: told by onReadError.
    }
}

} // namespace

MessageHelper::MessageHelper(std::size_t maxReadBytes) : _maxReadBytes(maxReadBytes) { }

MessageHelper::~MessageHelper()
{
    *_isAlive = false;
    if (_stream) _stream->close();
}

void MessageHelper::setStream(fn::AutoPtr<fn::uv::Stream> stream)
{
    auto& taken = *stream;
    if (_stream) _stream->close();
    _stream = std::move(stream);
    _headerReceived = 0;
    _body.clear();
    _failed = false;
    taken.readStart([this](std::ptrdiff_t count, const std::uint8_t* data) { onRead(count, data); });
}

Frame MessageHelper::encode(const fn::Value& value, std::size_t maxBytes)
{
    FrameOutputStream stream;
    fn::mpack::Serializer(stream).serialize(value);
    return stream.finish(maxBytes);
}

void MessageHelper::send(const fn::Value& value, Completion completion, std::size_t maxBytes)
{
    auto& stream = *_stream;
    stream.write(encode(value, maxBytes).parts(), std::move(completion));
}

void MessageHelper::send(const Frame& frame) { _stream->write(frame.parts()); }

void MessageHelper::onRead(std::ptrdiff_t count, const std::uint8_t* data)
{
    if (_failed || count == 0) return;
    if (count == endOfStream) {
        _onEOS.fire();
        return;
    }
    if (count < 0) {
        fail(static_cast<int>(count));
        return;
    }
    const auto isAlive = _isAlive; // A listener may end this object, and the chunk with it.
    const auto stream = _stream;
    auto size = static_cast<std::size_t>(count);
    while (size > 0 && readSome(data, size)) {
        if (!*isAlive || stream->isClosed() || stream != _stream) return;
    }
}

/// Takes bytes of one frame; false ends the chunk.
bool MessageHelper::readSome(const std::uint8_t*& data, std::size_t& size)
{
    if (_headerReceived < headerBytes) {
        if (_headerReceived == 0) _length = 0;
        while (size > 0 && _headerReceived < headerBytes) {
            _length |= static_cast<std::uint32_t>(*data++) << (8 * _headerReceived++);
            --size;
        }
        if (_headerReceived < headerBytes) return false;
        if (_length == 0 || _length > _maxReadBytes) {
            fail(_length == 0 ? -EPROTO : -EMSGSIZE);
            return false;
        }
    }
    const auto taken = std::min<std::size_t>(size, _length - _body.size());
    if (taken > 0) {
        if (_body.empty()) _body.reserve(_length);
        _body.append(data, taken);
        data += taken;
        size -= taken;
    }
    return _body.size() == _length ? deliver() : false;
}

/// Hands out the complete frame; false if it holds no value. This object may have gone afterwards.
bool MessageHelper::deliver()
{
    const auto isAlive = _isAlive;
    if (!_frameHandler || !_frameHandler(_body)) {
        const auto value = decode(_body);
        if (!value) {
            fail(-EPROTO);
            return false;
        }
        _onMessage.fire(*value, _length);
    }
    if (!*isAlive) return true;
    _headerReceived = 0;
    // The storage serves the next frame, unless a payload that is still on its way shares it.
    if (_body.isShared() || _body.capacity() > limits::keptFrameBytes)
        _body = fn::ByteArray();
    else
        _body.clear();
    return true;
}

void MessageHelper::fail(int code)
{
    _failed = true;
    _body = fn::ByteArray();
    _onReadError.fire(fn::uv::Status("MessageHelper failed to read", code));
}

} // namespace ipc

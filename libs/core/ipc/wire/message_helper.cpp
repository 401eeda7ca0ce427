#include "core/ipc/wire/message_helper.h"
#include "base/exceptions.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/detail/frame_output_stream.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include "foundation/uv/system.h"
#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>

namespace ipc {
namespace {

constexpr auto headerBytes = FrameOutputStream::headerBytes;
constexpr std::ptrdiff_t endOfStream = -4095; // libuv's UV_EOF.

// A missing rest of a body of at least this many bytes is read straight into `_body`. A smaller one is read into the stream's
// buffer, together with the next frames.
constexpr std::size_t readInPlaceFrom = 32 * 1024;

// Copying a frame of at least this many bytes costs more than one more system call.
constexpr std::size_t largeFrom = 256 * 1024;

/// The value that fills `body` exactly; empty for anything else.
std::optional<fn::Value> decode(const FrameBody& body)
{
    try {
        auto stream = body.array ? fn::MemoryInputStream(*body.array)
                                 : fn::MemoryInputStream(body.bytes.data(), body.bytes.size());
        fn::mpack::Deserializer deserializer(stream);
        deserializer.setMaxValues(limits::frameValues);
        auto value = deserializer.deserialize();
        if (stream.remaining() != 0) return std::nullopt;
        return value;
    } catch (const std::exception&) {
        return std::nullopt; // The body is no MessagePack, or its value needs too much memory: `deliver()` reports it.
    }
}

Frame encode(const fn::Value& value, std::size_t maxBytes)
{
    FrameOutputStream stream;
    fn::mpack::Serializer(stream).serialize(value);
    return stream.finish(maxBytes);
}

} // namespace

MessageHelper::MessageHelper(std::size_t maxReadBytes) : _maxReadBytes(maxReadBytes) { }

MessageHelper::~MessageHelper()
{
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
    // A listener may destroy this object or give it another stream.
    const auto watch = _lifetime.watch();
    const auto stream = _stream;
    std::array<std::uint8_t, std::tuple_size_v<decltype(_nextHead)>> head;
    if (data == _nextHead.data()) {
        std::copy_n(data, count, head.begin());
        data = head.data();
    }
    fn::ByteView chunk(data, static_cast<std::size_t>(count));
    while (!chunk.empty() && readFrame(chunk)) {
        if (!watch || stream->isClosed() || stream != _stream) return;
    }
    if (watch && stream == _stream) chooseReadMemory();
}

/// Takes one frame from the front of `chunk`, and handles in place what lies in it whole. False if it ends before the frame, or
/// reading has failed.
bool MessageHelper::readFrame(fn::ByteView& chunk)
{
    if (_headerReceived < headerBytes && !readHeader(chunk)) return false;
    if (chunk.empty()) return false;
    if (!_body.empty() || chunk.size() < _length) return readBody(chunk);
    const FrameBody body { chunk.first(_length) };
    chunk = chunk.subspan(_length);
    return deliver(body);
}

bool MessageHelper::readHeader(fn::ByteView& chunk)
{
    if (_headerReceived == 0) _length = 0;
    while (!chunk.empty() && _headerReceived < headerBytes) {
        _length |= static_cast<std::uint32_t>(chunk.front()) << (8 * _headerReceived++);
        chunk = chunk.subspan(1);
    }
    if (_headerReceived < headerBytes) return false;
    if (_length > 0 && _length <= _maxReadBytes) return true;
    fail(_length == 0 ? -EPROTO : -EMSGSIZE);
    return false;
}

/// Collects a frame that comes in several pieces.
bool MessageHelper::readBody(fn::ByteView& chunk)
{
    const auto taken = chunk.first(std::min<std::size_t>(chunk.size(), _length - _body.size()));
    chunk = chunk.subspan(taken.size());
    if (_body.empty() && !reserveBody()) return false;
    if (taken.data() == _body.data() + _body.size())
        _body.resizeUninitialized(_body.size() + taken.size()); // Read in place.
    else
        _body.append(taken.data(), taken.size());
    if (_body.size() < _length) return false;
    _expectsLargeFrame = _length >= largeFrom;
    const auto body = std::exchange(_body, {});
    return deliver({ body.bytes(), &body });
}

bool MessageHelper::reserveBody()
{
    try {
        if (auto* const system = fn::uv::System::current(); system && !system->hasMemoryFor(_length))
            throw std::bad_alloc();
        _body.reserve(_length);
        return true;
    } catch (const std::bad_alloc&) {
        fail(-ENOMEM); // Without this body nobody can say where the next frame begins.
        return false;
    }
}

/// Hands out a complete body; false if it is not exactly one value. This object may be destroyed afterwards.
bool MessageHelper::deliver(const FrameBody& body)
{
    _headerReceived = 0;
    if (_frameHandler ? _frameHandler(body) : signal(body)) return true;
    fail(-EPROTO);
    return false;
}

bool MessageHelper::signal(const FrameBody& body)
{
    const auto value = decode(body);
    if (value) _onMessage.fire(*value, static_cast<unsigned>(body.bytes.size()));
    return value.has_value();
}

/// What is missing of a large frame is read straight into `_body`, even if it is short: the stream's buffer would also take the
/// beginning of the next frame, which would be copied. For the same reason the read after a large frame asks for 256 bytes only.
void MessageHelper::chooseReadMemory()
{
    const auto missing = _body.empty() ? 0 : _length - _body.size();
    if (missing >= readInPlaceFrom || (missing > 0 && _length >= largeFrom))
        _stream->readInto({ _body.mutableData() + _body.size(), missing });
    else if (std::exchange(_expectsLargeFrame, false) && _headerReceived == 0)
        _stream->readInto(_nextHead);
}

void MessageHelper::fail(int code)
{
    _failed = true;
    if (_stream) _stream->readInto({});
    _body = fn::ByteArray();
    _onReadError.fire(fn::uv::Status("MessageHelper failed to read", code));
}

} // namespace ipc

#pragma once
#include "base/exceptions.h"
#include "base/lifetime.h"
#include "core/ipc/wire/frame.h"
#include "foundation/signal.h"
#include "foundation/uv/stream.h"
#include "foundation/value.h"
#include <array>
#include <cstddef>
#include <cstdint>
#include <folly/Function.h>

namespace ipc {

/// Frames on a byte stream: a 4-byte little-endian length, then one MessagePack value of that many bytes.
///
/// Trust: the bytes are hostile. The length is checked against a bound before anything is allocated; memory is touched as
/// bytes arrive. An empty frame and a body that is not exactly one value read as `onReadError` with -EPROTO, a length
/// above the bound with -EMSGSIZE, one that there is no memory for with -ENOMEM; nothing is delivered after an error or after
/// the stream has been closed.
///
/// Belongs to the loop of its stream. It may be destroyed inside its own signals; it closes its stream then.
class FN_EXPORT MessageHelper {
public:
    using Completion = folly::Function<void(const fn::uv::Status&)>;

    /// `maxReadBytes` bounds the body of a frame.
    explicit MessageHelper(std::size_t maxReadBytes);
    MessageHelper(const MessageHelper&) = delete;
    MessageHelper& operator=(const MessageHelper&) = delete;
    ~MessageHelper();

    /// Takes a connected stream, closes an earlier one, and starts reading. Empty: `fn::NullPointerException`.
    void setStream(fn::AutoPtr<fn::uv::Stream> stream);
    const fn::AutoPtr<fn::uv::Stream>& stream() const { return _stream; }
    void dropStream() { _stream.reset(); } ///< Nothing more of it is delivered. Its owner reads on, or closes it.

    void setMaxReadBytes(std::size_t bytes) { _maxReadBytes = bytes; }

    /// Writes one frame. `completion`, if given, hears the outcome of the write on a later turn.
    /// Without a stream: `fn::NullPointerException`. Above `maxBytes` (of the body), or above what 32 bits tell:
    /// `fn::RangeException`, and nothing is sent.
    void send(const fn::Value& value, Completion completion = {}, std::size_t maxBytes = UINT32_MAX);

    /// One frame for any number of receivers, who share its bytes. Throws as `send()` does.
    static Frame encode(const fn::Value& value, std::size_t maxBytes = UINT32_MAX);
    void send(const Frame& frame);

    /// Takes the body of each frame instead of `onMessage()`; false says that it is not exactly one value. It does not throw.
    void setFrameHandler(folly::Function<bool(const FrameBody& body)> handler) { _frameHandler = std::move(handler); }

    fn::Signal<>& onEOS() { return _onEOS; } ///< The peer has ended the stream.
    fn::Signal<fn::uv::Status>& onReadError() { return _onReadError; }
    /// A value and the length of its body.
    fn::Signal<const fn::Value&, unsigned int>& onMessage() { return _onMessage; }

private:
    void onRead(std::ptrdiff_t count, const std::uint8_t* data);
    bool readFrame(fn::ByteView& chunk);
    bool readHeader(fn::ByteView& chunk);
    bool readBody(fn::ByteView& chunk);
    bool reserveBody();
    bool deliver(const FrameBody& body);
    bool signal(const FrameBody& body);
    void chooseReadMemory();
    void fail(int code);

    fn::AutoPtr<fn::uv::Stream> _stream;
    std::uint32_t _headerReceived = 0; // Bytes of `_length` that are in: 0 to 4.
    std::uint32_t _length = 0;
    fn::ByteArray _body; // What is in of a frame that did not come in one piece.
    fn::Signal<> _onEOS;
    fn::Signal<fn::uv::Status> _onReadError;
    fn::Signal<const fn::Value&, unsigned int> _onMessage;
    folly::Function<bool(const FrameBody&)> _frameHandler;
    std::size_t _maxReadBytes;
    bool _expectsLargeFrame = false; // Like the last one.
    bool _failed = false;
    std::array<std::uint8_t, 256> _nextHead; // For a read that is to take little more than a header.
    fn::Lifetime _lifetime;
};

} // namespace ipc

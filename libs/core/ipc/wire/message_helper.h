#pragma once
#include "base/byte_array.h"
#include "base/byte_view.h"
#include "base/exceptions.h"
#include "base/lifetime.h"
#include "foundation/signal.h"
#include "foundation/uv/stream.h"
#include "foundation/value.h"
#include <array>
#include <cstddef>
#include <cstdint>
#include <folly/Function.h>

namespace ipc {

class Frame;

/// The body of a frame that has been read, borrowed while the frame is handled.
struct FrameBody {
    fn::ByteView bytes; ///< Valid while the handler runs.
    /// Holds exactly `bytes` if the frame has memory of its own, and slices of it can be shared; else null.
    const fn::ByteArray* array = nullptr;
};

/// Frames on a byte stream: a 4-byte little-endian length, then one MessagePack value of that many bytes.
///
/// Trust: the bytes are hostile. The length is checked against a bound before anything is allocated; memory is touched only as
/// bytes arrive. `onReadError` fires with -EPROTO for an empty frame or a body that is not exactly one value, with -EMSGSIZE for
/// a length above the bound, with -ENOMEM where memory is short. After an error, or the stream's close, nothing is delivered.
///
/// Belongs to the loop of its stream, which it closes when it is destroyed. It may be destroyed inside its own signals.
class FN_EXPORT MessageHelper {
public:
    using Completion = folly::Function<void(const fn::uv::Status&)>; ///< Hears how a write ended.

    /// `maxReadBytes` bounds the body of a frame.
    explicit MessageHelper(std::size_t maxReadBytes);
    MessageHelper(const MessageHelper&) = delete;
    MessageHelper& operator=(const MessageHelper&) = delete;
    ~MessageHelper();

    /// Takes a connected stream, closes an earlier one, and starts reading. Empty: `fn::NullPointerException`.
    void setStream(fn::AutoPtr<fn::uv::Stream> stream);
    /// Null before `setStream()` and after `dropStream()`.
    const fn::AutoPtr<fn::uv::Stream>& stream() const { return _stream; }
    void dropStream() { _stream.reset(); } ///< The caller must give the stream another reader, or close it.

    /// Bounds the body of the frames that begin from now on.
    void setMaxReadBytes(std::size_t bytes) { _maxReadBytes = bytes; }

    /// Writes one frame. `completion`, if given, is called with the outcome of the write on a later turn of the loop. Throws
    /// `fn::RangeException` for a body above `maxBytes`, or of 4 GiB and more, and sends nothing then; without a stream
    /// `fn::NullPointerException`.
    void send(const fn::Value& value, Completion completion = {}, std::size_t maxBytes = UINT32_MAX);

    void send(const Frame& frame); ///< Writes one that is encoded already. Throws as the other one does.

    /// `handler` gets each body instead of `onMessage()`. It returns false for what is not exactly one value, and must not throw.
    void setFrameHandler(folly::Function<bool(const FrameBody& body)> handler) { _frameHandler = std::move(handler); }

    fn::Signal<>& onEOS() { return _onEOS; } ///< The peer has ended the stream.
    /// Reading has failed, or the bytes are no frames: nothing more is delivered.
    fn::Signal<fn::uv::Status>& onReadError() { return _onReadError; }
    /// Fires with the value of each frame and the bytes of its body.
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
    std::uint32_t _headerReceived = 0; // How many bytes of `_length` have arrived: 0 to 4.
    std::uint32_t _length = 0;
    fn::ByteArray _body; // The bytes that have arrived of a body that does not come in one piece.
    fn::Signal<> _onEOS;
    fn::Signal<fn::uv::Status> _onReadError;
    fn::Signal<const fn::Value&, unsigned int> _onMessage;
    folly::Function<bool(const FrameBody&)> _frameHandler;
    std::size_t _maxReadBytes;
    bool _expectsLargeFrame = false; // The last frame was large, and the next one probably is, too.
    bool _failed = false;
    std::array<std::uint8_t, 256> _nextHead; // Memory for the read behind a large frame.
    fn::Lifetime _lifetime;
};

} // namespace ipc

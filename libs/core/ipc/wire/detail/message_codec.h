#pragma once
#include "core/ipc/wire/detail/frame_output_stream.h"
#include "core/ipc/wire/message.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/codes.h"
#include "foundation/value.h"
#include <array>
#include <concepts>
#include <initializer_list>
#include <limits>
#include <optional>
#include <vector>

/// How messages are read and written: the only place that knows how a frame's body is laid out.
namespace ipc {

/// A message as it lies in its frame: where each field's value is, decoded when it is asked for. Hub and workers read every
/// message through it, in whatever order its fields come and whatever else it carries. Borrows the frame.
///
/// Fields are converted as `fn::Value` converts them: a missing one, or one that does not fit, is `fn::RangeException`.
class MessageView {
public:
    explicit MessageView(const FrameBody& body);

    /// Whether the body is exactly one MessagePack value, does not nest too deeply, holds no more values than a frame may, and
    /// has none of the known fields twice. Nothing else may be asked of another one. A value that is no map is a message
    /// without fields.
    bool isValid() const { return _isValid; }

    bool has(int code) const { return !_values[code].isEmpty(); }
    std::int64_t type() const; ///< `type::INVALID` where it has none.

    template <std::integral T> T integer(int code) const
    {
        const auto bytes = bytesOf(code);
        if (bytes.size() == 1 && bytes[0] < fn::mpack::code::FixMap) return static_cast<T>(bytes[0]);
        if (const auto number = plainInteger(bytes); number && *number <= std::numeric_limits<T>::max())
            return static_cast<T>(*number);
        return required(code).to<T>();
    }

    fn::Value value(int code) const; ///< Nil where it is missing.
    fn::Value required(int code) const;

    /// Of OBJECTS, which must be there: ascending, each once.
    std::vector<ObjectId> objectIds() const;
    bool mentionsObjects() const; ///< Whether there are any.

    /// The bytes of PAYLOAD, which must be bytes. Shares them with the frame where that has memory of its own.
    fn::MemoryInputStream payload() const;

    /// All of it, for dumps.
    fn::Value toValue() const;

    std::size_t size() const { return _body.bytes.size(); } ///< Bytes of the body.

    /// The frame for the receivers of a MESSAGE from `source`: SOURCE_WORKER_ID, in its place, is the only field that is not as
    /// it came. Above what receivers take: `fn::RangeException`.
    Frame forwardedFrom(WorkerId source) const;

private:
    struct Span {
        std::uint32_t begin = 0; // Of the body's bytes.
        std::uint32_t end = 0;
        bool isEmpty() const { return begin == end; }
    };

    fn::ByteView bytes(Span span) const { return _body.bytes.subspan(span.begin, span.end - span.begin); }
    fn::ByteView bytesOf(int code) const { return bytes(_values[code]); }
    static std::optional<std::uint64_t> plainInteger(fn::ByteView bytes);

    const FrameBody _body;
    bool _isValid = false;
    std::array<Span, field::LAST + 1> _values; // By field code.
    std::uint32_t _fieldCount = 0; // Of the map.
    std::uint32_t _fields = 0; // Where they begin.
    Span _source; // SOURCE_WORKER_ID with its key: the sender's word for it does not count.
    std::uint32_t _behindSource =
        0; // Where SOURCE_WORKER_ID is written: before the first known field of a greater code.
};

struct MessageField {
    int code;
    fn::Value value;
};

/// The frame of a message of this type with these fields, ascending by code. A body above `maxBytes`: `fn::RangeException`.
Frame encodeMessage(int type, std::initializer_list<MessageField> fields, std::size_t maxBytes);

/// Makes a MESSAGE whose payload is written straight into its frame.
class MessageWriter {
public:
    MessageWriter(ObjectId objectId, WorkerId target);

    fn::OutputStream& payload() { return _stream; }

    /// The frame. `objects`: what the payload mentions, by ObjectId; nil for none. A body above `maxBytes`:
    /// `fn::RangeException`.
    Frame finish(const fn::Value& objects, std::size_t maxBytes);

private:
    FrameOutputStream _stream;
    std::size_t _payloadBegin;
};

} // namespace ipc

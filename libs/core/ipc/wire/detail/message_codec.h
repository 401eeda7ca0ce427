#pragma once
#include "core/ipc/wire/detail/frame_output_stream.h"
#include "core/ipc/wire/message.h"
#include "core/ipc/wire/message_helper.h"
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

/// A message in its frame: knows where the value of each field lies, and decodes a value when it is asked for. Hub and workers
/// read every message through this class; fields may come in any order, unknown ones among them. Borrows the frame.
///
/// Fields are converted as `fn::Value` converts them: a missing one, or one that does not fit, is `fn::RangeException`.
class MessageView {
public:
    explicit MessageView(const FrameBody& body);

    /// Whether the body is exactly one MessagePack value, does not nest too deeply, holds no more values than a frame may, and
    /// has no known field twice. If not, no other method may be called. A value that is no map is a message without fields.
    bool isValid() const { return _isValid; }

    bool has(int code) const { return (_known >> code & 1) != 0; }
    std::int64_t type() const; ///< `type::INVALID` if the message has no type.

    template <std::integral T> T integer(int code) const
    {
        const auto bytes = bytesOf(code);
        if (bytes.size() == 1 && bytes[0] < fn::mpack::code::FixMap) return static_cast<T>(bytes[0]);
        if (const auto number = plainInteger(bytes); number && *number <= std::numeric_limits<T>::max())
            return static_cast<T>(*number);
        return required(code).to<T>();
    }

    fn::Value value(int code) const; ///< Nil if the field is missing.
    fn::Value required(int code) const;

    /// The ids in OBJECTS, ascending, each once. The field must be there, and a map.
    std::vector<ObjectId> objectIds() const { return listsObjects() ? listedObjects() : std::vector<ObjectId>(); }

    /// The bytes in PAYLOAD, which lie in the frame. The field must be there, and hold bytes.
    fn::ByteView payloadBytes() const;

    /// The memory of its own that the frame lies in; null if it has none.
    const fn::ByteArray* array() const { return _body.array; }

    /// The whole message, for dumps.
    fn::Value toValue() const;

    std::size_t size() const { return _body.bytes.size(); } ///< Bytes of the body.

    /// The frame that the hub sends to the receivers of a MESSAGE from `source`: all fields as they came, but SOURCE_WORKER_ID
    /// names `source`, whatever the sender wrote. `fn::RangeException` for a body that is larger than receivers take.
    Frame forwardedFrom(WorkerId source) const;

private:
    struct Place { // In the body.
        const std::uint8_t* key;
        const std::uint8_t* value;
        const std::uint8_t* end;
    };

    fn::ByteView bytesOf(int code) const
    {
        return has(code) ? fn::ByteView(_places[code].value, _places[code].end) : fn::ByteView();
    }
    /// False for an empty OBJECTS in its one-byte form; else somebody must look.
    bool listsObjects() const
    {
        const auto objects = bytesOf(field::OBJECTS);
        return objects.size() != 1 || objects[0] != fn::mpack::code::FixMap;
    }
    static std::optional<std::uint64_t> plainInteger(fn::ByteView bytes);
    std::vector<ObjectId> listedObjects() const;
    const std::uint8_t* behindSource() const;

    const FrameBody _body;
    bool _isValid = false;
    std::uint32_t _known = 0; // A bit for each known field that the message has, by code.
    std::array<Place, field::LAST + 1> _places; // Of those, by code.
    std::uint32_t _fieldCount = 0; // Entries of the map, unknown ones included.
    const std::uint8_t* _fields = nullptr; // The first entry.
};

struct MessageField {
    int code;
    fn::Value value;
};

/// The frame of a message of this type with `fields`, which ascend by code. `fn::RangeException` for a body above `maxBytes`.
Frame encodeMessage(int type, std::initializer_list<MessageField> fields, std::size_t maxBytes);

/// Makes a MESSAGE whose payload is written straight into its frame.
class MessageWriter {
public:
    MessageWriter(ObjectId objectId, WorkerId target);

    fn::OutputStream& payload() { return _stream; }

    /// Gives the frame. `objects` maps the ids of the shared objects in the payload to their class names, and is nil if there
    /// are none. `fn::RangeException` for a body above `maxBytes`.
    Frame finish(const fn::Value& objects, std::size_t maxBytes);

private:
    FrameOutputStream _stream;
    std::size_t _payloadBegin;
};

} // namespace ipc

#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/limits.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/format.h"
#include "foundation/mpack/serializer.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace ipc {

namespace code = fn::mpack::code;

/// Goes over MessagePack from the front, value by value, without making any. What is malformed makes it invalid for good.
class MessageScanner {
public:
    explicit MessageScanner(fn::ByteView bytes) : _bytes(bytes) { }

    bool isValid() const { return _isValid; }
    bool isAtEnd() const { return _at == _bytes.size(); }
    std::uint32_t offset() const { return static_cast<std::uint32_t>(_at); }

    /// How many entries the map has that begins here; nothing, and no byte taken, where there is none.
    std::optional<std::uint32_t> mapHeader()
    {
        if (_at == _bytes.size()) return std::nullopt;
        const auto first = _bytes[_at];
        if (first >= code::FixMap && first < code::FixArray)
            ++_at;
        else if (first != code::Map16 && first != code::Map32)
            return std::nullopt;
        const auto count =
            first < code::FixArray ? first - code::FixMap : (++_at, number(first == code::Map16 ? 2 : 4));
        enter(2 * count);
        return static_cast<std::uint32_t>(count);
    }

    /// The code of the known field whose key is next; 0 for any other key, which is passed over as well.
    int fieldCode()
    {
        const auto begin = _at;
        skip();
        if (!_isValid) return 0;
        const auto key = MessageView::plainInteger(_bytes.subspan(begin, _at - begin));
        return key && *key <= field::LAST ? static_cast<int>(*key) : 0;
    }

    /// Over one value, which lies in so many containers.
    void skip(int depth = 1)
    {
        const auto begin = _at;
        const auto first = number(1);
        if (first < code::FixMap || first >= code::NegativeFixInt) return;
        if (first < code::FixArray) return skipAll(2 * (first - code::FixMap), depth);
        if (first < code::FixStr) return skipAll(first - code::FixArray, depth);
        if (first < code::Nil) return pass(first - code::FixStr);
        switch (first) {
        case code::Nil:
        case code::False:
        case code::True: return;
        case code::Bin8:
        case code::Str8: return pass(number(1));
        case code::Bin16:
        case code::Str16: return pass(number(2));
        case code::Bin32:
        case code::Str32: return pass(number(4));
        case code::Ext8: return extension(begin, number(1));
        case code::Ext16: return extension(begin, number(2));
        case code::Ext32: return extension(begin, number(4));
        case code::UInt8:
        case code::Int8: return pass(1);
        case code::UInt16:
        case code::Int16: return pass(2);
        case code::Float32:
        case code::UInt32:
        case code::Int32: return pass(4);
        case code::Float64:
        case code::UInt64:
        case code::Int64: return pass(8);
        case code::FixExt1: return extension(begin, 1);
        case code::FixExt2: return extension(begin, 2);
        case code::FixExt4: return extension(begin, 4);
        case code::FixExt8: return extension(begin, 8);
        case code::FixExt16: return extension(begin, 16);
        case code::Array16: return skipAll(number(2), depth);
        case code::Array32: return skipAll(number(4), depth);
        case code::Map16: return skipAll(2 * number(2), depth);
        case code::Map32: return skipAll(2 * number(4), depth);
        default: _isValid = false;
        }
    }

private:
    void enter(std::uint64_t values)
    {
        if (values > _valuesLeft) _isValid = false;
        _valuesLeft -= values;
    }

    void skipAll(std::uint64_t values, int depth)
    {
        if (depth >= fn::mpack::maxDepth) _isValid = false;
        enter(values);
        for (; values > 0 && _isValid; --values) skip(depth + 1);
    }

    /// Whoever decodes the whole fails on a timestamp that is none; others are for their reader to judge.
    void extension(std::size_t begin, std::uint64_t size)
    {
        const auto type = static_cast<std::int8_t>(number(1));
        pass(size);
        if (!_isValid || type != fn::mpack::timestampType) return;
        try {
            fn::MemoryInputStream stream(_bytes.data() + begin, _at - begin);
            fn::mpack::Deserializer(stream).deserialize();
        } catch (const fn::Exception&) {
            _isValid = false;
        }
    }

    void pass(std::uint64_t size)
    {
        if (size > _bytes.size() - _at)
            _isValid = false;
        else
            _at += size;
    }

    /// Big-endian.
    std::uint64_t number(std::size_t size)
    {
        const auto begin = _at;
        pass(size);
        if (!_isValid) return 0;
        std::uint64_t value = 0;
        for (auto at = begin; at < _at; ++at) value = value << 8 | _bytes[at];
        return value;
    }

    const fn::ByteView _bytes;
    std::size_t _at = 0;
    std::uint64_t _valuesLeft = limits::frameValues;
    bool _isValid = true;
};

namespace {

fn::Value decode(fn::MemoryInputStream stream)
{
    fn::mpack::Deserializer deserializer(stream);
    deserializer.setMaxValues(limits::frameValues);
    return *deserializer.deserialize();
}

} // namespace

std::optional<MessageView> MessageView::parse(const FrameBody& body)
{
    MessageView message(body);
    MessageScanner scanner(body.bytes);
    if (const auto count = scanner.mapHeader()) {
        message._fieldCount = *count;
        message._fields = scanner.offset();
        for (std::uint32_t i = 0; i < *count && scanner.isValid(); ++i) {
            const auto begin = scanner.offset();
            const auto code = scanner.fieldCode();
            const auto valueBegin = scanner.offset();
            scanner.skip();
            if (code == 0) continue;
            if (message.has(code)) return std::nullopt; // Readers would not agree which of them counts.
            message._values[static_cast<std::size_t>(code)] = { valueBegin, scanner.offset() };
            if (code == field::SOURCE_WORKER_ID) message._source = { begin, scanner.offset() };
            if (code > field::SOURCE_WORKER_ID && message._behindSource == 0) message._behindSource = begin;
        }
    } else {
        scanner.skip(0);
    }
    if (!scanner.isValid() || !scanner.isAtEnd()) return std::nullopt;
    if (message._behindSource == 0) message._behindSource = scanner.offset();
    return message;
}

/// A non-negative one, of any size; empty for everything else.
std::optional<std::uint64_t> MessageView::plainInteger(fn::ByteView bytes)
{
    if (bytes.empty()) return std::nullopt;
    const auto first = bytes[0];
    if (first < code::FixMap) return first;
    if (first < code::UInt8 || first > code::UInt64) return std::nullopt;
    std::uint64_t number = 0;
    for (const auto byte : bytes.subspan(1)) number = number << 8 | byte;
    return number;
}

std::int64_t MessageView::type() const
{
    return has(field::TYPE) ? integer<std::int64_t>(field::TYPE) : std::int64_t(type::INVALID);
}

fn::Value MessageView::value(int code) const
{
    if (!has(code)) return {};
    return decode({ bytesOf(code).data(), bytesOf(code).size() });
}

fn::Value MessageView::required(int code) const
{
    return has(code) ? value(code) : toValue().at(code); // Which says that it is missing, and in what.
}

fn::Value MessageView::toValue() const
{
    return decode(_body.array ? fn::MemoryInputStream(*_body.array)
                              : fn::MemoryInputStream(_body.bytes.data(), _body.bytes.size()));
}

bool MessageView::mentionsObjects() const
{
    const auto objects = bytesOf(field::OBJECTS);
    return objects.size() != 1 || objects[0] != code::FixMap;
}

std::vector<ObjectId> MessageView::objectIds() const
{
    std::vector<ObjectId> ids;
    if (!mentionsObjects()) return ids;
    const auto bytes = bytesOf(field::OBJECTS);
    MessageScanner scanner(bytes);
    const auto count = scanner.mapHeader();
    if (!count) return static_cast<void>(required(field::OBJECTS).entries()), ids; // Which says that it is no map.
    ids.reserve(*count);
    for (std::uint32_t i = 0; i < *count; ++i) {
        const auto begin = scanner.offset();
        scanner.skip();
        const auto key = bytes.subspan(begin, scanner.offset() - begin);
        const auto number = plainInteger(key);
        ids.push_back(number ? *number : decode({ key.data(), key.size() }).to<ObjectId>());
        scanner.skip();
    }
    std::ranges::sort(ids);
    ids.erase(std::ranges::unique(ids).begin(), ids.end());
    return ids;
}

fn::MemoryInputStream MessageView::payload() const
{
    const auto payload = bytesOf(field::PAYLOAD);
    if (payload.empty() || payload[0] < code::Bin8 || payload[0] > code::Bin32)
        return fn::MemoryInputStream(required(field::PAYLOAD).byteArray()); // Which says that they are none.
    const auto header = 1 + (std::size_t(1) << (payload[0] - code::Bin8));
    const auto content = payload.subspan(header);
    if (!_body.array) return { content.data(), content.size() };
    const auto offset = static_cast<std::size_t>(content.data() - _body.bytes.data());
    return fn::MemoryInputStream(_body.array->slice(offset, content.size()));
}

Frame MessageView::forwardedFrom(WorkerId source) const
{
    const auto end = static_cast<std::uint32_t>(size());
    const bool isShared =
        _body.array && end - _behindSource >= FrameOutputStream::sharedFrom && _source.end <= _behindSource;
    constexpr std::size_t addedBytes = 5 + 4; // The largest head of a map, and the field.
    FrameOutputStream stream((isShared ? _behindSource : end) + addedBytes);
    fn::mpack::Serializer serializer(stream);
    const auto write = [&](std::uint32_t from, std::uint32_t to) {
        const auto part = bytes({ from, to });
        if (isShared && to == end)
            stream.writeShared(_body.array->slice(from, part.size()));
        else
            stream.write(part.data(), part.size());
    };
    const auto writeUntouched = [&](std::uint32_t from, std::uint32_t to) {
        if (_source.isEmpty() || _source.begin < from || _source.begin >= to) return write(from, to);
        write(from, _source.begin);
        write(_source.end, to);
    };
    serializer.beginMap(_fieldCount + (_source.isEmpty() ? 1 : 0));
    writeUntouched(_fields, _behindSource);
    stream.writeByte(field::SOURCE_WORKER_ID);
    serializer.serialize(source);
    writeUntouched(_behindSource, end);
    return stream.finish(limits::workerFrameBytes);
}

// --- Writing

Frame encodeMessage(int type, std::initializer_list<MessageField> fields, std::size_t maxBytes)
{
    FrameOutputStream stream;
    fn::mpack::Serializer serializer(stream);
    serializer.beginMap(1 + fields.size());
    stream.writeByte(field::TYPE);
    serializer.serialize(type);
    for (const auto& [code, value] : fields) {
        stream.writeByte(static_cast<std::uint8_t>(code));
        serializer.serialize(value);
    }
    return stream.finish(maxBytes);
}

MessageWriter::MessageWriter(ObjectId objectId, WorkerId target)
{
    fn::mpack::Serializer serializer(_stream);
    serializer.beginMap(5);
    _stream.writeByte(field::TYPE);
    _stream.writeByte(type::MESSAGE);
    _stream.writeByte(field::OBJECT_ID);
    serializer.serialize(objectId);
    _stream.writeByte(field::TARGET_WORKER_ID);
    serializer.serialize(target);
    _stream.writeByte(field::PAYLOAD);
    // In the longest form: how long the payload is shows when it has been written.
    const std::uint8_t head[] { code::Bin32, 0, 0, 0, 0 };
    _stream.write(head, sizeof(head));
    _payloadBegin = _stream.size();
}

Frame MessageWriter::finish(const fn::Value& objects, std::size_t maxBytes)
{
    const auto payloadBytes = fn::mpack::bigEndian(static_cast<std::uint32_t>(_stream.size() - _payloadBegin));
    _stream.writeByte(field::OBJECTS);
    if (objects.isNil())
        _stream.writeByte(code::FixMap);
    else
        fn::mpack::Serializer(_stream).serialize(objects);
    auto frame = _stream.finish(maxBytes);
    std::memcpy(frame.begin() + FrameOutputStream::headerBytes + _payloadBegin - sizeof(payloadBytes), &payloadBytes,
        sizeof(payloadBytes));
    return frame;
}

} // namespace ipc

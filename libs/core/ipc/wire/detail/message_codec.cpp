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
    explicit MessageScanner(fn::ByteView bytes) : _begin(bytes.data()), _at(_begin), _end(_begin + bytes.size()) { }

    bool isValid() const { return _at; }
    bool isAtEnd() const { return _at == _end; }
    std::uint32_t offset() const { return static_cast<std::uint32_t>(_at - _begin); }

    /// How many entries the map has that begins here; nothing, and no byte taken, where there is none.
    std::optional<std::uint32_t> mapHeader()
    {
        if (isAtEnd()) return std::nullopt;
        const auto first = *_at;
        if (first < code::FixMap || (first >= code::FixArray && first < code::Map16) || first > code::Map32)
            return std::nullopt;
        ++_at;
        const auto count = first < code::FixArray ? first - code::FixMap
            : first == code::Map16                ? number<std::uint16_t>()
                                                  : number<std::uint32_t>();
        enter(2 * std::uint64_t(count));
        return count;
    }

    /// The code of the known field whose key is next; 0 for any other key, which is passed over as well.
    int fieldCode()
    {
        const auto* const begin = _at;
        skip();
        if (!isValid()) return 0;
        const auto key = *begin < code::FixMap ? *begin : MessageView::plainInteger({ begin, _at }).value_or(0);
        return key <= field::LAST ? static_cast<int>(key) : 0;
    }

    /// Over one value, which lies in so many containers.
    void skip(int depth = 1)
    {
        if (_at == _end) return fail();
        const auto first = *_at;
        if (const auto size = sizes[first]; size != 0) [[likely]]
            return pass(size);
        skipLong(depth);
    }

private:
    /// How long a value is that begins with this byte; 0 for those that tell it behind it, and for what begins none.
    static constexpr auto sizes = [] {
        std::array<std::uint8_t, 256> sizes {};
        for (int first = 0; first < 256; ++first) {
            const bool isText = first >= code::FixStr && first < code::Nil;
            if (first < code::FixMap || first >= code::NegativeFixInt) sizes[first] = 1;
            if (isText) sizes[first] = static_cast<std::uint8_t>(1 + first - code::FixStr);
        }
        for (const auto first : { code::Nil, code::False, code::True }) sizes[first] = 1;
        for (const auto first : { code::UInt8, code::Int8 }) sizes[first] = 2;
        for (const auto first : { code::UInt16, code::Int16 }) sizes[first] = 3;
        for (const auto first : { code::UInt32, code::Int32, code::Float32 }) sizes[first] = 5;
        for (const auto first : { code::UInt64, code::Int64, code::Float64 }) sizes[first] = 9;
        return sizes;
    }();

    void skipLong(int depth)
    {
        const auto* const begin = _at;
        const auto first = *_at++;
        if (first < code::FixArray) return skipAll(2 * (first - code::FixMap), depth);
        if (first < code::FixStr) return skipAll(first - code::FixArray, depth);
        switch (first) {
        case code::Bin8:
        case code::Str8: return pass(number<std::uint8_t>());
        case code::Bin16:
        case code::Str16: return pass(number<std::uint16_t>());
        case code::Bin32:
        case code::Str32: return pass(number<std::uint32_t>());
        case code::Ext8: return extension(begin, number<std::uint8_t>());
        case code::Ext16: return extension(begin, number<std::uint16_t>());
        case code::Ext32: return extension(begin, number<std::uint32_t>());
        case code::FixExt1: return extension(begin, 1);
        case code::FixExt2: return extension(begin, 2);
        case code::FixExt4: return extension(begin, 4);
        case code::FixExt8: return extension(begin, 8);
        case code::FixExt16: return extension(begin, 16);
        case code::Array16: return skipAll(number<std::uint16_t>(), depth);
        case code::Array32: return skipAll(number<std::uint32_t>(), depth);
        case code::Map16: return skipAll(2 * std::uint64_t(number<std::uint16_t>()), depth);
        case code::Map32: return skipAll(2 * std::uint64_t(number<std::uint32_t>()), depth);
        default: fail();
        }
    }

    void fail() { _at = _end = nullptr; }

    void enter(std::uint64_t values)
    {
        if (values > _valuesLeft) return fail();
        _valuesLeft -= values;
    }

    void skipAll(std::uint64_t values, int depth)
    {
        if (depth >= fn::mpack::maxDepth) return fail();
        enter(values);
        for (; values > 0 && isValid(); --values) skip(depth + 1);
    }

    /// Whoever decodes the whole fails on a timestamp that is none; others are for their reader to judge.
    void extension(const std::uint8_t* begin, std::uint64_t size)
    {
        const auto type = static_cast<std::int8_t>(number<std::uint8_t>());
        pass(size);
        if (!isValid() || type != fn::mpack::timestampType) return;
        try {
            fn::MemoryInputStream stream(begin, static_cast<std::size_t>(_at - begin));
            fn::mpack::Deserializer(stream).deserialize();
        } catch (const fn::Exception&) {
            fail();
        }
    }

    void pass(std::uint64_t size)
    {
        if (size > static_cast<std::uint64_t>(_end - _at)) return fail();
        _at += size;
    }

    template <typename T> T number()
    {
        if (sizeof(T) > static_cast<std::size_t>(_end - _at)) return fail(), T(0);
        T number;
        std::memcpy(&number, _at, sizeof(number));
        _at += sizeof(number);
        return fn::mpack::bigEndian(number);
    }

    const std::uint8_t* const _begin;
    const std::uint8_t* _at; // Null once it is invalid.
    const std::uint8_t* _end;
    std::uint64_t _valuesLeft = limits::frameValues;
};

namespace {

fn::Value decode(fn::MemoryInputStream stream)
{
    fn::mpack::Deserializer deserializer(stream);
    deserializer.setMaxValues(limits::frameValues);
    return *deserializer.deserialize();
}

} // namespace

MessageView::MessageView(const FrameBody& body) : _body(body)
{
    MessageScanner scanner(body.bytes);
    if (const auto count = scanner.mapHeader()) {
        _fieldCount = *count;
        _fields = scanner.offset();
        for (std::uint32_t i = 0; i < *count && scanner.isValid(); ++i) {
            if (!readField(scanner)) return;
        }
    } else {
        scanner.skip(0);
    }
    _isValid = scanner.isValid() && scanner.isAtEnd();
    if (_behindSource == 0) _behindSource = static_cast<std::uint32_t>(body.bytes.size());
}

/// False for one that was there before: readers would not agree which of them counts.
bool MessageView::readField(MessageScanner& scanner)
{
    const auto begin = scanner.offset();
    const auto code = scanner.fieldCode();
    if (!scanner.isValid()) return true;
    const auto valueBegin = scanner.offset();
    scanner.skip();
    if (!scanner.isValid() || code == 0) return true;
    if (has(code)) return false;
    _values[static_cast<std::size_t>(code)] = { valueBegin, scanner.offset() };
    if (code == field::SOURCE_WORKER_ID) _source = { begin, scanner.offset() };
    if (code > field::SOURCE_WORKER_ID && _behindSource == 0) _behindSource = begin;
    return true;
}

/// A non-negative one, of any size; empty for everything else.
std::optional<std::uint64_t> MessageView::plainInteger(fn::ByteView bytes)
{
    const auto number = [&]<typename T>(T value) -> std::uint64_t {
        std::memcpy(&value, bytes.data() + 1, sizeof(value));
        return fn::mpack::bigEndian(value);
    };
    if (bytes.empty()) return std::nullopt;
    switch (const auto first = bytes[0]) {
    case code::UInt8: return number(std::uint8_t());
    case code::UInt16: return number(std::uint16_t());
    case code::UInt32: return number(std::uint32_t());
    case code::UInt64: return number(std::uint64_t());
    default: return first < code::FixMap ? std::optional<std::uint64_t>(first) : std::nullopt;
    }
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

// --- Writing

namespace {

/// The beginning of a message, in its shortest form.
class Head {
public:
    Head() = default;

    /// Of a map with so many fields.
    explicit Head(std::uint32_t fields)
    {
        if (fields <= code::FixArray - code::FixMap - 1) {
            add(static_cast<std::uint8_t>(code::FixMap + fields));
        } else {
            add(code::Map32);
            addBigEndian(fields);
        }
    }

    void add(std::uint8_t byte) { _bytes[_size++] = byte; }

    void addField(int code, std::uint64_t number)
    {
        add(static_cast<std::uint8_t>(code));
        if (number < code::FixMap) return add(static_cast<std::uint8_t>(number));
        if (number <= UINT8_MAX) return add(code::UInt8), addBigEndian(static_cast<std::uint8_t>(number));
        if (number <= UINT16_MAX) return add(code::UInt16), addBigEndian(static_cast<std::uint16_t>(number));
        if (number <= UINT32_MAX) return add(code::UInt32), addBigEndian(static_cast<std::uint32_t>(number));
        add(code::UInt64);
        addBigEndian(number);
    }

    template <typename T> void addBigEndian(T number)
    {
        number = fn::mpack::bigEndian(number);
        std::memcpy(_bytes.data() + _size, &number, sizeof(number));
        _size += sizeof(number);
    }

    void writeTo(fn::OutputStream& stream) const { stream.write(_bytes.data(), _size); }

private:
    std::array<std::uint8_t, 32> _bytes; // MESSAGE takes 23.
    std::size_t _size = 0;
};

} // namespace

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

Frame MessageView::forwardedFrom(WorkerId source) const
{
    const auto end = static_cast<std::uint32_t>(size());
    const bool isShared =
        _body.array && end - _behindSource >= FrameOutputStream::sharedFrom && _source.end <= _behindSource;
    constexpr std::size_t addedBytes = 5 + 4; // The largest head of a map, and the field.
    FrameOutputStream stream((isShared ? _behindSource : end) + addedBytes);
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
    Head(_fieldCount + (_source.isEmpty() ? 1 : 0)).writeTo(stream);
    writeUntouched(_fields, _behindSource);
    Head added;
    added.addField(field::SOURCE_WORKER_ID, source);
    added.writeTo(stream);
    writeUntouched(_behindSource, end);
    return stream.finish(limits::workerFrameBytes);
}

MessageWriter::MessageWriter(ObjectId objectId, WorkerId target)
{
    Head head(5);
    head.addField(field::TYPE, type::MESSAGE);
    head.addField(field::OBJECT_ID, objectId);
    head.addField(field::TARGET_WORKER_ID, target);
    head.add(field::PAYLOAD);
    head.add(code::Bin32); // The longest form: how long the payload is shows when it has been written.
    head.addBigEndian(std::uint32_t(0));
    head.writeTo(_stream);
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

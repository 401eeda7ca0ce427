#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/limits.h"
#include "foundation/mpack/codes.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace ipc {

namespace code = fn::mpack::code;

namespace {

using Byte = const std::uint8_t;

/// Walks over MessagePack bytes without making values. Each method gives the place behind what it has passed, or null where the
/// bytes are malformed or beyond a bound. The place is passed by value, so that it stays in a register: each frame is scanned twice.
class Scanner {
public:
    explicit Scanner(fn::ByteView bytes) : _end(bytes.data() + bytes.size()) { }

    /// Passes the value at `at`, which lies in `depth` containers.
    Byte* skip(Byte* at, int depth)
    {
        if (at == _end) return nullptr;
        // Nearly all fields of a message have one of these forms. Tested first, all of them take 16 ns, in `skipLong()` 24.
        if (*at <= code::FixMap) return *at < code::FixMap || depth < fn::mpack::maxDepth ? at + 1 : nullptr;
        if (*at == code::UInt32) return pass(at, 5);
        if (*at == code::Bin32) return passCounted<std::uint32_t>(at + 1);
        return skipLong(at, depth);
    }

    /// Passes the head of the map that begins at `at`, and sets `count` to its number of entries. Null if no map begins there.
    Byte* enterMap(Byte* at, std::uint32_t& count)
    {
        if (at == _end) return nullptr;
        const auto first = *at++;
        std::uint64_t number = first - code::FixMap;
        if (first == code::Map16)
            at = read<std::uint16_t>(at, number);
        else if (first == code::Map32)
            at = read<std::uint32_t>(at, number);
        else if (first < code::FixMap || first >= code::FixArray)
            return nullptr;
        count = static_cast<std::uint32_t>(number);
        return at && enter(2 * number, 0) ? at : nullptr;
    }

private:
    Byte* skipLong(Byte* at, int depth)
    {
        auto* const begin = at;
        const auto first = *at++;
        if (first < code::FixArray) return skipAll(at, 2 * (first - code::FixMap), depth);
        if (first < code::FixStr) return skipAll(at, first - code::FixArray, depth);
        if (first < code::Nil) return pass(at, first - code::FixStr);
        if (first >= code::NegativeFixInt) return at;
        switch (first) {
        case code::Nil:
        case code::False:
        case code::True: return at;
        case code::UInt8:
        case code::Int8: return pass(at, 1);
        case code::UInt16:
        case code::Int16: return pass(at, 2);
        case code::UInt32:
        case code::Int32:
        case code::Float32: return pass(at, 4);
        case code::UInt64:
        case code::Int64:
        case code::Float64: return pass(at, 8);
        case code::Bin8:
        case code::Str8: return passCounted<std::uint8_t>(at);
        case code::Bin16:
        case code::Str16: return passCounted<std::uint16_t>(at);
        case code::Bin32:
        case code::Str32: return passCounted<std::uint32_t>(at);
        case code::Array16: return skipCounted<std::uint16_t>(at, 1, depth);
        case code::Array32: return skipCounted<std::uint32_t>(at, 1, depth);
        case code::Map16: return skipCounted<std::uint16_t>(at, 2, depth);
        case code::Map32: return skipCounted<std::uint32_t>(at, 2, depth);
        case code::FixExt1: return checked(begin, pass(at, 1 + 1));
        case code::FixExt2: return checked(begin, pass(at, 1 + 2));
        case code::FixExt4: return checked(begin, pass(at, 1 + 4));
        case code::FixExt8: return checked(begin, pass(at, 1 + 8));
        case code::FixExt16: return checked(begin, pass(at, 1 + 16));
        case code::Ext8: return checked(begin, passCounted<std::uint8_t>(at, 1));
        case code::Ext16: return checked(begin, passCounted<std::uint16_t>(at, 1));
        case code::Ext32: return checked(begin, passCounted<std::uint32_t>(at, 1));
        default: return nullptr;
        }
    }

    bool enter(std::uint64_t values, int depth)
    {
        if (depth >= fn::mpack::maxDepth || values > _valuesLeft) return false;
        _valuesLeft -= values;
        return true;
    }

    Byte* skipAll(Byte* at, std::uint64_t values, int depth)
    {
        if (!enter(values, depth)) return nullptr;
        for (; values > 0 && at; --values) at = skip(at, depth + 1);
        return at;
    }

    template <typename T> Byte* skipCounted(Byte* at, int valuesEach, int depth)
    {
        std::uint64_t count = 0;
        at = read<T>(at, count);
        return at ? skipAll(at, valuesEach * count, depth) : nullptr;
    }

    Byte* pass(Byte* at, std::uint64_t size) const
    {
        return size <= static_cast<std::uint64_t>(_end - at) ? at + size : nullptr;
    }

    template <typename T> Byte* passCounted(Byte* at, std::uint64_t more = 0) const
    {
        std::uint64_t size = 0;
        at = read<T>(at, size);
        return at ? pass(at, size + more) : nullptr;
    }

    template <typename T> Byte* read(Byte* at, std::uint64_t& number) const
    {
        auto* const next = pass(at, sizeof(T));
        if (!next) return nullptr;
        T value;
        std::memcpy(&value, at, sizeof(value));
        number = fn::mpack::bigEndian(value);
        return next;
    }

    /// Null for a malformed timestamp, on which decoding the frame would fail. Other extensions are judged by their readers.
    static Byte* checked(Byte* begin, Byte* end)
    {
        if (!end) return nullptr;
        try {
            fn::MemoryInputStream stream(begin, static_cast<std::size_t>(end - begin));
            fn::mpack::Deserializer(stream).deserialize();
            return end;
        } catch (const fn::Exception&) {
            return nullptr;
        }
    }

    Byte* const _end;
    std::uint64_t _valuesLeft = limits::frameValues;
};

fn::Value decode(fn::MemoryInputStream stream)
{
    fn::mpack::Deserializer deserializer(stream);
    deserializer.setMaxValues(limits::frameValues);
    return *deserializer.deserialize();
}

/// The code of the known field that this key names, in whatever form it encodes the number; 0 for any other key.
std::uint64_t fieldCode(fn::ByteView key)
{
    if (key[0] < code::Float32 || key[0] > code::Int64) return 0;
    const auto value = decode({ key.data(), key.size() });
    for (int code = field::TYPE; code <= field::LAST; ++code) {
        if (value == fn::Value(code)) return static_cast<std::uint64_t>(code);
    }
    return 0;
}

} // namespace

MessageView::MessageView(const FrameBody& body) : _body(body)
{
    auto* const begin = body.bytes.data();
    auto* const end = begin + body.bytes.size();
    const auto offset = [begin](Byte* at) { return static_cast<std::uint32_t>(at - begin); };
    Scanner scanner(body.bytes);
    auto* at = scanner.enterMap(begin, _fieldCount);
    if (!at) {
        _isValid = scanner.skip(begin, 0) == end;
        return;
    }
    _fields = offset(at);
    auto* behindSource = end;
    for (auto left = _fieldCount; left > 0; --left) {
        auto* const key = at;
        auto* const value = scanner.skip(key, 1);
        if (!value) return;
        at = scanner.skip(value, 1);
        if (!at) return;
        const auto code = *key < code::FixMap ? *key : fieldCode({ key, value });
        if (code - 1 >= field::LAST) continue;
        if (has(static_cast<int>(code))) return; // The field occurs twice: readers would not agree which one counts.
        _values[code] = { offset(value), offset(at) };
        if (code == field::SOURCE_WORKER_ID) [[unlikely]]
            _source = { offset(key), offset(at) };
        if (code > field::SOURCE_WORKER_ID && behindSource == end) behindSource = key;
    }
    _behindSource = offset(behindSource);
    _isValid = at == end;
}

/// The number, if `bytes` hold one in an unsigned form; empty for everything else, also for signed forms of positive numbers.
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
    return has(code) ? value(code) : toValue().at(code); // `at()` throws, and names the missing key.
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
    Scanner scanner(bytes);
    std::uint32_t count = 0;
    auto* at = scanner.enterMap(bytes.data(), count);
    if (!at) return static_cast<void>(required(field::OBJECTS).entries()), ids; // Throws: it is missing or no map.
    ids.reserve(count);
    for (; count > 0; --count) {
        auto* const key = at;
        at = scanner.skip(key, 1);
        const auto size = static_cast<std::size_t>(at - key);
        const auto number = plainInteger({ key, size });
        ids.push_back(number ? *number : decode({ key, size }).to<ObjectId>());
        at = scanner.skip(at, 1);
    }
    std::ranges::sort(ids);
    ids.erase(std::ranges::unique(ids).begin(), ids.end());
    return ids;
}

fn::ByteView MessageView::payloadBytes() const
{
    const auto payload = bytesOf(field::PAYLOAD);
    if (payload.empty() || payload[0] < code::Bin8 || payload[0] > code::Bin32)
        return static_cast<void>(required(field::PAYLOAD).byteArray()), fn::ByteView(); // Throws: missing, or no bytes.
    return payload.subspan(1 + (std::size_t(1) << (payload[0] - code::Bin8)));
}

// --- Writing

namespace {

/// Bytes of a message that need no serializer: the head of its map, and fields that are numbers, in their shortest form. A map
/// of more than 15 fields takes Map32, also where Map16 would do: only messages with unknown fields have so many.
class Head {
public:
    Head() = default;

    /// Begins a map of `fields` entries.
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
    std::array<std::uint8_t, 32> _bytes; // A MESSAGE takes 23 of them at most.
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
    constexpr std::size_t addedBytes = 5 + 4; // The largest head of a map, and the field SOURCE_WORKER_ID.
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
    head.add(code::Bin32); // The form for any length: the payload's is known only when it has been written.
    head.addBigEndian(std::uint32_t(0));
    head.writeTo(_stream);
    _payloadBegin = _stream.size();
}

Frame MessageWriter::finish(const fn::Value& objects, std::size_t maxBytes)
{
    const auto payloadBytes = fn::mpack::bigEndian(static_cast<std::uint32_t>(_stream.size() - _payloadBegin));
    _stream.replace(_payloadBegin - sizeof(payloadBytes), &payloadBytes, sizeof(payloadBytes));
    _stream.writeByte(field::OBJECTS);
    if (objects.isNil())
        _stream.writeByte(code::FixMap);
    else
        fn::mpack::Serializer(_stream).serialize(objects);
    return _stream.finish(maxBytes);
}

} // namespace ipc

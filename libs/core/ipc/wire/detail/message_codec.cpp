#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/detail/scanner.h"
#include "foundation/mpack/codes.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/mpack/serializer.h"
#include "foundation/value_map.h"
#include <algorithm>

namespace ipc {

namespace code = fn::mpack::code;

namespace {

using Byte = const std::uint8_t;

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
    Scanner scanner(body.bytes);
    auto* at = scanner.enterMap(begin, _fieldCount);
    if (!at) {
        _isValid = scanner.skip(begin, 0) == end;
        return;
    }
    _fields = at;
    std::uint32_t known = 0;
    for (auto left = _fieldCount; left > 0; --left) {
        auto* const key = at;
        if (key == end) return;
        std::uint64_t number = *key;
        auto* value = key + 1;
        if (number >= code::FixMap) [[unlikely]] {
            value = scanner.skip(key, 1);
            if (!value) return;
            number = fieldCode({ key, value });
        }
        at = scanner.skip(value, 1);
        if (!at) return;
        if (number - 1 >= field::LAST) continue;
        const auto bit = std::uint32_t(1) << number;
        if (known & bit) return; // The field occurs twice: readers would not agree which one counts.
        known |= bit;
        _places[number] = { key, value, at };
    }
    _known = known;
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

std::vector<ObjectId> MessageView::listedObjects() const
{
    std::vector<ObjectId> ids;
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

/// Writes what needs no serializer into memory that is large enough: the head of a message's map, fields that are numbers, in
/// their shortest form, and bytes that are copied.
class Writer {
public:
    explicit Writer(std::uint8_t* memory) : _at(memory) { }

    std::uint8_t* at() const { return _at; } ///< Behind what has been written.

    /// A map of more than 15 fields takes Map32, also where Map16 would do: only messages with unknown fields have so many.
    void beginMap(std::uint32_t fields)
    {
        if (fields < code::FixArray - code::FixMap) return add(static_cast<std::uint8_t>(code::FixMap + fields));
        add(code::Map32);
        addBigEndian(fields);
    }

    void add(std::uint8_t byte) { *_at++ = byte; }

    void add(fn::ByteView bytes)
    {
        std::memcpy(_at, bytes.data(), bytes.size());
        _at += bytes.size();
    }

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
        std::memcpy(_at, &number, sizeof(number));
        _at += sizeof(number);
    }

private:
    std::uint8_t* _at;
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

/// Where the hub writes its SOURCE_WORKER_ID: before the first known field with a greater code.
Byte* MessageView::behindSource() const
{
    auto* first = _body.bytes.data() + size();
    for (int code = field::SOURCE_WORKER_ID + 1; code <= field::LAST; ++code) {
        if (has(code)) first = std::min(first, _places[code].key);
    }
    return first;
}

Frame MessageView::forwardedFrom(WorkerId source) const
{
    auto* const middle = behindSource();
    auto* const end = _body.bytes.data() + size();
    // The sender's own SOURCE_WORKER_ID is left out.
    const auto own = has(field::SOURCE_WORKER_ID) ? _places[field::SOURCE_WORKER_ID] : Place { end, end, end };
    const auto tailBytes = static_cast<std::size_t>(end - middle);
    const bool isShared =
        _body.array && tailBytes >= FrameOutputStream::sharedFrom && (own.key < middle || own.key == end);
    constexpr std::size_t addedBytes = 5 + 4; // The largest head of a map, and the field SOURCE_WORKER_ID.
    const auto mostBytes = size() - (isShared ? tailBytes : 0) + addedBytes;
    FrameOutputStream stream(mostBytes);
    Writer writer(stream.memoryFor(mostBytes));
    const auto copy = [&](Byte* from, Byte* to) {
        if (own.key >= from && own.key < to) [[unlikely]] {
            writer.add({ from, own.key });
            from = own.end;
        }
        writer.add({ from, to });
    };
    writer.beginMap(_fieldCount + (own.key == end ? 1 : 0));
    copy(_fields, middle);
    writer.addField(field::SOURCE_WORKER_ID, source);
    if (!isShared) copy(middle, end);
    stream.wrote(writer.at());
    if (isShared) stream.writeShared(_body.array->slice(size() - tailBytes, tailBytes));
    return stream.finish(limits::workerFrameBytes);
}

MessageWriter::MessageWriter(ObjectId objectId, WorkerId target)
{
    constexpr std::size_t mostBytes = 1 + 2 + 10 + 4 + 6;
    Writer head(_stream.memoryFor(mostBytes));
    head.beginMap(5);
    head.addField(field::TYPE, type::MESSAGE);
    head.addField(field::OBJECT_ID, objectId);
    head.addField(field::TARGET_WORKER_ID, target);
    head.add(field::PAYLOAD);
    head.add(code::Bin32); // The form for any length: the payload's is known only when it has been written.
    head.addBigEndian(std::uint32_t(0));
    _stream.wrote(head.at());
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

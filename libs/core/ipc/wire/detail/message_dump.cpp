#include "core/ipc/wire/detail/message_dump.h"
#include "base/exceptions.h"
#include "core/ipc/limits.h"
#include "core/ipc/wire/detail/extension_data.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/value_map.h"
#include <array>

namespace ipc {
namespace {

constexpr std::array fieldNames { "TYPE", "DISPLAY_NAME", "TAG", "WORKER_ID", "OBJECT_ID", "SOURCE_WORKER_ID",
    "TARGET_WORKER_ID", "PAYLOAD", "OBJECTS", "USAGE_COUNT" }; // By code, from 1 on.
constexpr std::array typeNames { "INVALID", "HELLO", "PING", "PONG", "MESSAGE", "REFERENCE_RELEASE", "INSTANCE_RELEASE",
    "WORKER_DEAD" }; // By type, from 0 on. Dumps show greater types as bare numbers.

/// Stands for a shared object in a dump.
class ObjectPlaceholder final : public fn::RefCountedObject {
public:
    explicit ObjectPlaceholder(ObjectId objectId) : _objectId(objectId) { }
    fn::String toString() const override
    {
        return fmt::format("Object {} (from worker {})", _objectId, ownerOf(_objectId));
    }

private:
    const ObjectId _objectId;
};

class DumpDeserializer final : public fn::mpack::ValueDeserializer {
public:
    fn::Value deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream) override
    {
        if (type != extension::OBJECT) return readPlainExtension(type, stream);
        if (size != sizeof(ObjectId)) return {};
        return fn::AutoPtr<ObjectPlaceholder>(new ObjectPlaceholder(readObjectId(stream)));
    }
};

template <std::size_t Size>
fn::Value label(std::int64_t code, std::int64_t firstCode, const std::array<const char*, Size>& names)
{
    const auto index = code - firstCode;
    if (index < 0 || index >= static_cast<std::int64_t>(Size)) return code;
    return fn::String(fmt::format("{}-{}", code, names[static_cast<std::size_t>(index)]));
}

fn::Value translateEntry(const fn::Value& key, const fn::Value& value)
{
    if (key == fn::Value(field::TYPE))
        return value.kind() == fn::Value::Kind::Int ? typeLabel(value.to<std::int64_t>()) : value;
    if (key == fn::Value(field::PAYLOAD)) return translatePayload(value);
    return value;
}

} // namespace

fn::Value fieldLabel(std::int64_t code) { return label(code, 1, fieldNames); }
fn::Value typeLabel(std::int64_t code) { return label(code, 0, typeNames); }

fn::Value translatePayload(const fn::Value& payload)
{
    if (!payload.isBoxed<fn::ByteArray>()) return payload;
    try {
        DumpDeserializer hook;
        fn::MemoryInputStream stream(payload.byteArray());
        fn::mpack::Deserializer deserializer(stream, &hook);
        deserializer.setMaxValues(limits::dumpedValues);
        return deserializer.deserialize().value_or(payload);
    } catch (const fn::Exception&) {
        return payload; // A dump shows the bytes as they are; reporting the fault is the receiver's part.
    }
}

fn::String MessageDebugFormat::toString() const
{
    if (!message.isMap()) return message.toString();
    fn::Value::Map translated;
    for (const auto& [key, value] : message.entries()) {
        const bool known = key.kind() == fn::Value::Kind::Int;
        translated.set(known ? fieldLabel(key.to<std::int64_t>()) : key, known ? translateEntry(key, value) : value);
    }
    return fn::Value(std::move(translated)).toString();
}

} // namespace ipc

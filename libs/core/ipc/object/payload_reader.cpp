#include "core/ipc/object/payload_reader.h"
#include "base/exceptions.h"
#include "core/ipc/limits.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/payload_writer.h"
#include "core/ipc/wire/detail/extension_data.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "foundation/assertion.h"
#include "foundation/io/memory_input_stream.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/unhandled_exception.h"

namespace ipc {

namespace {

std::vector<ObjectId> objectIdsOf(const MessageView& message)
{
    if (!message.has(field::PAYLOAD) && !message.has(field::OBJECTS)) return {};
    return message.objectIds();
}

/// A missing payload stands for nil. What the message lists counts also where its payload is no bytes.
fn::ByteView payloadOf(ObjectHost& host, const MessageView& message)
{
    static constexpr std::uint8_t nil[] { fn::mpack::code::Nil };
    if (!message.has(field::PAYLOAD)) return nil;
    try {
        return message.payloadBytes();
    } catch (...) {
        host.countReceived(objectIdsOf(message));
        throw;
    }
}

} // namespace

PayloadReader::PayloadReader(ObjectHost& host, const MessageView& message)
    : Reader(payloadOf(host, message), message.array()),
      _host(host),
      _message(&message),
      _objectIds(objectIdsOf(message))
{
    setMaxValues(limits::payloadValues);
}

PayloadReader::PayloadReader(ObjectHost& host, const EncodedPayload& payload)
    : Reader(payload.bytes.bytes(), &payload.bytes),
      _host(host)
{
}

PayloadReader::~PayloadReader()
{
    try {
        finish();
    } catch (...) {
        fn::unhandledException();
    }
}

void PayloadReader::finish()
{
    _isFinished = true;
    if (_objectIds.empty()) return;
    _host.countReceived(std::exchange(_objectIds, {}));
    _made.clear();
}

fn::Value PayloadReader::readValue()
{
    if (isAtEnd()) fail("a value");
    const auto rest = bytes().subspan(offset());
    const auto begin = owner() ? static_cast<std::size_t>(rest.data() - owner()->data()) : 0;
    auto stream = owner() ? fn::MemoryInputStream(owner()->slice(begin, rest.size()))
                          : fn::MemoryInputStream(rest.data(), rest.size());
    fn::mpack::Deserializer deserializer(stream, this);
    deserializer.setMaxValues(valuesLeft());
    auto value = deserializer.deserialize();
    setOffset(offset() + stream.position());
    return std::move(*value);
}

fn::Value PayloadReader::readAll()
{
    auto value = isAtEnd() ? fn::Value() : readValue();
    if (!isAtEnd()) throw fn::DataFormatException(fmt::format("{} bytes behind a payload", bytes().size() - offset()));
    finish();
    return value;
}

fn::AutoPtr<ObjectReference> PayloadReader::readObject(const fn::String& className, ReferenceFactory factory)
{
    if (takeNil()) return {};
    const auto begin = offset();
    std::int8_t type = 0;
    const auto size = beginExtension(type);
    if (type != extension::OBJECT || size != sizeof(ObjectId)) {
        setOffset(begin);
        fail("an object");
    }
    fn::MemoryInputStream stream(pass(size), size);
    const auto objectId = readObjectId(stream);
    if (factory) _host.registerFactory(className, factory, false);
    return decodeObject(objectId);
}

/// If one value cannot be made, the others still are: the message may be a call, whose caller must hear of the failure.
fn::Value PayloadReader::deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream)
{
    try {
        return decodeExtension(type, size, stream);
    } catch (...) {
        if (!_failure) _failure = std::current_exception();
        return {};
    }
}

fn::Value PayloadReader::decodeExtension(std::int8_t type, std::uint32_t size, fn::InputStream& stream)
{
    if (type != extension::OBJECT) return readPlainExtension(type, stream);
    if (!FN_ASSERT(size == sizeof(ObjectId), fn::sites::objectIdHasItsSize)) return {};
    return decodeObject(readObjectId(stream));
}

fn::AutoPtr<ObjectReference> PayloadReader::decodeObject(ObjectId objectId)
{
    if (_message && _objects.isNil()) _objects = _message->required(field::OBJECTS);
    auto object = _host.referenceTo(objectId, _objects.get(objectId).asString());
    if (object && !_objectIds.empty()) _made.push_back(object);
    return object;
}

} // namespace ipc

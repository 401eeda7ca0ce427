#include "base/exceptions.h"
#include "core/ipc/limits.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/object/object_reference.h"
#include "core/ipc/wire/detail/extension_data.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/wire/detail/message_fields.h"
#include "core/ipc/worker/detail/worker_link.h"
#include "core/ipc/worker/detail/worker_object_manager.h"
#include "core/ipc/worker/worker.h"
#include "core/services/fraction.h"
#include "core/services/typed_byte_array.h"
#include "foundation/assertion.h"
#include "foundation/mpack/deserializer.h"
#include "foundation/time/timestamp.h"

// The codec of payloads: shared objects become ids, ids become references of their classes, and messages are counted.

namespace ipc {
namespace {

/// The reference that stands for a value's object on the wire.
fn::AutoPtr<ObjectReference> referenceFor(const fn::Value& value)
{
    auto* object = value.objectPointer();
    if (auto* reference = dynamic_cast<ObjectReference*>(object)) return fn::AutoPtr(reference);
    auto reference = dynamic_cast<ObjectInstance&>(*object).localReference();
    if (!reference) throw fn::RuntimeException("An object can not be sent any more: it is being destroyed");
    return reference;
}

[[noreturn]] void throwUnsupported(const fn::Value& value)
{
    throw fn::with(fn::DataFormatException("Unsupported value type"), fn::DetailInfo { value.detailInfo() });
}

fn::String describe(const ObjectHost* host)
{
    if (!host) return "no worker";
    return host->isAlive() ? fmt::format("worker {} ({})", host->workerId(), host->worker().displayName())
                           : fmt::format("worker {}", host->workerId());
}

} // namespace

// --- Encoding

void WorkerObjectManager::send(WorkerId target, ObjectId objectId, const fn::Value& payload)
{
    sendPayload(target, objectId, [&](auto& serializer) { serializer.serialize(payload); });
}

void WorkerObjectManager::send(WorkerId target, ObjectId objectId, const MessageFields& payload)
{
    sendPayload(target, objectId, [&](auto& serializer) { serializer.serializeMap(payload); });
}

template <typename Write> void WorkerObjectManager::sendPayload(WorkerId target, ObjectId objectId, Write write)
{
    if (!isAlive()) return;
    const auto self = [this, &write](fn::OutputStream& stream) { return encode(stream, write); };
    countSent(_link.sendMessage(target, objectId, self));
}

/// Has `write(fn::mpack::Serializer&)` encode a payload into `stream`. Gives the shared objects that it mentions, by ObjectId,
/// with their class names; nil if there is none.
template <typename Write> fn::Value WorkerObjectManager::encode(fn::OutputStream& stream, Write& write)
{
    fn::Value objects;
    const Scope scope(_objects, objects);
    fn::mpack::Serializer serializer(stream, this);
    serializer.setMaxValues(limits::payloadValues);
    write(serializer);
    return objects;
}

/// Counts one more message for each of the worker's own instances among `objects`.
void WorkerObjectManager::countSent(const fn::Value& objects)
{
    if (objects.empty()) return;
    for (const auto& [key, className] : objects.entries()) {
        if (const auto sent = instance(key.to<ObjectId>())) sent->increateUsageCount();
    }
}

void WorkerObjectManager::checkSendable(const fn::Value& value) const
{
    if (value.isBoxed<core::Fraction>() || value.isBoxed<core::TypedByteArray>() || value.isBoxed<fn::Timestamp>())
        return;
    if (!value.isObject()) throwUnsupported(value);
    const auto* object = value.objectPointer();
    if (const auto* reference = dynamic_cast<const ObjectReference*>(object))
        checkOwner(reference->_host.get());
    else if (const auto* instance = dynamic_cast<const ObjectInstance*>(object))
        checkOwner(instance->_host.get());
    else
        throwUnsupported(value);
}

void WorkerObjectManager::checkOwner(const ObjectHost* owner) const
{
    if (owner == this) return;
    throw fn::RuntimeException(fmt::format("An object of {} can not be sent by {}", describe(owner), describe(this)));
}

std::int8_t WorkerObjectManager::typeForValue(const fn::Value& value)
{
    if (value.isObject()) {
        const auto* object = value.objectPointer();
        if (const auto* reference = dynamic_cast<const ObjectReference*>(object))
            return reference->_isOutdated ? fn::mpack::typeNil : extension::OBJECT;
        return dynamic_cast<const ObjectInstance*>(object) ? extension::OBJECT : -1;
    }
    if (value.isBoxed<core::Fraction>()) return extension::FRACTION;
    if (value.isBoxed<core::TypedByteArray>()) return extension::TYPED_BYTE_ARRAY;
    return -1;
}

std::uint32_t WorkerObjectManager::serializedLengthForValue(const fn::Value& value)
{
    return value.isObject() ? sizeof(ObjectId) : ValueSerializer::serializedLengthForValue(value);
}

void WorkerObjectManager::serializeValue(const fn::Value& value, fn::OutputStream& stream)
{
    if (value.isBoxed<core::Fraction>()) {
        value.boxed<core::Fraction>().serialize(stream);
    } else if (value.isBoxed<core::TypedByteArray>()) {
        value.boxed<core::TypedByteArray>().serialize(stream);
    } else {
        const auto reference = referenceFor(value);
        requireConnectedOwner(reference->objectId());
        checkOwner(reference->_host.get());
        writeObjectId(stream, reference->objectId());
        if (_objects->has(reference->objectId())) return;
        if (reference->local() && reference->_instance->usageCount() >= std::int32_t(limits::uses)) {
            throw fn::RangeException("An object has been sent more often than can be counted");
        }
        _objects->set(reference->objectId(), reference->className());
    }
}

// --- Decoding

WorkerObjectManager::Decoded WorkerObjectManager::decode(const MessageView& message)
{
    if (!message.has(field::PAYLOAD)) {
        if (message.has(field::OBJECTS)) countReceived(message.objectIds());
        return {};
    }
    const auto objectIds = message.objectIds();
    auto objects = objectIds.empty() ? fn::Value() : message.required(field::OBJECTS);
    const Scope scope(_objects, objects);
    std::vector<fn::AutoPtr<ObjectReference>> made; // Held until they are counted, since decoding may drop them.
    const Scope madeScope(_made, made);
    Decoded decoded;
    const Scope failureScope(_failure, decoded.failure);
    try {
        auto stream = message.payload();
        fn::mpack::Deserializer deserializer(stream, this);
        deserializer.setMaxValues(limits::payloadValues);
        if (auto value = deserializer.deserialize()) decoded.payload = std::move(*value);
    } catch (...) {
        countReceived(objectIds);
        throw;
    }
    countReceived(objectIds);
    return decoded;
}

/// The dispatcher has counted the listed objects: each reference counts the message; without a reference it is released at once.
void WorkerObjectManager::countReceived(std::span<const ObjectId> objectIds)
{
    for (const auto objectId : objectIds) {
        if (ownerOf(objectId) == _workerId) continue;
        if (const auto received = reference(objectId)) {
            // A local one counts no messages. It is found only if its instance was made before the worker had an id.
            if (!received->local()) received->increaseUsageCount();
        } else if (!_deadWorkers.contains(ownerOf(objectId))) {
            sendRelease(objectId, 1);
        }
    }
}

/// If one value cannot be made, the others still are: the message may be a call, whose caller must hear of the failure.
fn::Value WorkerObjectManager::deserializeValue(std::int8_t type, std::uint32_t size, fn::InputStream& stream)
{
    try {
        return decodeExtension(type, size, stream);
    } catch (...) {
        if (!*_failure) *_failure = std::current_exception();
        return {};
    }
}

fn::Value WorkerObjectManager::decodeExtension(std::int8_t type, std::uint32_t size, fn::InputStream& stream)
{
    switch (type) {
    case extension::OBJECT:
        if (!FN_ASSERT(size == sizeof(ObjectId), fn::sites::objectIdHasItsSize)) return {};
        return decodeObject(readObjectId(stream));
    case extension::FRACTION: return core::Fraction::deserialize(stream);
    case extension::TYPED_BYTE_ARRAY: return core::TypedByteArray::deserialize(stream);
    default: return {};
    }
}

fn::Value WorkerObjectManager::decodeObject(ObjectId objectId)
{
    if (ownerOf(objectId) == _workerId) {
        const auto own = instance(objectId);
        if (!FN_ASSERT(own, fn::sites::ownObjectIsThere)) return {};
        return own->localReference();
    }
    const auto known = reference(objectId);
    if (known && !isOutgrown(*known)) return known;
    auto created = createReference(objectId, known ? known->className() : _objects->get(objectId).asString());
    if (created) _made->push_back(created);
    return created;
}

} // namespace ipc

#include "core/ipc/object/payload_writer.h"
#include "base/exceptions.h"
#include "core/ipc/limits.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/wire/detail/extension_data.h"
#include "core/ipc/worker/worker.h"
#include "core/services/fraction.h"
#include "core/services/typed_byte_array.h"
#include "foundation/time/timestamp.h"

namespace ipc {
namespace {

/// The reference that stands for a value's object on the wire.
fn::AutoPtr<ObjectReference> referenceFor(fn::Object* object)
{
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

PayloadWriter::PayloadWriter(
    fn::OutputStream& stream, const ObjectHost& host, std::vector<fn::AutoPtr<ObjectReference>>* held)
    : Serializer(stream, this),
      _host(host),
      _held(held)
{
    setMaxValues(limits::payloadValues);
}

PayloadWriter::~PayloadWriter() = default;

void PayloadWriter::writeObject(const fn::AutoPtr<ObjectReference>& reference)
{
    if (!reference || reference->_isOutdated) return writeNil();
    beginExtension(extension::OBJECT, sizeof(ObjectId));
    note(*reference);
}

void PayloadWriter::writeObject(const fn::AutoPtr<ObjectInstance>& instance)
{
    if (!instance) return writeNil();
    writeObject(referenceFor(instance.get()));
}

void PayloadWriter::embed(const EncodedPayload& payload)
{
    stream().write(payload.bytes.data(), payload.bytes.size());
    for (const auto& object : payload.objects) noteObject(*object);
}

/// Writes the reference's id, and lists it.
void PayloadWriter::note(ObjectReference& reference)
{
    writeObjectId(stream(), reference.objectId());
    noteObject(reference);
}

void PayloadWriter::noteObject(ObjectReference& reference)
{
    const auto objectId = reference.objectId();
    requireConnectedOwner(objectId);
    checkOwner(reference._host.get(), _host);
    if (_held) _held->emplace_back(&reference);
    if (_objects.has(objectId)) return;
    if (reference.local() && reference._instance->usageCount() >= std::int32_t(limits::uses)) {
        throw fn::RangeException("An object has been sent more often than can be counted");
    }
    _objects.set(objectId, reference.className());
}

void PayloadWriter::checkSendable(const fn::Value& value, const ObjectHost& host)
{
    if (value.isBoxed<core::Fraction>() || value.isBoxed<core::TypedByteArray>() || value.isBoxed<fn::Timestamp>())
        return;
    if (!value.isObject()) throwUnsupported(value);
    const auto* object = value.objectPointer();
    if (const auto* reference = dynamic_cast<const ObjectReference*>(object))
        checkOwner(reference->_host.get(), host);
    else if (const auto* instance = dynamic_cast<const ObjectInstance*>(object))
        checkOwner(instance->_host.get(), host);
    else
        throwUnsupported(value);
}

void PayloadWriter::checkOwner(const ObjectHost* owner, const ObjectHost& sender)
{
    if (owner == &sender) return;
    throw fn::RuntimeException(
        fmt::format("An object of {} can not be sent by {}", describe(owner), describe(&sender)));
}

std::int8_t PayloadWriter::typeForValue(const fn::Value& value)
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

std::uint32_t PayloadWriter::serializedLengthForValue(const fn::Value& value)
{
    return value.isObject() ? sizeof(ObjectId) : ValueSerializer::serializedLengthForValue(value);
}

void PayloadWriter::serializeValue(const fn::Value& value, fn::OutputStream& stream)
{
    if (value.isBoxed<core::Fraction>())
        value.boxed<core::Fraction>().serialize(stream);
    else if (value.isBoxed<core::TypedByteArray>())
        value.boxed<core::TypedByteArray>().serialize(stream);
    else
        note(*referenceFor(value.objectPointer()));
}

} // namespace ipc

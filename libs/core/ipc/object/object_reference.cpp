#include "core/ipc/object/object_reference.h"
#include "base/debug.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/object/detail/local_delivery.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/object/payload_reader.h"
#include "core/ipc/wire/detail/message_fields.h"
#include "core/ipc/worker/worker.h"
#include "foundation/assertion.h"
#include "foundation/unhandled_exception.h"

namespace ipc {

ObjectReferenceInitializer::ObjectReferenceInitializer(
    ObjectHost* host, ObjectId objectId, fn::AutoPtr<ObjectInstance> instance, fn::String className)
    : host(host),
      objectId(objectId),
      instance(std::move(instance)),
      className(std::move(className))
{
}

ObjectReferenceInitializer::ObjectReferenceInitializer(const ObjectReferenceInitializer& other)
    : ObjectReferenceInitializer(other.host, other.objectId, other.instance, other.className)
{
}

ObjectReferenceInitializer::~ObjectReferenceInitializer() = default;

ConstructionHold::ConstructionHold(ObjectReferenceInitializer& initializer) { initializer.hold = this; }

ConstructionHold::~ConstructionHold()
{
    if (!_reference) return;
    _reference->_constructionHold = nullptr;
    _reference->release();
}

ObjectReferenceInitializer ObjectReference::_dummyInitializer;

ObjectReference::ObjectReference(ObjectReferenceInitializer& initializer)
    : _host(initializer.host),
      _objectId(initializer.objectId),
      _instance(initializer.instance),
      _className(initializer.className)
{
    if (initializer.hold && !initializer.hold->_reference) {
        _constructionHold = initializer.hold;
        _constructionHold->_reference = this;
        retain();
    }
    if (_host) _host->registerReference(*this);
}

ObjectReference::~ObjectReference()
{
    if (_constructionHold) _constructionHold->_reference = nullptr; // A derived constructor has thrown.
    if (_host) _host->unregisterReference(this);
}

void ObjectReference::deleteInstance()
{
    if (!_host)
        delete this;
    else
        _host->loop().postDeletion([this] { delete this; });
}

fn::RunLoop& ObjectReference::loop() const { return _host->loop(); }

bool ObjectReference::hasWorker() const { return _host && _host->isAlive(); }

ObjectHost& ObjectReference::host() const { return *_host; }

Worker& ObjectReference::worker() const
{
    if (!_host) fn::internal::throwNullPointer(typeid(Worker));
    return _host->worker();
}

fn::String ObjectReference::className() const
{
    return _className.empty() ? fn::debug::demangleTypeName(typeid(*this).name()) : _className;
}

fn::String ObjectReference::toString() const
{
    return "ObjectReference (" + className() + ", "
        + fn::String::numberHEX(reinterpret_cast<std::uintptr_t>(this), 0, ' ') + ")";
}

void ObjectReference::sendMessage(const fn::Value& value)
{
    if (!hasWorker()) return;
    if (!local()) {
        if (_dead) return; // The object id may name an object of a later worker.
        _host->send(ownerOf(_objectId), _objectId, [&](PayloadWriter& writer) { writer.serialize(value); });
        return;
    }
    loop().post([instance = _instance, source = _host->workerId(),
                    message = replaceInstanesWithReferences(value, *_host)] { instance->onMessage(source, message); });
}

void ObjectReference::sendFields(const MessageFields& fields)
{
    if (local())
        sendMessage(fields.toMap());
    else if (hasWorker() && !_dead)
        _host->send(ownerOf(_objectId), _objectId, [&](PayloadWriter& writer) { writer.serializeMap(fields); });
}

void ObjectReference::sendCall(const CallHead& head, PayloadSource content)
{
    if (!hasWorker() || _dead) return;
    if (!local()) {
        _host->send(ownerOf(_objectId), _objectId, [&](PayloadWriter& writer) { head.write(writer, content); });
        return;
    }
    // The message goes before the instance, which holds the host.
    loop().post([instance = _instance, message = _host->localMessage(head, content)] {
        PayloadReader reader(*instance->_host, message->content);
        instance->receive(message->source, message->head, reader);
    });
}

void ObjectReference::receive(PayloadReader& payload)
{
    if (_payloadReceiver) return _payloadReceiver->onPayload(ownerOf(_objectId), CallFields(payload));
    const auto message = payload.readAll();
    receive(message, payload.failure());
}

void ObjectReference::receive(const CallHead& head, PayloadReader& content)
{
    if (_payloadReceiver) return _payloadReceiver->onPayload(ownerOf(_objectId), CallFields(head, content));
    const auto message = head.toMessage(content.readAll());
    receive(message, content.failure());
}

void ObjectReference::receive(const fn::Value& message, const std::exception_ptr& failure)
{
    if (!failure) [[likely]]
        return onMessage(message);
    auto* const callable = dynamic_cast<CallableObjectReference*>(this);
    if (!callable || !callable->failCall(message, failure)) std::rethrow_exception(failure);
}

void ObjectReference::onMessage(const fn::Value&) { }
void ObjectReference::onObjectDead() { }

void ObjectReference::increaseUsageCount()
{
    if (!FN_ASSERT(!_instance, fn::sites::onlyRemoteIsCounted)) return;
    ++_usageCount;
}

void ObjectReference::notifyObjectDead()
{
    _objectDeadSignal.fireOnce();
    try {
        onObjectDead();
    } catch (...) {
        fn::unhandledException(); // Others are to hear of the death as well.
    }
    // An override may not have called the base class, which rejects pending calls.
    if (auto* callable = dynamic_cast<CallableObjectReference*>(this)) callable->rejectPendingCalls();
}

} // namespace ipc

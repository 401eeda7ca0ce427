#include "core/ipc/object/object_reference.h"
#include "base/debug.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/object/detail/local_delivery.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/worker/detail/worker_object_manager.h"
#include "core/ipc/worker/worker.h"
#include "foundation/assertion.h"
#include "foundation/unhandled_exception.h"

namespace ipc {

ObjectReferenceInitializer::ObjectReferenceInitializer(
    WorkerObjectManager* manager, ObjectId objectId, fn::AutoPtr<ObjectInstance> instance, fn::String className)
    : manager(manager),
      objectId(objectId),
      instance(std::move(instance)),
      className(std::move(className))
{
}

ObjectReferenceInitializer::ObjectReferenceInitializer(const ObjectReferenceInitializer& other)
    : ObjectReferenceInitializer(other.manager, other.objectId, other.instance, other.className)
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
    : _manager(initializer.manager),
      _objectId(initializer.objectId),
      _instance(initializer.instance),
      _className(initializer.className)
{
    if (initializer.hold && !initializer.hold->_reference) {
        _constructionHold = initializer.hold;
        _constructionHold->_reference = this;
        retain();
    }
    if (_manager) _manager->registerReference(*this);
}

ObjectReference::~ObjectReference()
{
    if (_constructionHold) _constructionHold->_reference = nullptr; // A derived constructor has thrown.
    if (_manager) _manager->unregisterReference(this);
}

void ObjectReference::deleteInstance()
{
    if (!_manager)
        delete this;
    else
        _manager->loop().postDeletion([this] { delete this; });
}

fn::RunLoop& ObjectReference::loop() const { return _manager->loop(); }

bool ObjectReference::hasWorker() const { return _manager && _manager->isAlive(); }

WorkerObjectManager& ObjectReference::manager() const { return *_manager; }

Worker& ObjectReference::worker() const
{
    if (!_manager) fn::internal::throwNullPointer(typeid(Worker));
    return _manager->worker();
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
        _manager->send(ownerOf(_objectId), _objectId, value);
        return;
    }
    loop().post(
        [instance = _instance, source = _manager->workerId(),
            message = replaceInstanesWithReferences(value, *_manager)] { instance->onMessage(source, message); });
}

void ObjectReference::sendFields(MessageFields fields)
{
    if (local())
        sendMessage(toMap(fields));
    else if (hasWorker() && !_dead)
        _manager->send(ownerOf(_objectId), _objectId, fields);
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

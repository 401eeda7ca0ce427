#include "core/ipc/object/object_instance.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/detail/call_fields.h"
#include "core/ipc/object/detail/local_delivery.h"
#include "core/ipc/object/detail/object_host.h"
#include "core/ipc/object/payload_reader.h"
#include "core/ipc/wire/detail/message_fields.h"
#include "core/ipc/worker/worker.h"
#include "foundation/assertion.h"
#include <algorithm>

namespace ipc {

/// Holds a new instance until the loop's next turn, so that a release in its constructor does not delete it, and longer while
/// messages that its constructor has sent wait to leave. If a derived constructor throws, the instance disarms the task.
class ObjectInstance::ConstructionTask final : public fn::RefCountedBase {
public:
    explicit ConstructionTask(ObjectInstance* instance) : _instance(instance) { }
    ~ConstructionTask() override
    {
        if (_instance) _instance->_constructionTask = nullptr;
    }

    void run()
    {
        if (_instance) _instance->_ready = true;
    }

    void run(fn::Task& task)
    {
        if (_instance) task();
    }

    void disarm() { static_cast<void>(_instance.leak()); } // It is being destroyed, and needs no release.

private:
    fn::AutoPtr<ObjectInstance> _instance;
};

ObjectInstance::ObjectInstance(Worker& worker) : _host(&worker.objectHost()), _objectId(_host->nextObjectId())
{
    const auto task = fn::makeAuto<ConstructionTask>(this);
    _constructionTask = task.get();
    _host->registerInstance(*this);
    loop().post([task] { task->run(); });
}

ObjectInstance::~ObjectInstance()
{
    if (_constructionTask) _constructionTask->disarm();
    _host->unregisterInstance(this);
}

void ObjectInstance::deleteInstance()
{
    loop().postDeletion([this] { delete this; });
}

Worker& ObjectInstance::worker() const { return _host->worker(); }

ObjectHost& ObjectInstance::host() const { return *_host; }

fn::RunLoop& ObjectInstance::loop() const { return _host->loop(); }

fn::AutoPtr<ObjectReference> ObjectInstance::localReference()
{
    if (auto reference = _localReference.lock()) return reference;
    if (!tryRetain()) return {};
    ObjectReferenceInitializer initializer(
        _host.get(), _objectId, fn::AutoPtr<ObjectInstance>::adopt(this), fn::String());
    const ConstructionHold hold(initializer);
    auto reference = createReference(initializer);
    _localReference = reference;
    return reference;
}

void ObjectInstance::sendMessage(WorkerId workerId, const fn::Value& value)
{
    if (!_ready) {
        afterConstruction([this, workerId, value] { sendMessage(workerId, value); });
        return;
    }
    if (!_host->isAlive()) return;
    if (workerId != _host->workerId())
        _host->send(workerId, _objectId, [&](PayloadWriter& writer) { writer.serialize(value); });
    if (workerId == NO_WORKER_ID || workerId == _host->workerId()) deliverLocally(value);
}

void ObjectInstance::afterConstruction(fn::Task task)
{
    if (!_constructionTask) return; // The loop has ended before it ran the task.
    loop().post(
        [construction = fn::AutoPtr(_constructionTask), task = std::move(task)]() mutable { construction->run(task); });
}

void ObjectInstance::sendFields(WorkerId workerId, const MessageFields& fields)
{
    const bool hasLocalReceiver = workerId == _host->workerId() || (workerId == NO_WORKER_ID && _localReference.lock());
    if (_ready && !hasLocalReceiver)
        _host->send(workerId, _objectId, [&](PayloadWriter& writer) { writer.serializeMap(fields); });
    else
        sendMessage(workerId, fields.toMap());
}

void ObjectInstance::deliverLocally(const fn::Value& value)
{
    auto reference = _localReference.lock();
    if (!reference) return;
    loop().post([reference = std::move(reference), message = replaceInstanesWithReferences(value, *_host)] {
        reference->onMessage(message);
    });
}

void ObjectInstance::sendCall(WorkerId workerId, const CallHead& head, PayloadSource content)
{
    if (!_ready) {
        afterConstruction([this, workerId, head, encoded = _host->encode(content)] {
            sendCall(workerId, head, [&](PayloadWriter& writer) { writer.embed(encoded); });
        });
        return;
    }
    if (!_host->isAlive()) return;
    const bool isToAll = workerId == NO_WORKER_ID;
    if (workerId != _host->workerId())
        _host->send(workerId, _objectId, [&](PayloadWriter& writer) { head.write(writer, content); });
    if (!isToAll && workerId != _host->workerId()) return;
    auto reference = _localReference.lock();
    if (!reference) return;
    loop().post([reference = std::move(reference), message = _host->localMessage(head, content)] {
        PayloadReader reader(*reference->_host, message->content);
        reference->receive(message->head, reader);
    });
}

void ObjectInstance::receive(WorkerId source, PayloadReader& payload)
{
    if (_payloadReceiver) return _payloadReceiver->onPayload(source, CallFields(payload));
    const auto message = payload.readAll();
    receive(source, message, payload.failure());
}

void ObjectInstance::receive(WorkerId source, const CallHead& head, PayloadReader& content)
{
    if (_payloadReceiver) return _payloadReceiver->onPayload(source, CallFields(head, content));
    const auto message = head.toMessage(content.readAll());
    receive(source, message, content.failure());
}

void ObjectInstance::receive(WorkerId source, const fn::Value& message, const std::exception_ptr& failure)
{
    if (!failure) [[likely]]
        return onMessage(source, message);
    auto* const callable = dynamic_cast<CallableObjectInstance*>(this);
    if (!callable || !callable->failCall(source, message, failure)) std::rethrow_exception(failure);
}

void ObjectInstance::onMessage(WorkerId, const fn::Value&) { }

fn::AutoPtr<ObjectReference> ObjectInstance::createReference(ObjectReferenceInitializer& initializer)
{
    return fn::makeAuto<ObjectReference>(initializer);
}

void ObjectInstance::increateUsageCount()
{
    ++_usageCount;
    retain();
}

void ObjectInstance::decreaseUsageCount()
{
    --_usageCount;
    release();
}

void ObjectInstance::releaseUsage(std::int32_t count)
{
    // If a dispatcher releases more than this worker has sent, the holds of local users must stay.
    const auto due = std::min(count, _usageCount);
    for (std::int32_t i = 0; i < due; ++i) decreaseUsageCount();
    FN_ASSERT(count >= 0 && count == due, fn::sites::releasedInstanceIsHeld);
}

} // namespace ipc

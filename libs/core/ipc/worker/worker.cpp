#include "core/ipc/worker/worker.h"
#include "base/exceptions.h"
#include "base/idle_memory.h"
#include "core/ipc/limits.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/registry.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/worker/idle_termination_private.h"
#include "foundation/assertion.h"
#include "foundation/logging/logging.h"
#include "foundation/unhandled_exception.h"

namespace ipc {
namespace {

constexpr const char* site = "libs/core/ipc/worker";

// So long a worker that ends waits for the dispatcher to see it. One that is alive takes a part of a millisecond.
constexpr auto closingTime = fn::Duration::milliseconds(200);

const fn::logging::Category& factoryCategory()
{
    static const auto& category =
        fn::logging::CategoryManager::instance().getCategory("core.ipc.ObjectReferenceFactory");
    return category;
}

/// What a reference that nobody registered a class for reports.
const fn::String& plainClassName()
{
    static const fn::String name = ObjectReference::classNameOf<ObjectReference>();
    return name;
}

} // namespace

Worker::Delegate::~Delegate() = default;

Worker::Worker(Delegate& delegate, fn::RunLoop& loop, const fn::String& pipePath, const fn::String& displayName,
    const fn::String& tag, bool idleTermination)
    : _idleTermination(std::make_unique<IdleTermination>(*this)),
      _delegate(delegate),
      _loop(loop),
      _pipePath(pipePath),
      _displayName(displayName),
      _tag(tag),
      _hasOwnProcess(idleTermination),
      _messageHelper(limits::workerFrameBytes),
      _objectManager(fn::makeAuto<WorkerObjectManager>(*this, loop))
{
    _messageHelper.setFrameHandler([this](const FrameBody& body) { return onFrame(body); });
    _messageHelper.onEOS().connect([this] { onConnectionLost(); }).detach();
    _messageHelper.onReadError().connect([this](const fn::uv::Status&) { onConnectionLost(); }).detach();
    ObjectReferenceInitializer initializer { _objectManager.get(), REGISTRY_OBJECT_ID, {}, fn::String() };
    _registry = fn::makeAuto<Registry>(initializer);
}

Worker::~Worker()
{
    endConnection();
    _objectManager->close();
}

void Worker::connect()
{
    if (_pipe || _hasEnded) throw fn::RuntimeException("A worker connects once; make a new one");
    _pipe = fn::makeAuto<fn::uv::PipeStream>(_loop.uvLoop(), false);
    _pipe->connect(_pipePath, [this, manager = _objectManager](const fn::uv::Status& status) {
        if (manager->worker() && !_hasEnded) onConnected(status);
    });
}

void Worker::onConnected(const fn::uv::Status& status)
{
    try {
        status.throwOnError();
        _messageHelper.setStream(_pipe);
        sendMessageToDispatcher(type::HELLO, { { field::DISPLAY_NAME, _displayName }, { field::TAG, _tag } });
    } catch (...) {
        fn::unhandledException();
        onConnectionLost();
    }
}

void Worker::stop()
{
    if (!_pipe) fn::internal::throwNullPointer(typeid(fn::uv::PipeStream));
    if (_hasEnded) return;
    closePipe({});
    const auto manager = _objectManager; // Who hears of it may destroy this worker.
    manager->connectionLost();
}

void Worker::close(folly::Function<void()> closed)
{
    const auto manager = _objectManager; // Who hears of it may destroy this worker.
    if (_pipe && !_hasEnded)
        closePipe(std::move(closed));
    else if (closed)
        _loop.post(std::move(closed));
    endConnection();
    manager->close();
}

void Worker::endConnection()
{
    _hasEnded = true;
    _isConnected = false;
    _idleTermination->stop();
}

void Worker::closePipe(folly::Function<void()> closed)
{
    endConnection();
    _messageHelper.dropStream();
    _pipe->closeGently(closingTime, std::move(closed));
}

void Worker::onConnectionLost()
{
    if (_hasEnded) return;
    const auto manager = _objectManager; // What follows may destroy this worker; the manager tells.
    const bool hasOwnProcess = _hasOwnProcess;
    endConnection();
    _pipe->close();
    manager->connectionLost();
    if (manager->worker()) tellAboutToQuit();
    if (manager->worker() && hasOwnProcess) _delegate.workerRequestsTermination(*this);
}

void Worker::tellAboutToQuit()
{
    if (std::exchange(_toldAboutToQuit, true)) return;
    _delegate.aboutToQuit(*this);
}

void Worker::adoptRegistry(const fn::AutoPtr<ObjectInstance>& registry)
{
    _registry->_instance = registry;
    registry->_localReference = fn::AutoPtr<ObjectReference>(_registry);
}

// --- Messages

bool Worker::onFrame(const FrameBody& body)
{
    const auto message = MessageView::parse(body);
    if (!message) return false;
    try {
        onMessage(*message);
    } catch (...) {
        fn::unhandledException();
    }
    return true;
}

void Worker::onMessage(const MessageView& message)
{
    switch (message.integer<std::int64_t>(field::TYPE)) {
    case type::HELLO:
        _objectManager->setWorkerId(message.integer<WorkerId>(field::WORKER_ID));
        _isConnected = true;
        _delegate.workerDidConnect(*this);
        break;
    case type::PING:
        sendMessageToDispatcher(type::PONG);
        fn::giveBackIdleMemory(); // Every process has a worker, and the hub's pulse comes seldom.
        break;
    case type::MESSAGE: onObjectMessage(message); break;
    case type::INSTANCE_RELEASE: onInstanceRelease(message); break;
    case type::WORKER_DEAD: onWorkerDead(message); break;
    case type::QUIT: tellAboutToQuit(); break;
    case type::WORKER_ID_REUSED: _objectManager->workerIdReused(message.integer<WorkerId>(field::WORKER_ID)); break;
    default: break;
    }
}

/// Hands the payload to the object concerned.
void Worker::onObjectMessage(const MessageView& message)
{
    const auto objectId = message.integer<ObjectId>(field::OBJECT_ID);
    const auto source = message.integer<WorkerId>(field::SOURCE_WORKER_ID);
    const auto manager = _objectManager; // Decoding tells of deaths: as a receiver, who hears may destroy this worker.
    const auto [payload, failure] = manager->decode(message);
    if (failure) [[unlikely]] {
        if (manager->worker()) failCall(objectId, source, payload, failure);
    } else if (ownerOf(objectId) == manager->workerId()) {
        if (const auto instance = manager->instance(objectId)) instance->onMessage(source, payload);
    } else if (const auto reference = manager->reference(objectId)) {
        reference->onMessage(payload);
    }
    if (manager->worker()) _idleTermination->scheduleTermination();
}

/// Ends the call that a payload which is not whole belongs to. For anything else nobody waits: throws `failure`.
void Worker::failCall(
    ObjectId objectId, WorkerId source, const fn::Value& payload, const std::exception_ptr& failure) const
{
    bool isCall = false;
    if (ownerOf(objectId) == workerId()) {
        const auto instance = fn::dynamicCast<CallableObjectInstance>(_objectManager->instance(objectId));
        isCall = instance && instance->failCall(source, payload, failure);
    } else {
        const auto reference = fn::dynamicCast<CallableObjectReference>(_objectManager->reference(objectId));
        isCall = reference && reference->failCall(payload, failure);
    }
    if (!isCall) std::rethrow_exception(failure);
}

void Worker::onInstanceRelease(const MessageView& message)
{
    const auto objectId = message.integer<ObjectId>(field::OBJECT_ID);
    const auto count = message.integer<std::int32_t>(field::USAGE_COUNT);
    const auto instance = _objectManager->instance(objectId);
    if (!FN_ASSERT(instance, site, 169, "onMessage", "instance")) return;
    instance->releaseUsage(count);
    _idleTermination->scheduleTermination();
}

void Worker::onWorkerDead(const MessageView& message)
{
    const auto manager = _objectManager; // Who hears of it may destroy this worker.
    const auto id = message.integer<WorkerId>(field::WORKER_ID);
    manager->workerDied(id);
    if (manager->worker()) _workerDied.fire(id);
}

std::size_t Worker::maxSendBytes() const
{
    return workerId() == 0 ? limits::workerFrameBytes - limits::forwardingOverhead : limits::hubFrameBytes;
}

void Worker::sendMessageToDispatcher(int type, std::initializer_list<MessageField> fields)
{
    if (!_hasEnded) _messageHelper.send(encodeMessage(type, fields, maxSendBytes()));
}

void Worker::sendMessageToWorker(WorkerId target, ObjectId objectId, const fn::Value& payload)
{
    sendPayload(target, objectId, [&](auto& serializer) { serializer.serialize(payload); });
}

void Worker::sendMessageToWorker(WorkerId target, ObjectId objectId, MessageFields payload)
{
    sendPayload(target, objectId, [&](auto& serializer) { serializer.serializeMap(payload); });
}

template <typename Write> void Worker::sendPayload(WorkerId target, ObjectId objectId, Write write)
{
    if (_hasEnded) return;
    if (!_isConnected) throw fn::RuntimeException("The worker is not connected yet");
    MessageWriter writer(objectId, target);
    const auto objects = _objectManager->encode(writer.payload(), write);
    _messageHelper.send(writer.finish(objects, maxSendBytes()));
    _objectManager->countSent(objects);
}

// --- Reference classes

void Worker::registerFactory(const fn::String& className, Factory factory)
{
    _referenceClasses.factories[className] = factory;
}

fn::AutoPtr<ObjectReference> Worker::createReference(
    const fn::String& className, ObjectReferenceInitializer& initializer)
{
    return _referenceClasses.createInstance(className, initializer);
}

fn::AutoPtr<ObjectReference> Worker::ObjectReferenceFactory::createInstance(
    const fn::String& className, ObjectReferenceInitializer& initializer)
{
    const auto factory = factories.find(className);
    if (factory != factories.end()) return factory->second(initializer);
    // The dispatcher's own worker sees objects of every class through the registry.
    if (initializer.manager->workerId() != 0 && className != plainClassName()) {
        const auto& category = factoryCategory();
        if (category.wants(2)) {
            fn::logging::writeFormatted(category, 2, {},
                { site, __LINE__, "ipc::Worker::ObjectReferenceFactory::createInstance" },
                "Couldn't create reference for class {}. Did you call 'registerObjectReferenceClass()'?",
                fmt::make_format_args(className));
        }
    }
    return fn::makeAuto<ObjectReference>(initializer);
}

} // namespace ipc

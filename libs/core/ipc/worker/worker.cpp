#include "core/ipc/worker/worker.h"
#include "base/exceptions.h"
#include "base/idle_memory.h"
#include "core/ipc/limits.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/registry.h"
#include "core/ipc/wire/object_message.h"
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
    _messageHelper.onMessage().connect([this](const fn::Value& message, unsigned int) { onMessage(message); }).detach();
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
        _messageHelper.send(fn::Value::map(
            { { field::TYPE, type::HELLO }, { field::DISPLAY_NAME, _displayName }, { field::TAG, _tag } }));
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

void Worker::onMessage(const fn::Value& message)
{
    switch (message.at(field::TYPE).to<std::int64_t>()) {
    case type::HELLO:
        _objectManager->setWorkerId(message.at(field::WORKER_ID).to<WorkerId>());
        _isConnected = true;
        _delegate.workerDidConnect(*this);
        break;
    case type::PING:
        sendMessageToDispatcher(fn::Value::map({ { field::TYPE, type::PONG } }));
        fn::giveBackIdleMemory(); // Every process has a worker, and the hub's pulse comes seldom.
        break;
    case type::MESSAGE: onObjectMessage(message); break;
    case type::INSTANCE_RELEASE: onInstanceRelease(message); break;
    case type::WORKER_DEAD: onWorkerDead(message); break;
    case type::QUIT: tellAboutToQuit(); break;
    case type::WORKER_ID_REUSED: _objectManager->workerIdReused(message.at(field::WORKER_ID).to<WorkerId>()); break;
    default: break;
    }
}

/// The plain case of a MESSAGE, without a map in between. Anything else is left to `onMessage()`.
bool Worker::onFrame(const FrameBody& body)
{
    const auto message = ObjectMessage::parse(body);
    if (!message || !message->source) return false;
    try {
        deliver(message->objectId, *message->source, [&] { return _objectManager->decode(*message); });
    } catch (...) {
        fn::unhandledException();
    }
    return true;
}

void Worker::onObjectMessage(const fn::Value& message)
{
    const auto objectId = message.at(field::OBJECT_ID).to<ObjectId>();
    const auto source = message.at(field::SOURCE_WORKER_ID).to<WorkerId>();
    deliver(objectId, source, [&] { return _objectManager->decode(message); });
}

/// Hands the payload that `decode` gives to the object concerned.
template <typename Decode> void Worker::deliver(ObjectId objectId, WorkerId source, Decode decode)
{
    const auto manager = _objectManager; // Decoding tells of deaths: as a receiver, who hears may destroy this worker.
    const auto [payload, failure] = decode();
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

void Worker::onInstanceRelease(const fn::Value& message)
{
    const auto objectId = message.at(field::OBJECT_ID).to<ObjectId>();
    const auto count = message.at(field::USAGE_COUNT).to<std::int32_t>();
    const auto instance = _objectManager->instance(objectId);
    if (!FN_ASSERT(instance, site, 169, "onMessage", "instance")) return;
    instance->releaseUsage(count);
    _idleTermination->scheduleTermination();
}

void Worker::onWorkerDead(const fn::Value& message)
{
    const auto manager = _objectManager; // Who hears of it may destroy this worker.
    const auto id = message.at(field::WORKER_ID).to<WorkerId>();
    manager->workerDied(id);
    if (manager->worker()) _workerDied.fire(id);
}

std::size_t Worker::maxSendBytes() const
{
    return workerId() == 0 ? limits::workerFrameBytes - limits::forwardingOverhead : limits::hubFrameBytes;
}

void Worker::sendMessageToDispatcher(const fn::Value& message)
{
    if (!_hasEnded) _messageHelper.send(message, {}, maxSendBytes());
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
    ObjectMessageWriter writer;
    const auto objects = _objectManager->encode(writer.payload(), write);
    _messageHelper.send(writer.finish(objectId, target, objects, maxSendBytes()));
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

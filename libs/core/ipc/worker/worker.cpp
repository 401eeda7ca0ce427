#include "core/ipc/worker/worker.h"
#include "base/exceptions.h"
#include "base/idle_memory.h"
#include "core/ipc/limits.h"
#include "core/ipc/object/object_instance.h"
#include "core/ipc/object/payload_reader.h"
#include "core/ipc/registry.h"
#include "core/ipc/wire/detail/message_codec.h"
#include "core/ipc/wire/message_helper.h"
#include "core/ipc/worker/detail/idle_termination.h"
#include "core/ipc/worker/detail/worker_link.h"
#include "core/ipc/worker/detail/worker_object_manager.h"
#include "foundation/assertion.h"
#include "foundation/unhandled_exception.h"
#include "foundation/uv/pipe_stream.h"

namespace ipc {
namespace {

// How long an ending worker waits for the dispatcher to close the pipe, which takes a fraction of a millisecond if it is alive.
constexpr auto closingTime = fn::Duration::milliseconds(200);

} // namespace

class Worker::Link final : public WorkerLink {
public:
    explicit Link(Worker& worker) : _worker(worker) { }

    fn::AutoPtr<fn::uv::PipeStream> pipe; // Empty until `Worker::connect()`.
    MessageHelper messages { limits::workerFrameBytes };

    fn::Value sendMessage(WorkerId target, ObjectId objectId, Payload payload) override
    {
        if (_worker._state == State::Ended) return {};
        if (!_worker.isConnected()) throw fn::RuntimeException("The worker is not connected yet");
        MessageWriter writer(objectId, target);
        auto objects = payload(writer.payload());
        messages.send(writer.finish(objects, _worker.maxSendBytes()));
        return objects;
    }

    void sendRelease(ObjectId objectId, std::int32_t count) override
    {
        if (!_worker.isConnected()) return;
        _worker.send(type::REFERENCE_RELEASE, { { field::OBJECT_ID, objectId }, { field::USAGE_COUNT, count } });
    }

private:
    Worker& _worker;
};

Worker::Delegate::~Delegate() = default;

Worker::Worker(Delegate& delegate, fn::RunLoop& loop, const fn::String& pipePath, const fn::String& displayName,
    const fn::String& tag, bool idleTermination)
    : _delegate(delegate),
      _loop(loop),
      _pipePath(pipePath),
      _displayName(displayName),
      _tag(tag),
      _hasOwnProcess(idleTermination),
      _idleTermination(std::make_unique<IdleTermination>(*this, delegate, idleTermination)),
      _link(std::make_unique<Link>(*this)),
      _objectManager(fn::makeAuto<WorkerObjectManager>(*this, *_link, loop))
{
    _link->messages.setFrameHandler([this](const FrameBody& body) { return onFrame(body); });
    _link->messages.onEOS().connect([this] { onConnectionLost(); }).detach();
    _link->messages.onReadError().connect([this](const fn::uv::Status&) { onConnectionLost(); }).detach();
    ObjectReferenceInitializer initializer { _objectManager.get(), REGISTRY_OBJECT_ID, {}, fn::String() };
    _registry = fn::makeAuto<Registry>(initializer);
}

Worker::~Worker()
{
    endConnection();
    _objectManager->close();
}

ObjectHost& Worker::objectHost() const { return *_objectManager; }

WorkerObjectManager& managerOf(const Worker& worker) { return static_cast<WorkerObjectManager&>(worker.objectHost()); }

std::size_t Worker::queuedBytes() const { return _link->pipe ? _link->pipe->queuedBytes() : 0; }

WorkerId Worker::workerId() const { return _objectManager->workerId(); }

bool Worker::isConnected() const
{
    // A dispatcher that stops sends QUIT also to workers whose HELLO it has not answered.
    return _state == State::Connected || (_state == State::Quitting && workerId() != NO_WORKER_ID);
}

void Worker::registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces)
{
    _objectManager->registerFactory(className, factory, replaces);
}

// --- The connection

void Worker::connect()
{
    if (_state != State::New) throw fn::RuntimeException("A worker connects once; make a new one");
    _state = State::Joining;
    _link->pipe = fn::makeAuto<fn::uv::PipeStream>(_loop.uvLoop(), false);
    _link->pipe->connect(_pipePath, _lifetime.guard([this](const fn::uv::Status& status) {
        if (_state != State::Ended) onConnected(status);
    }));
}

void Worker::onConnected(const fn::uv::Status& status)
{
    try {
        status.throwOnError();
        _link->messages.setStream(_link->pipe);
        send(type::HELLO, { { field::DISPLAY_NAME, _displayName }, { field::TAG, _tag } });
    } catch (...) {
        fn::unhandledException();
        onConnectionLost();
    }
}

void Worker::stop()
{
    if (!_link->pipe) fn::internal::throwNullPointer(typeid(fn::uv::PipeStream));
    if (_state == State::Ended) return;
    closePipe({});
    const fn::AutoPtr manager = _objectManager; // A callback may destroy this worker.
    manager->connectionLost();
}

void Worker::close(folly::Function<void()> closed)
{
    _lifetime.end();
    if (_link->pipe && !_link->pipe->isClosed() && _objectManager->isAlive())
        closePipe(std::move(closed)); // Also where `stop()` has begun to, for which nobody waits.
    else if (closed)
        _loop.post(std::move(closed));
    endConnection();
    const fn::AutoPtr manager = _objectManager; // A callback may destroy this worker.
    manager->close();
}

void Worker::endConnection()
{
    _state = State::Ended;
    _idleTermination->stop();
}

void Worker::closePipe(folly::Function<void()> closed)
{
    endConnection();
    _link->messages.dropStream();
    _link->pipe->closeGently(closingTime, std::move(closed));
}

void Worker::onConnectionLost()
{
    if (_state == State::Ended) return;
    const bool wasTold = _state == State::Quitting;
    const auto watch = _lifetime.watch();
    endConnection();
    _link->pipe->close();
    const fn::AutoPtr manager = _objectManager;
    manager->connectionLost();
    if (watch && !wasTold) _delegate.aboutToQuit(*this);
    if (watch && _hasOwnProcess) _delegate.workerRequestsTermination(*this);
}

void Worker::tellAboutToQuit()
{
    if (_state == State::Quitting) return;
    _state = State::Quitting;
    _delegate.aboutToQuit(*this);
}

// --- What comes

bool Worker::onFrame(const FrameBody& body)
{
    const MessageView message(body);
    if (!message.isValid()) return false;
    try {
        onMessage(message);
    } catch (...) {
        fn::unhandledException();
    }
    return true;
}

void Worker::onMessage(const MessageView& message)
{
    switch (message.integer<std::int64_t>(field::TYPE)) {
    case type::HELLO: onHello(message); break;
    case type::PING:
        send(type::PONG);
        fn::giveBackIdleMemory(); // The dispatcher sends PINGs to every process, and seldom.
        break;
    case type::MESSAGE: onObjectMessage(message); break;
    case type::INSTANCE_RELEASE: onInstanceRelease(message); break;
    case type::WORKER_DEAD: _objectManager->workerDied(message.integer<WorkerId>(field::WORKER_ID)); break;
    case type::QUIT: tellAboutToQuit(); break;
    case type::WORKER_ID_REUSED: _objectManager->workerIdReused(message.integer<WorkerId>(field::WORKER_ID)); break;
    default: break;
    }
}

void Worker::onHello(const MessageView& message)
{
    _objectManager->setWorkerId(message.integer<WorkerId>(field::WORKER_ID));
    if (_state == State::Joining) _state = State::Connected;
    _delegate.workerDidConnect(*this);
}

/// Hands the payload to the instance that the message is for, or to the reference.
void Worker::onObjectMessage(const MessageView& message)
{
    const auto objectId = message.integer<ObjectId>(field::OBJECT_ID);
    const auto source = message.integer<WorkerId>(field::SOURCE_WORKER_ID);
    // Reading may tell references that their object is dead. Their callbacks, or the receiver's, may destroy this worker.
    const auto watch = _lifetime.watch();
    const fn::AutoPtr manager = _objectManager;
    try {
        PayloadReader payload(*manager, message);
        if (ownerOf(objectId) == manager->workerId()) {
            if (const auto instance = manager->instance(objectId)) instance->receive(source, payload);
        } else if (const auto reference = manager->reference(objectId)) {
            reference->receive(payload);
        }
    } catch (...) {
        fn::unhandledException(); // The worker was not idle all the same.
    }
    if (watch) _idleTermination->scheduleTermination();
}

void Worker::onInstanceRelease(const MessageView& message)
{
    const auto objectId = message.integer<ObjectId>(field::OBJECT_ID);
    const auto count = message.integer<std::int32_t>(field::USAGE_COUNT);
    const auto instance = _objectManager->instance(objectId);
    if (!FN_ASSERT(instance, fn::sites::releasedInstanceIsHeld)) return;
    instance->releaseUsage(count);
    _idleTermination->scheduleTermination();
}

// --- What leaves

void Worker::send(int type, std::initializer_list<MessageField> fields)
{
    if (_state != State::Ended) _link->messages.send(encodeMessage(type, fields, maxSendBytes()));
}

std::size_t Worker::maxSendBytes() const
{
    return workerId() == 0 ? limits::workerFrameBytes - limits::forwardingOverhead : limits::hubFrameBytes;
}

} // namespace ipc

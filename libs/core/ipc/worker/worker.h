#pragma once
#include "base/lifetime.h"
#include "core/ipc/object/object_dead_exception.h"
#include "core/ipc/object/object_reference.h"
#include <folly/Function.h>
#include <memory>

namespace fn::uv {
class Status;
}

namespace ipc {

struct FrameBody;
class IdleTermination;
class MessageView;
class Registry;
class WorkerObjectManager;
struct MessageField;

/// One participant of the object system: connects to the dispatcher's pipe, says HELLO, receives its WorkerId, and is from
/// then on the only way its objects reach other workers. Objects may be created once it is connected.
///
///     new --connect()--> joining --HELLO is answered--> connected --QUIT--> quitting
///                           |  '------------QUIT-----------------------------^ |
///                           '---- pipe ends, stop(), close() ---> ended <------'   (from each state)
///
/// Everything runs on its run loop's thread; the loop outlives the worker. Objects may outlive the worker: they send nothing
/// any more, and calls on them fail with `ipc::ObjectDeadException`.
class FN_EXPORT Worker final {
public:
    /// The owner of a worker. The worker calls it on the worker's loop.
    class FN_EXPORT Delegate {
    public:
        virtual void workerDidConnect(Worker& worker) = 0; ///< The worker has got its WorkerId.
        virtual bool wantsIdleTermination(Worker&) { return false; } ///< Whether the worker watches for idleness.
        virtual bool workerCanTerminate(Worker&) { return false; } ///< Whether the idle worker may end.
        virtual void workerRequestsTermination(Worker&) { } ///< It asks to be ended: idle, or cut off.
        virtual void aboutToQuit(Worker&) { } ///< The dispatcher is stopping or gone. Told once.
        virtual ~Delegate();
    };

    /// `tag` tells the module manager which launch this is. `idleTermination`: the worker has a process of its own and may
    /// ask to be ended when nobody has needed it for 10 minutes, or when its dispatcher has gone.
    Worker(Delegate& delegate, fn::RunLoop& loop, const fn::String& pipePath, const fn::String& displayName,
        const fn::String& tag, bool idleTermination);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker(); ///< Sends nothing; calls that are still pending are rejected.

    /// Starts connecting; `Delegate::workerDidConnect()` follows. A failure goes to `fn::unhandledException()` and ends
    /// like a lost connection. A worker connects once: a second call, also after its end, throws `fn::RuntimeException`.
    void connect();

    /// Ends the connection: the dispatcher tells everybody that this worker has died, other workers' objects are dead here.
    /// Messages that were sent still leave, messages that arrive are dropped; the pipe is closed within 200 ms.
    /// Before `connect()`: `fn::NullPointerException`.
    void stop();

    /// Ends the connection like `stop()`, and this worker's part of the object system: its own objects are dead for local users,
    /// too, the holds for other workers are dropped, and later calls fail as after the worker's destruction. To be called before
    /// the worker's owner is destroyed, while the loop runs and everything that callbacks of pending calls and death signals use
    /// exists; the destructor comes too late for them. `closed`, if given, is called when the pipe is closed.
    void close(folly::Function<void()> closed = {});

    WorkerId workerId() const; ///< NO_WORKER_ID until connected.
    const fn::String& displayName() const { return _displayName; } ///< For people and logs.
    fn::RunLoop& loop() const { return _loop; } ///< The loop that the worker and all its objects live on.
    bool isConnected() const; ///< From `workerDidConnect()` on, until the connection ends.

    /// Finds objects by class. Calls before the worker is connected are rejected, since no answer could reach it.
    const fn::AutoPtr<Registry>& registry() const { return _registry; }

    /// Bytes that wait until the dispatcher takes them. There is no bound: a fast producer should look at this number.
    std::size_t queuedBytes() const;

    /// From now on references to objects of T's class arrive as T instead of a plain ObjectReference, also where a plain one is
    /// there already. Replaces an earlier registration. `Registry::getInstance<T>()` registers T unless its name is registered.
    template <typename T> void registerObjectReferenceClass()
    {
        registerFactory(ObjectReference::classNameOf<T>(), makeReference<T>, true);
    }

    // For the library's own classes.
    /// Makes a reference of one class.
    using ReferenceFactory = fn::AutoPtr<ObjectReference> (*)(ObjectReferenceInitializer&);
    /// The factory of class T.
    template <typename T> static fn::AutoPtr<ObjectReference> makeReference(ObjectReferenceInitializer& initializer)
    {
        return fn::AutoPtr<ObjectReference>(new T(initializer));
    }
    /// Makes references of a class by `factory`, unless there is one and it is not to be replaced.
    void registerFactory(const fn::String& className, ReferenceFactory factory, bool replaces);
    ObjectHost& objectHost() const; ///< What the worker's objects share of it.

private:
    class Link;
    enum class State { New, Joining, Connected, Quitting, Ended };

    void onConnected(const fn::uv::Status& status);
    bool onFrame(const FrameBody& body);
    void onMessage(const MessageView& message);
    void onHello(const MessageView& message);
    void onObjectMessage(const MessageView& message);
    void onInstanceRelease(const MessageView& message);
    void endConnection();
    void closePipe(folly::Function<void()> closed);
    void onConnectionLost();
    void tellAboutToQuit();
    void send(int type, std::initializer_list<MessageField> fields = {});
    std::size_t maxSendBytes() const; // The largest frame body that the dispatcher takes.

    Delegate& _delegate;
    fn::RunLoop& _loop;
    const fn::String _pipePath;
    const fn::String _displayName;
    const fn::String _tag;
    const bool _hasOwnProcess;
    State _state = State::New;
    std::unique_ptr<IdleTermination> _idleTermination;
    fn::AutoPtr<Registry> _registry;
    std::unique_ptr<Link> _link;
    fn::AutoPtr<WorkerObjectManager> _objectManager;
    fn::Lifetime _lifetime; // Ends with `close()`.
};

} // namespace ipc

#pragma once
#include "base/lifetime.h"
#include "core/ipc/interface/typed_reference.h"
#include "core/ipc/worker/worker.h"
#include "foundation/signal.h"
#include "foundation/work_context.h"
#include <deque>

namespace ipc::internal {

/// What an `ipc::Remote` does, whatever its interface.
class FN_EXPORT RemoteBase : protected Peer {
public:
    RemoteBase(const RemoteBase&) = delete;
    RemoteBase& operator=(const RemoteBase&) = delete;

    bool isThere() const { return _reference && !_reference->dead(); } ///< Whether the object is known and alive.
    /// The object was found: the first time, and each time after it had gone.
    fn::Signal<>& onCame() { return _onCame; }
    fn::Signal<>& onGone() { return _onGone; } ///< The object's worker has gone. It is looked for again.

protected:
    RemoteBase(
        Worker& worker, void* interface, const fn::String& className, fn::Duration timeLimit, fn::Duration patience);
    ~RemoteBase();

    void look(); ///< Unless the object is there, or is being looked for.
    const fn::AutoPtr<TypedReference>& current() const { return _reference; }

    virtual fn::Promise<fn::AutoPtr<TypedReference>> find(fn::Duration timeout) = 0;
    virtual void refreshProperties() = 0; ///< Those that are watched.

private:
    void peerCall(const fn::AutoPtr<PendingCall>& call, PayloadSource argument, fn::Duration limit) override;
    void peerListen() const override { }
    fn::RunLoop& peerLoop() const override { return _worker.loop(); }

    /// What a call needs to be sent later, or again.
    struct Request {
        EncodedPayload argument;
        fn::WorkContext context; // With the deadline of the call.
    };

    /// A call that waits for the object.
    struct Waiting {
        fn::AutoPtr<PendingCall> call;
        Request request;
        fn::Handle timer;
    };

    void wait(const fn::AutoPtr<PendingCall>& call, Request request);
    void send(const fn::AutoPtr<PendingCall>& call, Request request);
    void onTimeout(const fn::AutoPtr<PendingCall>& call, fn::Duration patience);
    void onFound(fn::AutoPtr<TypedReference> found);
    void onNotFound(const std::exception_ptr& failure);
    void onDeath();

    Worker& _worker;
    void* const _interface;
    const fn::String& _className;
    const fn::Duration _timeLimit;
    const fn::Duration _patience;
    fn::AutoPtr<TypedReference> _reference; // The latest one; it may be dead.
    fn::Promise<fn::AutoPtr<TypedReference>> _search; // Null if the object is not looked for.
    fn::Handle _death;
    std::deque<Waiting> _waiting;
    fn::Signal<> _onCame;
    fn::Signal<> _onGone;
    fn::Lifetime _lifetime;
};

} // namespace ipc::internal

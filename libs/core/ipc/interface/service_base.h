#pragma once
#include "core/ipc/interface/interface.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/payload_reader.h"
#include "foundation/coroutine/scope.h"
#include "foundation/signal.h"
#include <map>
#include <memory>
#include <span>
#include <vector>

namespace ipc::internal {

class ServiceBase;

/// How a call comes to the function of a service, or to a property. `argument` stands at the argument.
struct MethodEntry {
    std::string_view name;
    std::size_t arguments; // How many.
    void (*call)(ServiceBase& service, const CallableObjectInstance::CallContext& context, PayloadReader& argument);
};

/// A call whose answer is a promise that is pending.
class FN_EXPORT ServedCall {
public:
    using Context = CallableObjectInstance::CallContext;
    using Table = std::multimap<Context, std::unique_ptr<ServedCall>>; // Several may have no number.

    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;
    virtual ~ServedCall();
    virtual void cancel() = 0; ///< The promise; nothing is answered any more.

protected:
    ServedCall() = default;

private:
    friend class ServiceBase;
    Table::iterator _place; // While `_isServed`.
    bool _isServed = false;
};

/// A service of an interface: the part that does not depend on the interface.
class FN_EXPORT ServiceBase : public CallableObjectInstance, protected Peer, private PayloadReceiver {
public:
    ServiceBase(Worker& worker, const fn::String& className);

    /// Owns what the service does beside its calls: coroutines, connections, timers. It ends before any member of the derived class
    /// does, when the last reference to the service has gone.
    fn::Scope& scope() { return _scope; }

    /// Fires when a worker has died, with its id, which may be given to another one then; with NO_WORKER_ID when the own worker's
    /// connection has ended, and all others have gone with it. Calls of theirs that were under way are cancelled by then.
    fn::Signal<WorkerId>& onCallerGone();

    /// Which call is being served. In a coroutine up to its first await: who needs it later takes a copy.
    CallContext callContext() const;

    /// Whether the caller still waits for the answer: it lives, has not cancelled, and was not answered.
    bool isWaiting(const CallContext& context) const;

protected:
    ~ServiceBase() override;
    void deleteInstance() override;
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) final;
    void onMethodCallCancelled(const CallContext& context) final;

    virtual std::span<const MethodEntry> methods() const = 0;
    virtual fn::Value description() const = 0;

private:
    class Serving;
    template <typename R> friend class PromisedCall;
    template <typename S, typename M, typename Signature> friend struct Caller;
    template <typename S, typename I, typename M> friend void appendMethod(std::vector<MethodEntry>& all);

    void peerFire(std::string_view event, PayloadSource argument) override;
    fn::RunLoop& peerLoop() const override { return loop(); }

    // For the functions in the table.
    void answer(const CallContext& context, PayloadSource result);
    void fail(const CallContext& context, const std::exception_ptr& failure);
    bool serve(const CallContext& context, std::unique_ptr<ServedCall> call); // False: it is cancelled already.
    std::unique_ptr<ServedCall> endServed(ServedCall& call); // Null if it was cancelled.

    void onPayload(WorkerId source, const CallFields& fields) override;
    void dispatch(const CallContext& context, std::string_view name, PayloadReader& argument);
    void listenForDeaths();
    void onWorkerDied(WorkerId workerId);
    void end();
    void cancelFrom(ServedCall::Table::iterator place);
    Serving* servingOf(const CallContext& context) const;

    const fn::String& _className;
    Serving* _serving = nullptr; // The innermost call that is on the stack.
    ServedCall::Table _served; // Those that are answered later.
    fn::Signal<WorkerId> _onCallerGone;
    fn::Handle _deaths; // Set once somebody is to be told of them.
    fn::Scope _scope;
};

} // namespace ipc::internal

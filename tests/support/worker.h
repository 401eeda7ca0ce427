#pragma once
#include "core/ipc/dispatcher/dispatcher.h"
#include "core/ipc/object/callable_object_instance.h"
#include "core/ipc/object/callable_object_reference.h"
#include "core/ipc/registry.h"
#include "core/ipc/worker/worker.h"
#include "support/run_until.h"
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace test {

/// A delegate that counts what it is told and answers as it is told to.
class Delegate : public ipc::Worker::Delegate {
public:
    void workerDidConnect(ipc::Worker&) override { ++connects; }
    bool wantsIdleTermination(ipc::Worker&) override { return wantsIdle; }
    bool workerCanTerminate(ipc::Worker&) override { return mayTerminate; }
    void workerRequestsTermination(ipc::Worker&) override { ++terminationRequests; }
    void aboutToQuit(ipc::Worker&) override { ++quits; }

    int connects = 0;
    int terminationRequests = 0;
    int quits = 0;
    bool wantsIdle = false;
    bool mayTerminate = false;
};

/// A worker with its delegate.
class Client {
public:
    Client(fn::RunLoop& loop, const fn::String& pipePath, const char* name = "Client", bool ownProcess = false)
        : worker(std::make_unique<ipc::Worker>(delegate, loop, pipePath, name, fn::String(), ownProcess))
    {
        worker->connect();
    }
    bool isConnected() const { return delegate.connects > 0; }

    Delegate delegate;
    std::unique_ptr<ipc::Worker> worker;
};

/// A shared object whose calls are answered by the test.
class ServiceReference : public ipc::CallableObjectReference {
public:
    using CallableObjectReference::CallableObjectReference;
    std::vector<std::pair<fn::String, fn::Value>> events;

protected:
    void onEvent(const fn::String& name, const fn::Value& argument) override { events.emplace_back(name, argument); }
};

class Service : public ipc::CallableObjectInstance {
public:
    explicit Service(ipc::Worker& worker) : CallableObjectInstance(worker) { ++alive; }
    ~Service() override { --alive; }

    struct Call {
        CallContext context;
        fn::String name;
        fn::Value argument;
    };
    std::vector<Call> calls;
    std::function<void(const Call&)> answer; ///< Default: "echo" gives the argument back, others wait.
    static inline int alive = 0;
    int cancelled = 0; ///< Calls.

    using CallableObjectInstance::broadcastEvent;
    using CallableObjectInstance::sendError;
    using CallableObjectInstance::sendResult;
    using CallableObjectInstance::sendUnknownMethod;

protected:
    fn::AutoPtr<ipc::ObjectReference> createReference(ipc::ObjectReferenceInitializer& initializer) override
    {
        return fn::makeAuto<ServiceReference>(initializer);
    }
    void onMethodCall(const CallContext& context, const fn::String& name, const fn::Value& argument) override;
    void onMethodCallCancelled(const CallContext&) override { ++cancelled; }
};

/// What became of a promise. A promise that settles after the test has let go of it is no harm.
class Outcome {
public:
    bool isOver() const { return _state->fulfilled || _state->failure; }
    bool isFulfilled() const { return _state->fulfilled; }
    fn::Value& value() { return _state->value; }
    const std::exception_ptr& failure() const { return _state->failure; }
    std::string error() const; ///< "ClassName: message", or "".

    /// Attaches to `promise`, from inside the running loop.
    template <typename T> void observe(const fn::Promise<T>& promise)
    {
        promise.then(
            [state = _state](auto&&... value) { // None of a Promise<void>.
                state->fulfilled = true;
                ((state->value = fn::Value(std::move(value))), ...);
            },
            [state = _state](std::exception_ptr failure) { state->failure = std::move(failure); });
    }

private:
    struct State {
        bool fulfilled = false;
        fn::Value value;
        std::exception_ptr failure;
    };
    std::shared_ptr<State> _state = std::make_shared<State>();
};

/// What becomes of the promise that `call` gives, which is made on the loop.
template <typename Call> Outcome outcomeOf(fn::RunLoop& loop, Call call)
{
    Outcome outcome;
    loop.post([&] { outcome.observe(call()); });
    EXPECT_TRUE(runUntil(loop, [&] { return outcome.isOver(); }));
    return outcome;
}

/// The object that others share as a T.
template <typename T> fn::AutoPtr<T> findInstance(fn::RunLoop& loop, ipc::Worker& worker)
{
    const auto find = [&] { return worker.registry()->template getInstance<T>(fn::Duration::seconds(20)); };
    return outcomeOf(loop, find).value().template object<T>();
}

} // namespace test

#pragma once
#include "core/ipc/message_bus.h"
#include "core/ipc/module_init_data.h"
#include "core/ipc/worker/worker.h"
#include <folly/Function.h>
#include <list>

namespace ipc {

/// Base class of a module's own code: what a module library creates in its entry point (see run_module.h), in a process of
/// its own or in the main process. It owns the module's worker, connects it, and makes the process's message bus the one
/// that spans all processes; then it is *connected*.
///
/// Everything runs on the thread of the default run loop.
class FN_EXPORT Module : public Worker::Delegate {
public:
    explicit Module(const ModuleInitData& data); ///< Starts connecting.
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() override;

    Worker& worker() { return _worker; }

    /// Runs the default run loop unless this thread already runs one (a module in the main process lives in that one).
    virtual void run();
    virtual void onConnected(); ///< Worker and message bus are ready; once. Default: nothing.
    virtual bool wantsIdleTermination(); ///< Whether the module's process may end when nobody needs it. Default: false.
    virtual bool canTerminate(); ///< The module's veto; asked only once connected. Default: false.
    virtual void terminate(); ///< Stops the default run loop; waits for nothing.
    virtual void onAboutToQuit(); ///< The application is ending, or the dispatcher has gone. Default: nothing.

private:
    /// What waits for the message bus of this process, in the order in which the modules connected.
    struct BusCallback {
        Module* module;
        folly::Function<void()> run;
    };
    static std::list<BusCallback> _messageBusInitializedCallbacks;
    static Module* _busStarter; // Who starts the bus for all of them; null when nobody does.

    void workerDidConnect(Worker& worker) override;
    bool wantsIdleTermination(Worker&) override { return wantsIdleTermination(); }
    bool workerCanTerminate(Worker&) override { return _connected && canTerminate(); }
    void workerRequestsTermination(Worker&) override { terminate(); }
    void aboutToQuit(Worker&) override { onAboutToQuit(); }

    static void startMessageBus();
    void initializeMessageBus();
    void becomeConnected();

    Worker _worker;
    fn::AutoPtr<MessageBus> _messageBus; // Only in the module that made the process's bus.
    bool _connected = false;
};

} // namespace ipc

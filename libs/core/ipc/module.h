#pragma once
#include "core/ipc/message_bus.h"
#include "core/ipc/module_init_data.h"
#include "core/ipc/worker/worker.h"
#include <folly/Function.h>
#include <list>
#include <memory>
#include <vector>

namespace ipc {

/// Base class of a module's own code: what a module library creates in its entry point (see run_module.h), in a process of
/// its own or in the main process. It owns the module's worker, connects it, and makes the process's message bus the one
/// that spans all processes; then it is *connected*. In a process other than the hub's one module starts the bus for all of
/// them; when it ends another one starts it anew, and what is posted until that has been answered stays in the process.
///
/// Everything runs on the thread of the default run loop. Whoever runs a module ends it with `endModule()` (run_module.h).
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
    /// The application is ending, or the dispatcher has gone; told once. Default: `terminate()` in a process of its own,
    /// nothing in the main process, whose loop is the application's.
    virtual void onAboutToQuit();

private:
    friend void endModule(std::unique_ptr<Module> module);

    /// What waits for the message bus of this process, in the order in which the modules connected.
    struct BusCallback {
        Module* module;
        folly::Function<void()> run;
    };
    /// The message bus of one process.
    struct BusStart {
        std::list<BusCallback> callbacks;
        Module* starter = nullptr; // Who starts it for all of them; null when nobody does.
        std::vector<Module*> connected; // One of them starts it anew when it ends with its module.
    };
    static BusStart& busStart();

    void workerDidConnect(Worker& worker) override;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual" // Who overrides the public one hides this one, to no harm.
    bool wantsIdleTermination(Worker&) override { return wantsIdleTermination(); }
#pragma GCC diagnostic pop
    bool workerCanTerminate(Worker&) override { return _connected && canTerminate(); }
    void workerRequestsTermination(Worker&) override { terminate(); }
    void aboutToQuit(Worker&) override { onAboutToQuit(); }

    static void startMessageBus();
    void initializeMessageBus();
    void leaveMessageBus();
    void becomeConnected();
    void close(folly::Function<void()> closed);

    Worker _worker;
    fn::AutoPtr<MessageBus> _messageBus; // Only in the module that made the process's bus.
    const bool _hasOwnProcess;
    bool _connected = false;
};

} // namespace ipc

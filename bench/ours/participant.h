#pragma once
#include "core/ipc/object/object_instance.h"
#include "core/ipc/registry.h"
#include "core/ipc/worker/worker.h"
#include "foundation/uv/loop.h"
#include "ours/stamped.h"
#include <functional>

namespace bench::ours {

/// A process at the hub.
class Participant final : ipc::Worker::Delegate {
public:
    explicit Participant(const Options& options)
        : _worker(*this, _loop, fn::String(options.text("address")), fn::String(options.role()), {}, false)
    {
    }

    ipc::Worker& worker() { return _worker; }

    /// Runs for the life of the process.
    void run(std::function<void()> onConnected)
    {
        _onConnected = std::move(onConnected);
        _worker.connect();
        _loop.run();
    }

    /// Finds the object of that class and hands it over once.
    template <typename T> void find(std::function<void(const fn::AutoPtr<T>&)> onFound)
    {
        _worker.registerObjectReferenceClass<T>();
        _worker.registry()
            ->template getInstance<T>(fn::Duration::seconds(10))
            .then(std::move(onFound), failing("getInstance"));
    }

    void publish(const fn::AutoPtr<ipc::ObjectInstance>& instance)
    {
        _worker.registry()->registerObject(instance, 0).then([] { announceReady(); }, failing("registerObject"));
    }

private:
    void workerDidConnect(ipc::Worker&) override { _onConnected(); }
    void aboutToQuit(ipc::Worker&) override { fail("the hub has gone"); }

    fn::uv::Loop _loop;
    ipc::Worker _worker;
    std::function<void()> _onConnected;
};

} // namespace bench::ours

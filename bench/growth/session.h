#pragma once
#include "core/ipc/registry.h"
#include "core/ipc/worker/worker.h"
#include "driver/driver.h"
#include "foundation/uv/loop.h"
#include "ours/stamped.h"
#include <functional>
#include <optional>

namespace bench::growth {

/// A worker that a plain sequence of steps can use: each step runs the loop until it is done.
class Session final : ipc::Worker::Delegate {
public:
    /// Connects. Several sessions may share a loop.
    Session(const Options& options, fn::uv::Loop& loop);

    ipc::Worker& worker() { return _worker; }
    fn::uv::Loop& loop() { return _loop; }

    template <typename T> T await(const fn::Promise<T>& promise, const char* step) requires(!std::is_void_v<T>)
    {
        std::optional<T> result;
        promise.then(
            [&](T&& value) {
                result = std::move(value);
                _loop.stop();
            },
            failing(step));
        _loop.run();
        if (!result) fail(std::string("stopped too early: ") + step);
        return *std::move(result);
    }
    void await(const fn::Promise<void>& promise, const char* step);

    /// Runs the loop until `isDone`, which is asked whenever something calls `loop().stop()`.
    void runUntil(const std::function<bool()>& isDone);
    void runFor(double seconds);
    [[noreturn]] void serve(); ///< Answers until the process is killed.

    /// The object of that class, once there is one.
    template <typename T> fn::AutoPtr<T> find()
    {
        _worker.registerObjectReferenceClass<T>();
        auto found = await(_worker.registry()->template getInstance<T>(fn::Duration::seconds(10)), "getInstance");
        if (!found) fail("the registry has given another class");
        return found;
    }

    void publish(const fn::AutoPtr<ipc::ObjectInstance>& instance);
    fn::Value call(ipc::CallableObjectReference& object, const char* method, const fn::Value& argument);

private:
    void workerDidConnect(ipc::Worker&) override;
    void aboutToQuit(ipc::Worker&) override { fail("the hub has gone"); }

    fn::uv::Loop& _loop;
    ipc::Worker _worker;
};

} // namespace bench::growth

#include "growth/session.h"

namespace bench::growth {

Session::Session(const Options& options, fn::uv::Loop& loop)
    : _loop(loop),
      _worker(*this, loop, fn::String(options.text("address")), fn::String(options.role()), {}, false)
{
    _worker.connect();
    runUntil([this] { return _worker.isConnected(); });
}

void Session::workerDidConnect(ipc::Worker&) { _loop.stop(); }

void Session::await(const fn::Promise<void>& promise, const char* step)
{
    bool isDone = false;
    promise.then(
        [&] {
            isDone = true;
            _loop.stop();
        },
        failing(step));
    _loop.run();
    if (!isDone) fail(std::string("stopped too early: ") + step);
}

void Session::runUntil(const std::function<bool()>& isDone)
{
    while (!isDone()) _loop.run();
}

void Session::runFor(double seconds)
{
    const auto delay = fn::Duration::microseconds(static_cast<std::int64_t>(seconds * 1e6));
    bool isOver = false;
    const auto timer = _loop.schedule(delay, [&] {
        isOver = true;
        _loop.stop();
    });
    runUntil([&] { return isOver; });
}

void Session::serve()
{
    for (;;) _loop.run();
}

void Session::publish(const fn::AutoPtr<ipc::ObjectInstance>& instance)
{
    await(_worker.registry()->registerObject(instance, 0), "registerObject");
}

fn::Value Session::call(ipc::CallableObjectReference& object, const char* method, const fn::Value& argument)
{
    return await(object.callMethod(method, argument), method);
}

} // namespace bench::growth

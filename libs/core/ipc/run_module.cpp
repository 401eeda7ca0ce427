#include "core/ipc/run_module.h"
#include "base/exceptions.h"
#include "foundation/system/process_local.h"
#include <vector>

namespace ipc {
namespace {

// The turns of the loop after a worker's end: far more than its tasks need, and a bound in case they keep posting one another.
constexpr int mostTurns = 100;
constexpr auto mostTime = fn::Duration::milliseconds(200);

std::vector<std::unique_ptr<Module>>& keptModules()
{
    static fn::ProcessLocal<std::vector<std::unique_ptr<Module>>> modules;
    return modules.get();
}

int& exitCode()
{
    static fn::ProcessLocal<int> code;
    return code.get();
}

/// The last turns of the default loop for a module: until the worker's pipe is closed, and then `mostTurns` that do not wait.
/// Reference-counted, since the pipe's callback may come when `endModule()` has returned.
struct LastTurns final : fn::RefCountedObject {
    void next()
    {
        if (isOver || ++turns > mostTurns) return finish();
        fn::RunLoop::defaultLoop().post([self = fn::AutoPtr(this)] { self->next(); });
    }

    void finish()
    {
        if (!std::exchange(isOver, true)) fn::RunLoop::defaultLoop().stop();
    }

    int turns = 0;
    bool isOver = false;
};

} // namespace

void endModule(std::unique_ptr<Module> module)
{
    if (module->scope().isInside()) {
        internal::keepModule(std::move(module));
        throw fn::RuntimeException("A module can not be ended inside one of its own coroutines");
    }
    auto& loop = fn::RunLoop::defaultLoop();
    const auto last = fn::makeAuto<LastTurns>();
    fn::Handle bound;
    loop.post([&] {
        bound = loop.schedule(mostTime, [last] { last->finish(); });
        module->close([last] { last->next(); });
    });
    // If the loop stops before `last` is over, other code has stopped it, which may have meant the run around this one.
    const bool isNested = fn::RunLoop::currentLoop() == &loop;
    bool wasStopped = false;
    for (loop.run(); !last->isOver; loop.run()) wasStopped = true;
    if (isNested && wasStopped) loop.stop();
}

void internal::keepModule(std::unique_ptr<Module> module) { keptModules().push_back(std::move(module)); }

void internal::setModuleExitCode(int code) { exitCode() = code; }
int moduleExitCode() { return exitCode(); }

void endModules()
{
    while (!keptModules().empty()) {
        auto module = std::move(keptModules().back());
        keptModules().pop_back();
        endModule(std::move(module));
    }
}

} // namespace ipc

#include "core/ipc/module.h"
#include "core/ipc/detail/module_parameters.h"
#include "core/ipc/interface/find.h"
#include "core/ipc/registry.h"
#include "core/ipc/run_module.h"
#include "foundation/assertion.h"
#include "foundation/logging/logging.h"
#include "foundation/run_loop.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc {
namespace {

constexpr auto busTimeout = fn::Duration::seconds(20);
constexpr auto parametersTimeout = fn::Duration::seconds(20);

FN_LOG_CATEGORY("ipc.module");

} // namespace

Module::BusStart& Module::busStart()
{
    static fn::ProcessLocal<BusStart> start;
    return start.get();
}

Module::Module(const ModuleInitData& data)
    : _worker(*this, fn::RunLoop::defaultLoop(), data.pipePath(), data.displayName(), data.workerTag(),
        data.separateProcess()),
      _hasOwnProcess(data.separateProcess()),
      _hasParameters(data.hasParameters()),
      _workerTag(data.workerTag())
{
    _worker.connect();
}

Module::~Module()
{
    (void)FN_ASSERT(_scope.hasEnded() || _scope.isEmpty(), fn::sites::moduleEndsItsScope);
    leaveMessageBus();
}

void Module::close(folly::Function<void()> closed)
{
    end();
    leaveMessageBus();
    _worker.close(std::move(closed));
}

void Module::leaveMessageBus()
{
    busStart().callbacks.remove_if([this](const BusCallback& callback) { return callback.module == this; });
    std::erase(busStart().connected, this);
    // The loop deletes the bus later, or never. Until there is another one, posted messages are to reach this process at least.
    if (_messageBus) fn::MessageBus::removeInstance(*_messageBus);
    if (busStart().starter == this)
        busStart().starter = nullptr; // The posted task lets another module make the bus.
    else if (!_messageBus)
        return;
    _messageBus.reset();
    fn::RunLoop::defaultLoop().post([] { startMessageBus(); });
}

void Module::run()
{
    if (!fn::RunLoop::currentLoop()) fn::RunLoop::defaultLoop().run(0);
}

void Module::terminate() { fn::RunLoop::defaultLoop().stop(); }

void Module::onConnected() { }
bool Module::wantsIdleTermination() { return false; }
bool Module::canTerminate() { return false; }

void Module::onAboutToQuit()
{
    if (_hasOwnProcess) terminate();
}

void Module::becomeConnected()
{
    _connected = true;
    busStart().connected.push_back(this);
    onConnected();
}

void Module::workerDidConnect(Worker&)
{
    if (_hasParameters)
        _scope.start(fetchParameters());
    else
        joinMessageBus();
}

fn::Promise<void> Module::fetchParameters()
{
    try {
        const auto source = co_await find<ModuleParameters>(_worker, parametersTimeout);
        _parameters = co_await source->get(_workerTag);
    } catch (const ObjectDeadException&) {
        co_return; // The hub has gone, and has this module end.
    } catch (const std::exception& exception) {
        fail(fmt::format("it can not fetch its parameters: {}", exception.what()));
        co_return;
    }
    // In a task, since `onConnected()` may end the module, which can not be done inside of its own coroutine.
    fn::RunLoop::defaultLoop().post(_scope.guard([this] { joinMessageBus(); }));
}

void Module::fail(const fn::String& why)
{
    FN_LOG(Warning, "Module {} can not run: {}", _worker.displayName(), why);
    if (!_hasOwnProcess) return;
    internal::setModuleExitCode(1);
    terminate();
}

void Module::joinMessageBus()
{
    // An installed bus may still wait for its sticky messages; then this module becomes connected when they have come.
    if (MessageBus::isInstalled() && !busStart().starter) {
        becomeConnected();
        return;
    }
    busStart().callbacks.push_back({ this, [this] { becomeConnected(); } });
    startMessageBus();
}

/// Lets one module make the bus for all of the process: those that wait for one, and those whose bus ended with its module.
void Module::startMessageBus()
{
    if (busStart().starter || MessageBus::isInstalled()) return;
    if (!busStart().callbacks.empty())
        busStart().starter = busStart().callbacks.front().module;
    else if (!busStart().connected.empty())
        busStart().starter = busStart().connected.front();
    else
        return;
    busStart().starter->initializeMessageBus();
}

/// If a step fails, the chain of promises ends there, and no waiting module becomes connected.
void Module::initializeMessageBus()
{
    _worker.registerObjectReferenceClass<MessageBus>();
    const auto found = _worker.registry()->getInstance<MessageBus>(busTimeout);
    // The chain ends with this module at the latest: the end of its worker rejects the pending calls.
    found
        .then([this](fn::AutoPtr<MessageBus>&& bus) {
            _messageBus = std::move(bus);
            fn::MessageBus::setInstance(*_messageBus);
            return _messageBus->getStickyMessages();
        })
        .then([] {
            // Each callback is taken out before it runs, since it may end modules, also its own. If it throws, the others run.
            while (!busStart().callbacks.empty()) {
                auto callback = std::move(busStart().callbacks.front().run);
                busStart().callbacks.pop_front();
                try {
                    callback();
                } catch (...) {
                    fn::unhandledException();
                }
            }
            busStart().starter = nullptr;
        });
}

} // namespace ipc

#include "core/ipc/module.h"
#include "core/ipc/registry.h"
#include "foundation/run_loop.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc {
namespace {

constexpr auto busTimeout = fn::Duration::seconds(20);

} // namespace

Module::BusStart& Module::busStart()
{
    static fn::ProcessLocal<BusStart> start;
    return start.get();
}

Module::Module(const ModuleInitData& data)
    : _worker(*this, fn::RunLoop::defaultLoop(), data.pipePath(), data.displayName(), data.workerTag(),
        data.separateProcess()),
      _hasOwnProcess(data.separateProcess())
{
    _worker.connect();
}

Module::~Module() { leaveMessageBus(); }

void Module::close(folly::Function<void()> closed)
{
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
        busStart().starter = nullptr; // Another module starts it anew.
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
    // While it starts, the bus is installed but its sticky messages have not come: modules are told when they have.
    if (MessageBus::isInstalled() && !busStart().starter) {
        becomeConnected();
        return;
    }
    busStart().callbacks.push_back({ this, [this] { becomeConnected(); } });
    startMessageBus();
}

/// One start serves all modules of the process: those that wait, and those whose bus has ended with another one.
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

/// Where a step fails the chain ends, and nobody becomes connected.
void Module::initializeMessageBus()
{
    _worker.registerObjectReferenceClass<MessageBus>();
    const auto found = _worker.registry()->getInstance<MessageBus>(busTimeout);
    // Ends with this module: destroying its worker rejects the calls on the way.
    found
        .then([this](fn::AutoPtr<MessageBus>&& bus) {
            _messageBus = std::move(bus);
            fn::MessageBus::setInstance(*_messageBus);
            return _messageBus->getStickyMessages();
        })
        .then([] {
            // Taken out one by one: a callback may end modules, its own among them. One that throws fails alone.
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

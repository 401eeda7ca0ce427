#include "core/ipc/module.h"
#include "core/ipc/registry.h"
#include "foundation/run_loop.h"
#include "foundation/unhandled_exception.h"
#include <algorithm>

namespace ipc {
namespace {

constexpr auto busTimeout = fn::Duration::seconds(20);

} // namespace

std::list<Module::BusCallback> Module::_messageBusInitializedCallbacks;
Module* Module::_busStarter = nullptr;
std::vector<Module*> Module::_connectedModules;

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
    _messageBusInitializedCallbacks.remove_if([this](const BusCallback& callback) { return callback.module == this; });
    std::erase(_connectedModules, this);
    // The bus is deleted on the loop, later or never: what is posted meanwhile is to reach this process at least.
    if (_messageBus) fn::MessageBus::removeInstance(*_messageBus);
    if (_busStarter == this)
        _busStarter = nullptr; // Another one begins anew.
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
    _connectedModules.push_back(this);
    onConnected();
}

void Module::workerDidConnect(Worker&)
{
    if (MessageBus::isInstalled()) {
        becomeConnected();
        return;
    }
    _messageBusInitializedCallbacks.push_back({ this, [this] { becomeConnected(); } });
    startMessageBus();
}

/// One start serves all modules of the process: those that wait, and those whose bus has ended with another one.
void Module::startMessageBus()
{
    if (_busStarter || MessageBus::isInstalled()) return;
    if (!_messageBusInitializedCallbacks.empty())
        _busStarter = _messageBusInitializedCallbacks.front().module;
    else if (!_connectedModules.empty())
        _busStarter = _connectedModules.front();
    else
        return;
    _busStarter->initializeMessageBus();
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
            while (!_messageBusInitializedCallbacks.empty()) {
                auto callback = std::move(_messageBusInitializedCallbacks.front().run);
                _messageBusInitializedCallbacks.pop_front();
                try {
                    callback();
                } catch (...) {
                    fn::unhandledException();
                }
            }
            _busStarter = nullptr;
        });
}

} // namespace ipc

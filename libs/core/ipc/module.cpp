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

Module::Module(const ModuleInitData& data)
    : _worker(*this, fn::RunLoop::defaultLoop(), data.pipePath(), data.displayName(), data.workerTag(),
        data.separateProcess())
{
    _worker.connect();
}

Module::~Module()
{
    _messageBusInitializedCallbacks.remove_if([this](const BusCallback& callback) { return callback.module == this; });
    if (_busStarter == this) { // Another one of those that wait begins anew.
        _busStarter = nullptr;
        fn::RunLoop::defaultLoop().post([] { startMessageBus(); });
    }
    // The bus is deleted on the loop, later or never: what is posted meanwhile is to reach this process at least.
    if (_messageBus) fn::MessageBus::removeInstance(*_messageBus);
    _messageBus.reset();
}

void Module::run()
{
    if (!fn::RunLoop::currentLoop()) fn::RunLoop::defaultLoop().run(0);
}

void Module::terminate() { fn::RunLoop::defaultLoop().stop(); }

void Module::onConnected() { }
bool Module::wantsIdleTermination() { return false; }
bool Module::canTerminate() { return false; }
void Module::onAboutToQuit() { }

void Module::becomeConnected()
{
    _connected = true;
    onConnected();
}

void Module::workerDidConnect(Worker&)
{
    if (dynamic_cast<MessageBus*>(&fn::MessageBus::instance())) {
        becomeConnected();
        return;
    }
    _messageBusInitializedCallbacks.push_back({ this, [this] { becomeConnected(); } });
    startMessageBus();
}

/// One start serves all modules of the process.
void Module::startMessageBus()
{
    if (_busStarter || _messageBusInitializedCallbacks.empty()) return;
    _busStarter = _messageBusInitializedCallbacks.front().module;
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

#include "foundation/message_bus.h"
#include "foundation/run_loop.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include <atomic>
#include <map>
#include <memory>
#include <unistd.h>

namespace fn {
namespace {

// The listeners of the process, whichever bus is installed. Used on the thread of the default loop alone.
struct Listeners {
    std::map<String, std::unique_ptr<MessageBus::MessageSignal>> signals;
    std::map<String, Value> stickyBodies;
};

Listeners& listeners()
{
    static ProcessLocal<Listeners> listeners;
    return listeners.get();
}

MessageBus& localBus()
{
    static ProcessLocal<MessageBus> bus;
    return bus.get();
}

/// Null means the local bus.
std::atomic<MessageBus*>& installedBus()
{
    static ProcessLocal<std::atomic<MessageBus*>> bus;
    return bus.get();
}

// The default loop belongs to the main thread, which is the bus thread also before and after the loop runs.
bool isBusThread()
{
    thread_local const bool isMainThread = gettid() == getpid();
    return isMainThread || RunLoop::currentLoop() == &RunLoop::defaultLoop();
}

// `name` is a copy, since a listener may destroy the object that the poster's name is part of.
void deliver(String name, const Value& body)
{
    const auto fire = [&](std::string_view listenedTo) {
        const auto found = listeners().signals.find(listenedTo);
        if (found != listeners().signals.end()) found->second->fire(name, body);
    };
    for (auto dot = name.view().find('.'); dot != std::string_view::npos; dot = name.view().find('.', dot + 1)) {
        fire(name.view().substr(0, dot));
    }
    fire(name);
}

} // namespace

MessageBus::~MessageBus() { removeInstance(*this); }

MessageBus& MessageBus::instance()
{
    auto* bus = installedBus().load();
    return bus ? *bus : localBus();
}

void MessageBus::setInstance(MessageBus& bus) { installedBus() = &bus; }

void MessageBus::removeInstance(MessageBus& bus)
{
    auto* expected = &bus;
    installedBus().compare_exchange_strong(expected, nullptr);
}

void MessageBus::repostStickyMessages()
{
    const auto bodies = listeners().stickyBodies; // A listener may post.
    for (const auto& [name, body] : bodies) {
        try {
            instance().postStickyMessage(name, body);
        } catch (...) {
            unhandledException(); // This body stays in this process; the others are still sent.
        }
    }
}

void MessageBus::postMessage(const String& name, Value body) { post(name, std::move(body), false); }

void MessageBus::postStickyMessage(const String& name, Value body) { post(name, std::move(body), true); }

void MessageBus::post(const String& name, Value body, bool sticky)
{
    if (isBusThread()) return sendMessage(name, std::move(body), sticky);
    // The bus that is installed when the task runs sends the message: this bus may have been destroyed.
    RunLoop::defaultLoop().post(
        [name, body = std::move(body), sticky]() mutable { instance().sendMessage(name, std::move(body), sticky); });
}

std::optional<Value> MessageBus::getStickyMessage(const String& name) const
{
    const auto found = listeners().stickyBodies.find(name);
    if (found == listeners().stickyBodies.end()) return std::nullopt;
    return found->second;
}

MessageBus::MessageSignal& MessageBus::onMessage(const String& name)
{
    auto& signal = listeners().signals[name];
    if (!signal) signal = std::make_unique<MessageSignal>();
    return *signal;
}

void MessageBus::sendMessage(const String& name, Value&& body, bool sticky) { receiveMessage(name, body, sticky); }

void MessageBus::receiveMessage(const String& name, const Value& body, bool sticky)
{
    if (&instance() != this) return;
    if (sticky) listeners().stickyBodies.insert_or_assign(name, body);
    deliver(name, body);
}

} // namespace fn

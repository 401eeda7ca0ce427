// What can break here: a listener that hears too much, too little, out of order or on another thread.
#include "foundation/message_bus.h"
#include "foundation/run_loop.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include <gmock/gmock.h>
#include <thread>

namespace {

using fn::MessageBus;
using testing::ElementsAre;
using Log = std::vector<std::string>;

fn::Handle listen(Log& log, const char* name)
{
    return MessageBus::instance().onMessage(name).connect([&log, name](const fn::String& posted, fn::Value body) {
        log.push_back(fmt::format("{}: {} {}", name, posted, body.toString()));
    });
}

TEST(MessageBus, IsHeardByANamespaceAndThoseAboveItFromGeneralToSpecial)
{
    Log log;
    std::vector<fn::Handle> listeners;
    for (const auto* name : { "bus.x", "bus.x.y.z", "bus.xy", "bus", "bus.x", "bus.x.y" })
        listeners.push_back(listen(log, name));
    for (const auto* name : { "bus.x.y", "bus", "bus2" }) MessageBus::instance().postMessage(name, 1);
    EXPECT_THAT(
        log, ElementsAre("bus: bus.x.y 1", "bus.x: bus.x.y 1", "bus.x: bus.x.y 1", "bus.x.y: bus.x.y 1", "bus: bus 1"));

    log.clear();
    std::jthread([] { MessageBus::instance().postMessage("bus", 3); }).join();
    EXPECT_TRUE(log.empty()) << "other threads are heard on the default loop";
    test::runTurns(fn::RunLoop::defaultLoop());
    EXPECT_THAT(log, ElementsAre("bus: bus 3"));

    // The poster's own name goes with what a listener ends.
    auto name = std::make_unique<fn::String>("bus.xy.and more than is stored in place");
    const auto ending = MessageBus::instance().onMessage("bus").connect([&](auto&&...) { name.reset(); });
    MessageBus::instance().postMessage(*name, 4);
    EXPECT_EQ(log.back(), "bus.xy: bus.xy.and more than is stored in place 4");
}

TEST(MessageBus, ANewBusIsSentTheStickyBodiesAlsoBehindOneThatItCannotSend)
{
    struct Bus final : MessageBus {
        void sendMessage(const fn::String& name, fn::Value&&, bool) override
        {
            if (name == "sticky.a") throw std::runtime_error("too large");
            sent.push_back(name.toStdString());
        }
        Log sent;
    };
    for (const auto* name : { "sticky.a", "sticky.b" }) MessageBus::instance().postStickyMessage(name, 1);
    Bus bus;
    MessageBus::setInstance(bus);
    const test::ExpectUnhandled unhandled;
    MessageBus::repostStickyMessages();
    EXPECT_THAT(bus.sent, ElementsAre("sticky.b"));
    EXPECT_THAT(unhandled.messages(), ElementsAre("too large"));
}

} // namespace

// What can break here: a listener that hears too much, too little or out of order; a bus that delivers though another is installed.
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

// Sends what is posted nowhere; it comes back when the test says so.
class RemoteBus final : public MessageBus {
public:
    using MessageBus::receiveMessage;
    Log sent;
    fn::String refused; ///< A namespace.

private:
    void sendMessage(const fn::String& name, fn::Value&& body, bool sticky) override
    {
        if (name == refused) throw std::runtime_error("no");
        sent.push_back(fmt::format("{} {} {}", name, body.toString(), sticky));
    }
};

TEST(MessageBus, IsHeardByANamespaceAndThoseAboveItFromGeneralToSpecial)
{
    Log log;
    std::vector<fn::Handle> listeners;
    for (const auto* name : { "bus.x", "bus.x.y.z", "bus.xy", "bus", "bus.x", "bus.x.y" })
        listeners.push_back(listen(log, name));
    for (const auto* name : { "bus.x.y", "bus", "bus2" }) MessageBus::instance().postMessage(name, 1);
    EXPECT_THAT(
        log, ElementsAre("bus: bus.x.y 1", "bus.x: bus.x.y 1", "bus.x: bus.x.y 1", "bus.x.y: bus.x.y 1", "bus: bus 1"));

    // The poster's own name goes with what a listener ends.
    auto name = std::make_unique<fn::String>("bus.xy.and more than is stored in place");
    const auto ending = MessageBus::instance().onMessage("bus").connect([&](auto&&...) { name.reset(); });
    MessageBus::instance().postMessage(*name, 4);
    EXPECT_EQ(log.back(), "bus.xy: bus.xy.and more than is stored in place 4");
}

TEST(MessageBus, LeavesSendingToTheInstalledBusAndListeningToTheProcess)
{
    Log log;
    const auto listener = listen(log, "remote");
    {
        RemoteBus remote, spare;
        MessageBus::setInstance(remote);
        MessageBus::instance().postStickyMessage("remote", 1);
        EXPECT_THAT(remote.sent, ElementsAre("remote 1 true"));
        EXPECT_TRUE(log.empty()) << "nothing is heard before it comes back";
        remote.receiveMessage("remote", 1, true);
        spare.receiveMessage("remote", 2, true);
        remote.receiveMessage("remote2", 2, true);
        remote.refused = "remote";
        const test::ExpectUnhandled unhandled;
        MessageBus::repostStickyMessages();
        EXPECT_EQ(unhandled.messages().size(), 1u);
        EXPECT_THAT(remote.sent, testing::Contains("remote2 2 true")) << "behind one that cannot be sent";
    }
    EXPECT_EQ(MessageBus::instance().getStickyMessage("remote"), fn::Value(1));
    std::jthread([] { MessageBus::instance().postMessage("remote", 3); }).join();
    EXPECT_THAT(log, ElementsAre("remote: remote 1")) << "other threads are heard on the default loop";
    test::runTurns(fn::RunLoop::defaultLoop());
    EXPECT_THAT(log, ElementsAre("remote: remote 1", "remote: remote 3"));
}

} // namespace

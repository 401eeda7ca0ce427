// What can break here: text that is no address, a range a bit too wide; a watch that outlives its failure or does not come back.
#include "foundation/net/ip_address.h"
#include "foundation/net/network_state_notifier.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/network_changes.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include <gtest/gtest.h>

namespace {

using fn::IPAddress;

TEST(IPAddress, IsReadAndWrittenAsTextAndNothingElseIsOne)
{
    for (const auto* text :
        { "0.0.0.0", "192.168.1.1", "255.255.255.255", "::", "::1", "fe80::1%3", "2001:db8::ff", "::ffff:1.2.3.4" })
        EXPECT_EQ(IPAddress::fromString(text).value().toString(), text);
    for (const std::string_view text : { "", "1.2.3", "1.2.3.4.5", "256.1.1.1", " 1.2.3.4", "1.2.3.4%1", "fe80::1%",
             "fe80::1%eth0", "fe80::1%-1", "fe80::1%4294967296", "fe80:::1", "host" })
        EXPECT_FALSE(IPAddress::fromString(fn::String(text))) << text;
}

TEST(NetworkStateNotifier, TellsItsListenersUntilTheSystemTellsNothingMoreAndThenStartsAnew)
{
    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    const test::LogCapture log { 4 };
    std::optional<platform::ScopedNetworkChanges> changes(std::in_place);
    fn::NetworkStateNotifier notifier { loop };
    int heard = 0;
    const auto first = notifier.addChangeListener([&](bool) { ++heard; });
    fn::Handle second;
    second = notifier.addChangeListener([&](bool) { second.invalidate(); });
    for (int i = 0; i < 3; ++i) changes->announce();
    EXPECT_TRUE(test::runUntil(loop, [&] { return heard > 0; }));
    test::runTurns(loop);
    EXPECT_EQ(heard, 1); // For all three.
    EXPECT_FALSE(second);

    changes.reset();
    EXPECT_TRUE(test::runUntil(loop, [&] { return !log.lines().empty(); }));
    changes.emplace();
    test::runTurns(loop);
    EXPECT_EQ(log.lines().size(), 1U); // And not once a turn.
    EXPECT_EQ(heard, 1);

    clock.advance(fn::Duration::seconds(4));
    test::runTurns(loop);
    clock.advance(fn::Duration::seconds(1)); // Five seconds later a watch is tried again.
    test::runTurns(loop);
    EXPECT_EQ(heard, 2); // Something may have been missed.
    EXPECT_EQ(log.lines().back(), "4 core.networkState The network is being watched again");
    changes->announce();
    EXPECT_TRUE(test::runUntil(loop, [&] { return heard > 2; }));
}

} // namespace

// What can break here: text that is no address, a range a bit too wide; a watch that outlives its failure or does not come back.
#include "foundation/net/ip_address.h"
#include "foundation/net/network_state_notifier.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/network_changes.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include <gtest/gtest.h>
#include <netinet/in.h>

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
    EXPECT_FALSE(IPAddress::fromString(fn::String(std::string_view("1.2.3.4\0", 8))));
}

TEST(IPAddress, KnowsItsKindUpToTheLastBit)
{
    // w: wildcard, o: loopback, l: link-local, m: multicast, b: broadcast, u: unicast
    const std::pair<const char*, const char*> rows[] { { "0.0.0.0", "w" }, { "0.0.0.1", "u" }, { "127.255.0.1", "ou" },
        { "128.0.0.1", "u" }, { "169.254.0.0", "lu" }, { "169.253.255.255", "u" }, { "169.255.0.0", "u" },
        { "223.255.255.255", "u" }, { "224.0.0.0", "m" }, { "239.255.255.255", "m" }, { "240.0.0.0", "u" },
        { "255.255.255.255", "b" }, { "::", "w" }, { "::1", "ou" }, { "::2", "u" }, { "1::1", "u" }, { "fe80::", "lu" },
        { "febf:ffff::", "lu" }, { "fec0::", "u" }, { "fe7f::", "u" }, { "ff02::1", "m" }, { "feff::", "u" },
        { "a9fe::", "u" } };
    for (const auto& [text, expected] : rows) {
        const auto address = IPAddress::fromString(text).value();
        const std::pair<char, bool> kinds[] = { { 'w', address.isWildcard() }, { 'o', address.isLoopback() },
            { 'l', address.isLinkLocal() }, { 'm', address.isMulticast() }, { 'b', address.isBroadcast() },
            { 'u', address.isUnicast() } };
        for (const auto& [kind, isOne] : kinds)
            EXPECT_EQ(isOne, std::string_view(expected).contains(kind)) << text << ", " << kind;
    }
}

TEST(IPAddress, IsTakenFromWholeSocketAddressesOfItsFamiliesOnlyAndEqualsThoseOfItsFamilyAndBytes)
{
    sockaddr_in6 address {};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    address.sin6_scope_id = 7;
    const auto* const any = reinterpret_cast<const sockaddr*>(&address);
    EXPECT_EQ(IPAddress::fromSocketAddress(any, sizeof(address)).value().toString(), "::1%7");
    EXPECT_FALSE(IPAddress::fromSocketAddress(nullptr, sizeof(address)));
    const std::tuple<sa_family_t, std::size_t, bool> rows[] = { { AF_INET6, sizeof(address) - 1, false },
        { AF_INET6, 1, false }, { AF_INET, sizeof(sockaddr_in), true }, { AF_INET, sizeof(sockaddr_in) - 1, false },
        { AF_UNIX, sizeof(address), false } };
    for (const auto& [family, size, isOne] : rows) {
        address.sin6_family = family;
        EXPECT_EQ(IPAddress::fromSocketAddress(any, size).has_value(), isOne) << family << ", " << size;
    }
    const auto from = [](const char* text) { return IPAddress::fromString(text).value(); };
    EXPECT_EQ(from("fe80::1%2"), from("fe80::1%3")) << "wherever it is reached";
    EXPECT_FALSE(from("fe80::1") == from("fe80::2"));
    EXPECT_FALSE(from("1.2.3.4") == from("102:304::"));
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

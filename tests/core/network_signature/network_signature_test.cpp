// Against the real kernel, in a network of the test's own. What can break here: a gateway of another table, kind or adapter
// that is taken, or taken twice, or in another order; a failure that reaches the caller or is silent; a change that is missed;
// a listener list that changes while it is being walked.
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "core/services/network_signature.h"
#include "foundation/net/mac_address.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/adapters_addresses.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include <cstring>
#include <fcntl.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <set>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using core::NetworkSignature;
using namespace platform;
using testing::ElementsAre;

constexpr const char* unknown = "??????:????????????";

/// A network of this thread's own, with nothing but adapters of the test, for as long as this lives. Processes that are
/// started meanwhile are in it. Nobody else sees it.
class Kernel : public testing::Test {
protected:
    void SetUp() override
    {
        if (!begin()) GTEST_SKIP() << "network namespaces are denied here: " << std::strerror(errno);
    }
    /// From a user namespace there is no way back: the next test makes its own.
    ~Kernel() override { (void)::setns(_outside.get(), CLONE_NEWNET); }

    /// v0 and v1, Ethernet adapters that run, without any address. Their other ends are p0 and p1.
    static bool begin()
    {
        if (::unshare(CLONE_NEWNET) != 0 && !enterAsUser()) return false;
        std::string commands = "link add name v0 type veth peer name p0\nlink add name v1 type veth peer name p1\n";
        for (const auto* name : { "v0", "v1", "p0", "p1" })
            commands += fmt::format("link set {0} addrgenmode none\nlink set {0} up\n", name);
        ip(commands);
        return true;
    }

    /// Runs commands of ip(8), one a line, without the leading "ip". Throws when one fails.
    static void ip(const std::string& commands)
    {
        auto* const pipe = ::popen("PATH=$PATH:/usr/sbin:/sbin ip -batch -", "we");
        if (!pipe) throw std::runtime_error("popen");
        std::fputs(commands.c_str(), pipe);
        if (::pclose(pipe) != 0) throw std::runtime_error("ip failed:\n" + commands);
    }

private:
    // As an ordinary user: with a user namespace around it, in which we are root.
    static bool enterAsUser()
    {
        const auto user = ::getuid();
        const auto group = ::getgid();
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
        ::prctl(PR_SET_DUMPABLE, 1); // Else the files below, and sanitizers, are out of reach.
        test::writeFile("/proc/self/setgroups", "deny");
        test::writeFile("/proc/self/uid_map", fmt::format("0 {} 1", user));
        test::writeFile("/proc/self/gid_map", fmt::format("0 {} 1", group));
        return true;
    }

    const fn::FileDescriptor _outside { ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC) };
};

constexpr auto manyRoutes = R"(
address add 192.168.1.10/24 dev v0
address add 192.168.1.11/24 dev v1
address add fe80::11/64 dev v1 nodad
route add default via 192.168.1.1 dev v0 metric 10
route add default via 192.168.1.1 dev v1 metric 20
route add default via 192.168.1.254 dev v0 metric 5
route add default metric 30 nexthop via 192.168.1.2 dev v0 nexthop via 192.168.1.3 dev v1
route add 0.0.0.0/0 via inet6 fe80::9 dev v0 metric 40
route add default dev v0 metric 50
route add unreachable default metric 60
route add default via 192.168.1.77 dev v0 table 100
route add 10.0.0.0/8 via 192.168.1.55 dev v0
route add default via fe80::1 dev v0 metric 10
)";

TEST_F(Kernel, WritesNothingBeyondTheBufferAndSaysWhatItNeeds)
{
    ip(manyRoutes);
    constexpr std::uint64_t guard = 0x5555555555555555;
    std::set<ULONG> answers;
    for (ULONG room = 4, needed = 4; room <= needed; room += 4) {
        std::vector<std::uint64_t> buffer(room / 8 + 2, guard);
        auto size = room;
        const auto answer = GetAdaptersAddresses(
            AF_UNSPEC, 0xae, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data()), &size);
        answers.insert(answer);
        if (answer == ERROR_BUFFER_OVERFLOW) needed = size;
        ASSERT_EQ(size, answer == 0 ? room : needed);
        ASSERT_EQ(buffer[(room + 7) / 8], guard) << room;
    }
    EXPECT_THAT(answers, ElementsAre(ERROR_SUCCESS, ERROR_BUFFER_OVERFLOW));
}

TEST_F(Kernel, NamesTheNetworkByTheGatewaysOfQualifyingAdaptersEachOnceAndInOrder)
{
    const std::string known = R"(
address add 192.168.1.10/24 dev v0
address add 192.168.1.11/24 dev v1
neighbour add 192.168.1.1 lladdr 00:11:22:33:44:55 dev v0
neighbour add 192.168.1.1 lladdr 00:11:22:33:44:66 dev v1
neighbour add 192.168.1.2 lladdr 00:11:22:33:44:77 dev v1 nud stale
neighbour add 192.168.1.3 lladdr 00:11:22:33:44:88 dev v1 nud failed
neighbour add proxy 192.168.1.4 dev v1
neighbour add fe80::1 lladdr aa:bb:cc:dd:ee:ff dev v0
neighbour add fe80::1 lladdr aa:bb:cc:dd:ee:00 dev v1
)";
    const std::string unreachable = "address add 169.254.7.7/16 dev v0\naddress add 127.0.0.5/32 dev v0\n"
                                    "address add 2001:db8::5/64 dev v0 nodad\nroute add default via 169.254.7.1\n";
    std::string many;
    for (int i = 0; i < 60; ++i)
        many += fmt::format("link add a{0} type bridge\naddress add 10.2.{0}.1/24 dev a{0}\n", i);
    many += "link set a59 up\nroute add default via 10.2.59.2 dev a59 onlink\n";
    const std::pair<std::string, std::string> rows[] = {
        { known + "route add default dev v0", unknown },
        { manyRoutes, "c0a801fe:000000000000/c0a80101:000000000000/c0a80102:000000000000/c0a80103:000000000000" },
        { known + R"(
route add default via 192.168.1.1 dev v0 metric 1
route add default via 192.168.1.9 dev v0 metric 2
route add default via 192.168.1.1 dev v1 metric 3)",
            "c0a80101:001122334455/c0a80109:000000000000" },
        { known + R"(
route add 192.168.1.1 dev v1
route add default metric 1 nexthop via 192.168.1.1 dev v1 nexthop via 192.168.1.2 dev v1
route add default metric 2 nexthop via 192.168.1.3 dev v1 nexthop via 192.168.1.4 dev v1)", // Known where the way leads.
            "c0a80101:001122334466/c0a80102:001122334477/c0a80103:000000000000/c0a80104:000000000000" },
        { unreachable, unknown },
        { unreachable + "address add 10.1.1.1/24 dev v0", "a9fe0701:000000000000" },
        { known + "route add default metric 5 nexthop via fe80::1 dev v0 nexthop via fe80::1 dev v1",
            "fe800000000000000000000000000001:aabbccddeeff" },
        { known + "route add default via fe80::1 dev v1", "fe800000000000000000000000000001:aabbccddee00" },
        { known + "route add default via fe80::1 dev v0\nroute add default via 192.168.1.1 dev v1",
            "c0a80101:001122334455" },
        { many, "0a023b02:000000000000" },
    };
    fn::uv::Loop loop;
    fn::NetworkStateNotifier notifier(loop);
    for (const auto& [commands, expected] : rows) {
        ASSERT_TRUE(begin());
        ip(commands);
        EXPECT_EQ(NetworkSignature(loop, notifier).get(), expected) << commands;
    }
    test::runTurns(loop); // What they had posted finds them gone.
    EXPECT_EQ(fn::MacAddress({ 0, 1, 2, 10, 254, 255 }).toString(), "00:01:02:0a:fe:ff");
}

TEST_F(Kernel, AdaptersAreTakenByTheirKindAndFailuresAreToldInTheLog)
{
    ip("address add 192.168.1.10/24 dev v0\nroute add default via 192.168.1.1");
    std::vector<std::uint64_t> buffer(2000);
    auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
    ULONG room = 16'000;
    ASSERT_EQ(GetAdaptersAddresses(AF_UNSPEC, 0xae, nullptr, adapter, &room), ERROR_SUCCESS);
    EXPECT_EQ(GetAdaptersAddresses(AF_UNIX, 0xae, nullptr, adapter, &room), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(GetAdaptersAddresses(AF_UNSPEC, 0xae, nullptr, adapter, nullptr), ERROR_INVALID_PARAMETER);
    while (!adapter->FirstGatewayAddress) adapter = adapter->Next;
    EXPECT_EQ(adapter->IfType, IF_TYPE_ETHERNET_CSMACD);
    std::vector<ULONG> answers; // To the two calls of each look.
    std::size_t calls = 0;
    const ScopedAdaptersAddresses backend([&](ULONG, ULONG, void*, IP_ADAPTER_ADDRESSES* result, ULONG* size) {
        const auto answer = answers.at(calls++ % answers.size());
        *size = 300;
        if (answer == ERROR_SUCCESS) (*result = *adapter).Next = nullptr;
        return answer;
    });
    fn::uv::Loop loop;
    fn::NetworkStateNotifier notifier(loop);
    const test::LogCapture log(1);
    for (const auto kind : { IF_TYPE_ETHERNET_CSMACD, IF_TYPE_IEEE80211, IF_TYPE_TUNNEL, IF_TYPE_PPP }) {
        answers = { ERROR_BUFFER_OVERFLOW, ERROR_SUCCESS };
        adapter->IfType = kind;
        const bool counts = kind == IF_TYPE_ETHERNET_CSMACD || kind == IF_TYPE_IEEE80211;
        EXPECT_EQ(NetworkSignature(loop, notifier).get(), counts ? "c0a80101:000000000000" : unknown) << kind;
    }
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_TRUE(log.contains("mac address for gateway 192.168.1.1: The hardware address is not known"));
    for (const auto& failing : std::vector<std::vector<ULONG>> { { 8 }, { 111, 31 }, { 111, 111 } }) {
        answers = failing;
        calls = 0;
        EXPECT_EQ(NetworkSignature(loop, notifier).get(), unknown);
        EXPECT_THAT(log.lines().back(), testing::EndsWith(fmt::format("Windows error: 0x{:08x}", failing.back())));
    }
    EXPECT_THROW(NetworkSignature::getActiveGateways(), fn::IOException);
}

struct LiveSignature : Kernel {
    void SetUp() override
    {
        Kernel::SetUp();
        if (IsSkipped()) return;
        ip("address add 10.0.0.9/32 dev v1"); // Else its adapter does not count.
        signature = std::make_unique<NetworkSignature>(loop, notifier);
        test::runTurns(loop);
        EXPECT_EQ(text(), unknown);
    }

    std::string text() const { return signature->get().toStdString(); }

    /// Adds a listener that notes `name` and the text, and then does something.
    fn::Handle add(
        char name, folly::Function<void()> then = [] {})
    {
        return signature->addChangeListener([this, name, then = std::move(then)](const fn::String& text) mutable {
            heard += name;
            lastHeard = text.toStdString();
            then();
        });
    }

    static void setGateway(int number) { ip(fmt::format("route replace default via 10.0.0.{} dev v1 onlink", number)); }
    static std::string textOf(int gateway, int mac = 0) { return fmt::format("0a0000{:02x}:{:012x}", gateway, mac); }

    /// Who hears when a gateway 10.0.0.`number` has taken the place of the former one.
    std::string afterGateway(int number)
    {
        setGateway(number);
        EXPECT_TRUE(test::runUntil(loop, [&] { return text() == textOf(number); })) << text();
        return std::exchange(heard, {});
    }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    fn::NetworkStateNotifier notifier { loop };
    std::unique_ptr<NetworkSignature> signature;
    std::string heard;
    std::string lastHeard;
};

TEST_F(LiveSignature, LooksAgainThreeSixAndTenSecondsAfterTheLastChange)
{
    const auto listener = add('a');
    bool isAvailable = false;
    const auto state = notifier.addChangeListener([&](bool hasNetwork) { isAvailable = hasNetwork; });
    afterGateway(1);
    std::vector<int> seconds; // When a change behind the gateway is seen, which nobody announces.
    for (int second = 1; second <= 20; ++second) {
        ip(fmt::format("neighbour replace 10.0.0.1 lladdr 00:00:00:00:00:{:02x} dev v1", second));
        clock.advance(fn::Duration::seconds(1));
        if (second == 2) {
            ip("address add 10.0.0.8/32 dev v1");
            EXPECT_TRUE(test::runUntil(loop, [&] { return text() == textOf(1, 2); }));
        }
        test::runTurns(loop);
        if (text() == textOf(1, second)) seconds.push_back(second);
    }
    EXPECT_THAT(seconds, ElementsAre(2, 5, 8, 12));
    EXPECT_EQ(heard, "aaaa");
    EXPECT_TRUE(isAvailable);
    ip("link delete v1");
    EXPECT_TRUE(test::runUntil(loop, [&] { return lastHeard == unknown; }));
}

TEST_F(LiveSignature, CallsItsListenersInOrderWhateverTheyDo)
{
    std::vector<fn::Handle> handles(6);
    const auto token = std::make_shared<int>();
    handles[0] = add('a', [&] { handles[2].invalidate(); }); // One that is to come.
    handles[1] = add('b', [&, token] {
        handles[1].invalidate(); // Itself, which lives until it returns.
        EXPECT_EQ(token.use_count(), 2);
        handles[0].invalidate(); // One that has been.
        throw std::runtime_error("no");
    });
    handles[2] = add('c');
    handles[3] = add('d', [&] {
        if (!handles[5]) handles[5] = add('f'); // Not told this time.
    });
    handles[4] = add('e');
    {
        const test::ExpectUnhandled unhandled;
        EXPECT_EQ(afterGateway(2), "abde");
        EXPECT_THAT(unhandled.messages(), ElementsAre("no"));
    }
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(afterGateway(3), "def");
    handles[4].detach(); // Lives on.
    handles.resize(4);
    EXPECT_EQ(afterGateway(4), "de");
    signature.reset();
    EXPECT_FALSE(handles[3]) << "it outlives what it was for";
    handles[3].invalidate();
}

} // namespace

// Against the real kernel, in a network of the test's own. What can break here: a gateway of another table, kind or adapter
// that is taken, or taken twice, or in another order; a failure that reaches the caller or is silent; a change that is missed;
// a listener list that changes while it is being walked.
#include "base/file_descriptor.h"
#include "core/services/network_signature.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "support/expectations.h"
#include "support/run_until.h"
#include "support/temporary_folder.h"
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

using core::NetworkSignature;
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
    const std::pair<std::string, std::string> rows[] = {
        { known + "route add default dev v0", unknown },
        { manyRoutes, "c0a801fe:000000000000/c0a80101:000000000000/c0a80102:000000000000/c0a80103:000000000000" },
        { known + R"(
route add 192.168.1.1 dev v1
route add default metric 1 nexthop via 192.168.1.1 dev v1 nexthop via 192.168.1.2 dev v1
route add default metric 2 nexthop via 192.168.1.3 dev v1 nexthop via 192.168.1.4 dev v1)", // Known where the way leads.
            "c0a80101:001122334466/c0a80102:001122334477/c0a80103:000000000000/c0a80104:000000000000" },
        { known + "route add default metric 5 nexthop via fe80::1 dev v0 nexthop via fe80::1 dev v1",
            "fe800000000000000000000000000001:aabbccddeeff" },
        { known + "route add default via fe80::1 dev v0\nroute add default via 192.168.1.1 dev v1",
            "c0a80101:001122334455" },
    };
    fn::uv::Loop loop;
    fn::NetworkStateNotifier notifier(loop);
    for (const auto& [commands, expected] : rows) {
        ASSERT_TRUE(begin());
        ip(commands);
        EXPECT_EQ(NetworkSignature(loop, notifier).get(), expected) << commands;
    }
    test::runTurns(loop); // What they had posted finds them gone.
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

    /// Adds a listener that notes `name`, and then does something.
    fn::Handle add(
        char name, folly::Function<void()> then = [] {})
    {
        return signature->addChangeListener([this, name, then = std::move(then)](const fn::String& text) mutable {
            EXPECT_EQ(text, signature->get());
            heard += name;
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
};

TEST_F(LiveSignature, LooksAgainThreeSixAndTenSecondsAfterTheLastChange)
{
    const auto listener = add('a');
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
    ip("link delete v1");
    EXPECT_TRUE(test::runUntil(loop, [&] { return text() == unknown; }));
}

TEST_F(LiveSignature, CallsItsListenersInOrderWhateverTheyDo)
{
    std::vector<fn::Handle> handles(5);
    handles[0] = add('a', [&] { handles[2].invalidate(); }); // One that is to come.
    handles[1] = add('b', [&] {
        handles[1].invalidate(); // Itself, which lives until it returns.
        throw std::runtime_error("no");
    });
    handles[2] = add('c');
    handles[3] = add('d', [&] {
        if (!handles[4]) handles[4] = add('e'); // Not told this time.
    });
    {
        const test::ExpectUnhandled unhandled;
        EXPECT_EQ(afterGateway(2), "abd");
        EXPECT_THAT(unhandled.messages(), ElementsAre("no"));
    }
    EXPECT_EQ(afterGateway(3), "ade");
    signature.reset();
    EXPECT_FALSE(handles[3]) << "it outlives what it was for";
    handles[3].invalidate();
}

} // namespace

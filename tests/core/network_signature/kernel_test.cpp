// What can break here, against the real kernel: the buffer protocol, a gateway of another table or kind, the order, a neighbour
// of the wrong adapter, a change that is not noticed.
#include "core/network_signature.h"
#include "foundation/exceptions.h"
#include "foundation/io/file_descriptor.h"
#include "foundation/net/mac_address.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/adapters_addresses.h"
#include "support/run_until.h"
#include <cstring>
#include <fcntl.h>
#include <fmt/ranges.h>
#include <fstream>
#include <gmock/gmock.h>
#include <net/if.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using core::NetworkSignature;
using platform::GetAdaptersAddresses;
using testing::ElementsAre;

constexpr const char* unknown = "??????:????????????";
constexpr platform::ULONG withGateways = 0xae;

void write(const char* path, const std::string& text) { std::ofstream(path) << text; }

// As an ordinary user: with a user namespace around it, in which we are root.
bool enterAsUser()
{
    const auto user = std::to_string(::getuid());
    const auto group = std::to_string(::getgid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    ::prctl(PR_SET_DUMPABLE, 1); // Else the files below, and sanitizers, are out of reach.
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", "0 " + user + " 1");
    write("/proc/self/gid_map", "0 " + group + " 1");
    return true;
}

/// A network of this thread's own, with nothing but a loopback adapter, for as long as this lives. Processes that are started
/// meanwhile are in it. Real adapters, addresses and routes, which nobody else sees.
class NetworkNamespace {
public:
    NetworkNamespace()
    {
        if (::unshare(CLONE_NEWNET) != 0 && !enterAsUser())
            _problem = std::string("network namespaces are denied here: ") + std::strerror(errno);
    }
    ~NetworkNamespace()
    {
        (void)::setns(
            _outside.get(), CLONE_NEWNET); // From a user namespace there is no way back: the next test makes its own.
    }

    /// Why there is none, or "": this system may not let us have one.
    const std::string& problem() const { return _problem; }

    /// Runs commands of ip(8), one a line, without the leading "ip". Throws when one fails.
    static void ip(const std::string& commands)
    {
        auto* const pipe = ::popen("PATH=$PATH:/usr/sbin:/sbin ip -batch -", "we");
        if (!pipe) throw std::runtime_error("popen");
        std::fputs(commands.c_str(), pipe);
        if (::pclose(pipe) != 0) throw std::runtime_error("ip failed:\n" + commands);
    }

private:
    const fn::FileDescriptor _outside { ::open(
        "/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC) }; // Where we came from.
    std::string _problem;
};

struct Kernel : testing::Test {
    void SetUp() override
    {
        if (!network.problem().empty()) GTEST_SKIP() << network.problem();
    }

    /// v0 and v1, Ethernet adapters that run, without any address. Their other ends are p0 and p1.
    void makeAdapters()
    {
        network.ip("link add name v0 type veth peer name p0\nlink add name v1 type veth peer name p1");
        for (const auto* name : { "v0", "v1", "p0", "p1" })
            network.ip(fmt::format("link set {0} addrgenmode none\nlink set {0} up", name));
    }
    NetworkNamespace network;
};

// --- The list of adapters

template <typename Entry> std::vector<std::string> texts(const Entry* entry)
{
    std::vector<std::string> result;
    for (; entry; entry = entry->Next) {
        const auto size = static_cast<std::size_t>(entry->Address.iSockaddrLength);
        const auto address = fn::IPAddress::fromSocketAddress(entry->Address.lpSockaddr, size);
        const auto scope = address.value().scope();
        char name[IF_NAMESIZE];
        auto text = address->toString().toStdString();
        if (scope != 0) text.replace(text.find('%') + 1, text.npos, ::if_indextoname(scope, name));
        result.push_back(text);
    }
    return result;
}

/// "name type: addresses; gateways" of each adapter that has any.
std::vector<std::string> list(platform::ULONG family = AF_UNSPEC, platform::ULONG flags = withGateways)
{
    std::vector<std::uint64_t> buffer(2000); // Aligned.
    auto* adapter = reinterpret_cast<platform::IP_ADAPTER_ADDRESSES*>(buffer.data());
    platform::ULONG size = static_cast<platform::ULONG>(buffer.size() * sizeof(buffer[0]));
    EXPECT_EQ(GetAdaptersAddresses(family, flags, nullptr, adapter, &size), 0U);
    std::vector<std::string> result;
    for (; adapter; adapter = adapter->Next) {
        EXPECT_EQ(adapter->IfIndex, ::if_nametoindex(adapter->AdapterName));
        const auto addresses = texts(adapter->FirstUnicastAddress);
        const auto gateways = texts(adapter->FirstGatewayAddress);
        if (addresses.empty() && gateways.empty()) continue;
        result.push_back(fmt::format("{} {}: {}; {}", adapter->AdapterName, adapter->IfType, fmt::join(addresses, " "),
            fmt::join(gateways, " ")));
    }
    return result;
}

constexpr auto manyRoutes = R"(
link set lo up
address add 192.168.1.10/24 dev v0
address add 10.9.9.9 peer 10.9.9.8 dev v0
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
route add default metric 5 nexthop via fe80::2 dev v0 nexthop via fe80::3 dev v1
route add default via fe80::77 dev v0 table 100
)";

TEST_F(Kernel, ListsAdaptersWithTheNextHopsOfTheirDefaultRoutesInTheMainTable)
{
    makeAdapters();
    network.ip(manyRoutes);
    EXPECT_THAT(list(),
        testing::UnorderedElementsAre("lo 24: 127.0.0.1 ::1; ",
            "v0 6: 192.168.1.10 10.9.9.9; 192.168.1.254 192.168.1.1 192.168.1.2 fe80::9%v0 fe80::2%v0 fe80::1%v0",
            "v1 6: 192.168.1.11 fe80::11%v1; 192.168.1.1 192.168.1.3 fe80::3%v1"));
    EXPECT_THAT(list(AF_INET6),
        testing::UnorderedElementsAre(
            "lo 24: ::1; ", "v0 6: ; fe80::9%v0 fe80::2%v0 fe80::1%v0", "v1 6: fe80::11%v1; fe80::3%v1"));
    EXPECT_THAT(list(AF_INET, 0),
        testing::UnorderedElementsAre("lo 24: 127.0.0.1; ", "v0 6: 192.168.1.10 10.9.9.9; ", "v1 6: 192.168.1.11; "));
    EXPECT_THAT(list(AF_INET, 1), ElementsAre());
}

TEST_F(Kernel, WritesNothingBeyondTheBufferAndSaysWhatItNeeds)
{
    makeAdapters();
    network.ip(manyRoutes);
    platform::ULONG size = 4;
    EXPECT_EQ(GetAdaptersAddresses(0, withGateways, nullptr, nullptr, &size), 111U);
    const auto reported = size;
    bool fits = false;
    for (platform::ULONG room = 0; room <= reported; room += 4) {
        const std::size_t words = (room + 7) / 8 + 1;
        std::vector<std::uint64_t> buffer(words, 0x5555555555555555);
        auto* const adapters = reinterpret_cast<platform::IP_ADAPTER_ADDRESSES*>(buffer.data());
        size = room;
        const auto error = GetAdaptersAddresses(0, withGateways, nullptr, adapters, &size);
        fits = fits || error == 0;
        ASSERT_EQ(error, fits ? 0U : 111U) << room;
        ASSERT_EQ(size, fits ? room : reported);
        ASSERT_EQ(buffer.back(), 0x5555555555555555) << room;
    }
    EXPECT_TRUE(fits);
}

TEST_F(Kernel, ListsAsManyAdaptersAsThereAre)
{
    std::string commands;
    for (int i = 0; i < 60; ++i) // An answer of several datagrams.
        commands += fmt::format("link add name v{0} type bridge\naddress add 10.0.{0}.1/24 dev v{0}\n", i);
    network.ip(commands + "link set v59 up\nroute add default via 10.1.0.1 dev v59 onlink\n");
    EXPECT_THAT(NetworkSignature::getActiveGateways(), ElementsAre(*fn::IPAddress::fromString("10.1.0.1")));
}

// --- Neighbours

std::string neighbour(const std::string& address)
{
    try {
        return fn::MacAddress::fromIPAddress(fn::IPAddress::fromString(address).value()).toString().toStdString();
    } catch (const fn::IOException& exception) {
        return exception.message().toStdString();
    }
}

TEST_F(Kernel, KnowsNeighboursByAddressAndAdapter)
{
    makeAdapters();
    network.ip(manyRoutes);
    network.ip(R"(
neighbour add 192.168.1.1 lladdr 00:11:22:33:44:00 dev v0
neighbour add 192.168.1.1 lladdr 00:11:22:33:44:01 dev v1
neighbour add 192.168.1.2 lladdr 00:11:22:33:44:02 dev v1 nud stale
neighbour add 192.168.1.3 lladdr 00:11:22:33:44:03 dev v1 nud failed
neighbour add 172.16.0.1 lladdr 00:11:22:33:44:05 dev v1
neighbour add 172.16.0.1 lladdr 00:11:22:33:44:04 dev v0
neighbour add proxy 192.168.1.4 dev v0
neighbour add fe80::1 lladdr aa:bb:cc:dd:ee:00 dev v0
neighbour add fe80::1 lladdr aa:bb:cc:dd:ee:01 dev v1
)");
    const auto scope = [](const char* adapter) { return std::to_string(::if_nametoindex(adapter)); };
    constexpr const char* none = "The hardware address is not known";
    EXPECT_EQ(neighbour("192.168.1.2"), "00:11:22:33:44:02");
    EXPECT_EQ(neighbour("192.168.1.3"), none);
    EXPECT_EQ(neighbour("192.168.1.4"), none);
    EXPECT_EQ(neighbour("192.168.1.99"), none);
    EXPECT_EQ(neighbour("::ffff:192.168.1.2"), none);
    EXPECT_EQ(neighbour("fe80::1%" + scope("v0")), "aa:bb:cc:dd:ee:00");
    EXPECT_EQ(neighbour("fe80::1%" + scope("v1")), "aa:bb:cc:dd:ee:01");
    EXPECT_EQ(neighbour("fe80::1%" + scope("p1")), none);

    // Known on two adapters: the one counts that leads there.
    network.ip("route add 192.168.1.1 dev v1\nroute add 172.16.0.1 dev v1");
    EXPECT_EQ(neighbour("192.168.1.1"), "00:11:22:33:44:01");
    EXPECT_EQ(neighbour("172.16.0.1"), "00:11:22:33:44:05");
    network.ip("route delete 192.168.1.1 dev v1\nroute add 192.168.1.1 dev v0");
    EXPECT_EQ(neighbour("192.168.1.1"), "00:11:22:33:44:00");
}

// --- Changes

// Whether a socket of this network has not been told of all that happened.
bool hasLostAnnouncements()
{
    std::ifstream sockets("/proc/thread-self/net/netlink");
    std::string line;
    for (std::getline(sockets, line); std::getline(sockets, line);) {
        std::istringstream words(line);
        const std::vector<std::string> columns(std::istream_iterator<std::string>(words), {});
        if (columns.at(8) != "0") return true; // "Drops"
    }
    return false;
}

struct LiveSignature : Kernel {
    void SetUp() override
    {
        Kernel::SetUp();
        if (IsSkipped()) return;
        makeAdapters();
        signature.emplace(loop, notifier);
        handle = signature->addChangeListener([this](const fn::String& text) { heard.push_back(text.toStdString()); });
        test::runTurns(loop);
        counter = notifier.addChangeListener([this](bool hasNetwork) {
            ++announcements;
            isAvailable = hasNetwork;
        });
        EXPECT_EQ(text(), unknown);
    }

    std::string text() const { return signature->get().toStdString(); }

    /// What is heard of these commands; awaits that they are noticed and the text is `expected`.
    std::vector<std::string> after(const std::string& commands, const std::string& expected)
    {
        heard.clear();
        const auto before = announcements;
        network.ip(commands);
        EXPECT_TRUE(test::runUntil(loop, [&] { return announcements > before && text() == expected; })) << text();
        return heard;
    }

    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    fn::NetworkStateNotifier notifier { loop };
    std::optional<NetworkSignature> signature;
    fn::Handle handle;
    fn::Handle counter; // Behind the signature's.
    std::vector<std::string> heard;
    int announcements = 0;
    bool isAvailable = false;
};

TEST_F(LiveSignature, FollowsGatewaysThatComeChangeAndGo)
{
    const std::string first = "c0a80101:001122334455";
    const std::string second = "c0a80102:0011223344aa";
    EXPECT_THAT(after(R"(
address add 192.168.1.10/24 dev v0
neighbour add 192.168.1.1 lladdr 00:11:22:33:44:55 dev v0
neighbour add 192.168.1.2 lladdr 00:11:22:33:44:aa dev v0
route add default via 192.168.1.1
)",
                    first),
        ElementsAre(first));
    EXPECT_TRUE(isAvailable);
    EXPECT_THAT(after("route replace default via 192.168.1.2", second), testing::Contains(second));
    EXPECT_THAT(
        after("route add default via 192.168.1.1 metric 7", second + "/" + first), ElementsAre(second + "/" + first));
    EXPECT_THAT(after("route delete default via 192.168.1.2", first), ElementsAre(first));

    // The same gateway by a second adapter: nothing new.
    const auto both = after(R"(
address add 192.168.1.11/24 dev v1
neighbour add 192.168.1.1 lladdr 00:11:22:33:44:55 dev v1
route add default via 192.168.1.1 dev v1 metric 8
)",
        first);
    EXPECT_THAT(both, ElementsAre());
    EXPECT_THAT(after("link delete v0", first), ElementsAre());
    EXPECT_THAT(after("address delete 192.168.1.11/24 dev v1", unknown), ElementsAre(unknown));
}

TEST_F(LiveSignature, HearsOfTheLastChangeAlsoWhenMoreCameThanTheSystemKeeps)
{
    std::string commands;
    for (int i = 0; i < 1000; ++i) commands += fmt::format("address add 10.0.{}.{}/32 dev v1\n", i / 200, i % 200 + 1);
    network.ip(commands);
    EXPECT_TRUE(hasLostAnnouncements()); // Else this test shows nothing.
    const std::string first = "0a090909:000000000000";
    EXPECT_THAT(after("route add default via 10.9.9.9 dev v1 onlink", first), ElementsAre(first));
    test::runTurns(loop);
    EXPECT_THAT(after("route delete default", unknown), ElementsAre(unknown));
}

} // namespace

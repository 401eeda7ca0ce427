// What can break here: a gateway taken that should not be, or twice, or in another order; a failure that reaches the caller or
// is silent; a re-check that is missed or multiplied; a listener list that changes while it is being walked.
#include "core/network_signature.h"
#include "foundation/exceptions.h"
#include "foundation/net/ip_address.h"
#include "foundation/time/clock.h"
#include "foundation/uv/loop.h"
#include "platform/adapters_addresses.h"
#include "platform/neighbours.h"
#include "platform/network_changes.h"
#include "support/expectations.h"
#include "support/log_capture.h"
#include "support/run_until.h"
#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <netinet/in.h>
#include <thread>

namespace {

using core::NetworkSignature;
using namespace platform;
using testing::ElementsAre;

constexpr const char* unknown = "??????:????????????";
constexpr HardwareAddress router { 0x00, 0x11, 0x22, 0x33, 0x44, 0x55 };
constexpr HardwareAddress another { 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff };

template <typename T> T* make(std::vector<std::vector<char>>& memory)
{
    return new (memory.emplace_back(sizeof(T)).data()) T {};
}

std::pair<sockaddr*, int> socketAddress(const char* text, std::vector<std::vector<char>>& memory)
{
    const auto address = fn::IPAddress::fromString(text);
    if (!address) throw std::invalid_argument(text);
    if (address->family() == fn::IPAddress::Family::IPv4) {
        auto* const result = make<sockaddr_in>(memory);
        result->sin_family = AF_INET;
        std::memcpy(&result->sin_addr, address->addr(), address->length());
        return { reinterpret_cast<sockaddr*>(result), sizeof(*result) };
    }
    auto* const result = make<sockaddr_in6>(memory);
    result->sin6_family = AF_INET6;
    result->sin6_scope_id = address->scope();
    std::memcpy(&result->sin6_addr, address->addr(), address->length());
    return { reinterpret_cast<sockaddr*>(result), sizeof(*result) };
}

template <typename Entry> Entry* makeList(const std::vector<const char*>& texts, std::vector<std::vector<char>>& memory)
{
    Entry* first = nullptr;
    Entry** link = &first;
    for (const auto* text : texts) {
        *link = make<Entry>(memory);
        const auto [address, size] = socketAddress(text, memory);
        (*link)->Address = { address, size };
        link = &(*link)->Next;
    }
    return first;
}

struct FakeAdapter {
    DWORD type = 6;
    std::vector<const char*> addresses;
    std::vector<const char*> gateways;
};

/// A system with adapters and neighbours as a test wants them.
class FakeNetwork {
public:
    FakeNetwork()
        : _adapters([this](ULONG, ULONG, IP_ADAPTER_ADDRESSES* buffer, ULONG* size) {
              ++calls;
              return list(buffer, *size);
          }),
          _neighbours([this](std::span<const BYTE> bytes, DWORD scope, HardwareAddress& hardwareAddress) {
              std::array<std::uint8_t, 16> full {};
              std::array<std::uint8_t, 4> shorter {};
              std::ranges::copy(bytes, full.begin());
              std::copy_n(bytes.begin(), 4, shorter.begin());
              return find(bytes.size() == 4 ? fn::IPAddress(shorter) : fn::IPAddress(full, scope), hardwareAddress);
          })
    {
    }

    std::vector<FakeAdapter> adapters;
    std::map<std::string, HardwareAddress> neighbours; ///< By the text of their address.
    std::vector<ULONG> errors; ///< What the next calls give instead of a list; 0: as it is.

    int calls = 0; ///< For the list of adapters: twice for each look at it, since its size is asked for first.

    void announce() { _changes.announce(); } ///< That something has changed.

private:
    ULONG list(IP_ADAPTER_ADDRESSES* buffer, ULONG& size)
    {
        if (!errors.empty()) {
            const auto error = errors.front();
            errors.erase(errors.begin());
            if (error != 0) return error;
        }
        if (adapters.empty()) return ERROR_NO_DATA;
        if (size < sizeof(*buffer)) {
            size = 300;
            return ERROR_BUFFER_OVERFLOW;
        }
        _memory.clear();
        IP_ADAPTER_ADDRESSES* entry = new (buffer) IP_ADAPTER_ADDRESSES {};
        for (std::size_t i = 0; i < adapters.size(); ++i) {
            if (i > 0) entry = entry->Next = make<IP_ADAPTER_ADDRESSES>(_memory);
            entry->IfType = adapters[i].type;
            entry->FirstUnicastAddress = makeList<IP_ADAPTER_UNICAST_ADDRESS>(adapters[i].addresses, _memory);
            entry->FirstGatewayAddress = makeList<IP_ADAPTER_GATEWAY_ADDRESS>(adapters[i].gateways, _memory);
        }
        return ERROR_SUCCESS;
    }

    DWORD find(const fn::IPAddress& address, HardwareAddress& hardwareAddress) const
    {
        const auto found = neighbours.find(address.toString().toStdString());
        if (found == neighbours.end()) return ERROR_NOT_FOUND;
        hardwareAddress = found->second;
        return ERROR_SUCCESS;
    }

    ScopedNetworkChanges _changes;
    ScopedAdaptersAddresses _adapters;
    ScopedNeighbours _neighbours;
    std::vector<std::vector<char>> _memory; // What the last list points into.
};

/// A machine with a network of the test's, a clock that it drives, and a loop.
struct Network : testing::Test {
    void setGateway(const char* gateway) { network.adapters = { { 6, { "192.168.1.10" }, { gateway } } }; }

    /// Has the signature hear of a change.
    void change()
    {
        const auto before = network.calls;
        network.announce();
        ASSERT_TRUE(test::runUntil(loop, [&] { return network.calls > before; }));
        test::runTurns(loop);
    }
    std::unique_ptr<NetworkSignature> makeSignature()
    {
        auto result = std::make_unique<NetworkSignature>(loop, notifier);
        test::runTurns(loop);
        return result;
    }
    void advance(int seconds)
    {
        clock.advance(fn::Duration::seconds(seconds));
        test::runTurns(loop);
    }

    FakeNetwork network;
    fn::ManualClock clock;
    fn::uv::Loop loop { clock };
    fn::NetworkStateNotifier notifier { loop };
};

// --- The text

TEST_F(Network, IsNamedByTheGatewaysOfQualifyingAdaptersEachOnceAndInOrder)
{
    struct Row {
        const char* what;
        std::vector<FakeAdapter> adapters;
        const char* expected;
    };
    const std::vector<Row> rows {
        { "Ethernet", { { 6, { "192.168.1.10" }, { "192.168.1.1" } } }, "c0a80101:001122334455" },
        { "wireless", { { 71, { "192.168.1.10" }, { "192.168.1.1" } } }, "c0a80101:001122334455" },
        { "tunnel, loopback, PPP",
            { { 131, { "192.168.1.10" }, { "192.168.1.1" } }, { 24, { "192.168.1.10" }, { "192.168.1.1" } },
                { 23, { "192.168.1.10" }, { "192.168.1.1" } } },
            unknown },
        { "the same gateway twice",
            { { 6, { "192.168.1.10" }, { "192.168.1.1", "10.0.0.1" } }, { 71, { "192.168.1.11" }, { "192.168.1.1" } } },
            "c0a80101:001122334455/0a000001:aabbccddeeff" },
        { "no neighbour", { { 6, { "10.0.0.9" }, { "10.0.0.2", "192.168.1.1" } } },
            "0a000002:000000000000/c0a80101:001122334455" },
        { "addresses that nobody reaches",
            { { 6, { "169.254.7.7" }, { "192.168.1.1" } },
                { 6, { "127.0.0.5", "0.0.0.0", "224.0.0.1", "255.255.255.255" }, { "192.168.1.1" } } },
            unknown },
        { "one good address is enough", { { 6, { "169.254.7.7", "fe80::5", "10.1.1.1" }, { "192.168.1.1" } } },
            "c0a80101:001122334455" },
        { "IPv6 addresses alone", { { 6, { "2001:db8::5" }, { "fe80::1%2", "192.168.1.1" } } }, unknown },
        { "IPv6 gateways alone, one on two adapters",
            { { 6, { "10.0.0.9" }, { "fe80::1%2", "2001:db8::1" } }, { 6, { "10.0.0.8" }, { "fe80::1%3" } } },
            "fe800000000000000000000000000001:001122334455/20010db8000000000000000000000001:aabbccddeeff" },
        { "IPv4 before all", { { 6, { "10.0.0.9" }, { "fe80::1%2" } }, { 6, { "10.0.0.8" }, { "192.168.1.1" } } },
            "c0a80101:001122334455" },
        { "no gateway", { { 6, { "10.0.0.9" }, {} } }, unknown },
    };
    network.neighbours = { { "192.168.1.1", router }, { "10.0.0.1", another }, { "fe80::1%2", router },
        { "2001:db8::1", another } };
    for (const auto& row : rows) {
        network.adapters = row.adapters;
        EXPECT_EQ(NetworkSignature(loop, notifier).get(), row.expected) << row.what;
    }
    test::runTurns(loop); // What they had posted finds them gone.
}

TEST_F(Network, ThatCannotBeReadIsUnknownAndTheLogSaysWhy)
{
    setGateway("10.0.0.1");
    const test::LogCapture log(1);
    const std::vector<std::vector<ULONG>> failures { { 8 }, { 0, 31 }, { 111, 111 } };
    for (const auto& errors : failures) {
        network.errors = errors;
        EXPECT_EQ(NetworkSignature(loop, notifier).get(), unknown);
        EXPECT_THAT(log.lines().back(), testing::EndsWith(fmt::format("info\nWindows error: 0x{:08x}", errors.back())));
    }
    EXPECT_EQ(NetworkSignature(loop, notifier).get(), "0a000001:000000000000");
    EXPECT_EQ(log.lines().size(), 4u);
    EXPECT_TRUE(log.contains("mac address for gateway 10.0.0.1: The hardware address is not known"));

    network.errors = { 87 };
    try {
        NetworkSignature::getActiveGateways();
        FAIL();
    } catch (const fn::IOException& exception) {
        EXPECT_EQ(exception.message(), "Could not get network adapters info");
    }
}

// --- Changes

TEST_F(Network, IsLookedAtAgainThreeTimesAfterEachAnnouncement)
{
    setGateway("192.168.1.1");
    const auto signature = makeSignature();
    std::vector<std::string> heard;
    const auto handle = signature->addChangeListener([&](const auto& text) { heard.push_back(text.toStdString()); });
    const auto computations = [&] { return network.calls / 2; };
    const auto start = computations();
    advance(60);
    EXPECT_EQ(computations(), start);

    const test::LogCapture log(4);
    change(); // Nothing that matters.
    EXPECT_EQ(computations(), start + 1);
    advance(2);
    EXPECT_EQ(computations(), start + 1);
    change(); // The re-checks of before are off.
    advance(2);
    EXPECT_EQ(computations(), start + 2);
    EXPECT_THAT(heard, ElementsAre());
    network.neighbours["192.168.1.1"] = router; // It has answered meanwhile.
    advance(1);
    EXPECT_EQ(computations(), start + 3);
    advance(3);
    EXPECT_EQ(computations(), start + 4);
    network.neighbours["192.168.1.1"] = another;
    advance(3);
    EXPECT_EQ(computations(), start + 4);
    advance(1);
    EXPECT_EQ(computations(), start + 5);
    advance(60);
    EXPECT_EQ(computations(), start + 5);
    EXPECT_THAT(heard, ElementsAre("c0a80101:001122334455", "c0a80101:aabbccddeeff"));
    EXPECT_EQ(signature->get(), "c0a80101:aabbccddeeff");
    EXPECT_TRUE(log.contains("4 core.networkSignature Notifying network signature change: c0a80101:aabbccddeeff"));
}

TEST_F(Network, ThatChangesBeforeTheLoopRunsIsHeardOf)
{
    setGateway("192.168.1.1");
    NetworkSignature signature(loop, notifier);
    std::string heard;
    const auto handle = signature.addChangeListener([&](const auto& text) { heard = text.toStdString(); });
    setGateway("10.0.0.1");
    EXPECT_TRUE(test::runUntil(loop, [&] { return heard == "0a000001:000000000000"; }));
    setGateway("10.0.0.2");
    change();
    EXPECT_EQ(heard, "0a000002:000000000000");
}

// --- Listeners

struct Listeners : Network {
    Listeners()
    {
        setGateway("10.0.0.1");
        signature = makeSignature();
    }
    /// Adds one that notes `name` and then does something.
    fn::Handle add(
        char name, folly::Function<void()> then = [] {})
    {
        return signature->addChangeListener([this, name, then = std::move(then)](const fn::String& text) mutable {
            heard += name;
            lastHeard = text;
            then();
        });
    }
    std::string heardAt(const char* gateway)
    {
        heard.clear();
        setGateway(gateway);
        change();
        return heard;
    }

    std::unique_ptr<NetworkSignature> signature;
    std::string heard;
    fn::String lastHeard;
};

TEST_F(Listeners, AreCalledInOrderWhateverTheyDoToTheList)
{
    std::vector<fn::Handle> handles(6);
    const auto token = std::make_shared<int>();
    handles[0] = add('a', [&] { handles[2].invalidate(); }); // One that is to come.
    handles[1] = add('b', [&, token] {
        handles[1].invalidate(); // Itself, which lives until it returns.
        EXPECT_EQ(token.use_count(), 2);
        handles[0].invalidate(); // One that has been.
    });
    handles[2] = add('c');
    handles[3] = add('d', [&] {
        if (!handles[5]) handles[5] = add('f'); // Not told this time.
    });
    handles[4] = add('e');
    EXPECT_EQ(heardAt("10.0.0.2"), "abde");
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_EQ(heardAt("10.0.0.3"), "def");
    handles[4].detach(); // Lives on.
    handles.clear();
    EXPECT_EQ(heardAt("10.0.0.4"), "e");
}

TEST_F(Listeners, ThatThrowDoNotKeepTheOthersFromHearing)
{
    const test::ExpectUnhandled unhandled;
    const auto first = add('a', [] { throw std::runtime_error("no"); });
    const auto second = add('b');
    EXPECT_EQ(heardAt("10.0.0.2"), "ab");
    EXPECT_THAT(unhandled.messages(), ElementsAre("no"));
}

TEST_F(Listeners, HearTheLatestTextLastAlsoWhenOneOfThemRunsTheLoop)
{
    fn::Handle second;
    const auto first = add('a', [&] {
        if (heard.size() > 1) return;
        second.invalidate();
        setGateway("10.0.0.3");
        change();
        loop.stop(); // The outer run.
    });
    second = add('b');
    const auto third = add('c');
    setGateway("10.0.0.2");
    network.announce();
    loop.run();
    EXPECT_EQ(heard, "aac");
    EXPECT_EQ(lastHeard, "0a000003:000000000000");
}

TEST_F(Listeners, MayBeOutlivedByTheirHandles)
{
    auto handle = add('a');
    signature.reset();
    EXPECT_FALSE(handle);
    handle.invalidate();
}

// --- The process's own

TEST(NetworkSignature, OfTheProcessMayBeMadeOnAnyThreadAndHearsOfChangesOnTheDefaultLoop)
{
    FakeNetwork network;
    network.adapters = { { 6, { "10.0.0.9" }, { "10.0.0.1" } } };
    NetworkSignature* made = nullptr;
    std::thread([&] { made = &NetworkSignature::instance(); }).join();
    ASSERT_EQ(made, &NetworkSignature::instance());
    EXPECT_EQ(made->get(), "0a000001:000000000000");

    auto& loop = fn::RunLoop::defaultLoop();
    test::runTurns(loop); // It subscribes.
    std::string heard;
    const auto handle = made->addChangeListener([&](const auto& text) {
        EXPECT_EQ(fn::RunLoop::currentLoop(), &loop);
        heard = text.toStdString();
    });
    network.adapters[0].gateways = { "10.0.0.2" };
    network.announce();
    EXPECT_TRUE(test::runUntil(loop, [&] { return heard == "0a000002:000000000000"; }));
}

} // namespace

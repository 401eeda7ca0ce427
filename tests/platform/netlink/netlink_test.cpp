// What can break here: a length that lies, bytes that end early, an answer that is not ours, one that is torn, an error taken for
// an answer.
#include "foundation/exceptions.h"
#include "platform/detail/network_adapters.h"
#include <gmock/gmock.h>
#include <random>

namespace {

using platform::NetlinkAttributes;
using platform::NetlinkMessages;
using testing::ElementsAre;

constexpr unsigned port = 77;
constexpr unsigned sequence = 5;

/// A datagram, message by message.
class Datagram {
public:
    nlmsghdr& add(std::uint16_t type, std::uint16_t flags = NLM_F_MULTI)
    {
        auto* const message = mnl_nlmsg_put_header(_bytes.data() + _size);
        message->nlmsg_type = type;
        message->nlmsg_flags = flags;
        message->nlmsg_seq = sequence;
        message->nlmsg_pid = port;
        _last = message;
        return *message;
    }
    template <typename Header> Header& putHeader()
    {
        return *static_cast<Header*>(mnl_nlmsg_put_extra_header(_last, sizeof(Header)));
    }
    template <typename T> void put(std::uint16_t type, const T& value)
    {
        mnl_attr_put(_last, type, sizeof(value), &value);
    }
    void finish() { _size += MNL_ALIGN(_last->nlmsg_len); }
    std::span<std::byte> bytes() { return std::span(_bytes).first(_size); }

private:
    alignas(8) std::array<std::byte, 4096> _bytes {};
    std::size_t _size = 0;
    nlmsghdr* _last = nullptr;
};

Datagram link(int index, const char (&name)[4])
{
    Datagram datagram;
    datagram.add(RTM_NEWLINK);
    auto& header = datagram.putHeader<ifinfomsg>();
    header.ifi_index = index;
    header.ifi_type = 1;
    datagram.put(IFLA_IFNAME, name);
    datagram.finish();
    return datagram;
}

std::vector<int> indices(const NetlinkMessages& messages)
{
    std::vector<int> result;
    messages.forEach<ifinfomsg>(
        RTM_NEWLINK, [&](const nlmsghdr&, const auto& header) { result.push_back(header.ifi_index); });
    return result;
}

TEST(NetlinkMessages, AreThoseOfTheAnswerUntilItsEndAndNoOthers)
{
    NetlinkMessages messages(port, sequence);
    auto foreign = link(1, "abc");
    reinterpret_cast<nlmsghdr*>(foreign.bytes().data())->nlmsg_pid = 1;
    EXPECT_FALSE(messages.take(foreign.bytes()));
    auto old = link(2, "abc");
    reinterpret_cast<nlmsghdr*>(old.bytes().data())->nlmsg_seq = 4;
    EXPECT_FALSE(messages.take(old.bytes()));
    EXPECT_FALSE(messages.take(link(3, "abc").bytes()));
    auto cut = link(4, "abc");
    EXPECT_FALSE(messages.take(cut.bytes().first(cut.bytes().size() - 1)));
    EXPECT_FALSE(messages.take({}));

    auto last = link(5, "abc");
    last.add(NLMSG_DONE);
    last.finish();
    last.add(RTM_NEWLINK);
    last.putHeader<ifinfomsg>().ifi_index = 6;
    last.finish();
    EXPECT_TRUE(messages.take(last.bytes()));
    EXPECT_THAT(indices(messages), ElementsAre(3, 5));
    EXPECT_FALSE(messages.isTorn());

    NetlinkMessages single(port, sequence);
    auto one = link(7, "abc");
    reinterpret_cast<nlmsghdr*>(one.bytes().data())->nlmsg_flags = 0;
    EXPECT_TRUE(single.take(one.bytes()));
}

TEST(NetlinkMessages, ThatAreNotWantedTakeNoRoom)
{
    const auto isSecond = [](const nlmsghdr& message) {
        const auto* const header = platform::headerOf<ifinfomsg>(message);
        return header && header->ifi_index == 2;
    };
    NetlinkMessages messages(port, sequence, isSecond);
    EXPECT_FALSE(messages.take(link(1, "abc").bytes()));
    EXPECT_FALSE(messages.take(link(2, "abc").bytes()));
    Datagram end;
    end.add(RTM_NEWLINK, NLM_F_MULTI | NLM_F_DUMP_INTR); // Too short for the filter.
    end.finish();
    end.add(NLMSG_DONE);
    end.finish();
    const auto kept = messages.bytes().size();
    EXPECT_TRUE(messages.take(end.bytes()));
    EXPECT_TRUE(messages.isTorn());
    EXPECT_THAT(indices(messages), ElementsAre(2));
    EXPECT_EQ(messages.bytes().size(), kept);
}

TEST(NetlinkMessages, SayThatTheyAreTornAndThrowTheirErrors)
{
    for (const int type : { int(RTM_NEWLINK), NLMSG_DONE }) {
        NetlinkMessages messages(port, sequence);
        Datagram torn;
        torn.add(static_cast<std::uint16_t>(type), NLM_F_MULTI | NLM_F_DUMP_INTR);
        torn.finish();
        messages.take(torn.bytes());
        EXPECT_TRUE(messages.isTorn());
    }
    for (const int type : { NLMSG_ERROR, NLMSG_DONE }) {
        for (const int code : { 0, -ENETUNREACH, INT_MIN }) {
            Datagram end;
            end.add(static_cast<std::uint16_t>(type));
            end.putHeader<int>() = code;
            end.finish();
            NetlinkMessages messages(port, sequence);
            try {
                EXPECT_TRUE(messages.take(end.bytes()));
                EXPECT_NE(code, -ENETUNREACH);
            } catch (const fn::IOException& exception) {
                EXPECT_EQ(*exception.find<fn::ErrnoInfo>(), -code);
            }
        }
    }
    Datagram tooShort;
    tooShort.add(NLMSG_ERROR);
    tooShort.finish();
    NetlinkMessages messages(port, sequence);
    EXPECT_THROW(messages.take(tooShort.bytes()), fn::IOException);
}

TEST(NetlinkAttributes, EndWhereALengthLies)
{
    Datagram datagram;
    datagram.add(RTM_NEWROUTE);
    datagram.putHeader<rtmsg>();
    const auto begin = MNL_NLMSG_HDRLEN + MNL_ALIGN(sizeof(rtmsg));
    datagram.put(RTA_TABLE, std::uint32_t(254));
    datagram.put(200, std::uint32_t(1)); // Unheard of.
    datagram.put(RTA_OIF, std::uint16_t(3)); // Too short for a number.
    datagram.put(RTA_PRIORITY, std::uint32_t(7));
    datagram.finish();
    auto& message = *reinterpret_cast<nlmsghdr*>(datagram.bytes().data());
    auto& table = *reinterpret_cast<nlattr*>(datagram.bytes().data() + begin);

    const NetlinkAttributes whole(message, sizeof(rtmsg));
    EXPECT_EQ(whole.number(RTA_TABLE), 254U);
    EXPECT_FALSE(whole.number(RTA_OIF));
    EXPECT_EQ(whole.bytes(RTA_OIF).size(), 2U);
    EXPECT_EQ(whole.number(RTA_PRIORITY), 7U);
    EXPECT_TRUE(whole.bytes(RTA_GATEWAY).empty());
    for (const std::uint16_t lie : { 0, 3, 1000, 65535 }) {
        table.nla_len = lie;
        const NetlinkAttributes attributes(message, sizeof(rtmsg));
        EXPECT_FALSE(attributes.number(RTA_TABLE)) << lie;
        EXPECT_FALSE(attributes.number(RTA_PRIORITY)) << lie;
    }
    message.nlmsg_len = MNL_NLMSG_HDRLEN + 2; // Ends within the header.
    EXPECT_TRUE(NetlinkAttributes(message, sizeof(rtmsg)).bytes(RTA_TABLE).empty());
}

// Any bytes of other shapes, and routes of several hops, come from the fuzz target.
TEST(NetworkAdapters, AreReadWhateverBytesOfTheKernelsAnswersAreWrong)
{
    const auto real = platform::readNetworkTables();
    std::mt19937 random(1);
    for (int round = 0; round < 5000; ++round) {
        auto tables = real;
        for (const auto* messages : { &tables.links, &tables.addresses, &tables.routes, &tables.routes6 }) {
            const auto bytes = messages->bytes();
            if (bytes.empty()) continue;
            const_cast<std::byte&>(bytes[random() % bytes.size()]) = static_cast<std::byte>(random());
        }
        std::size_t most = tables.links.bytes().size() / sizeof(nlmsghdr);
        EXPECT_LE(platform::networkAdapters(tables).size(), most) << round;
    }
}

} // namespace

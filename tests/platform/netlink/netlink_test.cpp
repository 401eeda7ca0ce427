// What can break here: a length that lies, bytes that end early, an answer that is torn or not ours, an error taken for an answer.
#include "foundation/exceptions.h"
#include "platform/detail/network_adapters.h"
#include <gmock/gmock.h>

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

Datagram link(int index, unsigned ofSequence = sequence, unsigned toPort = port)
{
    Datagram datagram;
    auto& message = datagram.add(RTM_NEWLINK);
    message.nlmsg_seq = ofSequence;
    message.nlmsg_pid = toPort;
    datagram.putHeader<ifinfomsg>().ifi_index = index;
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

TEST(NetlinkMessages, AreThoseOfTheAnswerUntilItsEndThatAreWantedAndNoOthers)
{
    NetlinkMessages messages(port, sequence, [](const nlmsghdr& message) {
        const auto* const header = platform::headerOf<ifinfomsg>(message);
        return header && header->ifi_index > 2;
    });
    auto foreign = link(3, sequence, 1), late = link(3, sequence - 1), unwanted = link(2), cut = link(4);
    for (auto bytes : { foreign.bytes(), late.bytes(), unwanted.bytes(), cut.bytes().first(cut.bytes().size() - 1),
             std::span<std::byte>() }) {
        EXPECT_FALSE(messages.take(bytes));
        EXPECT_TRUE(messages.bytes().empty());
    }
    EXPECT_FALSE(messages.take(link(3).bytes()));
    auto last = link(5);
    last.add(RTM_NEWLINK); // Too short for the filter.
    last.finish();
    last.add(NLMSG_DONE);
    last.finish();
    last.add(RTM_NEWLINK);
    last.putHeader<ifinfomsg>().ifi_index = 6;
    last.finish();
    EXPECT_TRUE(messages.take(last.bytes()));
    EXPECT_THAT(indices(messages), ElementsAre(3, 5));
    EXPECT_FALSE(messages.isTorn());

    NetlinkMessages single(port, sequence);
    auto one = link(7);
    reinterpret_cast<nlmsghdr*>(one.bytes().data())->nlmsg_flags = 0;
    EXPECT_TRUE(single.take(one.bytes()));
}

TEST(NetlinkMessages, SayThatTheyAreTornAndThrowTheirErrors)
{
    for (const std::uint16_t type : { std::uint16_t(RTM_NEWLINK), std::uint16_t(NLMSG_DONE) }) {
        NetlinkMessages messages(port, sequence, [](const nlmsghdr&) { return false; });
        Datagram torn;
        torn.add(type, NLM_F_MULTI | NLM_F_DUMP_INTR);
        torn.finish();
        messages.take(torn.bytes());
        EXPECT_TRUE(messages.isTorn());
    }
    for (const std::uint16_t type : { NLMSG_ERROR, NLMSG_DONE }) {
        for (const int code : { 0, -ENETUNREACH, INT_MIN }) {
            Datagram end;
            end.add(type);
            end.putHeader<int>() = code;
            end.finish();
            NetlinkMessages messages(port, sequence);
            try {
                EXPECT_TRUE(messages.take(end.bytes()));
                EXPECT_NE(code, -ENETUNREACH);
            } catch (const fn::IOException& exception) {
                EXPECT_EQ(*exception.find<fn::ErrnoInfo>(), ENETUNREACH);
            }
        }
    }
    Datagram tooShort;
    tooShort.add(NLMSG_ERROR);
    tooShort.finish();
    EXPECT_THROW(NetlinkMessages(port, sequence).take(tooShort.bytes()), fn::IOException);
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

} // namespace

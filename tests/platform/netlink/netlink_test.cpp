// What can break here: an answer that is torn or not ours, one that goes on behind its end, an error taken for an answer. What
// lies about its lengths is the fuzz target's.
#include "base/exceptions.h"
#include "platform/detail/netlink.h"
#include <gmock/gmock.h>

namespace {

using platform::NetlinkMessages;

constexpr unsigned port = 77;
constexpr unsigned sequence = 5;

/// One of the answer. The number is a link's index, or the code of its end.
struct Message {
    explicit Message(int type, int number = 0)
        : header { sizeof(Message), static_cast<std::uint16_t>(type), NLM_F_MULTI, sequence, port }
    {
        link.ifi_index = number;
        if (type != RTM_NEWLINK) std::memcpy(&link, &number, sizeof(number));
    }
    nlmsghdr header;
    ifinfomsg link {};
};
using Datagram = std::vector<Message>;

bool take(NetlinkMessages& messages, const Datagram& datagram)
{
    return messages.take(std::as_bytes(std::span(datagram)));
}

TEST(NetlinkMessages, AreThoseOfTheAnswerUntilItsEndThatAreWantedAndNoOthers)
{
    NetlinkMessages messages(port, sequence, [](const nlmsghdr& message) {
        const auto* const header = platform::headerOf<ifinfomsg>(message);
        return header && header->ifi_index > 2;
    });
    Datagram passedOver(4, Message(RTM_NEWLINK, 3));
    passedOver[0].header.nlmsg_pid = 1;
    passedOver[1].header.nlmsg_seq = sequence - 1;
    passedOver[2].link.ifi_index = 2; // Not wanted.
    passedOver[3].header.nlmsg_len = MNL_NLMSG_HDRLEN + 4; // Too short for the filter.
    EXPECT_FALSE(take(messages, passedOver));
    const Message cut(RTM_NEWLINK, 4);
    EXPECT_FALSE(messages.take(std::as_bytes(std::span(&cut, 1)).first(sizeof(cut) - 1)));
    EXPECT_FALSE(messages.take({}));
    EXPECT_TRUE(messages.bytes().empty());
    EXPECT_FALSE(take(messages, { Message(RTM_NEWLINK, 3) }));
    EXPECT_TRUE(take(messages, { Message(RTM_NEWLINK, 5), Message(NLMSG_DONE), Message(RTM_NEWLINK, 6) }));
    EXPECT_FALSE(messages.isTorn());
    std::vector<int> found;
    messages.forEach<ifinfomsg>(RTM_NEWLINK, [&](const auto&, const auto& link) { found.push_back(link.ifi_index); });
    EXPECT_THAT(found, testing::ElementsAre(3, 5));

    Datagram single { Message(RTM_NEWLINK, 7) };
    single[0].header.nlmsg_flags = 0;
    EXPECT_TRUE(take(messages, single));
}

TEST(NetlinkMessages, SayThatTheyAreTornAndThrowTheirErrors)
{
    for (const int type : { int(RTM_NEWLINK), NLMSG_DONE }) { // Also where nobody wants the message.
        NetlinkMessages messages(port, sequence, [](const nlmsghdr&) { return false; });
        Datagram torn { Message(type) };
        torn[0].header.nlmsg_flags |= NLM_F_DUMP_INTR;
        take(messages, torn);
        EXPECT_TRUE(messages.isTorn());
    }
    for (const int type : { NLMSG_ERROR, NLMSG_DONE }) {
        NetlinkMessages messages(port, sequence);
        EXPECT_THAT([&] { take(messages, { Message(type, -ENETUNREACH) }); },
            testing::ThrowsMessage<fn::IOException>(testing::HasSubstr("unreachable")));
    }
}

} // namespace

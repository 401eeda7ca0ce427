#include "platform/detail/netlink.h"
#include "base/posix.h"
#include <atomic>
#include <cerrno>
#include <climits>
#include <sys/time.h>

namespace platform {
namespace {

using fn::posix::fail;

// The kernel fills datagrams of up to 32 KiB, and larger ones only for a larger message.
constexpr std::size_t datagramBytes = 64 * 1024;
constexpr std::size_t maxAnswerBytes = 64 * 1024 * 1024;
constexpr int maxAttempts = 16; // A table that changes this often changes all the time.
constexpr timeval patience = { .tv_sec = 2, .tv_usec = 0 };

// The errno that the last message of an answer tells, or 0. Both kinds of last messages begin with the negative errno.
int endCode(const nlmsghdr& message)
{
    int code = 0;
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(code)) return message.nlmsg_type == NLMSG_ERROR ? EBADMSG : 0;
    std::memcpy(&code, mnl_nlmsg_get_payload(&message), sizeof(code));
    return code < 0 && code != INT_MIN ? -code : 0;
}

void receive(const NetlinkSocket& socket, NetlinkMessages& messages)
{
    const auto datagram = std::make_unique_for_overwrite<std::byte[]>(datagramBytes);
    for (bool isComplete = false; !isComplete;) {
        const auto size = mnl_socket_recvfrom(socket.get(), datagram.get(), datagramBytes); // Refuses a cut datagram.
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) fail("Could not read the routing service's answer");
        isComplete = messages.take({ datagram.get(), static_cast<std::size_t>(size) });
    }
}

} // namespace

NetlinkSocket::NetlinkSocket(unsigned groups, int flags)
    : _socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | flags))
{
    if (!_socket) fail("Could not open a routing socket");
    if (mnl_socket_bind(_socket.get(), groups, MNL_SOCKET_AUTOPID) < 0) fail("Could not bind a routing socket");
}

NetlinkRequest::NetlinkRequest(std::uint16_t type, std::uint16_t flags)
{
    auto* const header = mnl_nlmsg_put_header(_bytes.data());
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
}

void NetlinkRequest::put(std::uint16_t attribute, std::span<const std::uint8_t> bytes)
{
    if (!mnl_attr_put_check(message(), _bytes.size(), attribute, bytes.size(), bytes.data()))
        fail("Routing request too large", EMSGSIZE);
}

bool NetlinkMessages::take(std::span<const std::byte> datagram)
{
    for (; const auto* message = firstMessage(datagram); datagram = behind(*message, datagram)) {
        if (message->nlmsg_seq != _sequence || message->nlmsg_pid != _port) continue;
        if (message->nlmsg_flags & NLM_F_DUMP_INTR) _isTorn = true;
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
            if (const int error = endCode(*message)) fail("The routing service refused", error);
            return true;
        }
        if (!_filter || _filter(*message)) append(*message);
        if (!(message->nlmsg_flags & NLM_F_MULTI)) return true;
    }
    return false;
}

void NetlinkMessages::append(const nlmsghdr& message)
{
    if (_bytes.size() + message.nlmsg_len > maxAnswerBytes) fail("Routing answer too large", EMSGSIZE);
    const auto* const begin = reinterpret_cast<const std::byte*>(&message);
    _bytes.insert(_bytes.end(), begin, begin + message.nlmsg_len);
    _bytes.resize(MNL_ALIGN(_bytes.size()));
}

NetlinkMessages askNetlink(NetlinkRequest request, NetlinkFilter filter)
{
    static std::atomic<unsigned> sequences { 0 };
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        const NetlinkSocket socket; // New each time: the unread rest of an answer goes with its socket.
        (void)::setsockopt(socket.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        const auto sequence = request.message()->nlmsg_seq = ++sequences;
        if (mnl_socket_sendto(socket.get(), request.message(), request.message()->nlmsg_len) < 0)
            fail("Could not ask the routing service");
        NetlinkMessages messages(socket.port(), sequence, filter);
        receive(socket, messages);
        if (!messages.isTorn()) return messages;
    }
    fail("The routing tables do not stand still", EAGAIN);
}

NetlinkAttributes::NetlinkAttributes(const nlmsghdr& message, std::size_t headerBytes)
    : NetlinkAttributes([&]() -> std::span<const std::uint8_t> {
          const std::span all(
              static_cast<const std::uint8_t*>(mnl_nlmsg_get_payload(&message)), mnl_nlmsg_get_payload_len(&message));
          return all.subspan(std::min<std::size_t>(MNL_ALIGN(headerBytes), all.size()));
      }())
{
}

NetlinkAttributes::NetlinkAttributes(std::span<const std::uint8_t> attributes)
{
    const auto* attribute = reinterpret_cast<const nlattr*>(attributes.data());
    for (int left = static_cast<int>(attributes.size()); mnl_attr_ok(attribute, left);
         left -= MNL_ALIGN(mnl_attr_get_len(attribute)), attribute = mnl_attr_next(attribute)) {
        const auto number = mnl_attr_get_type(attribute);
        if (number >= count) continue;
        _attributes[number] = { static_cast<const std::uint8_t*>(mnl_attr_get_payload(attribute)),
            mnl_attr_get_payload_len(attribute) };
    }
}

} // namespace platform

#pragma once
#include "base/exceptions.h"
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace platform {

/// The message that `bytes` begin with; null if `bytes` do not hold the whole message. The length is checked here, since libmnl
/// takes it for a signed number.
inline const nlmsghdr* firstMessage(std::span<const std::byte> bytes) noexcept
{
    if (bytes.size() < sizeof(nlmsghdr)) return nullptr;
    const auto* const message = reinterpret_cast<const nlmsghdr*>(bytes.data());
    return message->nlmsg_len >= sizeof(*message) && message->nlmsg_len <= bytes.size() ? message : nullptr;
}

/// The bytes behind `message`, which `bytes` begin with.
inline std::span<const std::byte> behind(const nlmsghdr& message, std::span<const std::byte> bytes) noexcept
{
    return bytes.subspan(std::min<std::size_t>(MNL_ALIGN(std::size_t { message.nlmsg_len }), bytes.size()));
}

/// A socket to the kernel's routing service. Close-on-exec.
class NetlinkSocket {
public:
    /// `groups` are the RTMGRP_... bits whose announcements arrive; `flags` are for socket(2). `fn::IOException` on failure.
    explicit NetlinkSocket(unsigned groups = 0, int flags = 0);

    mnl_socket* get() const noexcept { return _socket.get(); }
    int descriptor() const noexcept { return mnl_socket_get_fd(_socket.get()); }
    unsigned port() const noexcept { return mnl_socket_get_portid(_socket.get()); }

private:
    struct Close {
        void operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }
    };
    std::unique_ptr<mnl_socket, Close> _socket;
};

/// A request to be filled in: the header of its kind, then attributes. There is room for a few small attributes.
class NetlinkRequest {
public:
    NetlinkRequest(std::uint16_t type, std::uint16_t flags);

    template <typename Header> Header& putHeader()
    {
        return *static_cast<Header*>(mnl_nlmsg_put_extra_header(message(), sizeof(Header)));
    }
    void put(std::uint16_t attribute, std::span<const std::uint8_t> bytes);

    nlmsghdr* message() noexcept { return reinterpret_cast<nlmsghdr*>(_bytes.data()); }

private:
    alignas(nlmsghdr) std::array<std::byte, 256> _bytes {};
};

/// Decides which messages of an answer are kept. Null: all.
using NetlinkFilter = bool (*)(const nlmsghdr& message);

/// The header with which `message` begins; null if `message` is too short for it.
template <typename Header> const Header* headerOf(const nlmsghdr& message) noexcept
{
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(Header)) return nullptr;
    return static_cast<const Header*>(mnl_nlmsg_get_payload(&message));
}

/// The messages of one answer, one behind the other, which are taken from its datagrams.
class NetlinkMessages {
public:
    /// Collects the answer to request `sequence` of the socket `port`; other messages are passed over.
    NetlinkMessages(unsigned port, unsigned sequence, NetlinkFilter filter = nullptr)
        : _port(port),
          _sequence(sequence),
          _filter(filter)
    {
    }

    /// Takes a datagram, and returns whether the answer is complete. `fn::IOException` with the errno of an answer that tells one,
    /// or if the kept messages get too large.
    bool take(std::span<const std::byte> datagram);

    /// Whether the kernel's table changed during the answer, whose parts then do not fit together.
    bool isTorn() const noexcept { return _isTorn; }

    std::span<const std::byte> bytes() const noexcept { return _bytes; }

    /// Calls `visit(const nlmsghdr&, const Header&)` for each message of `type` that is large enough for its header.
    template <typename Header, typename Visit> void forEach(std::uint16_t type, Visit&& visit) const
    {
        std::span<const std::byte> left(_bytes);
        for (; const auto* message = firstMessage(left); left = behind(*message, left)) {
            const auto* const header = headerOf<Header>(*message);
            if (message->nlmsg_type == type && header) visit(*message, *header);
        }
    }

private:
    void append(const nlmsghdr& message);

    unsigned _port;
    unsigned _sequence;
    NetlinkFilter _filter;
    bool _isTorn = false;
    std::vector<std::byte> _bytes; // Whole messages.
};

/// Sends `request` and waits for the whole answer, which the kernel gives at once. After a torn answer the request is sent again.
/// `fn::IOException` with the errno on failure: ENETUNREACH and the like are the kernel's own answers. Thread-safe.
NetlinkMessages askNetlink(NetlinkRequest request, NetlinkFilter filter = nullptr);

/// The attributes of a message, by number. Valid while the message is.
class NetlinkAttributes {
public:
    static constexpr std::size_t count = 64; ///< Higher numbers are passed over.

    NetlinkAttributes(const nlmsghdr& message, std::size_t headerBytes);
    explicit NetlinkAttributes(std::span<const std::uint8_t> attributes);

    /// The bytes of an attribute; empty if the attribute is missing.
    std::span<const std::uint8_t> bytes(std::size_t attribute) const noexcept { return _attributes[attribute]; }

    std::optional<std::uint32_t> number(std::size_t attribute) const noexcept
    {
        const auto found = bytes(attribute);
        std::uint32_t result;
        if (found.size() < sizeof(result)) return std::nullopt;
        std::memcpy(&result, found.data(), sizeof(result));
        return result;
    }

private:
    std::array<std::span<const std::uint8_t>, count> _attributes;
};

} // namespace platform

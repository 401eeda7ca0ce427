#pragma once
#include "base/byte_array.h"
#include <optional>
#include <string>
#include <string_view>

namespace inspector_web {

struct RequestHead;

/// Decides which requests are answered. The server listens on this machine alone, but its other users, and pages of other sites
/// in the user's browser, reach it, too. They do not know the token; and a page of a site whose name was resolved to this
/// machine is told by the Host header of its requests.
class Access {
public:
    static constexpr std::size_t tokenBytes = 32; ///< Too many to guess.
    static constexpr std::string_view scheme = "http://";

    explicit Access(int port); ///< Draws a token from the system's random source.

    std::string address() const; ///< The address for the user's browser, with the token.

    /// 200 for a request that is answered. 403 if Host or Origin is not the address that the user was given (browsers leave Origin
    /// out of plain navigation; then Host decides alone). 404 without the right token: neither status tells more than it must.
    int statusOf(const RequestHead& head) const;

    /// The part of a path behind the token; empty without the right token. The time that this takes tells nothing about it.
    std::optional<std::string> below(std::string_view path) const;

private:
    bool isOwnHost(std::string_view host) const;
    bool isOwnOrigin(std::string_view origin) const;

    const std::string _port;
    const std::string _token;
    const fn::ByteArray _tokenDigest;
};

} // namespace inspector_web

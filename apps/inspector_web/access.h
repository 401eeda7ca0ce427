#pragma once
#include "base/byte_array.h"
#include <optional>
#include <string>
#include <string_view>

namespace inspector_web {

struct RequestHead;

/// Who may ask. The server listens on this machine alone, but other users of it, and pages of other sites in the user's
/// browser, reach it, too: they do not know the token, and a page of another site that had its name resolved to this machine
/// is known by its Host.
class Access {
public:
    static constexpr std::size_t tokenBytes = 32; ///< Nobody guesses one.
    static constexpr std::string_view scheme = "http://";

    explicit Access(int port); ///< Draws a token from the system's random source.

    std::string address() const; ///< For the user; with the token.

    /// 200 for who may ask, and else the status that says no more than it must: 403 where the request does not come from where
    /// we sent the browser (without an Origin, which browsers leave out of plain navigation, Host decides alone), 404 where it
    /// does not know the token.
    int statusOf(const RequestHead& head) const;

    /// What follows the token in a path; empty without the right one. How long that takes tells nothing about the token.
    std::optional<std::string> below(std::string_view path) const;

private:
    bool isOwnHost(std::string_view host) const;
    bool isOwnOrigin(std::string_view origin) const;

    const std::string _port;
    const std::string _token;
    const fn::ByteArray _tokenDigest;
};

} // namespace inspector_web

#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace media {

/// Who may ask. The server listens on this machine alone, but other users of it, and pages of other sites in the user's
/// browser, reach it, too: they do not know the token, and a page of another site that had its name resolved to this machine
/// is known by its Host. Thread-safe: nothing changes.
class Access {
public:
    explicit Access(int port); ///< Draws a token from the system's random source.

    std::string address() const; ///< For the user; with the token.

    /// Whether a request comes from where we sent the browser. Without an Origin, which browsers leave out of plain
    /// navigation, Host decides alone.
    bool isOwnHost(std::string_view host) const;
    bool isOwnOrigin(std::string_view origin) const;

    /// What follows the token in a path; empty without the right one. Takes as long for every wrong token.
    std::optional<std::string> below(std::string_view path) const;

private:
    const std::string _port;
    const std::string _token;
};

} // namespace media

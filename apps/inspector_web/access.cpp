#include "inspector_web/access.h"
#include "inspector_web/request_head.h"
#include <array>
#include <cerrno>
#include <sys/random.h>
#include <system_error>

namespace inspector_web {
namespace {

std::string randomToken()
{
    std::array<unsigned char, Access::tokenBytes> bytes;
    // The system gives so few bytes in one piece.
    while (::getrandom(bytes.data(), bytes.size(), 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return std::string(fn::ByteArray(bytes.data(), bytes.size()).hex().view());
}

} // namespace

Access::Access(int port)
    : _port(std::to_string(port)),
      _token(randomToken()),
      _tokenDigest(fn::ByteArray(_token).SHA256())
{
}

std::string Access::address() const { return std::string(scheme) + "127.0.0.1:" + _port + "/" + _token + "/"; }

bool Access::isOwnHost(std::string_view host) const
{
    return host == "127.0.0.1:" + _port || host == "localhost:" + _port;
}

bool Access::isOwnOrigin(std::string_view origin) const
{
    return origin.starts_with(scheme) && isOwnHost(origin.substr(scheme.size()));
}

int Access::statusOf(const RequestHead& head) const
{
    if (head.hosts.size() != 1 || !isOwnHost(head.hosts[0])) return 403;
    if (!head.targetHost.empty() && !isOwnHost(head.targetHost)) return 403;
    if (head.origins.size() > 1 || (head.origins.size() == 1 && !isOwnOrigin(head.origins[0]))) return 403;
    return below(head.path) ? 200 : 404;
}

std::optional<std::string> Access::below(std::string_view path) const
{
    if (path.size() < _token.size() + 2 || path.front() != '/' || path[_token.size() + 1] != '/') return std::nullopt;
    // The digests are compared: the time that this takes tells nothing about the first bytes of the token.
    if (fn::ByteArray(path.substr(1, _token.size())).SHA256() != _tokenDigest) return std::nullopt;
    return std::string(path.substr(_token.size() + 2));
}

} // namespace inspector_web

#include "inspector_web/access.h"
#include "base/byte_array.h"
#include "inspector_web/request_head.h"
#include <array>
#include <cerrno>
#include <sys/random.h>
#include <system_error>

namespace media {
namespace {

std::string randomToken()
{
    std::array<unsigned char, Access::tokenBytes> bytes;
    // So few bytes come whole.
    while (::getrandom(bytes.data(), bytes.size(), 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return std::string(fn::ByteArray(bytes.data(), bytes.size()).hex().view());
}

bool equalInConstantTime(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    volatile unsigned char difference = 0; // Keeps the loop from ending early.
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference = difference | static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return difference == 0;
}

} // namespace

Access::Access(int port) : _port(std::to_string(port)), _token(randomToken()) { }

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
    const auto& [target, hosts, origins] = head;
    if (hosts.size() != 1 || !isOwnHost(hosts[0])) return 403;
    if (!target.host.empty() && !isOwnHost(target.host)) return 403;
    if (origins.size() > 1 || (origins.size() == 1 && !isOwnOrigin(origins[0]))) return 403;
    return below(target.path) ? 200 : 404;
}

std::optional<std::string> Access::below(std::string_view path) const
{
    if (path.size() < _token.size() + 2) return std::nullopt;
    const bool isKnown = equalInConstantTime(path.substr(1, _token.size()), _token);
    if (!isKnown || path.front() != '/' || path[_token.size() + 1] != '/') return std::nullopt;
    return std::string(path.substr(_token.size() + 2));
}

} // namespace media

#include "inspector_web/http_server.h"
#include "base/exceptions.h"
#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

namespace inspector_web {
namespace {

fn::FileDescriptor listenOnLoopback()
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    fn::FileDescriptor result(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!result || ::bind(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0
        || ::listen(result.get(), SOMAXCONN) != 0)
        throw fn::with(fn::IOException("Cannot listen on the loopback address"), fn::ErrnoInfo { errno });
    return result;
}

int portOf(const fn::FileDescriptor& socket)
{
    sockaddr_in address {};
    socklen_t size = sizeof address;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

} // namespace

HttpServer::HttpServer(fn::uv::Loop& loop, Answering answering)
    : _loop(loop),
      _answering(std::move(answering)),
      _socket(listenOnLoopback()),
      _access(portOf(_socket)),
      _newcomers(loop, _socket.get(), [this] { accept(); })
{
}

HttpServer::~HttpServer() = default;

void HttpServer::accept()
{
    fn::FileDescriptor socket(::accept4(_socket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) return; // The browser has closed the connection already.
    makeRoom();
    if (_connections.size() == mostConnections) return; // All connections are being answered: drops this one.
    _connections.emplace_back(_loop, std::move(socket), _access, _answering);
    _connections.back().start([this, self = std::prev(_connections.end())] { _connections.erase(self); });
}

void HttpServer::makeRoom()
{
    if (_connections.size() < mostConnections) return;
    const auto eldest = std::ranges::find_if_not(_connections, &HttpConnection::isOwedAnAnswer);
    if (eldest != _connections.end()) _connections.erase(eldest);
}

} // namespace inspector_web

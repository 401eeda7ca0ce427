#pragma once
#include "base/file_descriptor.h"
#include "foundation/uv/poll.h"
#include "inspector_web/access.h"
#include "inspector_web/http_connection.h"
#include <list>

namespace inspector_web {

/// A web server for this machine's user alone, on one loop. It listens on the loopback address only, asks for a token (see
/// Access), and takes nothing but GET, one request a connection. It bounds the bytes and the time of a connection, and the
/// number of connections. Belongs to the loop's thread.
class HttpServer {
public:
    /// At a time. Browsers open more than they use: a further connection replaces the oldest that is not being answered.
    static constexpr std::size_t mostConnections = 64;

    HttpServer(fn::uv::Loop& loop, Answering answering); ///< Listens. `fn::IOException` where it cannot.
    HttpServer(const HttpServer&) = delete;
    ~HttpServer(); ///< Closes all connections.

    const Access& access() const { return _access; }

private:
    void accept();
    void makeRoom();

    fn::uv::Loop& _loop;
    Answering _answering;
    const fn::FileDescriptor _socket;
    const Access _access;
    std::list<HttpConnection> _connections; // Oldest first.
    const fn::uv::Poll _newcomers;
};

} // namespace inspector_web

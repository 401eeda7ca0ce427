#pragma once
#include "base/file_descriptor.h"
#include "foundation/uv/poll.h"
#include "inspector_web/access.h"
#include "inspector_web/http_connection.h"
#include <list>

namespace inspector_web {

/// A web server for this machine's user alone, on one loop. It listens on the loopback address only, asks for a token (see
/// Access), takes nothing but GET, one request a connection, and bounds what a connection may send, how long it may take and
/// how many of them there are. Loop thread.
class HttpServer {
public:
    /// At once. Browsers open more than they use: who comes then takes the place of the first to whom no answer is owed.
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
    std::list<HttpConnection> _connections; // In the order in which they came.
    const fn::uv::Poll _newcomers;
};

} // namespace inspector_web

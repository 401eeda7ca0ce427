#pragma once
#include "inspector_web/web_request.h"
#include <functional>
#include <memory>

namespace media {

/// A web server for this machine's user alone. It listens on the loopback address only, asks for a token (see Access), takes
/// nothing but GET, and bounds what a connection may send, how long it may take and how many of them there are: who is too
/// many waits.
class HttpServer {
public:
    static constexpr int connections = 16; ///< At once. Browsers open more than they use.
    static constexpr int waiting = 128; ///< In the kernel, for their turn.

    using Answering =
        std::function<WebAnswer(const WebRequest&)>; ///< On one of the server's threads, on several at once.

    explicit HttpServer(Answering answering); ///< Listens. `std::runtime_error` where it cannot.
    HttpServer(const HttpServer&) = delete;
    ~HttpServer(); ///< Closes all connections and ends all threads, for which nothing that answers may wait any more.

    std::string address() const; ///< What the user opens.

private:
    class Private;
    std::unique_ptr<Private> _private;
};

} // namespace media

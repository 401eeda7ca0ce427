#include "inspector_web/http_server.h"
#include "base/file_descriptor.h"
#include "foundation/unhandled_exception.h"
#include "inspector_web/access.h"
#include "inspector_web/bounded_stream.h"
#include "inspector_web/html_page.h"
#include "inspector_web/request_head.h"
#include <atomic>
#include <fmt/format.h>
#include <mutex>
#include <semaphore>
#include <set>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace media {
namespace {

constexpr auto loopback = "127.0.0.1";
constexpr auto plainText = "text/plain; charset=utf-8";

/// The library's own queue grows without bound. Here who accepts waits for a free thread, and the rest waits in the kernel.
class Threads final : public httplib::TaskQueue {
public:
    explicit Threads(std::atomic<bool>& othersWait) : _othersWait(othersWait) { }

    void enqueue(std::function<void()> task) override
    {
        if (!_free.try_acquire()) {
            _othersWait = true;
            _free.acquire();
            _othersWait = false;
        }
        _pool.enqueue([this, task = std::move(task)] {
            task();
            _free.release();
        });
    }
    void shutdown() override { _pool.shutdown(); }

private:
    std::atomic<bool>& _othersWait;
    httplib::ThreadPool _pool { HttpServer::connections };
    std::counting_semaphore<HttpServer::connections> _free { HttpServer::connections };
};

httplib::Headers defaultHeaders()
{
    return { { "Content-Security-Policy", HtmlPage::contentSecurityPolicy() }, { "X-Content-Type-Options", "nosniff" },
        { "Referrer-Policy", "no-referrer" }, { "Cache-Control", "no-store" },
        { "Cross-Origin-Resource-Policy", "same-origin" } };
}

/// For who may not ask: nothing of the request has been given to the library.
void refuse(httplib::Stream& stream, int status)
{
    const std::string_view text = status == 403 ? "Forbidden" : "Not found";
    auto answer = fmt::format("HTTP/1.1 {} {}\r\nConnection: close\r\nContent-Type: {}\r\nContent-Length: {}\r\n",
        status, text, plainText, text.size() + 1);
    for (const auto& [name, value] : defaultHeaders()) answer += name + ": " + value + "\r\n";
    answer += fmt::format("\r\n{}\n", text);
    stream.write(answer.data(), answer.size());
}

} // namespace

class HttpServer::Private final : httplib::Server {
public:
    explicit Private(Answering answering) : _answering(std::move(answering))
    {
        set_socket_options([](socket_t) {}); // Those of the library would share the port.
        const int port = bind_to_any_port(loopback);
        if (port < 0) throw std::runtime_error("cannot listen on " + std::string(loopback));
        _listening = fn::FileDescriptor(::dup(svr_sock_));
        ::listen(svr_sock_, waiting);
        _access.emplace(port);
        new_task_queue = [this] { return new Threads(_othersWait); };
        set_default_headers(defaultHeaders());
        set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            respond(request, response);
            return HandlerResponse::Handled; // Each request: the library routes nothing.
        });
        _thread = std::thread([this] {
            try {
                listen_after_bind();
            } catch (...) { // Its threads cannot be started.
                fn::unhandledException();
            }
        });
    }

    ~Private() override
    {
        ::shutdown(_listening.get(), SHUT_RDWR); // The library closes it then, and joins its threads.
        {
            const std::lock_guard lock(_lock);
            _isClosing = true;
            for (const int socket : _sockets) ::shutdown(socket, SHUT_RDWR);
        }
        _thread.join();
    }

    const Access& access() const { return *_access; }

private:
    /// A connection is for one request.
    bool process_and_close_socket(socket_t socket) override
    {
        const fn::FileDescriptor owner(socket);
        if (!enter(socket)) return false;
        bool success = false;
        try {
            success = process(socket);
        } catch (...) {
            fn::unhandledException();
        }
        leave(socket);
        return success;
    }

    bool process(int socket)
    {
        BoundedStream stream(socket, _othersWait);
        const auto head = stream.awaitHead();
        if (head.empty()) return false; // A browser that had it ready, perhaps.
        if (const int status = _access->statusOf(RequestHead(head)); status != 200) {
            refuse(stream, status);
            return true;
        }
        bool isClosed = false;
        return process_request(stream, true, isClosed, [](httplib::Request& request) { request.ranges.clear(); });
    }

    bool enter(int socket)
    {
        const std::lock_guard lock(_lock);
        return !_isClosing && _sockets.insert(socket).second;
    }

    void leave(int socket)
    {
        const std::lock_guard lock(_lock);
        _sockets.erase(socket);
        ::shutdown(socket, SHUT_RDWR);
    }

    /// Of who may ask.
    void respond(const httplib::Request& request, httplib::Response& response) const
    {
        if (request.method != "GET") {
            response.status = 405;
            response.set_header("Allow", "GET");
            response.set_content("Method not allowed\n", plainText);
            return;
        }
        const auto path = _access->below(RequestTarget(request.path).path);
        WebRequest asked { path.value_or(std::string()), {} };
        for (const auto& [name, value] : request.params) asked.parameters.emplace(name, value);
        const auto answer = _answering(asked);
        response.status = answer.status;
        response.set_content(answer.html, "text/html; charset=utf-8");
    }

    const Answering _answering;
    std::optional<Access> _access; // Since there is a port.
    fn::FileDescriptor _listening; // Another descriptor of what the library accepts from: the library closes its own.
    std::mutex _lock;
    std::set<int> _sockets; // Of connections. Guarded by the lock, as is the next one.
    bool _isClosing = false;
    std::atomic<bool> _othersWait { false }; // For a thread.
    std::thread _thread; // Accepts.
};

HttpServer::HttpServer(Answering answering) : _private(std::make_unique<Private>(std::move(answering))) { }
HttpServer::~HttpServer() = default;

std::string HttpServer::address() const { return _private->access().address(); }

} // namespace media

#include "inspector_web/http_server.h"
#include "foundation/io/file_descriptor.h"
#include "foundation/unhandled_exception.h"
#include "inspector_web/access.h"
#include "inspector_web/bounded_stream.h"
#include "inspector_web/html_page.h"
#include <mutex>
#include <semaphore>
#include <set>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace media {
namespace {

constexpr int connections = 16; // At once. Browsers open more than they use.
constexpr int waiting = 64; // In the kernel, for their turn. The library asks for hardly any.
constexpr auto loopback = "127.0.0.1";

/// The library's own queue grows without bound. Here who accepts waits for a free thread, and the rest waits in the kernel.
class Threads final : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> task) override
    {
        _free.acquire();
        _pool.enqueue([this, task = std::move(task)] {
            task();
            _free.release();
        });
    }
    void shutdown() override { _pool.shutdown(); }

private:
    httplib::ThreadPool _pool { connections };
    std::counting_semaphore<connections> _free { connections };
};

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
        new_task_queue = [] { return new Threads; };
        set_default_headers({ { "Content-Security-Policy", HtmlPage::contentSecurityPolicy() },
            { "X-Content-Type-Options", "nosniff" }, { "Referrer-Policy", "no-referrer" },
            { "Cache-Control", "no-store" }, { "Cross-Origin-Resource-Policy", "same-origin" } });
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
            BoundedStream stream(socket);
            bool isClosed = false;
            success =
                process_request(stream, true, isClosed, [](httplib::Request& request) { request.ranges.clear(); });
        } catch (...) {
            fn::unhandledException();
        }
        leave(socket);
        return success;
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

    /// Whether all headers of that name have one acceptable value.
    template <typename Check> static bool isOne(const httplib::Request& request, const char* name, Check check)
    {
        return request.get_header_value_count(name) == 1 && check(request.get_header_value(name));
    }

    void respond(const httplib::Request& request, httplib::Response& response) const
    {
        const auto refuse = [&](int status, const char* text) {
            response.status = status;
            response.set_content(text, "text/plain; charset=utf-8");
        };
        const auto isOwnHost = [&](const std::string& host) { return _access->isOwnHost(host); };
        const auto isOwnOrigin = [&](const std::string& origin) { return _access->isOwnOrigin(origin); };
        if (!isOne(request, "Host", isOwnHost)) return refuse(403, "Forbidden\n");
        if (request.has_header("Origin") && !isOne(request, "Origin", isOwnOrigin)) return refuse(403, "Forbidden\n");
        auto path = _access->below(request.path);
        if (!path) return refuse(404, "Not found\n");
        if (request.method != "GET") {
            response.set_header("Allow", "GET");
            return refuse(405, "Method not allowed\n");
        }
        WebRequest asked { std::move(*path), {} };
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
    std::thread _thread; // Accepts.
};

HttpServer::HttpServer(Answering answering) : _private(std::make_unique<Private>(std::move(answering))) { }
HttpServer::~HttpServer() = default;

std::string HttpServer::address() const { return _private->access().address(); }

} // namespace media

// The floor: the same processes and hops as a call through the hub, but nothing is decoded, counted or allocated on the
// way. What remains is the cost of the sockets, of libuv and of the scheduler, in two ways of writing (`mode`).
#include "driver/peer_roles.h"
#include "driver/stamp.h"
#include "floor/connection.h"
#include <csignal>
#include <fmt/format.h>
#include <memory>
#include <vector>

namespace bench::floor {
namespace {

constexpr std::uint16_t callerId = 1;
constexpr std::uint16_t ownerId = 2; // Also the publisher's.
constexpr std::uint16_t firstSubscriberId = 10;

void require(int status, const char* action)
{
    if (status < 0) fail(fmt::format("{}: {}", action, uv_strerror(status)));
}

WriteMode writeMode(const Options& options)
{
    const auto& mode = options.text("mode");
    if (mode == "each") return WriteMode::EachFrame;
    if (mode == "coalesced") return WriteMode::Coalesced;
    fail("mode is each or coalesced");
}

/// The relay: knows the participants by the source of their greeting, and passes frames on as they are.
class Hub {
public:
    explicit Hub(const Options& options) : _node(writeMode(options))
    {
        const auto address = options.text("directory") + "/floor";
        require(uv_pipe_init(&_node.loop(), &_listener, 0), "pipe");
        _listener.data = this;
        require(uv_pipe_bind(&_listener, address.c_str()), "bind");
        const auto accept = [](uv_stream_t* listener, int status) {
            require(status, "listen");
            static_cast<Hub*>(listener->data)->accept();
        };
        require(uv_listen(reinterpret_cast<uv_stream_t*>(&_listener), 128, accept), "listen");
        announceReady(address);
    }

    void run() { _node.run(); }

private:
    void accept()
    {
        auto& connection = *_connections.emplace_back(std::make_unique<Connection>(_node));
        require(
            uv_accept(reinterpret_cast<uv_stream_t*>(&_listener), reinterpret_cast<uv_stream_t*>(&connection.pipe())),
            "accept");
        connection.startReading([this, &connection](const Frame& frame) { relay(connection, frame); }, [] {});
    }

    void relay(Connection& from, const Frame& frame)
    {
        const auto header = frame.header();
        if (header.target == hub) {
            if (header.source >= _participants.size()) _participants.resize(header.source + 1u);
            _participants[header.source] = &from;
            from.send(frame);
        } else if (header.target == everybody) {
            for (auto* participant : _participants) {
                if (participant && participant != &from) participant->send(frame);
            }
        } else if (header.target < _participants.size() && _participants[header.target]) {
            _participants[header.target]->send(frame);
        }
    }

    Node _node;
    uv_pipe_t _listener;
    std::vector<std::unique_ptr<Connection>> _connections;
    std::vector<Connection*> _participants; // By id.
};

std::uint16_t idOf(const Options& options)
{
    if (options.role() == "owner" || options.role() == "publisher") return ownerId;
    return options.role() == "subscriber" ? static_cast<std::uint16_t>(firstSubscriberId + options.count("index"))
                                          : callerId;
}

/// Without a frame size of its own a role sends bodies alone.
std::size_t frameBytes(const Options& options)
{
    const auto& role = options.role();
    return role == "owner"    ? options.count("result_frame")
        : role == "caller"    ? options.count("argument_frame")
        : role == "publisher" ? options.count("event_frame")
                              : 0;
}

class Participant final : public Peer {
public:
    /// Returns once the hub knows this participant.
    explicit Participant(const Options& options)
        : _node(writeMode(options)),
          _connection(_node),
          _id(idOf(options)),
          _frameBytes(frameBytes(options))
    {
        _request.data = this;
        const auto connected = [](uv_connect_t* request, int status) {
            require(status, "connect");
            static_cast<Participant*>(request->data)->greet();
        };
        uv_pipe_connect(&_request, &_connection.pipe(), options.text("address").c_str(), connected);
        _node.run();
    }

    void run() { _node.run(); }
    void serve(std::size_t resultBytes) { _resultBytes = resultBytes; }
    void call(std::uint64_t number, std::size_t argumentBytes) { sendStamped(ownerId, number, argumentBytes); }
    void publish(std::span<const std::uint8_t> body) { send(everybody, body, _frameBytes); }
    void subscribe() { }

    void acknowledge(std::uint64_t, std::uint64_t events)
    {
        send(ownerId, { reinterpret_cast<const std::uint8_t*>(&events), sizeof events }, 0);
    }

private:
    void greet()
    {
        _connection.startReading([this](const Frame& frame) { onFrame(frame.header(), frame.body()); },
            [] { fail("the hub has closed the connection"); });
        send(hub, {}, 0);
    }

    void onFrame(const FrameHeader& header, std::span<const std::uint8_t> body)
    {
        if (header.target == hub) {
            uv_stop(&_node.loop()); // Greeted.
        } else if (answered) {
            answered(answerTo(readStamp(body)));
        } else if (heard) {
            heard(body);
        } else if (acknowledged) {
            std::uint64_t events = 0;
            std::memcpy(&events, body.data(), std::min(body.size(), sizeof events));
            acknowledged(header.source - firstSubscriberId, events);
        } else {
            sendStamped(header.source, answerTo(readStamp(body)), _resultBytes);
        }
    }

    void send(std::uint16_t target, std::span<const std::uint8_t> body, std::size_t frameBytes)
    {
        const auto frame = _writer.make(target, _id, body.size(), frameBytes);
        std::memcpy(frame.data + headerBytes, body.data(), body.size());
        _connection.send(frame);
    }

    /// A stamped body of its own in each frame.
    void sendStamped(std::uint16_t target, std::uint64_t number, std::size_t bodyBytes)
    {
        const auto frame = _writer.make(target, _id, bodyBytes, _frameBytes);
        stamp(frame.body(), number);
        _connection.send(frame);
    }

    Node _node;
    Connection _connection;
    FrameWriter _writer;
    const std::uint16_t _id;
    const std::size_t _frameBytes;
    std::size_t _resultBytes = 0;
    uv_connect_t _request;
};

void runHub(const Options& options) { Hub(options).run(); }

} // namespace
} // namespace bench::floor

int main(int argc, char** argv)
{
    using namespace bench::floor;
    std::signal(SIGPIPE, SIG_IGN);
    bench::play(bench::Options(argc, argv), bench::PeerRoles<Participant>::all({ { "hub", runHub } }));
}

// The floor: the same processes and hops as a call through the hub, but nothing is decoded, counted or allocated on the
// way. What remains is the cost of the sockets, of libuv and of the scheduler, in two ways of writing (`mode`).
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "floor/connection.h"
#include <csignal>
#include <fmt/format.h>
#include <functional>
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

/// A process at the hub.
class Participant {
public:
    using OnFrame = std::function<void(const FrameHeader&, std::span<const std::uint8_t> body)>;

    Participant(const Options& options, std::uint16_t id)
        : _node(writeMode(options)),
          _connection(_node),
          _id(id),
          _address(options.text("address"))
    {
    }

    /// Runs for the life of the process. `onReady` is called once the hub knows this participant.
    void run(std::function<void()> onReady, OnFrame onFrame)
    {
        _onReady = std::move(onReady);
        _onFrame = std::move(onFrame);
        _request.data = this;
        const auto connected = [](uv_connect_t* request, int status) {
            require(status, "connect");
            static_cast<Participant*>(request->data)->greet();
        };
        uv_pipe_connect(&_request, &_connection.pipe(), _address.c_str(), connected);
        _node.run();
    }

    void send(std::uint16_t target, std::span<const std::uint8_t> body, std::size_t frameBytes)
    {
        const auto frame = _writer.make(target, _id, body.size(), frameBytes);
        std::memcpy(frame.data + headerBytes, body.data(), body.size());
        _connection.send(frame);
    }

    /// A stamped body of its own in each frame.
    void sendStamped(std::uint16_t target, std::uint64_t number, std::size_t bodyBytes, std::size_t frameBytes)
    {
        const auto frame = _writer.make(target, _id, bodyBytes, frameBytes);
        stamp(frame.body(), number);
        _connection.send(frame);
    }

    /// An acknowledgement: so many events.
    void sendCount(std::uint16_t target, std::uint64_t count)
    {
        send(target, { reinterpret_cast<const std::uint8_t*>(&count), sizeof count }, 0);
    }

private:
    void greet()
    {
        _connection.startReading(
            [this](const Frame& frame) {
                const auto header = frame.header();
                if (header.target == hub)
                    _onReady();
                else
                    _onFrame(header, frame.body());
            },
            [] { fail("the hub has closed the connection"); });
        send(hub, {}, 0);
    }

    Node _node;
    Connection _connection;
    FrameWriter _writer;
    const std::uint16_t _id;
    const std::string _address;
    uv_connect_t _request;
    std::function<void()> _onReady;
    OnFrame _onFrame;
};

void runIdle(const Options& options)
{
    Participant participant(options, callerId);
    participant.run([] { announceReady(); }, [](const auto&, auto) {});
}

void runOwner(const Options& options)
{
    Participant owner(options, ownerId);
    const auto resultBytes = options.count("result_bytes");
    const auto frameBytes = options.count("result_frame");
    owner.run([] { announceReady(); },
        [&](const FrameHeader& header, std::span<const std::uint8_t> argument) {
            owner.sendStamped(header.source, answerTo(readStamp(argument)), resultBytes, frameBytes);
        });
}

void runCaller(const Options& options)
{
    Participant caller(options, callerId);
    const auto argumentBytes = options.count("argument_bytes");
    const auto frameBytes = options.count("argument_frame");
    CallLoad load(
        options, [&](std::uint64_t number) { caller.sendStamped(ownerId, number, argumentBytes, frameBytes); });
    caller.run(
        [&] {
            announceReady();
            load.start();
        },
        [&](const FrameHeader&, std::span<const std::uint8_t> result) { load.answered(answerTo(readStamp(result))); });
}

void runPublisher(const Options& options)
{
    Participant publisher(options, ownerId);
    const auto frameBytes = options.count("event_frame");
    EventLoad load(options, [&](std::span<const std::uint8_t> body) { publisher.send(everybody, body, frameBytes); });
    publisher.run([] { announceReady(); },
        [&](const FrameHeader& header, std::span<const std::uint8_t> acknowledgement) {
            std::uint64_t events = 0;
            std::memcpy(&events, acknowledgement.data(), std::min(acknowledgement.size(), sizeof events));
            load.acknowledged(header.source - firstSubscriberId, events);
        });
}

void runSubscriber(const Options& options)
{
    Participant subscriber(options, static_cast<std::uint16_t>(firstSubscriberId + options.count("index")));
    EventCount count(options);
    subscriber.run(
        [&] {
            announceReady();
            subscriber.sendCount(ownerId, 0);
        },
        [&](const FrameHeader&, std::span<const std::uint8_t> body) {
            if (const auto events = count.received(body)) subscriber.sendCount(ownerId, *events);
        });
}

void runHub(const Options& options) { Hub(options).run(); }

} // namespace
} // namespace bench::floor

int main(int argc, char** argv)
{
    using namespace bench::floor;
    std::signal(SIGPIPE, SIG_IGN);
    bench::play(bench::Options(argc, argv),
        { { "hub", runHub }, { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller },
            { "publisher", runPublisher }, { "subscriber", runSubscriber } });
}

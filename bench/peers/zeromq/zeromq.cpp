// ZeroMQ over Unix sockets. Calls go from a DEALER over the hub's ROUTER to the owner's DEALER, and back; events from a PUB
// over an XSUB and an XPUB to each SUB, in a thread of the hub's own, as a proxy is run.
#include "driver/peer_roles.h"
#include "driver/stamp.h"
#include "peers/zeromq/socket.h"
#include <algorithm>
#include <cstring>
#include <optional>
#include <thread>

namespace bench::zeromq {
namespace {

constexpr std::string_view ownerId = "owner"; // Also the publisher's.
constexpr int probePauseMilliseconds = 5;

/// What a subscriber tells: so many events.
struct Acknowledgement {
    std::uint64_t index;
    std::uint64_t events;
};

std::string calls(const std::string& address) { return "ipc://" + address + ".calls"; }
std::string publications(const std::string& address) { return "ipc://" + address + ".in"; }
std::string events(const std::string& address) { return "ipc://" + address + ".out"; }

/// Swaps who sends and who receives: frames are [sender added by the ROUTER][target][body]. What has no target is a
/// greeting, and goes back.
void relay(Socket& router)
{
    Frame sender;
    Frame target;
    Frame body;
    while (router.receive(sender)) {
        if (!router.receive(target) || !router.receive(body)) fail("a message without target or body arrived");
        const bool isGreeting = target.bytes().empty();
        router.send(isGreeting ? sender : target, More::Yes);
        router.send(isGreeting ? target : sender, More::Yes);
        router.send(body, More::No);
    }
}

void runHub(const Options& options)
{
    Context context;
    const auto address = options.text("directory") + "/hub";
    Socket router(context, ZMQ_ROUTER);
    router.bind(calls(address));
    Socket publishers(context, ZMQ_XSUB);
    publishers.bind(publications(address));
    Socket subscribers(context, ZMQ_XPUB);
    subscribers.bind(events(address));
    std::jthread proxy([&] { zmq_proxy(publishers.get(), subscribers.get(), nullptr); });
    announceReady(address);
    for (;;) {
        router.wait(-1);
        relay(router);
    }
}

class Participant final : public Peer {
public:
    explicit Participant(const Options& options) : _address(options.text("address")), _calls(_context, ZMQ_DEALER)
    {
        const auto& role = options.role();
        const bool serves = role == "owner" || role == "publisher";
        _calls.name(serves ? std::string(ownerId) : role == "caller" ? role : role + " " + options.text("index"));
        _calls.connect(calls(_address));
        Frame greeting;
        send({}, greeting);
        receive(-1); // When it comes back, the hub knows this participant.
        if (role != "publisher" && role != "subscriber") return;
        _events.emplace(_context, role == "publisher" ? ZMQ_PUB : ZMQ_SUB);
        if (role == "subscriber") _events->subscribeToAll();
        _events->connect(role == "publisher" ? publications(_address) : events(_address));
        _isProbing = role == "publisher";
    }

    void run()
    {
        if (heard) return hear();
        for (;;) {
            if (_isProbing) { // A subscription takes its time through the proxy: who hears an empty event has arrived.
                Frame probe;
                _events->send(probe, More::No);
            }
            receive(_isProbing ? probePauseMilliseconds : -1);
        }
    }

    void serve(std::size_t resultBytes) { _resultBytes = resultBytes; }

    void call(std::uint64_t number, std::size_t argumentBytes)
    {
        Frame argument(argumentBytes);
        stamp(argument.bytes(), number);
        send(ownerId, argument);
    }

    void publish(std::span<const std::uint8_t> body)
    {
        _isProbing = false;
        Frame event(body.size());
        std::ranges::copy(body, event.bytes().begin());
        _events->send(event, More::No);
    }

    void subscribe()
    {
        Frame probe;
        do _events->wait(-1);
        while (!_events->receive(probe));
        if (!probe.bytes().empty()) fail("an event for others arrived");
    }

    void acknowledge(std::uint64_t index, std::uint64_t events)
    {
        Frame body(sizeof(Acknowledgement));
        const Acknowledgement acknowledgement { index, events };
        std::memcpy(body.bytes().data(), &acknowledgement, sizeof acknowledgement);
        send(ownerId, body);
    }

private:
    void send(std::string_view target, Frame& body)
    {
        Frame to(target.size());
        std::ranges::copy(target, to.bytes().begin());
        _calls.send(to, More::Yes);
        _calls.send(body, More::No);
    }

    /// Waits, then handles all that has come.
    void receive(int milliseconds)
    {
        Frame from;
        Frame body;
        _calls.wait(milliseconds);
        while (_calls.receive(from)) {
            if (!_calls.receive(body)) fail("a message without a body arrived");
            if (answered) {
                answered(answerTo(readStamp(body.bytes())));
            } else if (acknowledged) {
                const auto acknowledgement = body.as<Acknowledgement>();
                acknowledged(acknowledgement.index, acknowledgement.events);
            } else if (!body.bytes().empty()) {
                answer(from, body);
            }
        }
    }

    void answer(Frame& caller, Frame& argument)
    {
        const auto number = readStamp(argument.bytes());
        Frame result(_resultBytes);
        stamp(result.bytes(), answerTo(number));
        _calls.send(caller, More::Yes);
        _calls.send(result, More::No);
    }

    [[noreturn]] void hear()
    {
        for (;;) {
            _events->wait(-1);
            for (Frame event; _events->receive(event);) {
                if (!event.bytes().empty()) heard(event.bytes());
            }
        }
    }

    Context _context;
    const std::string _address;
    Socket _calls;
    std::optional<Socket> _events; // To the proxy, or from it.
    bool _isProbing = false;
    std::size_t _resultBytes = 0;
};

} // namespace
} // namespace bench::zeromq

int main(int argc, char** argv)
{
    using namespace bench::zeromq;
    bench::play(bench::Options(argc, argv), bench::PeerRoles<Participant>::all({ { "hub", runHub } }));
}

// ZeroMQ over Unix sockets. Calls go from a DEALER over the hub's ROUTER to the owner's DEALER, and back; events from a PUB
// over an XSUB and an XPUB to each SUB, in a thread of the hub's own, as a proxy is run.
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peers/zeromq/socket.h"
#include <algorithm>
#include <cstring>
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

/// A process at the hub: its end of the calls.
class Participant {
public:
    Participant(const Options& options, std::string_view id)
        : address(options.text("address")),
          socket(_context, ZMQ_DEALER)
    {
        socket.name(id);
        socket.connect(calls(address));
        Frame greeting;
        send({}, greeting);
        receive([](Frame&, Frame&) {}); // When it comes back, the hub knows this participant.
    }

    Context& context() { return _context; }

    void send(std::string_view target, Frame& body)
    {
        Frame to(target.size());
        std::ranges::copy(target, to.bytes().begin());
        socket.send(to, More::Yes);
        socket.send(body, More::No);
    }

    /// Waits, then hands over all that has come.
    template <typename OnMessage> void receive(const OnMessage& onMessage, int milliseconds = -1)
    {
        Frame from;
        Frame body;
        socket.wait(milliseconds);
        while (socket.receive(from)) {
            if (!socket.receive(body)) fail("a message without a body arrived");
            onMessage(from, body);
        }
    }

private:
    Context _context;

public:
    const std::string address;
    Socket socket;
};

void runIdle(const Options& options)
{
    Participant participant(options, "idle-" + options.text("index"));
    announceReady();
    for (;;) participant.receive([](Frame&, Frame&) {});
}

void runOwner(const Options& options)
{
    Participant owner(options, ownerId);
    const auto resultBytes = options.count("result_bytes");
    const auto answer = [&](Frame& caller, Frame& argument) {
        const auto number = readStamp(argument.bytes());
        Frame result(resultBytes);
        stamp(result.bytes(), answerTo(number));
        owner.socket.send(caller, More::Yes);
        owner.socket.send(result, More::No);
    };
    announceReady();
    for (;;) owner.receive(answer);
}

void runCaller(const Options& options)
{
    Participant caller(options, "caller");
    const auto argumentBytes = options.count("argument_bytes");
    CallLoad load(options, [&](std::uint64_t number) {
        Frame argument(argumentBytes);
        stamp(argument.bytes(), number);
        caller.send(ownerId, argument);
    });
    announceReady();
    load.start();
    for (;;) caller.receive([&](Frame&, Frame& result) { load.answered(answerTo(readStamp(result.bytes()))); });
}

void runPublisher(const Options& options)
{
    Participant publisher(options, ownerId);
    Socket socket(publisher.context(), ZMQ_PUB);
    socket.connect(publications(publisher.address));
    bool begun = false;
    EventLoad load(options, [&](std::span<const std::uint8_t> body) {
        begun = true;
        Frame event(body.size());
        std::ranges::copy(body, event.bytes().begin());
        socket.send(event, More::No);
    });
    const auto acknowledged = [&](Frame&, Frame& body) {
        const auto acknowledgement = body.as<Acknowledgement>();
        load.acknowledged(acknowledgement.index, acknowledgement.events);
    };
    announceReady();
    for (;;) {
        if (!begun) { // A subscription takes its time through the proxy: who hears an empty event has arrived.
            Frame probe;
            socket.send(probe, More::No);
        }
        publisher.receive(acknowledged, begun ? -1 : probePauseMilliseconds);
    }
}

void runSubscriber(const Options& options)
{
    const auto index = options.count("index");
    Participant subscriber(options, "subscriber " + std::to_string(index));
    Socket socket(subscriber.context(), ZMQ_SUB);
    socket.subscribeToAll();
    socket.connect(events(subscriber.address));
    EventCount count(options);
    const auto acknowledge = [&](std::uint64_t number) {
        Frame body(sizeof(Acknowledgement));
        const Acknowledgement acknowledgement { index, number };
        std::memcpy(body.bytes().data(), &acknowledgement, sizeof acknowledgement);
        subscriber.send(ownerId, body);
    };
    announceReady();
    bool joined = false;
    for (;;) {
        socket.wait(-1);
        for (Frame event; socket.receive(event);) {
            if (!event.bytes().empty()) {
                if (const auto number = count.received(event.bytes())) acknowledge(*number);
            } else if (!joined) {
                joined = true;
                acknowledge(0);
            }
        }
    }
}

} // namespace
} // namespace bench::zeromq

int main(int argc, char** argv)
{
    using namespace bench::zeromq;
    bench::play(bench::Options(argc, argv),
        { { "hub", runHub }, { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller },
            { "publisher", runPublisher }, { "subscriber", runSubscriber } });
}

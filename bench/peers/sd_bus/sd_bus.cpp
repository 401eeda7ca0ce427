// sd-bus over a broker of D-Bus: calls that are answered asynchronously, signals that are matched by interface and member.
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include "peers/sd_bus/broker.h"
#include "peers/sd_bus/participant.h"
#include <algorithm>
#include <cstring>

namespace bench::sdbus {
namespace {

constexpr auto ownerName = "bench.Owner"; // Also the publisher's.

/// What a subscriber tells: so many events.
struct Acknowledgement {
    std::uint64_t index;
    std::uint64_t events;
};

void runIdle(const Options& options)
{
    Participant participant(options);
    announceReady();
    participant.run();
}

struct Owner {
    Participant participant;
    std::size_t resultBytes;

    static int onCall(sd_bus_message* call, void* self, sd_bus_error*)
    {
        if (!sd_bus_message_is_method_call(call, interface, "Echo")) return 0;
        const auto number = readStamp(bytes(call));
        sd_bus_message* reply = nullptr;
        require(sd_bus_message_new_method_return(call, &reply), "new reply");
        Message message(reply);
        stamp(message.append(static_cast<Owner*>(self)->resultBytes), answerTo(number));
        require(sd_bus_send(nullptr, reply, nullptr), "reply");
        return 1;
    }
};

void runOwner(const Options& options)
{
    Owner owner { Participant(options), options.count("result_bytes") };
    require(sd_bus_add_object(owner.participant.bus(), nullptr, path, Owner::onCall, &owner), "object");
    owner.participant.own(ownerName);
    announceReady();
    owner.participant.run();
}

class Caller {
public:
    explicit Caller(const Options& options)
        : _participant(options),
          _argumentBytes(options.count("argument_bytes")),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
    }

    void run()
    {
        announceReady();
        _load.start();
        _participant.run();
    }

private:
    void call(std::uint64_t number)
    {
        Message message(_participant.newCall(ownerName, "Echo"));
        stamp(message.append(_argumentBytes), number);
        require(sd_bus_call_async(_participant.bus(), nullptr, message.get(), onReply, this, 0), "call");
    }

    static int onReply(sd_bus_message* reply, void* self, sd_bus_error*)
    {
        static_cast<Caller*>(self)->_load.answered(answerTo(readStamp(bytes(reply))));
        return 1;
    }

    Participant _participant;
    const std::size_t _argumentBytes;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

class Publisher {
public:
    explicit Publisher(const Options& options)
        : _participant(options),
          _load(options, [this](std::span<const std::uint8_t> body) { publish(body); })
    {
    }

    void run()
    {
        require(sd_bus_add_object(_participant.bus(), nullptr, path, onCall, this), "object");
        _participant.own(ownerName);
        announceReady();
        _participant.run();
    }

private:
    void publish(std::span<const std::uint8_t> body)
    {
        sd_bus_message* signal = nullptr;
        require(sd_bus_message_new_signal(_participant.bus(), &signal, path, interface, "Event"), "new signal");
        Message message(signal);
        std::ranges::copy(body, message.append(body.size()).begin());
        require(sd_bus_send(nullptr, signal, nullptr), "signal");
    }

    static int onCall(sd_bus_message* call, void* self, sd_bus_error*)
    {
        if (!sd_bus_message_is_method_call(call, interface, "Acknowledge")) return 0;
        Acknowledgement acknowledgement {};
        const auto body = bytes(call);
        if (body.size() != sizeof acknowledgement) fail("a broken acknowledgement arrived");
        std::memcpy(&acknowledgement, body.data(), body.size());
        static_cast<Publisher*>(self)->_load.acknowledged(acknowledgement.index, acknowledgement.events);
        return 1;
    }

    Participant _participant;
    EventLoad _load;
};

void runPublisher(const Options& options) { Publisher(options).run(); }

class Subscriber {
public:
    explicit Subscriber(const Options& options) : _participant(options), _index(options.count("index")), _count(options)
    {
    }

    void run()
    {
        require(sd_bus_match_signal(_participant.bus(), nullptr, ownerName, path, interface, "Event", onEvent, this),
            "match"); // Waits until the bus knows of it.
        announceReady();
        acknowledge(0);
        _participant.run();
    }

private:
    void acknowledge(std::uint64_t events)
    {
        const Acknowledgement acknowledgement { _index, events };
        Message message(_participant.newCall(ownerName, "Acknowledge"));
        require(sd_bus_message_set_expect_reply(message.get(), 0), "flags");
        std::memcpy(message.append(sizeof acknowledgement).data(), &acknowledgement, sizeof acknowledgement);
        require(sd_bus_send(_participant.bus(), message.get(), nullptr), "acknowledge");
    }

    static int onEvent(sd_bus_message* signal, void* self, sd_bus_error*)
    {
        auto& subscriber = *static_cast<Subscriber*>(self);
        if (const auto events = subscriber._count.received(bytes(signal))) subscriber.acknowledge(*events);
        return 1;
    }

    Participant _participant;
    const std::uint64_t _index;
    EventCount _count;
};

void runSubscriber(const Options& options) { Subscriber(options).run(); }

} // namespace
} // namespace bench::sdbus

int main(int argc, char** argv)
{
    using namespace bench::sdbus;
    bench::play(bench::Options(argc, argv),
        { { "hub", runBroker }, { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller },
            { "publisher", runPublisher }, { "subscriber", runSubscriber } });
}

// sd-bus over a broker of D-Bus: calls that are answered asynchronously, signals that are matched by interface and member.
#include "driver/peer_roles.h"
#include "driver/stamp.h"
#include "peers/sd_bus/broker.h"
#include "peers/sd_bus/message.h"
#include <algorithm>
#include <cstring>

namespace bench::sdbus {
namespace {

constexpr auto path = "/bench";
constexpr auto interface = "bench.Peer";
constexpr auto ownerName = "bench.Owner"; // Also the publisher's.

/// What a subscriber tells: so many events.
struct Acknowledgement {
    std::uint64_t index;
    std::uint64_t events;
};

class Participant final : public Peer {
public:
    explicit Participant(const Options& options)
    {
        require(sd_bus_new(&_bus), "bus");
        require(sd_bus_set_address(_bus, options.text("address").c_str()), "address");
        require(sd_bus_set_bus_client(_bus, 1), "client");
        require(sd_bus_start(_bus), "start");
        const char* name = nullptr;
        require(sd_bus_get_unique_name(_bus, &name), "greeting"); // Waits for the bus.
    }
    Participant(const Participant&) = delete;
    ~Participant() { sd_bus_unref(_bus); }

    void run()
    {
        for (;;) {
            if (require(sd_bus_process(_bus, nullptr), "process") == 0) require(sd_bus_wait(_bus, UINT64_MAX), "wait");
        }
    }

    void serve(std::size_t resultBytes)
    {
        _resultBytes = resultBytes;
        require(sd_bus_add_object(_bus, nullptr, path, onCall, this), "object");
        require(sd_bus_request_name(_bus, ownerName, 0), "name");
    }

    void call(std::uint64_t number, std::size_t argumentBytes)
    {
        Message message(newCall("Echo"));
        stamp(message.append(argumentBytes), number);
        require(sd_bus_call_async(_bus, nullptr, message.get(), onReply, this, 0), "call");
    }

    void publish(std::span<const std::uint8_t> body)
    {
        sd_bus_message* signal = nullptr;
        require(sd_bus_message_new_signal(_bus, &signal, path, interface, "Event"), "new signal");
        Message message(signal);
        std::ranges::copy(body, message.append(body.size()).begin());
        require(sd_bus_send(nullptr, signal, nullptr), "signal");
    }

    void subscribe()
    {
        // Waits until the bus knows of it.
        require(sd_bus_match_signal(_bus, nullptr, ownerName, path, interface, "Event", onEvent, this), "match");
    }

    void acknowledge(std::uint64_t index, std::uint64_t events)
    {
        const Acknowledgement acknowledgement { index, events };
        Message message(newCall("Acknowledge"));
        require(sd_bus_message_set_expect_reply(message.get(), 0), "flags");
        std::memcpy(message.append(sizeof acknowledgement).data(), &acknowledgement, sizeof acknowledgement);
        require(sd_bus_send(_bus, message.get(), nullptr), "acknowledge");
    }

private:
    sd_bus_message* newCall(const char* member)
    {
        sd_bus_message* message = nullptr;
        require(sd_bus_message_new_method_call(_bus, &message, ownerName, path, interface, member), "new call");
        return message;
    }

    static int onCall(sd_bus_message* call, void* self, sd_bus_error*)
    {
        auto& participant = *static_cast<Participant*>(self);
        if (sd_bus_message_is_method_call(call, interface, "Echo")) {
            const auto number = readStamp(bytes(call));
            sd_bus_message* reply = nullptr;
            require(sd_bus_message_new_method_return(call, &reply), "new reply");
            Message message(reply);
            stamp(message.append(participant._resultBytes), answerTo(number));
            require(sd_bus_send(nullptr, reply, nullptr), "reply");
        } else if (sd_bus_message_is_method_call(call, interface, "Acknowledge")) {
            Acknowledgement acknowledgement {};
            const auto body = bytes(call);
            if (body.size() != sizeof acknowledgement) fail("a broken acknowledgement arrived");
            std::memcpy(&acknowledgement, body.data(), body.size());
            participant.acknowledged(acknowledgement.index, acknowledgement.events);
        } else {
            return 0;
        }
        return 1;
    }

    static int onReply(sd_bus_message* reply, void* self, sd_bus_error*)
    {
        static_cast<Participant*>(self)->answered(answerTo(readStamp(bytes(reply))));
        return 1;
    }

    static int onEvent(sd_bus_message* signal, void* self, sd_bus_error*)
    {
        static_cast<Participant*>(self)->heard(bytes(signal));
        return 1;
    }

    sd_bus* _bus = nullptr;
    std::size_t _resultBytes = 0;
};

} // namespace
} // namespace bench::sdbus

int main(int argc, char** argv)
{
    using namespace bench::sdbus;
    bench::play(bench::Options(argc, argv), bench::PeerRoles<Participant>::all({ { "hub", runBroker } }));
}

#pragma once
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"

namespace bench {

/// The base of a participant. What it hears goes to these.
struct Peer {
    std::string address; ///< By which it is reached, where there is no hub.
    std::function<void(std::uint64_t number)> answered;
    std::function<void(std::uint64_t index, std::uint64_t events)> acknowledged;
    std::function<void(std::span<const std::uint8_t> body)> heard;
};

/// The roles, the same for every system that is like that. P is a Peer that its constructor connects as the role that the options name,
/// and has
///   run(): for the life of the process
///   serve(resultBytes): from now on calls are answered, and acknowledgements are heard
///   call(number, argumentBytes): of the owner; `answered` is not called inside of it
///   publish(body): an event for all who have subscribed
///   subscribe(), acknowledge(index, events): to the publisher.
template <typename P> struct PeerRoles {
    static void playIdle(const Options& options)
    {
        P peer(options);
        announceReady(peer.address);
        peer.run();
    }

    static void playOwner(const Options& options)
    {
        P peer(options);
        peer.serve(options.count("result_bytes"));
        announceReady(peer.address);
        peer.run();
    }

    static void playCaller(const Options& options)
    {
        P peer(options);
        const auto argumentBytes = options.count("argument_bytes");
        CallLoad load(options, [&](std::uint64_t number) { peer.call(number, argumentBytes); });
        peer.answered = [&](std::uint64_t number) { load.answered(number); };
        announceReady();
        load.start();
        peer.run();
    }

    static void playPublisher(const Options& options)
    {
        P peer(options);
        EventLoad load(options, [&](std::span<const std::uint8_t> body) { peer.publish(body); });
        peer.acknowledged = [&](std::uint64_t index, std::uint64_t events) { load.acknowledged(index, events); };
        peer.serve(0);
        announceReady(peer.address);
        peer.run();
    }

    static void playSubscriber(const Options& options)
    {
        P peer(options);
        EventCount count(options);
        const auto index = options.count("index");
        peer.heard = [&](std::span<const std::uint8_t> body) {
            if (const auto events = count.received(body)) peer.acknowledge(index, *events);
        };
        peer.subscribe();
        announceReady();
        peer.acknowledge(index, 0);
        peer.run();
    }

    /// All of them; `hub`, where a driver plays that, too.
    static Roles all(Roles hub = {})
    {
        hub.insert({ { "idle", playIdle }, { "owner", playOwner }, { "caller", playCaller },
            { "publisher", playPublisher }, { "subscriber", playSubscriber } });
        return hub;
    }
};

} // namespace bench

#pragma once
#include "driver/driver.h"
#include <functional>
#include <span>
#include <systemd/sd-bus.h>

namespace bench::sdbus {

inline constexpr auto path = "/bench";
inline constexpr auto interface = "bench.Peer";

/// Ends the program where `status` is the negative number of an error; else gives it back.
int require(int status, const char* action);

/// A message whose only content is an array of bytes. It owns the message.
class Message {
public:
    explicit Message(sd_bus_message* message) : _message(message) { }
    Message(const Message&) = delete;
    ~Message() { sd_bus_message_unref(_message); }

    sd_bus_message* get() const { return _message; }

    /// Appends an array of that size, to be filled before anything else is done with the message.
    std::span<std::uint8_t> append(std::size_t size);

private:
    sd_bus_message* const _message;
};

/// The array of bytes of a message that has come; lives as long as the message.
std::span<const std::uint8_t> bytes(sd_bus_message* message);

/// A process at the bus.
class Participant {
public:
    explicit Participant(const Options& options);
    Participant(const Participant&) = delete;
    ~Participant() { sd_bus_unref(_bus); }

    sd_bus* bus() const { return _bus; }

    void own(const char* name);
    sd_bus_message* newCall(const char* destination, const char* member);
    void run(); ///< For the life of the process.

private:
    sd_bus* _bus = nullptr;
};

} // namespace bench::sdbus

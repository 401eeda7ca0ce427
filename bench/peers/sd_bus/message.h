#pragma once
#include "driver/driver.h"
#include <span>
#include <systemd/sd-bus.h>

namespace bench::sdbus {

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

} // namespace bench::sdbus

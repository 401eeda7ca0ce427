#include "peers/sd_bus/participant.h"
#include <cstring>
#include <fmt/format.h>

namespace bench::sdbus {

int require(int status, const char* action)
{
    if (status < 0) fail(fmt::format("{}: {}", action, std::strerror(-status)));
    return status;
}

std::span<std::uint8_t> Message::append(std::size_t size)
{
    void* room = nullptr;
    require(sd_bus_message_append_array_space(_message, 'y', size, &room), "append");
    return { static_cast<std::uint8_t*>(room), size };
}

std::span<const std::uint8_t> bytes(sd_bus_message* message)
{
    if (const auto* error = sd_bus_message_get_error(message))
        fail(fmt::format("{}: {}", error->name, error->message ? error->message : ""));
    const void* data = nullptr;
    std::size_t size = 0;
    require(sd_bus_message_read_array(message, 'y', &data, &size), "read");
    return { static_cast<const std::uint8_t*>(data), size };
}

Participant::Participant(const Options& options)
{
    require(sd_bus_new(&_bus), "bus");
    require(sd_bus_set_address(_bus, options.text("address").c_str()), "address");
    require(sd_bus_set_bus_client(_bus, 1), "client");
    require(sd_bus_start(_bus), "start");
    const char* name = nullptr;
    require(sd_bus_get_unique_name(_bus, &name), "greeting"); // Waits for the bus.
}

void Participant::own(const char* name) { require(sd_bus_request_name(_bus, name, 0), "name"); }

sd_bus_message* Participant::newCall(const char* destination, const char* member)
{
    sd_bus_message* message = nullptr;
    require(sd_bus_message_new_method_call(_bus, &message, destination, path, interface, member), "new call");
    return message;
}

void Participant::run()
{
    for (;;) {
        if (require(sd_bus_process(_bus, nullptr), "process") == 0) require(sd_bus_wait(_bus, UINT64_MAX), "wait");
    }
}

} // namespace bench::sdbus

#include "peers/sd_bus/message.h"
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

} // namespace bench::sdbus

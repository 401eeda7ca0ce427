#include "foundation/net/mac_address.h"
#include "base/exceptions.h"
#include "foundation/net/ip_address.h"
#include "platform/neighbours.h"
#include <fmt/ranges.h>

namespace fn {

MacAddress MacAddress::fromIPAddress(const IPAddress& address)
{
    platform::HardwareAddress bytes {};
    if (const auto error = platform::findNeighbour(address.bytes(), address.scope(), bytes))
        throw with(IOException("The hardware address is not known"), WinErrorInfo { error });
    return MacAddress(bytes);
}

String MacAddress::toString() const { return fmt::format("{:02x}", fmt::join(_bytes, ":")); }

} // namespace fn

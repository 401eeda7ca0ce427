#pragma once
#include "foundation/net/ip_address.h"
#include "platform/adapters_addresses.h"
#include "platform/neighbours.h"
#include "platform/network_changes.h"
#include <map>
#include <string>
#include <vector>

namespace test {

struct FakeAdapter {
    platform::DWORD type = 6;
    std::vector<const char*> addresses;
    std::vector<const char*> gateways;
};

/// A system with adapters and neighbours as a test wants them.
class FakeNetwork {
public:
    FakeNetwork();

    std::vector<FakeAdapter> adapters;
    std::map<std::string, platform::HardwareAddress> neighbours; ///< By the text of their address.
    std::vector<platform::ULONG> errors; ///< What the next calls give instead of a list; 0: as it is.

    int calls = 0; ///< For the list of adapters: twice for each look at it, since its size is asked for first.

    void announce() { _changes.announce(); } ///< That something has changed.

private:
    platform::ULONG list(platform::IP_ADAPTER_ADDRESSES* buffer, platform::ULONG& size);
    platform::DWORD find(const fn::IPAddress& address, platform::HardwareAddress& hardwareAddress) const;

    platform::ScopedNetworkChanges _changes;
    platform::ScopedAdaptersAddresses _adapters;
    platform::ScopedNeighbours _neighbours;
    std::vector<std::vector<char>> _memory; // What the last list points into.
};

} // namespace test

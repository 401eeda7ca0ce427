#pragma once
#include "base/export.h"
#include "platform/windows_types.h"
#include <array>
#include <span>

namespace platform {

using HardwareAddress = std::array<BYTE, 6>;

/// The hardware address behind an IPv4 (4 bytes) or IPv6 address (16) of a neighbour, as the kernel knows it at the moment:
/// nobody on the network is asked, so one that this machine has not talked to is unknown. `adapterIndex` 0: on any adapter.
/// Where the address exists on several, the one counts through which what is sent to it leaves, else that of the lowest
/// index.
///
/// 0, `ERROR_NOT_FOUND`, `ERROR_INVALID_PARAMETER` or `ERROR_GEN_FAILURE`. Thread-safe.
FN_EXPORT DWORD findNeighbour(std::span<const BYTE> address, DWORD adapterIndex, HardwareAddress& hardwareAddress);

} // namespace platform

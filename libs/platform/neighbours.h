#pragma once
#include "base/export.h"
#include "platform/windows_types.h"
#include <array>
#include <span>

namespace platform {

using HardwareAddress = std::array<BYTE, 6>;

/// Finds the hardware address of the neighbour with an IPv4 (4 bytes) or IPv6 address (16 bytes), as the kernel knows it at the
/// moment. Nothing is sent to the network, so a neighbour that this machine has not talked to is unknown. `adapterIndex` 0: on any
/// adapter. If several adapters have a neighbour with that address, the adapter counts through which packets to it leave, or
/// else the adapter with the lowest index.
///
/// Returns 0, `ERROR_NOT_FOUND`, `ERROR_INVALID_PARAMETER` or `ERROR_GEN_FAILURE`. Thread-safe.
FN_EXPORT DWORD findNeighbour(std::span<const BYTE> address, DWORD adapterIndex, HardwareAddress& hardwareAddress);

} // namespace platform

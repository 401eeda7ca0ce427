#pragma once
#include "driver/driver.h"

namespace bench::sdbus {

/// Turns this process into dbus-broker, without an init system. The broker opens no socket of its own: a child process,
/// which lives as long as the broker, is its controller and gives it one that listens in `directory`.
void runBroker(const Options& options);

} // namespace bench::sdbus

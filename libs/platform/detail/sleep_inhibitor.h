#pragma once

namespace platform {

/// Asks the login manager to keep the system from going to sleep. Gives a descriptor (close-on-exec) that stands for the
/// request, which holds until it is closed; -1 where there is no bus, no login manager, or none that answers within two
/// seconds. Needs no main loop. Thread-safe.
int inhibitSleep();

} // namespace platform

#pragma once

namespace platform {

/// Asks the login manager to keep the system from going to sleep. Returns a descriptor (close-on-exec): the request holds until the
/// caller closes it. -1 if there is no bus, no login manager, or no answer within two seconds. Needs no main loop. Thread-safe.
int inhibitSleep();

} // namespace platform

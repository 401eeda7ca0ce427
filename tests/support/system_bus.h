#pragma once
#include "support/child_process.h"
#include "support/scoped_variable.h"
#include "support/temporary_folder.h"

namespace test {

/// A system bus of the test's own: DBUS_SYSTEM_BUS_ADDRESS leads to it, also in programs that are started meanwhile.
class SystemBus {
    TemporaryFolder _folder;
    ChildProcess _daemon { { "/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address",
        "--address=unix:dir=" + _folder.path().string() } };
    ScopedVariable _address { "DBUS_SYSTEM_BUS_ADDRESS", _daemon.readLine().value() };
};

/// A login manager on the system bus that tells what it is asked for: see login_manager.py, also for `mode`.
struct LoginManager : ChildProcess {
    explicit LoginManager(const std::string& mode = "");
};

} // namespace test

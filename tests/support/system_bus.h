#pragma once
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include <optional>

namespace test {

/// A system bus of the test's own: DBUS_SYSTEM_BUS_ADDRESS leads to it, also in programs that are started meanwhile.
class SystemBus {
public:
    SystemBus(); ///< Fails the test where there is no dbus-daemon.
    SystemBus(const SystemBus&) = delete;
    ~SystemBus();

private:
    TemporaryFolder _folder;
    std::optional<ChildProcess> _daemon;
};

/// A login manager on the system bus that tells what it is asked for: see login_manager.py, also for `mode`.
class LoginManager {
public:
    explicit LoginManager(const std::string& mode = "");

    std::optional<std::string> readLine() { return _program.readLine(); } ///< The next thing that has happened.

private:
    ChildProcess _program;
};

} // namespace test

#include "support/system_bus.h"
#include <cstdlib>
#include <gtest/gtest.h>

namespace test {
namespace {

constexpr const char* configuration = R"(<busconfig><type>session</type><listen>unix:dir=%</listen>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>
</busconfig>)";

} // namespace

SystemBus::SystemBus()
{
    std::string text = configuration;
    text.replace(text.find('%'), 1, _folder.path().string());
    writeFile(_folder.file("bus.conf"), text);
    _daemon.emplace(std::vector<std::string> { "/usr/bin/dbus-daemon", "--nofork", "--nopidfile", "--print-address",
        "--config-file=" + _folder.file("bus.conf").toStdString() });
    const auto address = _daemon->readLine();
    EXPECT_TRUE(address) << "dbus-daemon does not start";
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.value_or("").c_str(), 1);
}

SystemBus::~SystemBus() { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

LoginManager::LoginManager(const std::string& mode) : _program({ "/usr/bin/python3", LOGIN_MANAGER, mode })
{
    EXPECT_EQ(readLine(), "ready");
}

} // namespace test

#include "peers/sd_bus/broker.h"
#include "peers/sd_bus/message.h"
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench::sdbus {
namespace {

// A batch of rules: connect, own names, send, receive, each with verdict and priority (policy of dbus-broker 33).
constexpr auto batch = "bta(btbs)a(btssssuutt)a(btssssuutt)";

int check(int result, const char* action) { return require(result < 0 ? -errno : result, action); }

int listenAt(const std::string& path)
{
    const int listener = check(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    sockaddr_un address { AF_UNIX, {} };
    if (path.size() >= sizeof address.sun_path) fail("the folder's path is too long for a socket");
    path.copy(address.sun_path, path.size());
    check(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
    check(::listen(listener, 128), "listen");
    return listener;
}

/// Everybody may do everything, as on a session's bus.
void appendPolicy(sd_bus_message* message)
{
    const auto open = [&](char type, const std::string& content) {
        require(sd_bus_message_open_container(message, type, content.c_str()), "policy");
    };
    const auto close = [&] { require(sd_bus_message_close_container(message), "policy"); };
    const auto ofUser = fmt::format("u({})", batch);
    const auto ofGroup = fmt::format("buu({})", batch);
    const auto all = fmt::format("a({})a({})a(ss)bs", ofUser, ofGroup);
    open('v', "(" + all + ")");
    open('r', all);
    open('a', "(" + ofUser + ")");
    open('r', ofUser);
    require(sd_bus_message_append(message, "u", UINT32_MAX), "policy"); // Whoever has no rules of its own.
    open('r', batch);
    const std::uint64_t priority = 1;
    const std::uint64_t anyDescriptors = UINT64_MAX;
    require(sd_bus_message_append(message, batch, 1, priority, // Connect.
                1, 1, priority, 1, "", // Own every name that begins with nothing.
                1, 1, priority, "", "", "", "", 0U, 0U, std::uint64_t(0), anyDescriptors, // Send.
                1, 1, priority, "", "", "", "", 0U, 0U, std::uint64_t(0), anyDescriptors), // Receive.
        "policy");
    close();
    close();
    close();
    open('a', "(" + ofGroup + ")");
    close();
    require(sd_bus_message_append(message, "a(ss)bs", 0, 0, "session"), "policy"); // Neither SELinux nor AppArmor.
    close();
    close();
}

void runController(int socket, const std::string& path)
{
    sd_bus* bus = nullptr;
    require(sd_bus_new(&bus), "controller");
    require(sd_bus_set_fd(bus, socket, socket), "controller");
    require(sd_bus_start(bus), "controller");
    sd_bus_message* call = nullptr;
    require(sd_bus_message_new_method_call(
                bus, &call, nullptr, "/org/bus1/DBus/Broker", "org.bus1.DBus.Broker", "AddListener"),
        "controller");
    Message message(call);
    require(sd_bus_message_append(call, "oh", "/org/bus1/DBus/Listener/0", listenAt(path)), "listener");
    appendPolicy(call);
    require(sd_bus_call(bus, call, 0, nullptr, nullptr), "listener");
    announceReady("unix:path=" + path);
    // The broker tells of what concerns its controller; nothing does here. This ends with the broker.
    while (sd_bus_process(bus, nullptr) >= 0 && sd_bus_wait(bus, UINT64_MAX) >= 0) { }
    fail("the broker has gone");
}

} // namespace

void runBroker(const Options& options)
{
    int sockets[2];
    check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sockets), "socket pair");
    if (check(::fork(), "fork") == 0) {
        ::close(sockets[1]);
        runController(sockets[0], options.text("directory") + "/bus");
    }
    check(::fcntl(sockets[1], F_SETFD, 0), "inherit");
    const auto descriptor = std::to_string(sockets[1]);
    ::execlp("dbus-broker", "dbus-broker", "--controller", descriptor.c_str(), "--machine-id",
        "0123456789abcdef0123456789abcdef", nullptr);
    check(-1, "dbus-broker");
}

} // namespace bench::sdbus

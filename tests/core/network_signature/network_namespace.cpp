#include "network_namespace.h"
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <unistd.h>

namespace test {
namespace {

void write(const char* path, const std::string& text) { std::ofstream(path) << text; }

// As an ordinary user: with a user namespace around it, in which we are root.
bool enterAsUser()
{
    const auto user = std::to_string(::getuid());
    const auto group = std::to_string(::getgid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    ::prctl(PR_SET_DUMPABLE, 1); // Else the files below, and sanitizers, are out of reach.
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", "0 " + user + " 1");
    write("/proc/self/gid_map", "0 " + group + " 1");
    return true;
}

} // namespace

NetworkNamespace::NetworkNamespace() : _outside(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC))
{
    if (::unshare(CLONE_NEWNET) != 0 && !enterAsUser())
        _problem = std::string("network namespaces are denied here: ") + std::strerror(errno);
}

NetworkNamespace::~NetworkNamespace()
{
    (void)::setns(_outside, CLONE_NEWNET); // From a user namespace there is no way back: the next test makes its own.
    ::close(_outside);
}

void NetworkNamespace::ip(const std::string& commands)
{
    auto* const pipe = ::popen("PATH=$PATH:/usr/sbin:/sbin ip -batch -", "we");
    if (!pipe) throw std::runtime_error("popen");
    std::fputs(commands.c_str(), pipe);
    if (::pclose(pipe) != 0) throw std::runtime_error("ip failed:\n" + commands);
}

} // namespace test

#include "platform/detail/user_data_folder.h"
#include "base/exceptions.h"
#include "base/posix.h"
#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace platform {
namespace {

constexpr std::size_t largestPasswdEntry = 1024 * 1024;

/// A relative path counts as not set: the folder would depend on where the process was started.
fn::String absolutePath(const char* path) { return path && path[0] == '/' ? fn::String(path) : fn::String(); }

fn::String homeFolder()
{
    if (auto home = absolutePath(std::getenv("HOME")); !home.empty()) return home;
    std::vector<char> buffer(4096);
    passwd entry {};
    passwd* found = nullptr;
    int error = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
    while (error == ERANGE && buffer.size() < largestPasswdEntry) {
        buffer.resize(buffer.size() * 2);
        error = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
    }
    auto home = found ? absolutePath(found->pw_dir) : fn::String();
    if (home.empty()) fn::posix::fail("The user has no home folder", ENOENT);
    return home;
}

} // namespace

fn::String detail::userDataFolder()
{
    const auto data = absolutePath(std::getenv("XDG_DATA_HOME"));
    return (data.empty() ? homeFolder() + "/.local/share" : data) + "/core";
}

} // namespace platform

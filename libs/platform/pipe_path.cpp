#include "platform/pipe_path.h"
#include "base/exceptions.h"
#include "base/posix.h"
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

template class ScopedOverride<privatePath, fn::String>;

namespace {

using fn::posix::fail;

constexpr std::string_view prefix = R"(\\.\pipe\)";
constexpr mode_t onlyOwner = 0700;

fn::String environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value && value[0] == '/' ? fn::String(value) : fn::String();
}

bool isOwnFolder(const fn::String& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
}

fn::String folderPath()
{
    const auto runtime = environment("XDG_RUNTIME_DIR");
    if (!runtime.empty() && isOwnFolder(runtime)) return runtime + "/core-pipes";
    const auto temporary = environment("TMPDIR");
    return fmt::format("{}/core-pipes-{}", temporary.empty() ? "/tmp" : temporary.view(), ::geteuid());
}

// In a folder where everybody can write, another user may have made a folder of this name first.
void requirePrivateFolder(const fn::String& folder)
{
    if (::mkdir(folder.c_str(), onlyOwner) != 0 && errno != EEXIST) {
        fail(fmt::format("Can not make the folder for pipes {}", folder.view()));
    }
    struct stat status;
    if (::lstat(folder.c_str(), &status) != 0) fail(fmt::format("Can not read {}", folder.view()));
    if (!S_ISDIR(status.st_mode)) fail(fmt::format("{} is no folder", folder.view()), ENOTDIR);
    if (status.st_uid != ::geteuid()) fail(fmt::format("{} belongs to another user", folder.view()), EPERM);
    if ((status.st_mode & 077) != 0) fail(fmt::format("{} is open to other users", folder.view()), EPERM);
}

fn::String privateFolder()
{
    if (const auto folder = ScopedPipeFolder::current(); !folder.empty()) return folder;
    auto folder = folderPath();
    requirePrivateFolder(folder);
    return folder;
}

} // namespace

bool isPipeName(std::string_view path) noexcept { return path.size() > prefix.size() && path.starts_with(prefix); }

fn::String privatePath(std::string_view name)
{
    constexpr std::string_view refused("/\0", 2);
    if (name.empty() || name == "." || name.find_first_of(refused) != std::string_view::npos || name.contains("..")) {
        fail(fmt::format("\"{}\" can not name a pipe or lock: '/', NUL and '..' are not allowed", name), EINVAL);
    }
    return privateFolder() + "/" + name;
}

fn::String pipePath(const fn::String& pipeName)
{
    if (!isPipeName(pipeName)) fail(fmt::format("\"{}\" is no name of a pipe", pipeName.view()), EINVAL);
    return privatePath(pipeName.view().substr(prefix.size()));
}

sockaddr_un socketAddress(const fn::String& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const auto limit = sizeof(address.sun_path) - 1;
    if (path.size() > limit) {
        fail(fmt::format("The pipe's path {} has {} bytes; the system takes {}", path.view(), path.size(), limit),
            ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

} // namespace platform

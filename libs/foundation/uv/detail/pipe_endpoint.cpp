#include "foundation/uv/detail/pipe_endpoint.h"
#include "foundation/uv/status.h"
#include "platform/pipe_path.h"
#include <cerrno>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fn::uv {
namespace {

constexpr mode_t onlyOwner = 0600;

void check(int result, const String& path)
{
    if (result < 0) Status(fmt::format("make the pipe {}", path), -errno).throwOnError();
}

} // namespace

PipeEndpoint::PipeEndpoint(const String& path)
{
    const auto address = platform::socketAddress(path);
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    check(socket.get(), path);
    check(::fchmod(socket.get(), onlyOwner), path); // `bind()` gives the path this mode: others never have access.
    check(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), path);
    struct stat status;
    check(::lstat(path.c_str(), &status), path);
    _path = path;
    _socket = std::move(socket);
    _device = status.st_dev;
    _inode = status.st_ino;
}

void PipeEndpoint::remove() noexcept
{
    struct stat status;
    if (_path.empty() || ::lstat(_path.c_str(), &status) != 0) return;
    if (status.st_dev == _device && status.st_ino == _inode) ::unlink(_path.c_str());
}

} // namespace fn::uv

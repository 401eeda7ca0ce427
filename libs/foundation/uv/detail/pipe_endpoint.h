#pragma once
#include "base/file_descriptor.h"
#include <sys/types.h>

namespace fn::uv {

/// A socket bound to a path that only this user can connect to, and the right to remove that path again.
class PipeEndpoint {
public:
    PipeEndpoint() noexcept = default;

    /// Makes the socket at `path`. `fn::IOException` if `path` exists already or is too long.
    explicit PipeEndpoint(const String& path);

    const String& path() const noexcept { return _path; }
    int descriptor() const noexcept { return _socket.get(); }
    void releaseDescriptor() noexcept { _socket.release(); } ///< The socket has another owner now.

    /// Removes the path if it still leads to this socket: somebody may have moved the socket away and made another one there.
    void remove() noexcept;

private:
    String _path;
    FileDescriptor _socket;
    dev_t _device = 0;
    ino_t _inode = 0;
};

} // namespace fn::uv

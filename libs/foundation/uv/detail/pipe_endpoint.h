#pragma once
#include "base/file_descriptor.h"
#include <sys/types.h>

namespace fn::uv {

/// A socket bound to a path that only this user can connect to, and the right to remove that path again.
class PipeEndpoint {
public:
    PipeEndpoint() noexcept = default;

    /// Makes both. `fn::IOException` if something is there already, or if the path is too long.
    explicit PipeEndpoint(const String& path);

    const String& path() const noexcept { return _path; }
    int descriptor() const noexcept { return _socket.get(); }
    void releaseDescriptor() noexcept { _socket.release(); } ///< It has another owner now.

    /// Removes the path if it is still this socket: it may have been moved away, and another have taken its place.
    void remove() noexcept;

private:
    String _path;
    FileDescriptor _socket;
    dev_t _device = 0;
    ino_t _inode = 0;
};

} // namespace fn::uv

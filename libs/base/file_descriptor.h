#pragma once
#include "base/exceptions.h"
#include "base/string.h"

namespace fn {

/// Owns a file descriptor of the system and remembers the path it was opened by, for error reports.
class FN_EXPORT FileDescriptor {
public:
    FileDescriptor() noexcept = default;
    explicit FileDescriptor(int descriptor, String path = {}) noexcept; ///< Takes over the descriptor.
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    /// Opens an existing file for reading, or throws `fn::FileException`. For a FIFO the call waits for a writer.
    static FileDescriptor read(const String& path);

    /// Opens a regular file for reading. Anything else at that path is refused without waiting: `fn::FileException` with EISDIR
    /// or EINVAL.
    static FileDescriptor readRegular(const String& path);

    /// Creates a file with these permission bits (less the process's mask), or empties an existing file, which keeps its own
    /// bits. Throws `fn::FileException` on failure. For a FIFO the call waits for a reader.
    static FileDescriptor write(const String& path, int mode);

    int get() const noexcept { return _descriptor; } ///< -1 when nothing is owned.
    const String& path() const noexcept { return _path; }
    explicit operator bool() const noexcept { return _descriptor >= 0; }

    int release() noexcept; ///< Gives the descriptor to the caller.

    /// Waits until everything written has reached the disk, or throws `fn::FileException`.
    void sync();

    /// Throws `fn::FileException` where the file system reports a failed write only now. The descriptor is closed in every case.
    void close();

private:
    int _descriptor = -1;
    String _path;
};

} // namespace fn

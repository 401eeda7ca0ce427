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

    /// Opens an existing file to read. Else `fn::FileException`. A FIFO waits for its writer.
    static FileDescriptor read(const String& path);

    /// The same for a regular file. What else may lie in its place is refused and not waited for: `fn::FileException` with
    /// EISDIR or EINVAL.
    static FileDescriptor readRegular(const String& path);

    /// Creates a file with these permission bits (less the process's mask), or empties an existing one, which keeps its
    /// own. Else `fn::FileException`. A FIFO waits for its reader.
    static FileDescriptor write(const String& path, int mode);

    int get() const noexcept { return _descriptor; } ///< -1 when nothing is owned.
    const String& path() const noexcept { return _path; }
    explicit operator bool() const noexcept { return _descriptor >= 0; }

    int release() noexcept; ///< Gives the descriptor to the caller.

    /// Waits until what was written has reached the disk. Else `fn::FileException`.
    void sync();

    /// Some file systems report a failed write only here: then `fn::FileException`. The descriptor is gone in every
    /// case.
    void close();

private:
    int _descriptor = -1;
    String _path;
};

} // namespace fn

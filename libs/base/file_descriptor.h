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

    /// Opens a regular file for reading. `fn::FileException`, without waiting, if there is none; with EISDIR for a directory, and
    /// with EINVAL for another kind of file.
    static FileDescriptor readRegular(const String& path);

    /// Creates a file with these permission bits (less the process's mask), or empties an existing file, which keeps its own
    /// bits. Throws `fn::FileException` on failure. For a FIFO the call waits for a reader.
    static FileDescriptor write(const String& path, int mode);

    int get() const noexcept { return _descriptor; } ///< -1 if this owns no descriptor.
    /// What was opened; empty for a descriptor that was taken over.
    const String& path() const noexcept { return _path; }
    explicit operator bool() const noexcept { return _descriptor >= 0; }

    int release() noexcept; ///< Gives the descriptor to the caller.

    /// Waits until all bytes written have reached the disk, or throws `fn::FileException`.
    void sync();

    /// Closes the descriptor in every case. `fn::FileException` if the file system reports the failure of a write only now.
    void close();

private:
    int _descriptor = -1;
    String _path;
};

} // namespace fn

#pragma once
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "foundation/io/output_stream.h"

namespace fn {

/// Writes to a descriptor's current position, unbuffered: each write is a system call, repeated until all is written.
/// Errors: `fn::FileException` with the path of the descriptor.
class FN_EXPORT FileOutputStream final : public OutputStream {
public:
    explicit FileOutputStream(FileDescriptor descriptor); ///< Takes the descriptor over, and writes on where it stands.
    ~FileOutputStream() override;

    void close(bool flushAll = true) override;
    FileDescriptor& descriptor() noexcept { return _descriptor; } ///< Borrowed from the stream.

private:
    void writeSlow(const void* data, std::size_t size) override;

    FileDescriptor _descriptor;
};

} // namespace fn

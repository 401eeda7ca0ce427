#pragma once
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "foundation/io/input_stream.h"

namespace fn {

/// Reads from a descriptor's current position, unbuffered: each read is a system call.
/// Errors: `fn::FileException` with the path of the descriptor.
class FN_EXPORT FileInputStream final : public InputStream {
public:
    explicit FileInputStream(FileDescriptor descriptor); ///< Takes the descriptor over, and reads on where it stands.
    ~FileInputStream() override;

    std::uint64_t position() const override { return _position; }
    const FileDescriptor& descriptor() const noexcept { return _descriptor; } ///< Borrowed from the stream.

private:
    std::size_t readSlow(void* data, std::size_t size) override;

    FileDescriptor _descriptor;
    std::uint64_t _position = 0;
};

} // namespace fn

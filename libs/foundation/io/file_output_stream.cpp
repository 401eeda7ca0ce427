#include "foundation/io/file_output_stream.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include <utility>

namespace fn {

FileOutputStream::FileOutputStream(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) { }

FileOutputStream::~FileOutputStream() = default;

void FileOutputStream::writeSlow(const void* data, std::size_t size)
{
    auto* next = static_cast<const std::uint8_t*>(data);
    while (size > 0) {
        const auto count = posix::write(_descriptor.get(), next, size);
        if (count < 0) File::handleErrno(_descriptor.path());
        next += count;
        size -= static_cast<std::size_t>(count);
    }
}

void FileOutputStream::close(bool) { _descriptor.close(); }

} // namespace fn

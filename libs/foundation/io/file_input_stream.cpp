#include "foundation/io/file_input_stream.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include <utility>

namespace fn {

FileInputStream::FileInputStream(FileDescriptor descriptor) : _descriptor(std::move(descriptor)) { }

FileInputStream::~FileInputStream() = default;

std::size_t FileInputStream::readSlow(void* data, std::size_t size)
{
    const auto count = posix::read(_descriptor.get(), data, size);
    if (count < 0) File::handleErrno(_descriptor.path());
    _position += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
}

} // namespace fn

#include "foundation/io/directory_iterator.h"
#include "foundation/io/file.h"
#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace fn {
namespace {

FileKind kindOfType(std::filesystem::file_type type)
{
    switch (type) {
    case std::filesystem::file_type::regular: return FileKind::Regular;
    case std::filesystem::file_type::directory: return FileKind::Directory;
    case std::filesystem::file_type::symlink: return FileKind::Link;
    case std::filesystem::file_type::socket: return FileKind::Socket;
    case std::filesystem::file_type::fifo: return FileKind::Pipe;
    default: return FileKind::Other;
    }
}

} // namespace

DirectoryIterator::DirectoryIterator(const String& path)
{
    if (path.contains(std::string_view("\0", 1))) File::handleErrno(path, EINVAL);
    const String prefix = path.endsWith("/") ? path : path + "/";

    std::error_code error;
    std::filesystem::directory_iterator next(path.toStdString(), error);
    for (; !error && next != std::filesystem::directory_iterator(); next.increment(error)) {
        std::error_code gone;
        const auto status = next->symlink_status(gone);
        if (status.type() == std::filesystem::file_type::not_found) continue; // Removed since it was listed.
        String name(next->path().filename().string());
        _entries.push_back({ name, prefix + name, kindOfType(status.type()) });
    }
    if (error) File::handleErrno(path, error.value());
    std::ranges::sort(_entries, {}, &DirectoryEntry::name);
}

} // namespace fn

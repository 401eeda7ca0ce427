#include "scanner/folder_walk.h"
#include "base/exceptions.h"
#include <cerrno>
#include <sys/stat.h>

namespace media {
namespace {

std::int64_t nanoseconds(const timespec& time)
{
    // File systems hold times beyond those that fit, and any program may set them. Here a time need only change with its file.
    return static_cast<std::int64_t>(
        static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(time.tv_nsec));
}

} // namespace

FolderWalk::FolderWalk(const fn::String& folder)
    : _prefixBytes(folder.endsWith("/") ? folder.size() : folder.size() + 1)
{
    list(folder);
}

void FolderWalk::step()
{
    if (_listing && _next != _listing->end()) {
        lookAt(*_next++);
        return;
    }
    _listing.reset();
    if (_waiting.empty()) return;
    const auto folder = std::move(_waiting.back());
    _waiting.pop_back();
    try {
        list(folder);
    } catch (const fn::FileException& exception) {
        const auto* code = exception.find<fn::ErrnoInfo>();
        if (!code || *code != ENOENT) noteUnreadable(folder);
    }
}

void FolderWalk::list(const fn::String& folder)
{
    _listing.emplace(folder);
    _next = _listing->begin();
    _listed = folder;
}

void FolderWalk::lookAt(const fn::DirectoryEntry& entry)
{
    struct stat status;
    if (::lstat(entry.path.c_str(), &status) != 0) {
        // The folder may be listed but not entered: none of its entries can be looked at.
        if (errno != ENOENT) noteUnreadable(_listed);
    } else if (S_ISDIR(status.st_mode)) {
        _waiting.push_back(entry.path);
    } else if (S_ISREG(status.st_mode)) {
        _files.push_back({ relative(entry.path), status.st_size, nanoseconds(status.st_mtim) });
    }
}

fn::String FolderWalk::relative(const fn::String& path) const
{
    return path.size() <= _prefixBytes ? fn::String(".") : path.substring(_prefixBytes);
}

void FolderWalk::noteUnreadable(const fn::String& folder)
{
    const auto path = relative(folder);
    if (_unreadableFolders.count > 0 && _lastUnreadable == path) return;
    _lastUnreadable = path;
    _unreadableFolders.add(path);
}

} // namespace media

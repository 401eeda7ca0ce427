#include "platform/detail/private_folder.h"
#include "base/posix.h"
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace platform::detail {
namespace {

using fn::posix::fail;
using fn::posix::uninterrupted;

constexpr mode_t onlyOwner = 0700;
constexpr mode_t onlyOwnerReadsAndWrites = 0600;

int openFolder(const fn::String& path)
{
    return uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); });
}

/// Makes the folder and the folders that lead there.
void makeFolder(const fn::String& folder)
{
    const auto path = folder.toStdString();
    for (auto end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const auto part = path.substr(0, end);
        const bool isMade = ::mkdir(part.c_str(), onlyOwner) == 0;
        // The mode is set again because the process's mask may take away the owner's own rights.
        if (isMade && ::chmod(part.c_str(), onlyOwner) != 0) failAt("make the folder", path);
        if (end != std::string::npos) continue;
        if (!isMade && errno != EEXIST) failAt("make the folder", path);
        return;
    }
}

} // namespace

void failAt(std::string_view action, std::string_view path, int error)
{
    const auto reason = std::generic_category().message(error);
    fail(fmt::format("Could not {} {}: {}", action, path, reason), error);
}

std::optional<PrivateFolder> PrivateFolder::find(const fn::String& path)
{
    fn::FileDescriptor folder(openFolder(path));
    if (!folder && errno == ENOENT) return std::nullopt;
    return PrivateFolder(path, std::move(folder));
}

PrivateFolder PrivateFolder::findOrMake(const fn::String& path)
{
    if (auto folder = find(path)) return std::move(*folder);
    makeFolder(path);
    return { path, fn::FileDescriptor(openFolder(path)) };
}

PrivateFolder::PrivateFolder(const fn::String& path, fn::FileDescriptor descriptor)
    : _path(path),
      _descriptor(std::move(descriptor))
{
    struct stat status;
    if (!_descriptor) failAt("open the folder", path.view());
    if (::fstat(get(), &status) != 0) failAt("look at the folder", path.view());
    if (status.st_uid != ::geteuid()) fail(fmt::format("The folder {} belongs to another user", path.view()), EPERM);
    // A user who may write here could exchange the files.
    if ((status.st_mode & 022) != 0) fail(fmt::format("Other users may write to the folder {}", path.view()), EPERM);
}

fn::FileDescriptor PrivateFolder::open(const fn::String& name, int flags) const
{
    constexpr int always = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    fn::FileDescriptor file(
        uninterrupted([&] { return ::openat(get(), name.c_str(), flags | always, onlyOwnerReadsAndWrites); }));
    // The process's mask may have taken away the owner's own rights.
    const bool mayBeNew = file && (flags & O_CREAT) != 0;
    return mayBeNew && ::fchmod(file.get(), onlyOwnerReadsAndWrites) != 0 ? fn::FileDescriptor(-1) : std::move(file);
}

void PrivateFolder::sync() const
{
    if (uninterrupted([&] { return ::fsync(get()); }) != 0) failAt("write the folder", _path.view());
}

UnfinishedFile::UnfinishedFile(const PrivateFolder& folder, fn::String name)
    : _folder(folder),
      _name(std::move(name)),
      _file(folder.open(_name, O_WRONLY | O_CREAT | O_EXCL))
{
    if (!_file) failAt("make a file in", folder.path().view());
}

UnfinishedFile::~UnfinishedFile() { ::unlinkat(_folder.get(), name(), 0); }

void UnfinishedFile::write(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto count = uninterrupted([&] { return ::write(_file.get(), bytes.data(), bytes.size()); });
        if (count < 0) failAt("write a file in", _folder.path().view());
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    if (uninterrupted([&] { return ::fsync(_file.get()); }) != 0) failAt("write a file in", _folder.path().view());
}

} // namespace platform::detail

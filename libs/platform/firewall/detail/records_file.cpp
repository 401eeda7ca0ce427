#include "platform/firewall/detail/records_file.h"
#include "base/posix.h"
#include "platform/detail/private_folder.h"
#include "platform/firewall/detail/records_text.h"
#include "platform/firewall/firewall_file.h"
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace platform::detail {
namespace {

using fn::posix::uninterrupted;

constexpr std::size_t largestFileBytes = 4 * 1024 * 1024;

// A change takes milliseconds; a process that holds the lock for longer has been stopped.
constexpr std::chrono::milliseconds patience(2000), pause(5);

/// The path `firewallFile()`, and its parts.
struct Location {
    fn::String path;
    fn::String folder;
    fn::String name;
};

Location location()
{
    const auto path = firewallFile();
    const std::filesystem::path parts(path.view());
    return { path, parts.parent_path().string(), parts.filename().string() };
}

void requireOwnFile(const fn::FileDescriptor& file, const fn::String& path)
{
    struct stat status;
    if (::fstat(file.get(), &status) != 0) failAt("look at", path.view());
    if (!S_ISREG(status.st_mode)) failAt("read", path.view(), EINVAL);
    // Another user who may write to the file could admit programs in this user's name.
    if (status.st_uid != ::geteuid() || (status.st_mode & 022) != 0) failAt("trust", path.view(), EPERM);
}

std::string readAll(const fn::FileDescriptor& file, const fn::String& path)
{
    std::string text;
    char buffer[16 * 1024];
    for (;;) {
        const auto count = fn::posix::read(file.get(), buffer, sizeof buffer);
        if (count < 0) failAt("read", path.view());
        if (count == 0) return text;
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > largestFileBytes) failAt("read", path.view(), EFBIG);
    }
}

FirewallRecords readRecords(const PrivateFolder& folder, const Location& where)
{
    const auto file = folder.open(where.name, O_RDONLY);
    if (!file && errno == ENOENT) return {};
    if (!file) failAt("open", where.path.view());
    requireOwnFile(file, where.path);
    return readRecordsText(readAll(file, where.path));
}

/// Keeps other threads and processes from changing the file while this object lives; waits for them, but not longer than `patience`.
class UpdateLock {
public:
    UpdateLock(const PrivateFolder& folder, const Location& where)
        : _file(folder.open(where.name + ".lock", O_RDWR | O_CREAT))
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!_file || uninterrupted([&] { return ::flock(_file.get(), LOCK_EX | LOCK_NB); }) != 0) {
            if (!_file || errno != EWOULDBLOCK || std::chrono::steady_clock::now() > end)
                failAt("lock", where.path.view());
            std::this_thread::sleep_for(pause);
        }
    }

private:
    const fn::FileDescriptor _file;
};

/// To be called under the lock, whose holder owns the unfinished file.
void replaceFile(const PrivateFolder& folder, const Location& where, std::string_view text)
{
    const auto temporary = where.name + ".new";
    ::unlinkat(folder.get(), temporary.c_str(), 0); // A process that was killed may have left it.
    UnfinishedFile file(folder, temporary);
    file.write(text);
    if (::renameat(folder.get(), file.name(), folder.get(), where.name.c_str()) != 0) {
        failAt("replace", where.path.view());
    }
    folder.sync();
}

} // namespace

FirewallRecords readRecords()
{
    const auto where = location();
    const auto folder = PrivateFolder::find(where.folder);
    return folder ? readRecords(*folder, where) : FirewallRecords();
}

void updateRecords(const std::function<void(FirewallRecords&)>& change)
{
    const auto where = location();
    const auto folder = PrivateFolder::findOrMake(where.folder);
    const UpdateLock lock(folder, where);
    auto records = readRecords(folder, where);
    change(records);
    const auto text = recordsText(std::move(records));
    if (text.size() > largestFileBytes) failAt("write", where.path.view(), EFBIG);
    replaceFile(folder, where, text);
}

} // namespace platform::detail

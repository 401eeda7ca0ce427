#include "platform/firewall/detail/records_file.h"
#include "foundation/exceptions.h"
#include "platform/firewall/detail/records_text.h"
#include "platform/firewall/firewall_file.h"
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace platform::detail {
namespace {

constexpr std::size_t largestFileBytes = 4 * 1024 * 1024;
constexpr mode_t onlyOwner = 0700;
constexpr mode_t onlyOwnerReadsAndWrites = 0600;

[[noreturn]] void fail(std::string_view action, const fn::String& path, int error)
{
    throw fn::with(fn::IOException(
                       fmt::format("Could not {} {}: {}", action, path.view(), std::generic_category().message(error))),
        fn::ErrnoInfo { error });
}

template <typename Call> auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

class Descriptor {
public:
    Descriptor(const fn::String& path, int flags)
        : _descriptor(uninterrupted(
            [&] { return ::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, onlyOwnerReadsAndWrites); }))
    {
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (_descriptor >= 0) ::close(_descriptor);
    }
    int get() const noexcept { return _descriptor; }
    explicit operator bool() const noexcept { return _descriptor >= 0; }

private:
    const int _descriptor;
};

void requireOwnFile(const Descriptor& file, const fn::String& path)
{
    struct stat status;
    if (::fstat(file.get(), &status) != 0) fail("look at", path, errno);
    if (!S_ISREG(status.st_mode)) fail("read", path, EINVAL);
    // Who may write to it could admit programs in the user's name.
    if (status.st_uid != ::geteuid() || (status.st_mode & 022) != 0) fail("trust", path, EPERM);
}

std::string readAll(const Descriptor& file, const fn::String& path)
{
    std::string text;
    char buffer[16 * 1024];
    for (;;) {
        const auto count = uninterrupted([&] { return ::read(file.get(), buffer, sizeof buffer); });
        if (count < 0) fail("read", path, errno);
        if (count == 0) return text;
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > largestFileBytes) fail("read", path, EFBIG);
    }
}

void writeAll(const Descriptor& file, std::string_view text, const fn::String& path)
{
    while (!text.empty()) {
        const auto count = uninterrupted([&] { return ::write(file.get(), text.data(), text.size()); });
        if (count < 0) fail("write", path, errno);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    if (uninterrupted([&] { return ::fsync(file.get()); }) != 0) fail("write", path, errno);
}

/// Makes the folder, open to its user alone, and those that lead there.
void makeFolder(const std::filesystem::path& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder.parent_path(), error);
    if (error) fail("make", folder.parent_path().string(), error.value());
    if (::mkdir(folder.c_str(), onlyOwner) != 0 && errno != EEXIST) fail("make", folder.string(), errno);
}

/// Keeps others from changing the file while it lives; waits for them.
class UpdateLock {
public:
    explicit UpdateLock(const fn::String& path) : _file(path, O_RDWR | O_CREAT)
    {
        if (!_file || uninterrupted([&] { return ::flock(_file.get(), LOCK_EX); }) != 0) fail("lock", path, errno);
    }

private:
    const Descriptor _file;
};

/// Only under the lock: the temporary file is the lock holder's.
void replaceFile(const fn::String& path, std::string_view text)
{
    const auto temporary = path + ".new";
    ::unlink(temporary.c_str()); // Of somebody who was ended.
    try {
        const Descriptor file(temporary, O_WRONLY | O_CREAT | O_EXCL);
        if (!file) fail("make", temporary, errno);
        writeAll(file, text, temporary);
        if (::rename(temporary.c_str(), path.c_str()) != 0) fail("replace", path, errno);
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    const Descriptor folder(std::filesystem::path(path.view()).parent_path().string(), O_RDONLY | O_DIRECTORY);
    if (!folder || uninterrupted([&] { return ::fsync(folder.get()); }) != 0) fail("replace", path, errno);
}

} // namespace

FirewallRecords readRecords()
{
    const auto path = firewallFile();
    const Descriptor file(path, O_RDONLY);
    if (!file && errno == ENOENT) return {};
    if (!file) fail("open", path, errno);
    requireOwnFile(file, path);
    return readRecordsText(readAll(file, path));
}

void updateRecords(const std::function<void(FirewallRecords&)>& change)
{
    const auto path = firewallFile();
    makeFolder(std::filesystem::path(path.view()).parent_path());
    const UpdateLock lock(path + ".lock");
    auto records = readRecords();
    change(records);
    const auto text = recordsText(records);
    if (text.size() > largestFileBytes) fail("write", path, EFBIG);
    replaceFile(path, text);
}

} // namespace platform::detail

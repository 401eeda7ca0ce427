#include "foundation/exceptions.h"
#include "platform/data_protection_folder.h"
#include "platform/data_protection_key_private.h"
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <sodium.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

constexpr const char* keyName = "protection.key";
constexpr mode_t onlyOwner = 0700;
constexpr mode_t onlyOwnerReadsAndWrites = 0600;

[[noreturn]] void fail(const fn::String& message, int error)
{
    throw fn::with(fn::IOException(message), fn::ErrnoInfo { error });
}

[[noreturn]] void failAt(std::string_view action)
{
    const int error = errno;
    fail(fmt::format("Could not {} {}: {}", action, protectionFolder().view(), std::generic_category().message(error)),
        error);
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) : _descriptor(descriptor) { }
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

template <typename Call> auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

int openAt(int folder, const char* name, int flags, mode_t mode = 0)
{
    return uninterrupted([&] { return ::openat(folder, name, flags | O_NOFOLLOW | O_CLOEXEC, mode); });
}

/// Makes the folder and those that lead there.
void makeFolder(const fn::String& folder)
{
    const auto path = folder.toStdString();
    for (auto end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const auto part = path.substr(0, end);
        const bool isMade = ::mkdir(part.c_str(), onlyOwner) == 0;
        // The mode is set again because the process's mask may take away the owner's own rights.
        if (isMade && ::chmod(part.c_str(), onlyOwner) != 0) failAt("make the folder");
        if (end != std::string::npos) continue;
        if (!isMade && errno != EEXIST) failAt("make the folder");
        return;
    }
}

/// The folder, opened: what is done in it can not be led elsewhere.
int openFolder(ProtectionKey::IfMissing ifMissing)
{
    const auto path = protectionFolder();
    int folder = openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    if (folder < 0 && errno == ENOENT && ifMissing == ProtectionKey::IfMissing::Create) {
        makeFolder(path);
        folder = openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    }
    if (folder < 0) failAt("open the folder");
    return folder;
}

void requireOwnFolder(int folder)
{
    struct stat status;
    if (::fstat(folder, &status) != 0) failAt("look at the folder");
    const auto path = protectionFolder();
    if (status.st_uid != ::geteuid()) fail(fmt::format("The folder {} belongs to another user", path.view()), EPERM);
    // Who may write here could exchange the key.
    if ((status.st_mode & 022) != 0) fail(fmt::format("Other users may write to the folder {}", path.view()), EPERM);
}

void requireUsableKey(int key)
{
    struct stat status;
    if (::fstat(key, &status) != 0) failAt("look at the protection key in");
    std::string_view problem;
    if (!S_ISREG(status.st_mode)) {
        problem = "is no regular file";
    } else if (status.st_uid != ::geteuid()) {
        problem = "belongs to another user";
    } else if ((status.st_mode & 077) != 0) {
        problem = "is open to other users";
    } else if (status.st_size != ProtectionKey::sizeBytes) {
        problem = "has the wrong size";
    }
    if (!problem.empty()) fail(fmt::format("{}/{} {}", protectionFolder().view(), keyName, problem), EPERM);
}

void writeKey(int file)
{
    std::array<std::uint8_t, ProtectionKey::sizeBytes> bytes;
    ::randombytes_buf(bytes.data(), bytes.size());
    const auto written = uninterrupted([&] { return ::write(file, bytes.data(), bytes.size()); });
    ::sodium_memzero(bytes.data(), bytes.size());
    if (written >= 0 && std::cmp_not_equal(written, bytes.size())) errno = ENOSPC;
    if (std::cmp_not_equal(written, bytes.size())) failAt("write a protection key in");
    if (uninterrupted([&] { return ::fsync(file); }) != 0) failAt("write a protection key in");
}

/// A name of its own for the unfinished key, which goes at the end.
class TemporaryName {
public:
    explicit TemporaryName(int folder) : _folder(folder)
    {
        std::uint64_t number = 0;
        ::randombytes_buf(&number, sizeof number);
        _name = fmt::format("{}-{:016x}.tmp", keyName, number);
    }
    TemporaryName(const TemporaryName&) = delete;
    TemporaryName& operator=(const TemporaryName&) = delete;
    ~TemporaryName() { ::unlinkat(_folder, _name.c_str(), 0); }
    const char* get() const noexcept { return _name.c_str(); }

private:
    const int _folder;
    fn::String _name;
};

/// Makes a key unless another process is faster. The file gets its name only when it is whole and on the disk.
void createKey(int folder)
{
    const TemporaryName temporary(folder);
    const Descriptor file(openAt(folder, temporary.get(), O_WRONLY | O_CREAT | O_EXCL, onlyOwnerReadsAndWrites));
    if (!file) failAt("make a protection key in");
    // The process's mask may have taken away the owner's own rights.
    if (::fchmod(file.get(), onlyOwnerReadsAndWrites) != 0) failAt("make a protection key in");
    writeKey(file.get());
    // A link, since renaming would replace the key of another process that has been faster.
    if (::linkat(folder, temporary.get(), folder, keyName, 0) != 0 && errno != EEXIST) {
        failAt("make a protection key in");
    }
    if (uninterrupted([&] { return ::fsync(folder); }) != 0) failAt("make a protection key in");
}

} // namespace

ProtectionKey::ProtectionKey(IfMissing ifMissing)
{
    const Descriptor folder(openFolder(ifMissing));
    requireOwnFolder(folder.get());
    if (read(folder.get())) return;
    if (ifMissing == IfMissing::Create) {
        createKey(folder.get());
        if (read(folder.get())) return;
    }
    fail(fmt::format("There is no protection key in {}", protectionFolder().view()), ENOENT);
}

ProtectionKey::~ProtectionKey() { ::sodium_memzero(_bytes.data(), _bytes.size()); }

bool ProtectionKey::read(int folder)
{
    // Not blocking: it might be a pipe that nobody writes to.
    const Descriptor file(openAt(folder, keyName, O_RDONLY | O_NONBLOCK));
    if (!file && errno == ENOENT) return false;
    if (!file) failAt("open the protection key in");
    requireUsableKey(file.get());
    const auto count = uninterrupted([&] { return ::read(file.get(), _bytes.data(), _bytes.size()); });
    if (count >= 0 && std::cmp_not_equal(count, _bytes.size())) errno = EIO; // Cut since it was looked at.
    if (std::cmp_not_equal(count, _bytes.size())) failAt("read the protection key in");
    return true;
}

} // namespace platform

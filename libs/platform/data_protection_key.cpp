#include "base/exceptions.h"
#include "base/posix.h"
#include "platform/data_protection_folder.h"
#include "platform/detail/data_protection_key_private.h"
#include "platform/detail/private_folder.h"
#include <fcntl.h>
#include <fmt/format.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

using detail::PrivateFolder;
using fn::posix::fail;
using fn::posix::uninterrupted;

constexpr const char* keyName = "protection.key";

PrivateFolder keyFolder(ProtectionKey::IfMissing ifMissing)
{
    const auto path = protectionFolder();
    if (ifMissing == ProtectionKey::IfMissing::Create) return PrivateFolder::findOrMake(path);
    auto folder = PrivateFolder::find(path);
    if (!folder) detail::failAt("open the folder", path.view(), ENOENT);
    return std::move(*folder);
}

void requireUsableKey(const fn::FileDescriptor& key, const fn::String& folder)
{
    struct stat status;
    if (::fstat(key.get(), &status) != 0) detail::failAt("look at the protection key in", folder.view());
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
    if (!problem.empty()) fail(fmt::format("{}/{} {}", folder.view(), keyName, problem), EPERM);
}

/// A name that no other process gives to its unfinished key.
fn::String temporaryName()
{
    std::uint64_t number = 0;
    ::randombytes_buf(&number, sizeof number);
    return fmt::format("{}-{:016x}.tmp", keyName, number);
}

/// A new key. Its bytes are wiped at the end.
struct RandomKey {
    std::array<char, ProtectionKey::sizeBytes> bytes;

    RandomKey() { ::randombytes_buf(bytes.data(), bytes.size()); }
    RandomKey(const RandomKey&) = delete;
    RandomKey& operator=(const RandomKey&) = delete;
    ~RandomKey() { ::sodium_memzero(bytes.data(), bytes.size()); }
};

/// Makes a key unless another process is faster. The file gets its name only when it is whole and on the disk.
void createKey(const PrivateFolder& folder)
{
    const RandomKey key;
    detail::UnfinishedFile file(folder, temporaryName());
    file.write({ key.bytes.data(), key.bytes.size() });
    // A link, since renaming would replace the key of another process that has been faster.
    if (::linkat(folder.get(), file.name(), folder.get(), keyName, 0) != 0 && errno != EEXIST) {
        detail::failAt("make a protection key in", folder.path().view());
    }
    folder.sync();
}

} // namespace

ProtectionKey::ProtectionKey(IfMissing ifMissing)
{
    const auto folder = keyFolder(ifMissing);
    if (read(folder)) return;
    if (ifMissing == IfMissing::Create) {
        createKey(folder);
        if (read(folder)) return;
    }
    fail(fmt::format("There is no protection key in {}", folder.path().view()), ENOENT);
}

ProtectionKey::~ProtectionKey() { ::sodium_memzero(_bytes.data(), _bytes.size()); }

bool ProtectionKey::read(const PrivateFolder& folder)
{
    const auto file = folder.open(keyName, O_RDONLY);
    if (!file && errno == ENOENT) return false;
    if (!file) detail::failAt("open the protection key in", folder.path().view());
    requireUsableKey(file, folder.path());
    const auto count = uninterrupted([&] { return ::read(file.get(), _bytes.data(), _bytes.size()); });
    if (count >= 0 && std::cmp_not_equal(count, _bytes.size())) errno = EIO; // Cut since the size was checked.
    if (std::cmp_not_equal(count, _bytes.size())) detail::failAt("read the protection key in", folder.path().view());
    return true;
}

} // namespace platform

#include "platform/data_protection_folder.h"
#include "platform/detail/user_data_folder.h"
#include <mutex>
#include <utility>

namespace platform {
namespace {

std::mutex overrideLock;

fn::String& overriddenFolder() // Empty: none. Guarded by `overrideLock`.
{
    static auto& folder = *new fn::String;
    return folder;
}

} // namespace

fn::String protectionFolder()
{
    {
        const std::lock_guard guard(overrideLock);
        if (!overriddenFolder().empty()) return overriddenFolder();
    }
    return detail::userDataFolder();
}

ScopedProtectionFolder::ScopedProtectionFolder(fn::String folder)
{
    const std::lock_guard guard(overrideLock);
    _previous = std::exchange(overriddenFolder(), std::move(folder));
}

ScopedProtectionFolder::~ScopedProtectionFolder()
{
    const std::lock_guard guard(overrideLock);
    overriddenFolder() = std::move(_previous);
}

} // namespace platform

#include "platform/firewall/firewall_file.h"
#include "platform/detail/user_data_folder.h"
#include <mutex>
#include <utility>

namespace platform {
namespace {

std::mutex overrideLock;

fn::String& overriddenFile() // Empty: none. Guarded by `overrideLock`.
{
    static auto& path = *new fn::String;
    return path;
}

} // namespace

fn::String firewallFile()
{
    {
        const std::lock_guard guard(overrideLock);
        if (!overriddenFile().empty()) return overriddenFile();
    }
    return detail::userDataFolder() + "/firewall.rules";
}

ScopedFirewallFile::ScopedFirewallFile(fn::String path)
{
    const std::lock_guard guard(overrideLock);
    _previous = std::exchange(overriddenFile(), std::move(path));
}

ScopedFirewallFile::~ScopedFirewallFile()
{
    const std::lock_guard guard(overrideLock);
    overriddenFile() = std::move(_previous);
}

} // namespace platform

#include "platform/data_protection_folder.h"
#include "platform/detail/user_data_folder.h"

namespace platform {

template class ScopedOverride<protectionFolder, fn::String>;

fn::String protectionFolder()
{
    const auto folder = ScopedProtectionFolder::current();
    return folder.empty() ? detail::userDataFolder() : folder;
}

} // namespace platform

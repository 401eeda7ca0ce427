#include "core/application/application_options.h"
#include "core/services/app_info.h"
#include <filesystem>

namespace ipc {

core::AppIdentity ApplicationOptions::identity() const
{
    core::AppIdentity identity { id, name, version };
    if (id.empty()) { // The program's own name, not that of a link to it.
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        identity.id = fn::String(program.filename().string()).toLowerCase();
    }
    if (name.empty() && version.empty()) { // The applications that the library knows are known whole.
        for (const auto app : { core::AppInfo::App::Skyfold, core::AppInfo::App::Lumenhall }) {
            if (auto known = core::AppInfo::identityOf(app); known.id == identity.id) return known;
        }
    }
    if (name.empty()) identity.name = identity.id;
    if (version.empty()) identity.version = "0";
    identity.check();
    return identity;
}

} // namespace ipc

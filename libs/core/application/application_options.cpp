#include "core/application/application_options.h"
#include "core/services/app_info.h"
#include <cerrno>

namespace ipc {

core::AppIdentity ApplicationOptions::identity() const
{
    core::AppIdentity identity { id, name, version };
    if (id.empty()) identity.id = fn::String(program_invocation_short_name).toLowerCase();
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

#include "core/application/installed_marker.h"
#include "foundation/io/file.h"
#include "foundation/system/path_manager.h"
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

namespace ipc {

void checkInstalledMarker(const core::AppIdentity& identity)
{
    const auto& paths = fn::PathManager::instance();
    if (!paths.hasInstalledLayout()) return;
    const auto path = paths.getPath(fn::PathManager::ResourceFolder, "installed", false);
    std::ifstream file(path.toStdString());
    if (!file) {
        const auto* const reason = std::strerror(errno);
        throw fn::RuntimeException(identity.name + " is installed in a folder that can not be read: " + path + ": "
                + reason + ". Give its users leave to read it.",
            fn::Exception::StackTrace::None);
    }
    std::string name;
    if (!std::getline(file, name)) return; // Says nothing.
    const auto root = paths.getPath(fn::PathManager::ResourceFolder, false);
    const bool isOwn = root.endsWith("/" + identity.id);
    if (!isOwn || identity.name == name || identity.id == name) return; // Not its own: the root of its family.
    throw fn::RuntimeException("What is installed in " + root + " calls itself \"" + name + "\", and this program \""
            + identity.name
            + "\": give one of them another id, or let the file `installed` there begin with this program's name",
        fn::Exception::StackTrace::None);
}

} // namespace ipc

#include "core/application/installed_marker.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "foundation/system/path_manager.h"
#include <algorithm>
#include <array>
#include <string>

namespace ipc {
namespace {

/// The first line of the marker, which may hold anything; at most 80 bytes.
std::string firstLine(const fn::String& path)
{
    std::array<char, 80> text;
    const auto file = fn::FileDescriptor::readRegular(path);
    const auto count = std::max<ssize_t>(fn::posix::read(file.get(), text.data(), text.size()), 0);
    const auto isEnd = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    return { text.begin(), std::find_if(text.begin(), text.begin() + count, isEnd) };
}

} // namespace

void checkInstalledMarker(const core::AppIdentity& identity)
{
    const auto& paths = fn::PathManager::instance();
    if (!paths.hasInstalledLayout()) return;
    const auto path = paths.getPath(fn::PathManager::ResourceFolder, "installed", false);
    std::string name;
    try {
        name = firstLine(path);
    } catch (const fn::Exception& exception) {
        throw fn::RuntimeException(identity.name
                + " is installed in a folder that can not be read. Let all users read it, or "
                  "install it again.\n"
                + exception.what(),
            fn::Exception::StackTrace::None);
    }
    const auto root = paths.getPath(fn::PathManager::ResourceFolder, false);
    const bool isOwn = root.endsWith("/" + identity.id); // Else it is that of its family.
    if (name.empty() || !isOwn || identity.name == name || identity.id == name) return;
    throw fn::RuntimeException("What is installed in " + root + " calls itself \"" + name + "\", and this program \""
            + identity.name
            + "\": give one of them another id, or let the file `installed` there begin with this program's name",
        fn::Exception::StackTrace::None);
}

} // namespace ipc

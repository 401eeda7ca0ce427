#include "skyfold/command.h"
#include "base/exceptions.h"
#include <climits>
#include <filesystem>

namespace media {
namespace {

const fn::String& absolutePath(const fn::Value& value)
{
    const auto& path = value.string();
    if (path.size() >= PATH_MAX) throw fn::RuntimeException("A path that is too long");
    if (!path.startsWith("/") || path.view().find('\0') != std::string_view::npos) {
        throw fn::RuntimeException("Not an absolute path: " + path);
    }
    return path;
}

} // namespace

fn::Value Command::toValue() const
{
    auto value = fn::Value::map({ { "flipVerbose", flipVerbose } });
    if (scan) {
        value.set("folder", scan->folder);
        value.set("dataFolder", scan->dataFolder);
    }
    return value;
}

Command Command::fromValue(const fn::Value& value)
{
    Command command;
    command.flipVerbose = value.at("flipVerbose").toBool();
    if (!value.get("folder").isNil()) {
        auto& scan = command.scan.emplace();
        scan.folder = absolutePath(value.at("folder"));
        scan.dataFolder = absolutePath(value.at("dataFolder"));
        std::error_code error;
        if (!std::filesystem::is_directory(std::string(scan.folder.view()), error)) {
            throw fn::RuntimeException("No folder: " + scan.folder);
        }
    }
    return command;
}

} // namespace media

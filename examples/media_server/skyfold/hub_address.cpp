#include "skyfold/hub_address.h"
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include "foundation/system/path_manager.h"
#include <array>
#include <unistd.h>

namespace media {
namespace {

fn::String addressFile() { return fn::PathManager::privatePath("skyfold-hub"); }

} // namespace

HubAddress::HubAddress(const fn::String& pipePath)
{
    const auto path = addressFile();
    const auto partial = path + ".new";
    auto file = fn::FileDescriptor::write(partial, 0600);
    if (fn::posix::write(file.get(), pipePath.data(), pipePath.size()) != static_cast<ssize_t>(pipePath.size()))
        fn::File::handleErrno(partial);
    file.close();
    fn::File(partial).moveTo(path);
}

HubAddress::~HubAddress() { ::unlink(addressFile().c_str()); }

std::optional<fn::String> HubAddress::find()
{
    std::array<char, 256> text;
    try {
        const auto file = fn::FileDescriptor::readRegular(addressFile());
        const auto count = fn::posix::read(file.get(), text.data(), text.size());
        if (count > 0) return fn::String(std::string_view(text.data(), static_cast<std::size_t>(count)));
    } catch (const fn::FileException&) { // No program has written one.
    }
    return std::nullopt;
}

} // namespace media

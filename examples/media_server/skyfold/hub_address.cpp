#include "skyfold/hub_address.h"
#include "base/exceptions.h"
#include "base/file_descriptor.h"
#include "base/posix.h"
#include "foundation/io/file.h"
#include "platform/pipe_path.h"
#include <array>
#include <cerrno>
#include <unistd.h>

namespace media {
namespace {

fn::String addressFile() { return platform::privatePath("skyfold-hub"); }

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
        const std::string_view address(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        if (platform::isPipeName(address)) return fn::String(address);
    } catch (const fn::FileException&) { // No program has written one.
    }
    return std::nullopt;
}

} // namespace media

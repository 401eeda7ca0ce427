#include "console/output.h"
#include "api/text.h"
#include "base/posix.h"
#include <cerrno>
#include <poll.h>
#include <sys/ioctl.h>
#include <system_error>

namespace media {
namespace {

constexpr int usualColumns = 80;

} // namespace

void Output::write(std::string_view text)
{
    while (_error == 0 && !text.empty()) {
        const auto written = fn::posix::write(_descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) { // The stream came non-blocking.
            pollfd ready { _descriptor, POLLOUT, 0 };
            ::poll(&ready, 1, -1);
        } else {
            _error = errno;
        }
    }
}

void Output::check() const
{
    if (_error != 0) throw std::system_error(_error, std::generic_category(), "standard output");
}

bool Output::isTerminal() const { return media::isTerminal(_descriptor); }

int Output::columns() const
{
    winsize size {};
    return ::ioctl(_descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usualColumns;
}

} // namespace media

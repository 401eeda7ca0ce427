#include <fcntl.h>
#include <unistd.h>

namespace fn {
namespace {

/// A standard stream that the caller of this program has closed would be the number of its next file or socket: children
/// would inherit that as theirs, and what is printed would go there. So, when this library is loaded, before anything is
/// opened, such a stream becomes one that is empty and keeps nothing.
[[maybe_unused]] const bool areFilled = [] {
    for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO }) {
        if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR)); // Takes the lowest number.
    }
    return true;
}();

} // namespace
} // namespace fn

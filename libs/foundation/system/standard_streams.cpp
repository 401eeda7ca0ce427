#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace fn {
namespace {

/// If the caller of this program has closed a standard stream, the next file or socket would get the stream's number: children would
/// inherit it as their stream, and printed text would go there. So /dev/null takes the place of such a stream when this library is
/// loaded, before anything is opened.
[[maybe_unused]] const bool areFilled = [] {
    for (const int stream : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO }) {
        if (::fcntl(stream, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR)); // Gets the number `stream`.
    }
    return true;
}();

} // namespace
} // namespace fn

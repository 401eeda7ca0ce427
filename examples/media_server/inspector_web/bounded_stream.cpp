#include "inspector_web/bounded_stream.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace media {
namespace {

constexpr std::size_t chunkBytes = 4096;
constexpr auto betweenLooks = std::chrono::milliseconds(100); // Whether others wait.

} // namespace

BoundedStream::BoundedStream(int socket, const std::atomic<bool>& othersWait) : _socket(socket), _othersWait(othersWait)
{
}

BoundedStream::~BoundedStream() = default;

/// False beyond that time.
bool BoundedStream::await(short events, Clock::time_point start, Milliseconds most, Milliseconds mostBeforeOthers) const
{
    for (;;) {
        const auto deadline = start + (_othersWait ? mostBeforeOthers : most);
        const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return false;
        pollfd poll { _socket, events, 0 };
        const auto ready = ::poll(&poll, 1, static_cast<int>(std::min(left, betweenLooks).count()));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

bool BoundedStream::awaitOutput() const
{
    return await(POLLOUT, _writeStart.value_or(Clock::now()), mostWriting, mostWritingBeforeOthers);
}

bool BoundedStream::is_readable() const { return _taken < _received.size() || awaitInput(); }

bool BoundedStream::is_writable() const { return awaitOutput(); }

/// Receives something more; false where there is no more to come.
bool BoundedStream::fill()
{
    std::array<char, chunkBytes> chunk;
    const auto most = std::min(chunk.size(), mostRequestBytes - _received.size());
    while (most > 0 && awaitInput()) {
        const auto count = ::recv(_socket, chunk.data(), most, MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count <= 0) return false;
        _received.append(chunk.data(), static_cast<std::size_t>(count));
        return true;
    }
    return false;
}

std::string_view BoundedStream::awaitHead()
{
    constexpr std::string_view emptyLine = "\n\r\n";
    for (std::size_t seen = 0;;) {
        const auto end = _received.find(emptyLine, seen);
        if (end != _received.npos) return std::string_view(_received).substr(0, end + emptyLine.size());
        seen = _received.size() - std::min(_received.size(), emptyLine.size() - 1);
        if (!fill()) return _received;
    }
}

ssize_t BoundedStream::read(char* data, std::size_t size)
{
    if (_taken == _received.size() && !fill()) return -1;
    const auto count = std::min(size, _received.size() - _taken);
    std::memcpy(data, _received.data() + _taken, count);
    _taken += count;
    return static_cast<ssize_t>(count);
}

ssize_t BoundedStream::write(const char* data, std::size_t size)
{
    if (!_writeStart) _writeStart = Clock::now();
    for (std::size_t written = 0; written < size;) {
        if (!awaitOutput()) return -1;
        const auto count = ::send(_socket, data + written, size - written, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EAGAIN && errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(size);
}

// Of no use: all are on this machine.
void BoundedStream::get_remote_ip_and_port(std::string&, int&) const { }
void BoundedStream::get_local_ip_and_port(std::string&, int&) const { }

} // namespace media

#include "inspector_web/bounded_stream.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace media {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t mostRequestBytes = 32 * 1024; // Twice what browsers send with the longest address.
constexpr auto mostReading = std::chrono::seconds(5);
constexpr auto mostWriting = std::chrono::seconds(20);

} // namespace

BoundedStream::BoundedStream(int socket)
    : _socket(socket),
      _readDeadline(Clock::now() + mostReading),
      _bytesLeft(mostRequestBytes)
{
}

BoundedStream::~BoundedStream() = default;

/// False beyond the deadline.
bool BoundedStream::await(short events, Time deadline) const
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return false;
        pollfd poll { _socket, events, 0 };
        const auto ready = ::poll(&poll, 1, static_cast<int>(left.count()));
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
    }
}

bool BoundedStream::is_readable() const { return _begin < _end || await(POLLIN, _readDeadline); }

bool BoundedStream::is_writable() const { return await(POLLOUT, _writeDeadline.value_or(Clock::now() + mostWriting)); }

bool BoundedStream::fill()
{
    const auto most = std::min(_buffer.size(), _bytesLeft);
    while (most > 0 && await(POLLIN, _readDeadline)) {
        const auto count = ::recv(_socket, _buffer.data(), most, MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (count <= 0) return false;
        _begin = 0;
        _end = static_cast<std::size_t>(count);
        _bytesLeft -= _end;
        return true;
    }
    return false;
}

ssize_t BoundedStream::read(char* data, std::size_t size)
{
    if (_begin == _end && !fill()) return -1;
    const auto count = std::min(size, _end - _begin);
    std::memcpy(data, _buffer.data() + _begin, count);
    _begin += count;
    return static_cast<ssize_t>(count);
}

ssize_t BoundedStream::write(const char* data, std::size_t size)
{
    if (!_writeDeadline) _writeDeadline = Clock::now() + mostWriting;
    for (std::size_t written = 0; written < size;) {
        if (!await(POLLOUT, *_writeDeadline)) return -1;
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

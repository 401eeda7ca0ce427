#pragma once
#include <array>
#include <chrono>
#include <cstddef>
#include <httplib.h>
#include <optional>

namespace media {

/// One connection of the HTTP library, with bounds that the library has not: on the bytes of a request, and on the time that
/// all of it, and all of its answer, may take. Thread of the connection.
class BoundedStream final : public httplib::Stream {
public:
    explicit BoundedStream(int socket); ///< Borrowed.
    ~BoundedStream() override;

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* data, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override; ///< All of it, or -1.
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return _socket; }

private:
    using Time = std::chrono::steady_clock::time_point;
    bool await(short events, Time deadline) const;
    bool fill();

    const int _socket;
    const Time _readDeadline;
    std::optional<Time> _writeDeadline; // From the first byte on.
    std::array<char, 4096> _buffer;
    std::size_t _begin = 0; // Of what the buffer holds.
    std::size_t _end = 0;
    std::size_t _bytesLeft; // That the request may still have.
};

} // namespace media

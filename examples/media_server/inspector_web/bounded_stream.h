#pragma once
#include <atomic>
#include <chrono>
#include <cstddef>
#include <httplib.h>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>

namespace media {

/// One connection of the HTTP library, with bounds that the library has not: on the bytes of a request, and on the time that
/// all of it, and all of its answer, may take. Thread of the connection.
class BoundedStream final : public httplib::Stream {
public:
    static constexpr std::size_t mostRequestBytes = 32 * 1024; ///< Twice what browsers send with the longest address.

    /// For a request, from the beginning of the connection on, and for its answer, from its first byte on. While other
    /// connections wait for their turn: longer than programs on this machine need, so that silent ones hold up nobody for long.
    static constexpr auto mostReading = std::chrono::milliseconds(5000);
    static constexpr auto mostWriting = std::chrono::milliseconds(20'000);
    static constexpr auto mostReadingBeforeOthers = std::chrono::milliseconds(500);
    static constexpr auto mostWritingBeforeOthers = std::chrono::milliseconds(2000);

    BoundedStream(int socket, const std::atomic<bool>& othersWait); ///< Both are borrowed.
    ~BoundedStream() override;

    /// All that comes before the content of the request, which is still to be read, as far as it comes in time. Before all else.
    std::string_view awaitHead();

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* data, std::size_t size) override;
    ssize_t write(const char* data, std::size_t size) override; ///< All of it, or -1.
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return _socket; }

private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    bool await(short events, Clock::time_point start, Milliseconds most, Milliseconds mostBeforeOthers) const;
    bool awaitInput() const { return await(POLLIN, _start, mostReading, mostReadingBeforeOthers); }
    bool awaitOutput() const;
    bool fill();

    const int _socket;
    const std::atomic<bool>& _othersWait;
    const Clock::time_point _start = Clock::now();
    std::optional<Clock::time_point> _writeStart; // The first byte's.
    std::string _received; // All of it.
    std::size_t _taken = 0; // Bytes of it that have been read.
};

} // namespace media

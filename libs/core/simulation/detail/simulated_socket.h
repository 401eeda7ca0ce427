#pragma once
#include "core/simulation/process.h"
#include <memory>
#include <string>
#include <uv.h>

namespace core::simulation {

/// One direction of a connection: the bytes that one side has written and the other one has not read yet.
struct Channel {
    explicit Channel(std::size_t capacity) : capacity(capacity) { }

    std::size_t size() const noexcept { return bytes.size() - taken; }
    std::size_t room() const noexcept { return capacity - std::min(capacity, size()); }
    void put(const char* data, std::size_t count) { bytes.append(data, count); }
    void take(char* data, std::size_t count);

    const std::size_t capacity;
    std::string bytes;
    std::size_t taken = 0;
    bool isEnded = false; ///< The writer will write nothing more.
    bool isReset = false; ///< The writer has closed with bytes of the other direction unread; the reader is told once.
    bool isAbandoned = false; ///< The reader will read nothing more.
};

/// One end of a pipe in the simulated world. It behaves as a local socket under libuv does: bytes written before an end are
/// read before it, an end with unread bytes reads as UV_ECONNRESET, and a write to a closed peer fails with UV_EPIPE.
class SimulatedSocket final : public fn::uv::System::Socket {
public:
    SimulatedSocket(Process& process, fn::uv::System::SocketUser& user);
    ~SimulatedSocket() override;

    int bind(const fn::String& name) override;
    int listen(int backlog) override;
    int accept(Socket& socket) override;
    int connect(const fn::String& name) override;
    void setReading(bool isReading) override;
    std::ptrdiff_t receive(std::span<char> memory) override;
    std::ptrdiff_t tryWrite(std::span<const uv_buf_t> parts) override;
    int write(std::span<const uv_buf_t> parts) override;
    bool isPeerHere() const noexcept override { return _peer && &_peer->_process == &_process; }
    std::size_t unwritten() const noexcept override { return _unwritten; }
    void shutdown() override;
    void close() override;

    bool isReady() const noexcept; ///< Whether `deliver()` has something to do.
    void deliver();
    void deliverEnd(); ///< To be called in a dead process: a socket that is reading reads the end.
    void finishClose() { _user.onClosed(); } ///< May destroy this socket.
    void cut() noexcept; ///< The socket's process has died: the peer sees the end, no more bytes pass.

private:
    /// A connection that waits to be accepted: its channels, and the socket that has connected.
    struct Waiting {
        SimulatedSocket* peer; // Null once it has closed.
        std::shared_ptr<Channel> in;
        std::shared_ptr<Channel> out;
    };

    bool canRead() const noexcept;
    bool canWrite() const noexcept;
    void read();
    void goOnWriting();
    std::size_t put(const char* data, std::size_t count);
    void touchPeer() const;
    void leave() noexcept;

    Process& _process;
    fn::uv::System::SocketUser& _user;
    fn::String _name; // The name of a listener.
    int _backlog = 0;
    std::deque<Waiting> _waiting;
    SimulatedSocket* _listener = nullptr; // The listener in whose queue this socket waits; null if none.

    std::shared_ptr<Channel> _in;
    std::shared_ptr<Channel> _out;
    SimulatedSocket* _peer = nullptr;
    std::vector<uv_buf_t> _parts; // What is left of the write that waits for room.
    std::size_t _unwritten = 0;
    bool _isReading = false;
    bool _isClosed = false;
    bool _isListed = false; // Whether this socket is in `_ready` of its process.

    friend class Process;
};

} // namespace core::simulation

#pragma once
#include "core/simulation/process.h"
#include <memory>
#include <string>
#include <uv.h>

namespace core::simulation {

/// What one side has written and the other one has not read yet.
struct Channel {
    explicit Channel(std::size_t capacity) : capacity(capacity) { }

    std::size_t size() const noexcept { return bytes.size() - taken; }
    std::size_t room() const noexcept { return capacity - std::min(capacity, size()); }
    void put(const char* data, std::size_t count) { bytes.append(data, count); }
    void take(char* data, std::size_t count);

    const std::size_t capacity;
    std::string bytes;
    std::size_t taken = 0;
    bool isEnded = false; ///< Nothing more will be written.
    bool isReset = false; ///< The writer left bytes unread that were on their way to it: told once.
    bool isAbandoned = false; ///< Nobody will read.
};

/// A pipe's end in the simulated world. It behaves as a local socket under libuv does: what has been written before an end
/// is read first, an end with unread bytes shows as UV_ECONNRESET, a write to nobody as UV_EPIPE.
class SimulatedSocket final : public fn::uv::System::Socket {
public:
    SimulatedSocket(Process& process, fn::uv::System::SocketUser& user);
    ~SimulatedSocket() override;

    int bind(const fn::String& name) override;
    int listen(int backlog) override;
    int accept(Socket& peer) override;
    int connect(const fn::String& name) override;
    void setReading(bool isReading) override;
    std::ptrdiff_t receive(std::span<char> memory) override;
    std::ptrdiff_t tryWrite(std::span<const uv_buf_t> parts) override;
    int write(std::span<const uv_buf_t> parts) override;
    std::size_t unwritten() const noexcept override { return _unwritten; }
    void shutdown() override;
    void close() override;

    bool isReady() const noexcept; ///< Whether `deliver()` has something to tell.
    void deliver();
    void deliverEnd(); ///< In a dead process: whoever reads reads the end.
    void finishClose() { _user.onClosed(); } ///< May destroy it.
    void cut() noexcept; ///< Its process is dead: the other side sees the end, nothing more passes.

private:
    /// One that has connected and waits to be accepted: the channels, and who is at the other end of them.
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
    fn::String _name; // Of a listener.
    int _backlog = 0;
    std::deque<Waiting> _waiting;
    SimulatedSocket* _listener = nullptr; // In whose queue it waits.

    std::shared_ptr<Channel> _in;
    std::shared_ptr<Channel> _out;
    SimulatedSocket* _peer = nullptr;
    std::vector<uv_buf_t> _parts; // Of the write that waits for room.
    std::size_t _unwritten = 0;
    bool _isReading = false;
    bool _isClosed = false;
    bool _isListed = false; // Among the ready ones of its process.

    friend class Process;
};

} // namespace core::simulation

#pragma once
#include "floor/frame.h"
#include <deque>
#include <functional>
#include <uv.h>
#include <vector>

namespace bench::floor {

enum class WriteMode {
    EachFrame, ///< Each frame is written by itself, as it comes.
    Coalesced, ///< What one loop iteration produced leaves in one writev.
};

class Connection;

/// An event loop that flushes the connections written to: after it has polled, and before it waits.
class Node {
public:
    explicit Node(WriteMode mode);
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    uv_loop_t& loop() { return _loop; }
    WriteMode mode() const { return _mode; }
    void run() { uv_run(&_loop, UV_RUN_DEFAULT); } ///< Until the process is killed.

    void flushLater(Connection& connection) { _unflushed.push_back(&connection); }
    void forget(Connection& connection);

private:
    void flush();

    const WriteMode _mode;
    uv_loop_t _loop;
    uv_prepare_t _beforeWaiting;
    uv_check_t _afterPolling;
    std::vector<Connection*> _unflushed;
    std::vector<Connection*> _flushing;
};

/// A Unix stream socket that carries frames. Nothing is copied but the rest of a frame that its buffer has no room for.
/// Lives as long as the process, like its node; `closed` only ends its use.
class Connection {
public:
    using OnFrame = std::function<void(const Frame&)>;

    explicit Connection(Node& node);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    uv_pipe_t& pipe() { return _pipe; }
    void startReading(OnFrame onFrame, std::function<void()> onClosed);
    void send(const Bytes& frame);
    bool isClosed() const { return _closed; }

    void flush(); ///< For the node.

private:
    void provide(uv_buf_t* room);
    void received(std::ptrdiff_t count);
    void append(const Bytes& frame);
    std::size_t tryWrite(std::size_t count);
    void writeOneByOne();
    void writeTogether();
    void startRequest(std::size_t count);
    void requestCompleted(int status);
    void close();

    Node& _node;
    uv_pipe_t _pipe;
    OnFrame _onFrame;
    std::function<void()> _onClosed;
    bool _closed = false;

    Bytes _input; // The whole buffer.
    std::size_t _received = 0; // Bytes of it that hold input...
    std::size_t _delivered = 0; // ... and that have been handed out.
    std::size_t _inputBytes; // How large the next one is: grows to the largest frame.

    std::deque<Bytes> _queue; // What the kernel has not taken yet and no request carries.
    std::deque<Bytes> _writing; // What the request under way carries; it waits for the kernel to take more.
    std::vector<uv_buf_t> _pieces;
    uv_write_t _request;
    bool _flushQueued = false;
};

} // namespace bench::floor

#pragma once
#include "driver/driver.h"
#include <cstring>
#include <span>
#include <zmq.h>

namespace bench::zeromq {

/// Owns the thread in which ZeroMQ reads and writes.
class Context {
public:
    Context() : _context(zmq_ctx_new()) { }
    Context(const Context&) = delete;
    ~Context() { zmq_ctx_term(_context); }

    void* get() const { return _context; }

private:
    void* const _context;
};

/// One part of a message.
class Frame {
public:
    Frame() { zmq_msg_init(&_message); }
    explicit Frame(std::size_t size)
    {
        if (zmq_msg_init_size(&_message, size) != 0) fail("no memory");
    }
    Frame(const Frame&) = delete;
    ~Frame() { zmq_msg_close(&_message); }

    zmq_msg_t& get() { return _message; }
    std::span<std::uint8_t> bytes()
    {
        return { static_cast<std::uint8_t*>(zmq_msg_data(&_message)), zmq_msg_size(&_message) };
    }

    /// The content as a struct; one of another size ends the program.
    template <typename T> T as()
    {
        T value;
        if (bytes().size() != sizeof value) fail("a message of another size arrived");
        std::memcpy(&value, bytes().data(), sizeof value);
        return value;
    }

private:
    zmq_msg_t _message;
};

enum class More { No, Yes };

/// A socket without a bound on its queues: what is under way is bounded by the loads. Errors end the program.
class Socket {
public:
    Socket(Context& context, int type);
    Socket(const Socket&) = delete;
    ~Socket() { zmq_close(_socket); }

    void* get() const { return _socket; }
    void name(std::string_view id); ///< By which a ROUTER knows this end; before `connect()`.
    void subscribeToAll();
    void bind(const std::string& address);
    void connect(const std::string& address);

    void send(Frame& frame, More more); ///< Takes the content out of `frame`.
    bool receive(Frame& frame); ///< False where there is nothing.
    void wait(int milliseconds); ///< Until there is something to receive; -1 for without end.

private:
    void* const _socket;
};

} // namespace bench::zeromq

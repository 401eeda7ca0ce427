#pragma once
#include "base/string.h"
#include "foundation/duration.h"
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

struct uv_buf_t;

namespace fn {

class Clock;

namespace uv {

/// A process of the simulated world (core/simulation), as its loops, pipes, child processes and signals see it, in place of libuv
/// and the operating system. In a real process `current()` is null. Each object of this folder asks for it once, when it is made.
///
/// All loops of a process, and everything that lives on them, are on one fiber of one thread. Functions of users are called inside
/// `deliver()`; `onClosed()` is called inside `wait()` and `finishCloses()`, too.
class FN_EXPORT System {
public:
    /// One end of a pipe as libuv would show it to its user.
    class FN_EXPORT SocketUser {
    public:
        virtual void connectionWaits(int code) = 0; ///< For a listener: `Socket::accept()` takes the connection.
        virtual std::span<char> takeReadMemory() = 0; ///< Memory for one read, which `onRead()` gives back.
        virtual void onRead(std::ptrdiff_t count, std::span<char> memory) = 0; ///< Bytes, 0, or a negative libuv code.
        virtual void onWritten(int code) = 0; ///< `Socket::write()` has ended, and its bytes are no longer borrowed.
        virtual void onClosed() = 0; ///< The last call; the socket may be destroyed.

    protected:
        ~SocketUser() = default;
    };

    /// What a pipe calls in place of libuv. Codes are libuv's: 0 or more is success.
    class FN_EXPORT Socket {
    public:
        virtual ~Socket();
        virtual int bind(const String& name) = 0;
        virtual int listen(int backlog) = 0;
        virtual int accept(Socket& peer) = 0; ///< `peer` becomes the connection that waits.
        virtual int connect(const String& name) = 0; ///< Connects at once. UV_EAGAIN: the listener's queue is full.
        virtual void setReading(bool isReading) = 0;
        virtual std::ptrdiff_t receive(std::span<char> memory) = 0; ///< Does not wait. Bytes read, UV_EAGAIN or UV_EOF.
        virtual std::ptrdiff_t tryWrite(std::span<const uv_buf_t> parts) = 0; ///< Bytes taken at once, or UV_EAGAIN.
        virtual int write(std::span<const uv_buf_t> parts) = 0; ///< Borrows the bytes until `onWritten()`.
        virtual bool isPeerHere() const noexcept = 0; ///< Whether the other end is in this process.
        virtual std::size_t unwritten() const noexcept = 0; ///< Bytes of `write()` that are not taken yet.
        virtual void shutdown() = 0; ///< Ends the stream for the peer: nothing more will be written.
        virtual void close() = 0; ///< `onClosed()` follows.
    };

    class FN_EXPORT ChildUser {
    public:
        virtual void exited(std::int64_t status, int signal) = 0; ///< Called once, when the child is forgotten already.

    protected:
        ~ChildUser() = default;
    };

    class FN_EXPORT SignalUser {
    public:
        virtual void signalled() = 0;

    protected:
        ~SignalUser() = default;
    };

    /// The simulated process that runs on this thread now; null if none does.
    static System* current() noexcept { return _current; }
    static System* exchangeCurrent(System* system) noexcept;

    /// Makes and destroys an object that each process has once (`fn::ProcessLocal`). The maker's address is the key to the object.
    class FN_EXPORT LocalMaker {
    public:
        virtual void* make() const = 0;
        virtual void destroy(void* object) const noexcept = 0;

    protected:
        ~LocalMaker() = default;
    };

    System() = default;
    System(const System&) = delete;
    System& operator=(const System&) = delete;
    virtual ~System();

    virtual const Clock& clock() const noexcept = 0;

    /// Lets other processes run; with `mayBlock` until something has arrived for this process, or the time `until` has come.
    virtual void wait(bool mayBlock, std::optional<Duration> until) = 0;
    virtual void deliver() = 0; ///< Calls users for some or all of what has arrived.

    virtual void tookSteps(std::size_t count) = 0; ///< Counts `count` tasks that are about to run.

    virtual void finishCloses() = 0; ///< Calls each `onClosed()` that is still to come.

    /// This process has been killed: nothing that its code does on its way out reaches anybody.
    virtual bool isDead() const noexcept = 0;

    virtual std::unique_ptr<Socket> makeSocket(SocketUser& user) = 0;

    /// Starts a process. Returns its id, or a negative libuv code. `arguments[0]` is its own name.
    virtual int spawn(const String& file, const std::vector<String>& arguments, ChildUser& user) = 0;
    virtual void forget(ChildUser& user) noexcept = 0; ///< `user` will not be told of the child's end.
    virtual int kill(int processId, int signal) = 0; ///< A negative libuv code if there is no such process.

    virtual void watchSignal(int signal, SignalUser& user) = 0;
    virtual void unwatchSignal(SignalUser& user) noexcept = 0;

    /// The variables that differ from the real environment: the value, or nothing if the variable is not set. Children inherit them.
    virtual std::map<String, std::optional<String>>& environment() = 0;

    virtual void fillRandomly(std::span<std::uint8_t> bytes) = 0;

    virtual bool hasMemoryFor(std::size_t bytes) = 0; ///< False: memory for what a peer has announced is to run out.

    /// The object of `maker` in this process: made at the first call, destroyed with the process, the latest one first.
    virtual void* local(const LocalMaker& maker) = 0;

private:
    // Read whenever an object of this folder is made: reading must not cost a function call.
    [[gnu::tls_model("initial-exec")]] static thread_local constinit System* _current;
};

} // namespace uv
} // namespace fn

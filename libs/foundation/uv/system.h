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

/// What the loops, pipes, child processes and signals of one process stand on in the simulated world (core/simulation), in
/// place of libuv and the operating system. Real processes have none: `current()` is null, and each class of this folder
/// asks once, when it is made.
///
/// All of a process's loops, and what lives on them, are on one fiber of one thread. The users' functions are called from
/// inside `deliver()` alone.
class FN_EXPORT System {
public:
    /// One end of a pipe as libuv would show it to its user.
    class FN_EXPORT SocketUser {
    public:
        virtual void connectionWaits(int code) = 0; ///< Of a listener: `Socket::accept()` takes it.
        virtual std::span<char> takeReadMemory() = 0; ///< For one read; given back by `onRead()`.
        virtual void onRead(std::ptrdiff_t count, std::span<char> memory) = 0; ///< Bytes, 0, or a negative libuv code.
        virtual void onWritten(int code) = 0; ///< What `Socket::write()` was given has left.
        virtual void onClosed() = 0; ///< Nothing follows; the socket may be destroyed.

    protected:
        ~SocketUser() = default;
    };

    /// Codes are libuv's: 0 or more is success.
    class FN_EXPORT Socket {
    public:
        virtual ~Socket();
        virtual int bind(const String& name) = 0;
        virtual int listen(int backlog) = 0;
        virtual int accept(Socket& peer) = 0; ///< `peer` becomes the connection that waits.
        virtual int connect(const String& name) = 0; ///< At once. EAGAIN: the listener's queue is full.
        virtual void setReading(bool isReading) = 0;
        virtual std::ptrdiff_t receive(std::span<char> memory) = 0; ///< Without waiting; UV_EAGAIN, UV_EOF or bytes.
        virtual std::ptrdiff_t tryWrite(std::span<const uv_buf_t> parts) = 0; ///< Bytes taken at once, or UV_EAGAIN.
        virtual int write(std::span<const uv_buf_t> parts) = 0; ///< Borrowed until `onWritten()`.
        virtual std::size_t unwritten() const noexcept = 0; ///< Of that.
        virtual void shutdown() = 0; ///< Nothing more will be written.
        virtual void close() = 0; ///< `onClosed()` follows.
    };

    class FN_EXPORT ChildUser {
    public:
        virtual void exited(std::int64_t status, int signal) = 0; ///< Once. Forgets the child.

    protected:
        ~ChildUser() = default;
    };

    class FN_EXPORT SignalUser {
    public:
        virtual void signalled() = 0;

    protected:
        ~SignalUser() = default;
    };

    /// That of the simulated process which runs on this thread now.
    static System* current() noexcept { return _current; }
    static System* exchangeCurrent(System* system) noexcept;

    /// Knows how to make what there is once in each process, and is the key to it.
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

    /// Lets the others run; with `mayBlock` until something has arrived for this process, or the time `until` has come.
    virtual void wait(bool mayBlock, std::optional<Duration> until) = 0;
    virtual void deliver() = 0; ///< Some or all of what has arrived.

    virtual void tookSteps(std::size_t count) = 0; ///< So many tasks and timers are about to run.

    virtual void finishCloses() = 0; ///< Delivers each `onClosed()` that is to come, for a loop that ends.

    /// It has been killed: what its code still does on its way out reaches nobody.
    virtual bool isDead() const noexcept = 0;

    virtual std::unique_ptr<Socket> makeSocket(SocketUser& user) = 0;

    /// A new process: its id, or a negative libuv code. `arguments[0]` is its own name.
    virtual int spawn(const String& file, const std::vector<String>& arguments, ChildUser& user) = 0;
    virtual void forget(ChildUser& user) noexcept = 0; ///< It will not hear of the end any more.
    virtual int kill(int processId, int signal) = 0; ///< A negative libuv code if there is no such process.

    virtual void watchSignal(int signal, SignalUser& user) = 0;
    virtual void unwatchSignal(SignalUser& user) noexcept = 0;

    /// What differs from the real environment: values, or nothing where a variable is not set. Inherited by children.
    virtual std::map<String, std::optional<String>>& environment() = 0;

    virtual void fillRandomly(std::span<std::uint8_t> bytes) = 0;

    virtual bool hasMemoryFor(std::size_t bytes) = 0; ///< For what a peer has announced. False: as if there was none.

    /// This process's own; made at the first call, destroyed with the process, latest first.
    virtual void* local(const LocalMaker& maker) = 0;

private:
    // Read wherever something is made: it must cost no call.
    [[gnu::tls_model("initial-exec")]] static thread_local constinit System* _current;
};

} // namespace uv
} // namespace fn

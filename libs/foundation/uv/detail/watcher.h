#pragma once
#include "foundation/uv/detail/loop_private.h"

namespace fn::uv {

/// The state of a watcher, held by its user and by libuv. libuv calls the user's callback many times.
///
/// The callback stays in this object while it runs, for it may run the loop, which may call the callback again inside. It may also
/// end its watcher, which stays in memory until the callback has returned.
class Watcher : public SharedMember {
public:
    void end(); ///< For the user, who must not use it afterwards. No callback begins any more.
    void loopIsEnding() override { close(); }

protected:
    Watcher(Loop::Private& loop, Task task) : SharedMember(loop, 2), _task(std::move(task)) { }

    void run(); ///< Calls back, unless the watcher is closed.
    bool isClosed() const noexcept { return _closed; }

    /// Closes the handle and gives up libuv's hold, now or later. Called once.
    virtual void closeHandle() = 0;
    void closeLater(uv_handle_t* handle); ///< That of a handle that libuv knows.

private:
    void close();
    void freeCallback();

    Task _task;
    int _depth = 0; // Calls that have not returned.
    bool _closed = false;
};

} // namespace fn::uv

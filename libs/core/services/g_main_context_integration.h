#pragma once
#include "base/auto_ptr.h"

using GMainContext = struct _GMainContext; // NOLINT(bugprone-reserved-identifier): GLib's name.

namespace fn::uv {
class Loop;
}

namespace core {

/// Runs GLib's default main context on a libuv loop: time-outs, idle functions, child watches, sockets and D-Bus connections
/// of libraries built on GLib work, and their callbacks run on the loop's thread.
///
/// Sources may be attached and destroyed from any thread, as GLib has it. The wait for them takes place on a thread of the
/// default `fn::ThreadPool`, one wait at a time: only this thread or the loop's owns the context meanwhile, and nobody
/// else iterates it. Without this object, or while the loop does not run, GLib's sources wait.
///
/// The process has one instance, from the first `init()` to the `quit()` that matches it. Belongs to the loop's thread.
class FN_EXPORT GMainContextIntegration {
public:
    /// The first call attaches the context to `loop`. Later ones only count, whatever loop they name.
    static void init(fn::uv::Loop& loop);

    /// The call that matches the first `init()` detaches the context at once, also inside a GLib callback. Callbacks that GLib has
    /// found ready together with that one still run, then none. A wait on the pool is ended, but this does not wait for its end.
    /// The loop may be destroyed before.
    static void quit();

    static GMainContextIntegration* instance() noexcept; ///< Null while no `init()` counts.

    GMainContextIntegration(const GMainContextIntegration&) = delete;
    GMainContextIntegration& operator=(const GMainContextIntegration&) = delete;

    GMainContext* context(); ///< GLib's default context.

private:
    explicit GMainContextIntegration(fn::uv::Loop& loop);
    ~GMainContextIntegration();

    struct Private;
    fn::AutoPtr<Private> _private; // Outlives this object while one of its callbacks runs.

    static GMainContextIntegration* _instance;
    static int _refCount;
};

} // namespace core

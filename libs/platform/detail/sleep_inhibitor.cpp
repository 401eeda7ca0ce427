#include "platform/detail/sleep_inhibitor.h"
#include <chrono>
#include <condition_variable>
#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <memory>
#include <mutex>
#include <stop_token>
#include <system_error>
#include <thread>

namespace platform {
namespace {

constexpr std::chrono::seconds patience(2);

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(gchar* text) const { g_free(text); }
};
template <typename T> using Owned = std::unique_ptr<T, Unref>;

/// Cancels the calls that wait with its `cancellable()`, once this object is too old.
class Deadline {
public:
    Deadline()
        : _cancellable(g_cancellable_new()),
          _watch([cancellable = _cancellable.get()](const std::stop_token& stop) {
              std::mutex mutex;
              std::condition_variable_any condition;
              std::unique_lock lock(mutex);
              condition.wait_for(lock, stop, patience, [] { return false; });
              if (!stop.stop_requested()) g_cancellable_cancel(cancellable);
          })
    {
    }
    GCancellable* cancellable() const { return _cancellable.get(); }

private:
    Owned<GCancellable> _cancellable;
    std::jthread _watch;
};

/// While this object lives, GIO posts the news about a connection of this thread to its own context. In the main context of the
/// program, which may not run, the news would wait and hold the connection for ever.
class OwnContext {
public:
    OwnContext() : _context(g_main_context_new()) { g_main_context_push_thread_default(_context); }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;
    ~OwnContext()
    {
        while (g_main_context_iteration(_context, FALSE)) { }
        g_main_context_pop_thread_default(_context);
        g_main_context_unref(_context);
    }

private:
    GMainContext* const _context;
};

/// A connection of our own: the connection that GIO shares may end the process when the bus goes. GIO is not told that this
/// connection leads to a bus: it would send the bus a Hello by itself, and wait for the answer past every deadline.
Owned<GDBusConnection> connectToSystemBus(GCancellable* cancellable)
{
    const Owned<gchar> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, nullptr));
    if (!address) return nullptr;
    Owned<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address.get(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, cancellable, nullptr));
    if (connection) g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
    return connection;
}

/// The bus answers no connection before its Hello.
bool sayHello(GDBusConnection* connection, GCancellable* cancellable)
{
    const Owned<GVariant> name(
        g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "Hello", nullptr, G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, -1, cancellable, nullptr));
    return name != nullptr;
}

GVariant* inhibition()
{
    const Owned<gchar> who(g_utf8_make_valid(program_invocation_short_name, -1));
    return g_variant_new("(ssss)", "sleep", who.get(), "A task is running that must not be interrupted", "block");
}

/// The descriptor of the request, or -1.
int askLoginManager(GDBusConnection* connection, GCancellable* cancellable)
{
    GUnixFDList* received = nullptr;
    const Owned<GVariant> answer(g_dbus_connection_call_with_unix_fd_list_sync(connection, "org.freedesktop.login1",
        "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Inhibit", inhibition(), G_VARIANT_TYPE("(h)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &received, cancellable, nullptr));
    const Owned<GUnixFDList> descriptors(received);
    if (!answer || !descriptors) return -1;
    gint32 index = -1;
    g_variant_get(answer.get(), "(h)", &index);
    if (index < 0 || index >= g_unix_fd_list_get_length(descriptors.get())) return -1;
    return g_unix_fd_list_get(descriptors.get(), index, nullptr); // A duplicate, close-on-exec.
}

int requestInhibitor()
{
    const OwnContext context;
    const Deadline deadline;
    auto* const cancellable = deadline.cancellable();
    const auto connection = connectToSystemBus(cancellable);
    if (!connection) return -1;
    const int result = sayHello(connection.get(), cancellable) ? askLoginManager(connection.get(), cancellable) : -1;
    g_dbus_connection_close_sync(connection.get(), cancellable, nullptr);
    return result;
}

} // namespace

int inhibitSleep()
{
    try {
        return requestInhibitor();
    } catch (const std::system_error&) {
        return -1; // There is no thread for the deadline: without it the call could hang.
    }
}

} // namespace platform

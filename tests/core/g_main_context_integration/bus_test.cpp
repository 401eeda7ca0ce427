// What can break here: a D-Bus connection that does not get on beside the loop's own work.
#include "fixture.h"
#include "support/system_bus.h"
#include <gio/gio.h>

namespace {

using test::MainContext;

constexpr const char* busName = "org.freedesktop.DBus";

struct Unreference {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using Connection = std::unique_ptr<GDBusConnection, Unreference>;

Connection connect()
{
    constexpr auto flags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    GError* error = nullptr;
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    Connection connection(g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, &error));
    if (error) ADD_FAILURE() << error->message;
    g_clear_error(&error);
    return connection;
}

/// Asks the bus for a name, for another one as soon as it has the answer, and notes what the bus signals meanwhile.
struct Caller {
    Caller(GDBusConnection* connection, int last, std::function<void()> onEnd)
        : _connection(connection),
          _last(last),
          _onEnd(std::move(onEnd)),
          _subscription(g_dbus_connection_signal_subscribe(connection, busName, busName, "NameAcquired", nullptr,
              nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onAcquired, this, nullptr))
    {
    }
    ~Caller() { g_dbus_connection_signal_unsubscribe(_connection, _subscription); }

    static std::string nameOf(int number) { return "com.example.Name" + std::to_string(number); }

    void call()
    {
        g_dbus_connection_call(_connection, busName, "/org/freedesktop/DBus", busName, "RequestName",
            g_variant_new("(su)", nameOf(answers).c_str(), 0u), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 20'000,
            nullptr, onAnswer, this);
    }

    static void onAnswer(GObject* connection, GAsyncResult* result, gpointer data)
    {
        auto& self = *static_cast<Caller*>(data);
        EXPECT_EQ(std::this_thread::get_id(), self._thread);
        GError* error = nullptr;
        GVariant* const answer = g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error);
        if (!answer) {
            self.failure = error->message;
            g_error_free(error);
            return self._onEnd();
        }
        g_variant_unref(answer);
        if (++self.answers < self._last) return self.call();
        self._onEnd();
    }

    static void onAcquired(
        GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* arguments, gpointer data)
    {
        const gchar* name = nullptr;
        g_variant_get(arguments, "(&s)", &name);
        if (name[0] != ':') static_cast<Caller*>(data)->acquired.push_back(name); // Not the connection's own.
    }

    int answers = 0;
    std::string failure;
    std::vector<std::string> acquired;

private:
    GDBusConnection* const _connection;
    const int _last;
    const std::function<void()> _onEnd;
    const guint _subscription;
    const std::thread::id _thread = std::this_thread::get_id();
};

TEST_F(MainContext, CarriesCallsAndSignalsOfABusUntilItsConnectionIsCut)
{
    constexpr int calls = 200;
    std::optional<test::SystemBus> bus(std::in_place);
    const auto client = connect();
    ASSERT_TRUE(client);
    Caller caller(client.get(), calls, [this] { loop->stop(); });
    caller.call();
    EXPECT_TRUE(runUntilStopped());
    EXPECT_EQ(caller.failure, "");
    EXPECT_EQ(caller.answers, calls);
    // A signal travels in front of the answer.
    ASSERT_EQ(caller.acquired.size(), static_cast<std::size_t>(calls));
    for (int i = 0; i < calls; ++i) EXPECT_EQ(caller.acquired[static_cast<std::size_t>(i)], Caller::nameOf(i));

    const auto onClosed = [](GDBusConnection*, gboolean, GError*, gpointer loop) {
        static_cast<fn::uv::Loop*>(loop)->stop();
    };
    using Closed = void (*)(GDBusConnection*, gboolean, GError*, gpointer);
    g_signal_connect(client.get(), "closed", G_CALLBACK(static_cast<Closed>(onClosed)), &*loop);
    bus.reset();
    EXPECT_TRUE(runUntilStopped());
    EXPECT_TRUE(g_dbus_connection_is_closed(client.get()));
    caller.call();
    EXPECT_TRUE(runUntilStopped());
    EXPECT_NE(caller.failure, "");
}

} // namespace

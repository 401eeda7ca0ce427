// What can break here: a D-Bus connection that does not get on beside the loop's own work.
#include "fixture.h"
#include "support/system_bus.h"
#include <gio/gio.h>

namespace {

using test::MainContext;

constexpr auto interfaceDescription =
    "<node><interface name='com.example.Counter'>"
    "<method name='Add'><arg type='i' direction='in'/><arg type='i' direction='out'/></method>"
    "<signal name='Changed'><arg type='i'/></signal>"
    "</interface></node>";

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

/// The service: adds what it is told to and tells everybody the sum.
struct Counter {
    explicit Counter(GDBusConnection* connection)
        : _description(g_dbus_node_info_new_for_xml(interfaceDescription, nullptr))
    {
        static const GDBusInterfaceVTable functions { onCall, nullptr, nullptr, {} };
        g_dbus_connection_register_object(
            connection, "/counter", _description->interfaces[0], &functions, this, nullptr, nullptr);
    }
    ~Counter() { g_dbus_node_info_unref(_description); }

    static void onCall(GDBusConnection* connection, const gchar*, const gchar*, const gchar*, const gchar*,
        GVariant* arguments, GDBusMethodInvocation* invocation, gpointer data)
    {
        auto& self = *static_cast<Counter*>(data);
        EXPECT_EQ(std::this_thread::get_id(), self._thread);
        gint32 number = 0;
        g_variant_get(arguments, "(i)", &number);
        self._sum += number;
        g_dbus_connection_emit_signal(connection, nullptr, "/counter", "com.example.Counter", "Changed",
            g_variant_new("(i)", self._sum), nullptr);
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", self._sum));
    }

private:
    GDBusNodeInfo* const _description;
    const std::thread::id _thread = std::this_thread::get_id();
    int _sum = 0;
};

/// The client: calls again as soon as it has the answer, and notes the signals.
struct Caller {
    Caller(GDBusConnection* connection, const char* service, int last, std::function<void()> onEnd)
        : _connection(connection),
          _service(service),
          _last(last),
          _onEnd(std::move(onEnd)),
          _subscription(g_dbus_connection_signal_subscribe(connection, service, "com.example.Counter", "Changed",
              nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onChanged, this, nullptr))
    {
    }
    ~Caller() { g_dbus_connection_signal_unsubscribe(_connection, _subscription); }

    void call()
    {
        g_dbus_connection_call(_connection, _service, "/counter", "com.example.Counter", "Add", g_variant_new("(i)", 1),
            G_VARIANT_TYPE("(i)"), G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, onAnswer, this);
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
        g_variant_get(answer, "(i)", &self.sum);
        g_variant_unref(answer);
        if (self.sum < self._last) return self.call();
        self._onEnd();
    }

    static void onChanged(
        GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* arguments, gpointer data)
    {
        gint32 sum = 0;
        g_variant_get(arguments, "(i)", &sum);
        static_cast<Caller*>(data)->changes.push_back(sum);
    }

    int sum = 0;
    std::string failure;
    std::vector<int> changes;

private:
    GDBusConnection* const _connection;
    const char* const _service;
    const int _last;
    const std::function<void()> _onEnd;
    const guint _subscription;
    const std::thread::id _thread = std::this_thread::get_id();
};

TEST_F(MainContext, CarriesCallsAndSignalsOfABusUntilItsConnectionIsCut)
{
    constexpr int calls = 200;
    std::optional<test::SystemBus> bus(std::in_place);
    const auto service = connect();
    const auto client = connect();
    ASSERT_TRUE(service && client);
    Counter counter(service.get());
    Caller caller(client.get(), g_dbus_connection_get_unique_name(service.get()), calls, [this] { loop->stop(); });
    caller.call();
    EXPECT_TRUE(runUntilStopped());
    EXPECT_EQ(caller.failure, "");
    EXPECT_EQ(caller.sum, calls);
    // A signal travels in front of the answer.
    ASSERT_EQ(caller.changes.size(), static_cast<std::size_t>(calls));
    for (int i = 0; i < calls; ++i) EXPECT_EQ(caller.changes[static_cast<std::size_t>(i)], i + 1);

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

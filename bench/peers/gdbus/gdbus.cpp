// GDBus over a broker of D-Bus: asynchronous calls, signals that are matched by interface and member. Its connections read
// and write in a thread of their own and hand over to the main loop.
#include "driver/call_load.h"
#include "driver/event_load.h"
#include "driver/roles.h"
#include "driver/stamp.h"
#include <algorithm>
#include <fmt/format.h>
#include <gio/gio.h>

namespace bench::gdbus {
namespace {

constexpr auto path = "/bench";
constexpr auto interface = "bench.Peer";
constexpr auto ownerName = "bench.Owner"; // Also the publisher's.
constexpr auto description = R"(<node><interface name="bench.Peer">
    <method name="Echo"><arg type="ay" direction="in"/><arg type="ay" direction="out"/></method>
    <method name="Acknowledge"><arg type="t" direction="in"/><arg type="t" direction="in"/></method>
    <signal name="Event"><arg type="ay"/></signal>
</interface></node>)";

void require(GError* error, const char* action)
{
    if (error) fail(fmt::format("{}: {}", action, error->message));
}

/// A tuple of one array of bytes.
class Body {
public:
    explicit Body(std::size_t size) : _size(size), _data(static_cast<std::uint8_t*>(g_malloc(size))) { }

    std::span<std::uint8_t> bytes() { return { _data, _size }; }

    /// Floating; takes the bytes over without a copy.
    GVariant* toTuple()
    {
        GVariant* array = g_variant_new_from_data(G_VARIANT_TYPE_BYTESTRING, _data, _size, TRUE, g_free, _data);
        return g_variant_new_tuple(&array, 1);
    }

private:
    const std::size_t _size;
    std::uint8_t* const _data;
};

/// What `use` makes of the bytes in such a tuple.
template <typename Use> auto withBytes(GVariant* tuple, const Use& use)
{
    if (!g_variant_is_of_type(tuple, G_VARIANT_TYPE("(ay)"))) fail("a body of another type arrived");
    GVariant* array = g_variant_get_child_value(tuple, 0);
    gsize size = 0;
    const auto* data = static_cast<const std::uint8_t*>(g_variant_get_fixed_array(array, &size, 1));
    const auto result = use(std::span(data, size));
    g_variant_unref(array);
    return result;
}

/// A process at the bus.
class Participant {
public:
    explicit Participant(const Options& options)
    {
        GError* error = nullptr;
        constexpr auto flags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        _connection =
            g_dbus_connection_new_for_address_sync(options.text("address").c_str(), flags, nullptr, nullptr, &error);
        require(error, "connect");
    }

    GDBusConnection* connection() const { return _connection; }

    /// Registers the object, then takes the name.
    void serve(GDBusInterfaceMethodCallFunc onCall, void* context)
    {
        GError* error = nullptr;
        GDBusNodeInfo* const node = g_dbus_node_info_new_for_xml(description, &error);
        require(error, "description");
        const GDBusInterfaceVTable functions { onCall, nullptr, nullptr, {} };
        g_dbus_connection_register_object(_connection, path, node->interfaces[0], &functions, context, nullptr, &error);
        require(error, "object");
        g_dbus_node_info_unref(node);
        callBus("RequestName", g_variant_new("(su)", ownerName, 0U));
    }

    /// Returns when the bus has answered.
    void callBus(const char* method, GVariant* arguments)
    {
        GError* error = nullptr;
        GVariant* const result =
            g_dbus_connection_call_sync(_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                "org.freedesktop.DBus", method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        require(error, method);
        g_variant_unref(result);
    }

    void run() { g_main_loop_run(g_main_loop_new(nullptr, FALSE)); } ///< For the life of the process.

private:
    GDBusConnection* _connection = nullptr;
};

void runIdle(const Options& options)
{
    Participant participant(options);
    announceReady();
    participant.run();
}

void onEcho(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* arguments,
    GDBusMethodInvocation* invocation, gpointer resultBytes)
{
    Body result(*static_cast<std::size_t*>(resultBytes));
    stamp(result.bytes(), answerTo(withBytes(arguments, readStamp)));
    g_dbus_method_invocation_return_value(invocation, result.toTuple());
}

void runOwner(const Options& options)
{
    Participant owner(options);
    std::size_t resultBytes = options.count("result_bytes");
    owner.serve(onEcho, &resultBytes);
    announceReady();
    owner.run();
}

class Caller {
public:
    explicit Caller(const Options& options)
        : _participant(options),
          _argumentBytes(options.count("argument_bytes")),
          _load(options, [this](std::uint64_t number) { call(number); })
    {
    }

    void run()
    {
        announceReady();
        _load.start();
        _participant.run();
    }

private:
    void call(std::uint64_t number)
    {
        Body argument(_argumentBytes);
        stamp(argument.bytes(), number);
        g_dbus_connection_call(_participant.connection(), ownerName, path, interface, "Echo", argument.toTuple(),
            G_VARIANT_TYPE("(ay)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, onReply, this);
    }

    static void onReply(GObject* connection, GAsyncResult* result, gpointer self)
    {
        GError* error = nullptr;
        GVariant* const reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error);
        require(error, "call");
        const auto number = answerTo(withBytes(reply, readStamp));
        g_variant_unref(reply);
        static_cast<Caller*>(self)->_load.answered(number);
    }

    Participant _participant;
    const std::size_t _argumentBytes;
    CallLoad _load;
};

void runCaller(const Options& options) { Caller(options).run(); }

class Publisher {
public:
    explicit Publisher(const Options& options)
        : _participant(options),
          _load(options, [this](std::span<const std::uint8_t> body) { publish(body); })
    {
    }

    void run()
    {
        _participant.serve(onCall, this);
        announceReady();
        _participant.run();
    }

private:
    void publish(std::span<const std::uint8_t> body)
    {
        Body event(body.size());
        std::ranges::copy(body, event.bytes().begin());
        GError* error = nullptr;
        g_dbus_connection_emit_signal(
            _participant.connection(), nullptr, path, interface, "Event", event.toTuple(), &error);
        require(error, "signal");
    }

    static void onCall(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* arguments,
        GDBusMethodInvocation* invocation, gpointer self)
    {
        std::uint64_t index = 0;
        std::uint64_t events = 0;
        g_variant_get(arguments, "(tt)", &index, &events);
        g_dbus_method_invocation_return_value(invocation, nullptr); // Sends nothing, as no reply is expected.
        static_cast<Publisher*>(self)->_load.acknowledged(index, events);
    }

    Participant _participant;
    EventLoad _load;
};

void runPublisher(const Options& options) { Publisher(options).run(); }

class Subscriber {
public:
    explicit Subscriber(const Options& options) : _participant(options), _index(options.count("index")), _count(options)
    {
    }

    void run()
    {
        g_dbus_connection_signal_subscribe(_participant.connection(), ownerName, interface, "Event", path, nullptr,
            G_DBUS_SIGNAL_FLAGS_NONE, onEvent, this, nullptr);
        _participant.callBus("GetId", nullptr); // When it has answered, it knows of the subscription.
        announceReady();
        acknowledge(0);
        _participant.run();
    }

private:
    void acknowledge(std::uint64_t events)
    {
        g_dbus_connection_call(_participant.connection(), ownerName, path, interface, "Acknowledge",
            g_variant_new("(tt)", _index, events), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    }

    static void onEvent(
        GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* body, gpointer self)
    {
        auto& subscriber = *static_cast<Subscriber*>(self);
        const auto events = withBytes(body, [&](auto bytes) { return subscriber._count.received(bytes); });
        if (events) subscriber.acknowledge(*events);
    }

    Participant _participant;
    const std::uint64_t _index;
    EventCount _count;
};

void runSubscriber(const Options& options) { Subscriber(options).run(); }

} // namespace
} // namespace bench::gdbus

int main(int argc, char** argv)
{
    using namespace bench::gdbus;
    bench::play(bench::Options(argc, argv),
        { { "idle", runIdle }, { "owner", runOwner }, { "caller", runCaller }, { "publisher", runPublisher },
            { "subscriber", runSubscriber } });
}

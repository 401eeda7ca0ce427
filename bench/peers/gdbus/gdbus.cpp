// GDBus over a broker of D-Bus: asynchronous calls, signals that are matched by interface and member. Its connections read
// and write in a thread of their own and hand over to the main loop.
#include "driver/peer_roles.h"
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

class Participant final : public Peer {
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

    void run() { g_main_loop_run(g_main_loop_new(nullptr, FALSE)); }

    /// Registers the object, then takes the name.
    void serve(std::size_t resultBytes)
    {
        _resultBytes = resultBytes;
        GError* error = nullptr;
        GDBusNodeInfo* const node = g_dbus_node_info_new_for_xml(description, &error);
        require(error, "description");
        const GDBusInterfaceVTable functions { onCall, nullptr, nullptr, {} };
        g_dbus_connection_register_object(_connection, path, node->interfaces[0], &functions, this, nullptr, &error);
        require(error, "object");
        g_dbus_node_info_unref(node);
        callBus("RequestName", g_variant_new("(su)", ownerName, 0U));
    }

    void call(std::uint64_t number, std::size_t argumentBytes)
    {
        Body argument(argumentBytes);
        stamp(argument.bytes(), number);
        g_dbus_connection_call(_connection, ownerName, path, interface, "Echo", argument.toTuple(),
            G_VARIANT_TYPE("(ay)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, onReply, this);
    }

    void publish(std::span<const std::uint8_t> body)
    {
        Body event(body.size());
        std::ranges::copy(body, event.bytes().begin());
        GError* error = nullptr;
        g_dbus_connection_emit_signal(_connection, nullptr, path, interface, "Event", event.toTuple(), &error);
        require(error, "signal");
    }

    void subscribe()
    {
        g_dbus_connection_signal_subscribe(_connection, ownerName, interface, "Event", path, nullptr,
            G_DBUS_SIGNAL_FLAGS_NONE, onEvent, this, nullptr);
        callBus("GetId", nullptr); // When it has answered, it knows of the subscription.
    }

    void acknowledge(std::uint64_t index, std::uint64_t events)
    {
        g_dbus_connection_call(_connection, ownerName, path, interface, "Acknowledge",
            g_variant_new("(tt)", index, events), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    }

private:
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

    static void onCall(GDBusConnection*, const char*, const char*, const char*, const char* method, GVariant* arguments,
        GDBusMethodInvocation* invocation, gpointer self)
    {
        auto& participant = *static_cast<Participant*>(self);
        if (std::string_view(method) == "Echo") {
            Body result(participant._resultBytes);
            stamp(result.bytes(), answerTo(withBytes(arguments, readStamp)));
            g_dbus_method_invocation_return_value(invocation, result.toTuple());
            return;
        }
        std::uint64_t index = 0;
        std::uint64_t events = 0;
        g_variant_get(arguments, "(tt)", &index, &events);
        g_dbus_method_invocation_return_value(invocation, nullptr); // Sends nothing, as no reply is expected.
        participant.acknowledged(index, events);
    }

    static void onReply(GObject* connection, GAsyncResult* result, gpointer self)
    {
        GError* error = nullptr;
        GVariant* const reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error);
        require(error, "call");
        const auto number = answerTo(withBytes(reply, readStamp));
        g_variant_unref(reply);
        static_cast<Participant*>(self)->answered(number);
    }

    static void onEvent(
        GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* body, gpointer self)
    {
        withBytes(body, [&](auto bytes) {
            static_cast<Participant*>(self)->heard(bytes);
            return true;
        });
    }

    GDBusConnection* _connection = nullptr;
    std::size_t _resultBytes = 0;
};

} // namespace
} // namespace bench::gdbus

int main(int argc, char** argv)
{
    using namespace bench::gdbus;
    bench::play(bench::Options(argc, argv), bench::PeerRoles<Participant>::all());
}

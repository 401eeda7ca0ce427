#include "core/services/network_signature.h"
#include "base/byte_array.h"
#include "base/exceptions.h"
#include "foundation/logging/logging.h"
#include "foundation/net/mac_address.h"
#include "foundation/system/process_local.h"
#include "foundation/unhandled_exception.h"
#include "platform/adapters_addresses.h"
#include <algorithm>
#include <sys/socket.h>

namespace core {
namespace {

constexpr auto unknownSignature = "??????:????????????";

constexpr std::array recheckDelays { fn::Duration(3'000'000), fn::Duration(6'000'000), fn::Duration(10'000'000) };

FN_LOG_CATEGORY("core.networkSignature");

/// The adapters in their buffer, which their pointers point into.
using AdapterBuffer = std::unique_ptr<std::byte[]>;

platform::IP_ADAPTER_ADDRESSES* adapters(const AdapterBuffer& buffer)
{
    return reinterpret_cast<platform::IP_ADAPTER_ADDRESSES*>(buffer.get());
}

AdapterBuffer readAdapters()
{
    using namespace platform;
    constexpr ULONG flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER
        | GAA_FLAG_SKIP_FRIENDLY_NAME | GAA_FLAG_INCLUDE_GATEWAYS;
    ULONG size = 4;
    auto buffer = std::make_unique<std::byte[]>(size);
    auto error = GetAdaptersAddresses(AF_UNSPEC, flags, nullptr, adapters(buffer), &size);
    if (error == ERROR_BUFFER_OVERFLOW) {
        buffer = std::make_unique<std::byte[]>(size);
        error = GetAdaptersAddresses(AF_UNSPEC, flags, nullptr, adapters(buffer), &size);
    } else if (error == ERROR_SUCCESS) {
        return nullptr; // The buffer of the first call is too small for any adapter, so there is none.
    }
    if (error != ERROR_SUCCESS)
        throw with(fn::IOException("Could not get network adapters info"), fn::WinErrorInfo { error });
    return buffer;
}

std::optional<fn::IPAddress> ipAddress(const platform::SOCKET_ADDRESS& address)
{
    return fn::IPAddress::fromSocketAddress(address.lpSockaddr, static_cast<std::size_t>(address.iSockaddrLength));
}

bool isReachableIPv4(const fn::IPAddress& address)
{
    return address.family() == fn::IPAddress::Family::IPv4 && address.isUnicast() && !address.isLinkLocal()
        && !address.isLoopback();
}

bool qualifies(const platform::IP_ADAPTER_ADDRESSES& adapter)
{
    if (adapter.IfType != platform::IF_TYPE_ETHERNET_CSMACD && adapter.IfType != platform::IF_TYPE_IEEE80211)
        return false;
    for (const auto* entry = adapter.FirstUnicastAddress; entry; entry = entry->Next) {
        const auto address = ipAddress(entry->Address);
        if (address && isReachableIPv4(*address)) return true;
    }
    return false;
}

/// The IPv4 gateways, or all if there is no such one.
std::vector<fn::IPAddress> selectGateways(std::vector<fn::IPAddress> gateways)
{
    const auto isIPv4 = [](const auto& gateway) { return gateway.family() == fn::IPAddress::Family::IPv4; };
    if (std::ranges::any_of(gateways, isIPv4)) std::erase_if(gateways, std::not_fn(isIPv4));
    return gateways;
}

fn::MacAddress macAddress(const fn::IPAddress& gateway)
{
    try {
        return fn::MacAddress::fromIPAddress(gateway);
    } catch (fn::Exception& exception) {
        exception.removeStackTrace();
        FN_LOG(Error, "Failed to determine mac address for gateway {}: {}", gateway.toString(), exception.what());
        return {};
    }
}

fn::String hex(std::span<const std::uint8_t> bytes) { return fn::ByteArray(bytes.data(), bytes.size()).hex(); }

} // namespace

/// An element of the list of listeners, which owns it. The listener's handle, if it has one, can end it.
class NetworkSignature::Listener final : public fn::HandleTarget {
public:
    Listener(NetworkSignature& owner, folly::Function<void(const fn::String&)> callback)
        : _owner(owner),
          _callback(std::move(callback))
    {
    }

    void setPosition(std::list<Listener>::iterator position) { _position = position; }

    void call(const fn::String& signature) noexcept
    {
        try {
            _callback(signature);
        } catch (...) {
            fn::unhandledException();
        }
    }

    bool isRemoved() const { return _isRemoved; }
    void markRemoved() { _isRemoved = true; }

    void ownerIsEnding()
    {
        if (_handle) _handle->detach();
    }

    void attachHandle(fn::Handle& handle) override { _handle = &handle; }
    void detachHandle() override { _handle = nullptr; }
    void invalidateTarget() override
    {
        _handle = nullptr;
        _owner.removeListener(_position);
    }

private:
    NetworkSignature& _owner;
    folly::Function<void(const fn::String&)> _callback;
    std::list<Listener>::iterator _position;
    fn::Handle* _handle = nullptr;
    bool _isRemoved = false;
};

NetworkSignature& NetworkSignature::instance()
{
    static fn::ProcessLocal<NetworkSignature> signature(
        [] { return new NetworkSignature(fn::RunLoop::defaultLoop(), fn::NetworkStateNotifier::instance()); });
    return signature.get();
}

NetworkSignature::NetworkSignature(fn::RunLoop& loop, fn::NetworkStateNotifier& notifier)
    : _signature(computeNetworkSignature()),
      _loop(loop),
      _notifier(notifier)
{
    FN_LOG(Info, "Initial network signature: {}", _signature);
    if (fn::RunLoop::currentLoop() == &loop) {
        subscribe();
        return;
    }
    loop.post(_lifetime.guard([this] {
        subscribe();
        maybeUpdate(); // The network may have changed since the constructor has looked.
    }));
}

NetworkSignature::~NetworkSignature()
{
    for (auto& listener : _listeners) listener.ownerIsEnding();
}

void NetworkSignature::subscribe()
{
    _subscription = _notifier.addChangeListener([this](bool) { networkStateChanged(); });
}

fn::Handle NetworkSignature::addChangeListener(folly::Function<void(const fn::String&)> listener)
{
    auto& added = _listeners.emplace_back(*this, std::move(listener));
    added.setPosition(std::prev(_listeners.end()));
    return fn::Handle(added);
}

void NetworkSignature::removeListener(std::list<Listener>::iterator listener)
{
    listener->markRemoved();
    if (_notifying > 0) return; // notify() removes it.
    std::list<Listener> removed; // Destroyed outside of the list, since its destructor may run any code.
    removed.splice(removed.end(), _listeners, listener);
}

void NetworkSignature::networkStateChanged()
{
    maybeUpdate();
    for (std::size_t i = 0; i < _rechecks.size(); ++i)
        _rechecks[i] = _loop.schedule(recheckDelays[i], [this] { maybeUpdate(); });
}

void NetworkSignature::maybeUpdate()
{
    auto signature = computeNetworkSignature();
    if (signature == _signature) return;
    _signature = std::move(signature);
    notify();
}

void NetworkSignature::notify()
{
    const auto signature = _signature;
    FN_LOG(Info, "Notifying network signature change: {}", signature);
    const auto notification = ++_notifications;
    ++_notifying;
    auto left = _listeners.size(); // Listeners that are added meanwhile come behind these; none leaves the list.
    for (auto listener = _listeners.begin(); left > 0; ++listener, --left) {
        if (_notifications != notification) break; // A listener ran the loop, and all have heard of a later change.
        if (!listener->isRemoved()) listener->call(signature);
    }
    if (--_notifying > 0) return;
    std::list<Listener> removed; // Destroyed outside of the list, since their destructors may run any code.
    for (auto listener = _listeners.begin(); listener != _listeners.end();) {
        const auto current = listener++;
        if (current->isRemoved()) removed.splice(removed.end(), _listeners, current);
    }
}

std::vector<fn::IPAddress> NetworkSignature::getActiveGateways()
{
    const auto buffer = readAdapters();
    std::vector<fn::IPAddress> gateways;
    for (const auto* adapter = adapters(buffer); adapter; adapter = adapter->Next) {
        if (!qualifies(*adapter)) continue;
        for (const auto* entry = adapter->FirstGatewayAddress; entry; entry = entry->Next) {
            const auto gateway = ipAddress(entry->Address);
            if (gateway && std::ranges::find(gateways, *gateway) == gateways.end()) gateways.push_back(*gateway);
        }
    }
    return gateways;
}

fn::String NetworkSignature::computeNetworkSignature()
{
    try {
        fn::String signature;
        for (const auto& gateway : selectGateways(getActiveGateways())) {
            if (!signature.empty()) signature += "/";
            signature += hex(gateway.bytes()) + ":" + hex(macAddress(gateway).bytes());
        }
        return signature.empty() ? fn::String(unknownSignature) : signature;
    } catch (fn::Exception& exception) {
        exception.removeStackTrace();
        FN_LOG(Error, "Failed to compute network signature: {}", exception.what());
        return unknownSignature;
    }
}

} // namespace core

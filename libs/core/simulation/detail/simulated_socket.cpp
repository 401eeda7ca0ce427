#include "core/simulation/detail/simulated_socket.h"
#include "core/simulation/world.h"
#include <algorithm>
#include <cstring>

namespace core::simulation {

void Channel::take(char* data, std::size_t count)
{
    std::memcpy(data, bytes.data() + taken, count);
    taken += count;
    if (taken < bytes.size() / 2) return;
    bytes.erase(0, taken);
    taken = 0;
}

SimulatedSocket::SimulatedSocket(Process& process, fn::uv::System::SocketUser& user) : _process(process), _user(user)
{
    _process._sockets.push_back(this);
}

SimulatedSocket::~SimulatedSocket()
{
    cut();
    std::erase(_process._sockets, this);
    std::erase(_process._closing, this);
    if (_isListed) std::erase(_process._ready, this);
}

// --- Coming together

int SimulatedSocket::bind(const fn::String& name)
{
    if (_process.isDead()) return UV_ECANCELED;
    if (!_process.world().addListener(name, *this)) return UV_EADDRINUSE;
    _name = name;
    return 0;
}

int SimulatedSocket::listen(int backlog)
{
    _backlog = backlog;
    return 0;
}

int SimulatedSocket::connect(const fn::String& name)
{
    if (_process.isDead()) return UV_ECANCELED;
    auto* const listener = _process.world().listener(name);
    if (!listener) return UV_ENOENT;
    if (listener->_backlog == 0) return UV_ECONNREFUSED;
    const bool isFull = listener->_waiting.size() > static_cast<std::size_t>(listener->_backlog)
        || (&listener->_process != &_process && _process.world().findsQueueFull());
    if (isFull) return UV_EAGAIN;
    _in = std::make_shared<Channel>(_process.world().socketCapacity());
    _out = std::make_shared<Channel>(_process.world().socketCapacity());
    _listener = listener;
    listener->_waiting.push_back({ this, _out, _in });
    listener->_process.touch(*listener);
    return 0;
}

int SimulatedSocket::accept(Socket& socket)
{
    if (_waiting.empty()) return UV_EAGAIN;
    auto waiting = std::move(_waiting.front());
    _waiting.pop_front();
    auto& accepted = static_cast<SimulatedSocket&>(socket);
    accepted._in = std::move(waiting.in);
    accepted._out = std::move(waiting.out);
    accepted._peer = waiting.peer;
    if (waiting.peer) {
        waiting.peer->_peer = &accepted;
        waiting.peer->_listener = nullptr;
    }
    return 0;
}

// --- Bytes

void SimulatedSocket::setReading(bool isReading)
{
    _isReading = isReading;
    if (isReading) _process.touch(*this);
}

std::ptrdiff_t SimulatedSocket::receive(std::span<char> memory)
{
    if (!_in || _process.isDead()) return UV_EAGAIN;
    if (_in->size() > 0) {
        const auto count = _process.world().cut(std::min(memory.size(), _in->size()));
        _in->take(memory.data(), count);
        _process.world().trace({ memory.data(), count });
        touchPeer(); // The peer has room to write again.
        return static_cast<std::ptrdiff_t>(count);
    }
    if (std::exchange(_in->isReset, false)) return UV_ECONNRESET;
    return _in->isEnded ? UV_EOF : UV_EAGAIN;
}

std::size_t SimulatedSocket::put(const char* data, std::size_t count)
{
    if (_process.isDead()) return count; // The bytes are dropped.
    const auto taken = std::min(_out->room(), count);
    _out->put(data, taken);
    return taken;
}

std::ptrdiff_t SimulatedSocket::tryWrite(std::span<const uv_buf_t> parts)
{
    if (!_out) return UV_ENOTCONN;
    if (_out->isAbandoned && !_process.isDead()) return UV_EPIPE;
    std::size_t wanted = 0;
    for (const auto& part : parts) wanted += part.len;
    if (!_process.isDead()) {
        wanted = std::min(wanted, _out->room());
        if (wanted == 0) return UV_EAGAIN;
        wanted = _process.world().cut(wanted);
    }
    auto left = wanted;
    for (const auto& part : parts) {
        const auto count = std::min(left, part.len);
        put(part.base, count);
        left -= count;
    }
    touchPeer();
    if (std::exchange(_process._diesInWrite, false)) _process.die(0, SIGKILL);
    return static_cast<std::ptrdiff_t>(wanted);
}

int SimulatedSocket::write(std::span<const uv_buf_t> parts)
{
    _parts.assign(parts.begin(), parts.end());
    _unwritten = 0;
    for (const auto& part : parts) _unwritten += part.len;
    _process.touch(*this);
    return 0;
}

void SimulatedSocket::goOnWriting()
{
    if (_out->isAbandoned) {
        _parts.clear();
        _unwritten = 0;
        return _user.onWritten(UV_EPIPE);
    }
    auto left = _process.world().cut(std::min(_unwritten, _out->room()));
    _unwritten -= left;
    while (left > 0) {
        auto& part = _parts.front();
        const auto count = put(part.base, std::min(left, part.len));
        part.base += count;
        part.len -= count;
        left -= count;
        if (part.len == 0) _parts.erase(_parts.begin());
    }
    touchPeer();
    if (_unwritten > 0) return;
    _parts.clear();
    _user.onWritten(0);
}

// --- What is due

bool SimulatedSocket::canRead() const noexcept { return _isReading && _in && (_in->size() > 0 || _in->isEnded); }

bool SimulatedSocket::canWrite() const noexcept { return !_parts.empty() && (_out->room() > 0 || _out->isAbandoned); }

bool SimulatedSocket::isReady() const noexcept { return !_isClosed && (!_waiting.empty() || canRead() || canWrite()); }

void SimulatedSocket::deliver()
{
    if (_isClosed) return;
    if (!_waiting.empty()) return _user.connectionWaits(0);
    // libuv reads first if it finds both ready at once; chance decides whether it does.
    if (canRead() && (!canWrite() || _process.world().tosses())) return read();
    if (canWrite()) goOnWriting();
}

void SimulatedSocket::deliverEnd()
{
    if (!_isReading || _isClosed) return;
    _isReading = false;
    const auto memory = _user.takeReadMemory();
    _user.onRead(UV_EOF, memory);
}

void SimulatedSocket::read()
{
    const auto memory = _user.takeReadMemory();
    if (memory.empty()) return _user.onRead(UV_ENOBUFS, memory);
    const auto count = receive(memory);
    _user.onRead(count == UV_EAGAIN ? 0 : count, memory);
}

// --- The end

void SimulatedSocket::shutdown()
{
    if (!_out || _process.isDead()) return;
    _out->isEnded = true;
    touchPeer();
}

void SimulatedSocket::cut() noexcept
{
    if (!_name.empty()) _process.world().removeListener(_name, *this);
    for (const auto& waiting : std::exchange(_waiting, {})) {
        waiting.out->isEnded = true;
        waiting.in->isAbandoned = true;
        if (!waiting.peer) continue;
        waiting.peer->_listener = nullptr;
        waiting.peer->_process.touch(*waiting.peer);
    }
    leave();
}

void SimulatedSocket::leave() noexcept
{
    if (_out) _out->isEnded = true;
    if (_in && !std::exchange(_in->isAbandoned, true) && _in->size() > 0) _out->isReset = true;
    touchPeer();
    if (_listener) {
        for (auto& waiting : _listener->_waiting) {
            if (waiting.peer == this) waiting.peer = nullptr;
        }
        _listener = nullptr;
    }
    if (_peer) _peer->_peer = nullptr;
    _peer = nullptr;
}

void SimulatedSocket::close()
{
    if (std::exchange(_isClosed, true)) return;
    cut();
    _process._closing.push_back(this);
}

void SimulatedSocket::touchPeer() const
{
    if (_peer) _peer->_process.touch(*_peer);
}

} // namespace core::simulation

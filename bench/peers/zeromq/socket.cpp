#include "peers/zeromq/socket.h"
#include <cerrno>
#include <fmt/format.h>

namespace bench::zeromq {
namespace {

void require(int result, const char* action)
{
    if (result < 0) fail(fmt::format("{}: {}", action, zmq_strerror(zmq_errno())));
}

} // namespace

Socket::Socket(Context& context, int type) : _socket(zmq_socket(context.get(), type))
{
    if (!_socket) fail("no socket");
    const int unbounded = 0;
    require(zmq_setsockopt(_socket, ZMQ_SNDHWM, &unbounded, sizeof unbounded), "bound");
    require(zmq_setsockopt(_socket, ZMQ_RCVHWM, &unbounded, sizeof unbounded), "bound");
    const int on = 1;
    if (type == ZMQ_ROUTER) require(zmq_setsockopt(_socket, ZMQ_ROUTER_MANDATORY, &on, sizeof on), "mandatory");
}

void Socket::name(std::string_view id)
{
    require(zmq_setsockopt(_socket, ZMQ_ROUTING_ID, id.data(), id.size()), "name");
}
void Socket::subscribeToAll() { require(zmq_setsockopt(_socket, ZMQ_SUBSCRIBE, "", 0), "subscribe"); }
void Socket::bind(const std::string& address) { require(zmq_bind(_socket, address.c_str()), "bind"); }
void Socket::connect(const std::string& address) { require(zmq_connect(_socket, address.c_str()), "connect"); }

void Socket::send(Frame& frame, More more)
{
    require(zmq_msg_send(&frame.get(), _socket, more == More::Yes ? ZMQ_SNDMORE : 0), "send");
}

bool Socket::receive(Frame& frame)
{
    if (zmq_msg_recv(&frame.get(), _socket, ZMQ_DONTWAIT) >= 0) return true;
    if (zmq_errno() != EAGAIN) require(-1, "receive");
    return false;
}

void Socket::wait(int milliseconds)
{
    zmq_pollitem_t item { _socket, 0, ZMQ_POLLIN, 0 };
    if (zmq_poll(&item, 1, milliseconds) < 0 && zmq_errno() != EINTR) require(-1, "wait");
}

} // namespace bench::zeromq

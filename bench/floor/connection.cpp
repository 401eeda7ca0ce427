#include "floor/connection.h"
#include "driver/driver.h"
#include <algorithm>
#include <fmt/format.h>

namespace bench::floor {
namespace {

constexpr std::size_t leastInputBytes = 64 * 1024;
constexpr std::size_t leastRoom = 16 * 1024; // Below this a read would bring too little.
constexpr std::size_t mostPieces = 1024; // What one writev takes.
constexpr std::size_t largestFrame = 256 * 1024 * 1024;

void require(int status, const char* action)
{
    if (status < 0) fail(fmt::format("{}: {}", action, uv_strerror(status)));
}

uv_buf_t piece(const Bytes& bytes)
{
    return uv_buf_init(reinterpret_cast<char*>(bytes.data), static_cast<unsigned>(bytes.size));
}

} // namespace

Node::Node(WriteMode mode) : _mode(mode)
{
    require(uv_loop_init(&_loop), "event loop");
    uv_prepare_init(&_loop, &_beforeWaiting);
    uv_check_init(&_loop, &_afterPolling);
    _beforeWaiting.data = _afterPolling.data = this;
    uv_prepare_start(&_beforeWaiting, [](uv_prepare_t* handle) { static_cast<Node*>(handle->data)->flush(); });
    uv_check_start(&_afterPolling, [](uv_check_t* handle) { static_cast<Node*>(handle->data)->flush(); });
}

void Node::forget(Connection& connection) { std::erase(_unflushed, &connection); }

void Node::flush()
{
    if (_unflushed.empty()) return;
    _flushing.swap(_unflushed); // A broken connection may tell its owner, who may write to others.
    for (auto* connection : _flushing) connection->flush();
    _flushing.clear();
}

Connection::Connection(Node& node) : _node(node), _inputBytes(leastInputBytes)
{
    require(uv_pipe_init(&node.loop(), &_pipe, 0), "pipe");
    _pipe.data = _request.data = this;
}

void Connection::startReading(OnFrame onFrame, std::function<void()> onClosed)
{
    _onFrame = std::move(onFrame);
    _onClosed = std::move(onClosed);
    const auto provideRoom = [](uv_handle_t* handle, std::size_t, uv_buf_t* room) {
        static_cast<Connection*>(handle->data)->provide(room);
    };
    const auto take = [](uv_stream_t* stream, ssize_t count, const uv_buf_t*) {
        static_cast<Connection*>(stream->data)->received(count);
    };
    require(uv_read_start(reinterpret_cast<uv_stream_t*>(&_pipe), provideRoom, take), "read");
}

void Connection::provide(uv_buf_t* room)
{
    const auto begun = _received - _delivered; // Of the frame that is arriving.
    std::size_t missing = 0;
    if (begun >= lengthBytes) {
        std::uint32_t length;
        std::memcpy(&length, _input.data + _delivered, lengthBytes);
        if (length < headerBytes - lengthBytes || length > largestFrame)
            fail("a frame of an impossible length arrived");
        missing = lengthBytes + length - begun;
    }
    // Frames that still wait to be written share the buffer; only when none does it is used again from its start.
    if (begun == 0 && _input.buffer.use_count() == 1) _received = _delivered = 0;
    if (_input.size - _received < std::max(missing, leastRoom)) {
        _inputBytes = std::max(_inputBytes, begun + missing);
        auto buffer = std::make_shared_for_overwrite<std::uint8_t[]>(_inputBytes);
        if (begun > 0) std::memcpy(buffer.get(), _input.data + _delivered, begun);
        _input.data = buffer.get();
        _input.size = _inputBytes;
        _input.buffer = std::move(buffer);
        _received = begun;
        _delivered = 0;
    }
    *room =
        uv_buf_init(reinterpret_cast<char*>(_input.data + _received), static_cast<unsigned>(_input.size - _received));
}

void Connection::received(std::ptrdiff_t count)
{
    if (count < 0) return close();
    _received += static_cast<std::size_t>(count);
    Frame frame;
    frame.buffer = _input.buffer;
    while (!_closed && _received - _delivered >= lengthBytes) {
        std::uint32_t length;
        std::memcpy(&length, _input.data + _delivered, lengthBytes);
        frame.data = _input.data + _delivered;
        frame.size = lengthBytes + length;
        if (_received - _delivered < frame.size) break;
        _delivered += frame.size;
        _onFrame(frame);
    }
}

void Connection::send(const Bytes& frame)
{
    if (_closed) return;
    append(frame);
    if (_node.mode() == WriteMode::EachFrame) {
        if (_writing.empty()) writeOneByOne();
    } else if (!_flushQueued) {
        _flushQueued = true;
        _node.flushLater(*this);
    }
}

void Connection::flush()
{
    _flushQueued = false;
    if (!_closed && _writing.empty()) writeTogether();
}

void Connection::append(const Bytes& frame)
{
    if (_node.mode() == WriteMode::Coalesced && !_queue.empty()) {
        auto& last = _queue.back();
        if (last.data + last.size == frame.data && last.buffer == frame.buffer) {
            last.size += frame.size;
            return;
        }
    }
    _queue.push_back(frame);
}

void Connection::writeOneByOne()
{
    while (!_queue.empty()) {
        if (tryWrite(1) == 0) return startRequest(1);
    }
}

void Connection::writeTogether()
{
    if (_queue.empty()) return;
    tryWrite(_queue.size());
    if (!_queue.empty()) startRequest(_queue.size());
}

/// Offers the first `count` pieces of the queue to the kernel at once and drops what it takes. Returns how many it took
/// whole.
std::size_t Connection::tryWrite(std::size_t count)
{
    _pieces.clear();
    for (std::size_t i = 0; i < std::min(count, mostPieces); ++i) _pieces.push_back(piece(_queue[i]));
    const int written =
        uv_try_write(reinterpret_cast<uv_stream_t*>(&_pipe), _pieces.data(), static_cast<unsigned>(_pieces.size()));
    // An error other than a full socket means that the peer has gone: reading tells so.
    auto taken = static_cast<std::size_t>(std::max(written, 0));
    std::size_t whole = 0;
    for (; !_queue.empty() && taken >= _queue.front().size; ++whole) {
        taken -= _queue.front().size;
        _queue.pop_front();
    }
    if (taken > 0) {
        _queue.front().data += taken;
        _queue.front().size -= taken;
    }
    return whole;
}

void Connection::startRequest(std::size_t count)
{
    _pieces.clear();
    for (; count > 0; --count) {
        _pieces.push_back(piece(_queue.front()));
        _writing.push_back(std::move(_queue.front()));
        _queue.pop_front();
    }
    const auto completed = [](uv_write_t* request, int status) {
        static_cast<Connection*>(request->data)->requestCompleted(status);
    };
    require(uv_write(&_request, reinterpret_cast<uv_stream_t*>(&_pipe), _pieces.data(),
                static_cast<unsigned>(_pieces.size()), completed),
        "write");
}

void Connection::requestCompleted(int status)
{
    _writing.clear();
    if (status < 0 || _closed) return;
    if (_node.mode() == WriteMode::EachFrame)
        writeOneByOne();
    else
        writeTogether();
}

void Connection::close()
{
    if (_closed) return;
    _closed = true;
    _node.forget(*this);
    _queue.clear();
    uv_close(reinterpret_cast<uv_handle_t*>(&_pipe), nullptr);
    _onClosed();
}

} // namespace bench::floor

#include "foundation/uv/pipe_stream.h"
#include "foundation/uv/detail/pipe_stream_private.h"

namespace fn::uv {

PipeStream::PipeStream(Loop& loop, bool passHandles)
{
    if (passHandles) Status("make a pipe that passes handles", UV_ENOTSUP).throwOnError();
    _private = new Private(loop.internals());
}

PipeStream::~PipeStream()
{
    _private->close({});
    _private->release();
}

void PipeStream::accept(PipeStream& listener)
{
    _private->requireFresh("accept a connection");
    auto* const peer = listener._private->takeWaiting();
    _private->close({});
    _private->release();
    _private = peer;
}

void PipeStream::write(std::span<const ByteArray> parts, Completion completion)
{
    if (parts.empty()) return write(ByteArray(), std::move(completion));
    for (const auto& part : parts.first(parts.size() - 1)) _private->write(part, {});
    _private->write(parts.back(), std::move(completion));
}

void PipeStream::close(folly::Function<void()> completion)
{
    // A callback that this destroys may hold the last reference to this object, which is not touched afterwards.
    _private->close(std::move(completion));
}

void PipeStream::closeGently(Duration most, folly::Function<void()> completion)
{
    _private->closeGently(most, std::move(completion));
}

void PipeStream::bind(const String& name) { _private->bind(name); }

void PipeStream::listen(int backlog, folly::Function<void(const Status&)> callback)
{
    _private->listen(backlog, std::move(callback));
}

void PipeStream::listenEnd() { _private->listenEnd(); }
void PipeStream::listenStop() { _private->listenStop(); }
void PipeStream::listenResume() { _private->listenResume(); }
void PipeStream::listenPending() { _private->listenPending(); }

void PipeStream::connect(const String& name, folly::Function<void(const Status&)> callback)
{
    _private->connect(name, std::move(callback));
}

void PipeStream::open(int descriptor) { _private->open(descriptor); }
void PipeStream::readStart(ReadCallback callback) { _private->readStart(std::move(callback)); }
void PipeStream::readStop() { _private->readStop(); }
void PipeStream::readResume() { _private->readResume(); }
bool PipeStream::isReading() const noexcept { return _private->isReading(); }
void PipeStream::readPending() { _private->readPending(); }
void PipeStream::readEnd() { _private->readEnd(); }
void PipeStream::readInto(std::span<std::uint8_t> memory) { _private->readInto(memory); }
void PipeStream::write(ByteArray bytes, Completion completion) { _private->write(bytes, std::move(completion)); }
void PipeStream::whenQueuedAtMost(std::size_t bytes, folly::Function<void()> callback)
{
    _private->whenQueuedAtMost(bytes, std::move(callback));
}
std::size_t PipeStream::queuedBytes() const noexcept { return _private->queuedBytes(); }
std::uint64_t PipeStream::sentBytes() const noexcept { return _private->sentBytes(); }
bool PipeStream::isClosed() const noexcept { return _private->isClosed(); }
bool PipeStream::isPeerHere() const noexcept { return _private->isPeerHere(); }
String PipeStream::nativePath() const { return _private->endpointPath(); }

} // namespace fn::uv

#include "foundation/uv/detail/write_queue.h"
#include "foundation/uv/detail/loop_private.h"
#include <algorithm>

namespace fn::uv {
namespace {

// Most bytes of one batch. A socket buffer takes far less at once, and the stream reports its progress batch by batch.
constexpr std::size_t batchBytes = 1024 * 1024;

// The largest write that is joined with others, and the smallest and largest block that holds joined writes.
constexpr std::size_t joinedBytes = 2 * 1024;
constexpr std::size_t leastBlockBytes = 512;
constexpr std::size_t mostBlockBytes = 16 * 1024;

} // namespace

void WriteQueue::push(const ByteArray& bytes, Stream::Completion&& completion)
{
    const auto size = bytes.size();
    if (completion || size > joinedBytes || !join(bytes)) {
        _entries.push_back({ bytes, std::move(completion) });
        _isJoining = false;
    }
    _bytes += size; // Counted last: a write for which there was no memory is not in the queue.
}

// Small writes of one turn are joined in blocks, so that the system call gets few parts. A write that is alone in its turn keeps
// its own memory and is not copied. The memory of a block must not move once the system call has got it; so where a block is full,
// another block follows, about twice as large. A block that follows a large write is only as large as its first small write needs:
// where large and small writes alternate, larger blocks would stay nearly empty.
bool WriteQueue::join(const ByteArray& bytes)
{
    if (_entries.empty()) return false;
    auto& last = _entries.back().bytes;
    if (_isJoining && last.capacity() - last.size() >= bytes.size()) {
        last.append(bytes.data(), bytes.size());
        return true;
    }
    ByteArray block;
    const auto wanted = _isJoining ? 2 * (last.size() + bytes.size()) : bytes.size();
    block.reserve(std::clamp(wanted, leastBlockBytes, mostBlockBytes));
    block.append(bytes.data(), bytes.size());
    _entries.push_back({ std::move(block), {} });
    _isJoining = true;
    return true;
}

WriteQueue::Batch WriteQueue::gather(std::span<uv_buf_t> parts) noexcept
{
    Batch batch { 0, 0 };
    auto skipped = _sentOfFirst;
    while (batch.parts < parts.size() && batch.parts < _entries.size() && batch.bytes < batchBytes) {
        const auto rest = _entries[batch.parts].bytes.bytes().subspan(std::exchange(skipped, 0));
        auto* const data = reinterpret_cast<char*>(const_cast<std::uint8_t*>(rest.data())); // libuv only reads.
        const auto size = std::min(rest.size(), batchBytes - batch.bytes);
        parts[batch.parts++] = { data, size };
        batch.bytes += size;
    }
    return batch;
}

void WriteQueue::sent(std::size_t bytes)
{
    _bytes -= bytes;
    _sentOfFirst += bytes;
    while (!_entries.empty() && _sentOfFirst >= _entries.front().bytes.size()) {
        _sentOfFirst -= _entries.front().bytes.size();
        finishFirst(0);
    }
}

void WriteQueue::fail(int code)
{
    while (!_entries.empty()) finishFirst(code);
    _sentOfFirst = 0;
    _bytes = 0;
}

void WriteQueue::refuse(Stream::Completion completion, int code)
{
    if (completion) _finished.push_back({ std::move(completion), code });
}

void WriteQueue::drop()
{
    _sentOfFirst = 0;
    _bytes = 0;
    _isJoining = false;
    const auto entries = std::move(_entries); // Destroyed last: a completion's destructor may run any code.
    const auto finished = std::move(_finished);
}

void WriteQueue::complete()
{
    for (auto count = _finished.size(); count > 0 && hasFinished(); --count) {
        auto finished = takeFirst(_finished);
        callGuarded(finished.completion, finished.code < 0 ? Status("write to a pipe", finished.code) : Status());
    }
}

void WriteQueue::finishFirst(int code)
{
    auto entry = takeFirst(_entries);
    refuse(std::move(entry.completion), code);
}

} // namespace fn::uv

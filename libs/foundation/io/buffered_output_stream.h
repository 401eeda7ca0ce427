#pragma once
#include "foundation/io/output_stream.h"
#include <memory>

namespace fn {

/// Gathers small writes for `target`, which it borrows. `close()` or `flush()` must be called at the end: the destructor drops
/// the bytes that are still buffered, so that an exception does not complete a broken document.
class FN_EXPORT BufferedOutputStream final : public OutputStream {
public:
    /// Borrows `target`, and writes `bufferBytes` to it at a time.
    BufferedOutputStream(OutputStream& target, std::size_t bufferBytes);
    ~BufferedOutputStream() override;

    void flush() override; ///< Also flushes the stream below.
    void close(bool flushAll = true) override;

private:
    void writeSlow(const void* data, std::size_t size) override;
    void writeBuffered();

    OutputStream& _target;
    const std::size_t _bufferBytes;
    const std::unique_ptr<std::uint8_t[]> _buffer;
    bool _closed = false;
};

} // namespace fn

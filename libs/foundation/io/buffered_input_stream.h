#pragma once
#include "foundation/io/input_stream.h"
#include <memory>

namespace fn {

/// Reads ahead from `source`, which it borrows, so that small reads cost no call of that stream.
class FN_EXPORT BufferedInputStream final : public InputStream {
public:
    /// Borrows `source`, and reads `bufferBytes` from it at a time.
    BufferedInputStream(InputStream& source, std::size_t bufferBytes);
    ~BufferedInputStream() override;

    std::optional<std::uint64_t> remaining() const override;
    std::uint64_t position() const override;

private:
    std::size_t readSlow(void* data, std::size_t size) override;

    InputStream& _source;
    const std::size_t _bufferBytes;
    const std::unique_ptr<std::uint8_t[]> _buffer;
    std::uint64_t _takenFromSource = 0; // Bytes read from `_source`, including those still in the window.
};

} // namespace fn

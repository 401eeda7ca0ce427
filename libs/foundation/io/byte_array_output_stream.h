#pragma once
#include "foundation/io/output_stream.h"

namespace fn {

/// Appends to a ByteArray, which it borrows. The array is complete after `flush()` or the stream's end; until then it may
/// hold unwritten bytes behind its content.
class FN_EXPORT ByteArrayOutputStream final : public OutputStream {
public:
    explicit ByteArrayOutputStream(ByteArray& array); ///< Borrows `array`, and appends to it.
    ~ByteArrayOutputStream() override;

    std::size_t position() const noexcept; ///< Size of the array's content.
    void flush() override;

private:
    void writeSlow(const void* data, std::size_t size) override;
    void grow(std::size_t least); // Opens a window of at least `least` bytes.

    ByteArray& _array;
};

} // namespace fn

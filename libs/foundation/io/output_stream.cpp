#include "foundation/io/output_stream.h"

namespace fn {

OutputStream::~OutputStream() = default;

void OutputStream::writeShared(const ByteArray& bytes) { write(bytes.data(), bytes.size()); }

void OutputStream::flush() { }

void OutputStream::close(bool) { flush(); }

} // namespace fn

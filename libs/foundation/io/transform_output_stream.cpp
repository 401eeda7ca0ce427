#include "foundation/io/transform_output_stream.h"
#include "base/exceptions.h"

namespace fn {

Transform::~Transform() = default;

void Transform::finish(OutputStream&) { }

TransformOutputStream::TransformOutputStream(OutputStream& target, Transform& transform)
    : _target(target),
      _transform(transform)
{
}

TransformOutputStream::~TransformOutputStream() = default;

void TransformOutputStream::writeSlow(const void* data, std::size_t size)
{
    if (_closed) throw IOException("The stream is closed");
    _transform.transform(static_cast<const std::uint8_t*>(data), size, _target);
}

void TransformOutputStream::flush() { _target.flush(); }

void TransformOutputStream::close(bool flushAll)
{
    if (_closed) return;
    _closed = true;
    _transform.finish(_target);
    if (flushAll) _target.flush();
}

} // namespace fn

#pragma once
#include "foundation/io/output_stream.h"

namespace fn {

/// Changes bytes on their way through a TransformOutputStream.
class FN_EXPORT Transform {
public:
    Transform() = default;
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;
    virtual ~Transform();

    /// Takes one chunk and writes its transformed bytes to `target`. Chunks may end anywhere: their bounds have no meaning.
    virtual void transform(const std::uint8_t* data, std::size_t size, OutputStream& target) = 0;

    /// Writes the bytes that the transform has held back until the end. Default: does nothing.
    virtual void finish(OutputStream& target);
};

/// Sends all bytes that are written to it through `transform` to `target`. Borrows both.
class FN_EXPORT TransformOutputStream final : public OutputStream {
public:
    TransformOutputStream(OutputStream& target, Transform& transform);
    ~TransformOutputStream() override;

    void flush() override; ///< Flushes the stream below; the transform keeps the bytes that it holds back.
    void close(bool flushAll = true) override; ///< Lets the transform finish.

private:
    void writeSlow(const void* data, std::size_t size) override;

    OutputStream& _target;
    Transform& _transform;
    bool _closed = false;
};

} // namespace fn

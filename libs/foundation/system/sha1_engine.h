#pragma once
#include "base/byte_array.h"

struct _GChecksum;

namespace fn {

/// Adds up the SHA-1 sum of bytes given in pieces.
class FN_EXPORT SHA1Engine {
public:
    SHA1Engine();
    SHA1Engine(const SHA1Engine&) = delete;
    SHA1Engine& operator=(const SHA1Engine&) = delete;
    ~SHA1Engine();

    void update(const void* data, std::size_t size);

    /// The 20 bytes of the sum. The engine then starts a new one.
    ByteArray digest();

private:
    _GChecksum* _checksum;
};

} // namespace fn

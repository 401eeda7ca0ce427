#pragma once
#include "base/byte_array.h"

struct _GChecksum; // NOLINT(bugprone-reserved-identifier): GLib's name.

namespace fn {

/// Computes the SHA-1 sum of bytes that come in pieces.
class FN_EXPORT SHA1Engine {
public:
    SHA1Engine();
    SHA1Engine(const SHA1Engine&) = delete;
    SHA1Engine& operator=(const SHA1Engine&) = delete;
    ~SHA1Engine();

    void update(const void* data, std::size_t size); ///< Adds bytes to what is hashed.

    /// The 20 bytes of the sum. The engine then starts a new sum.
    ByteArray digest();

private:
    _GChecksum* _checksum;
};

} // namespace fn

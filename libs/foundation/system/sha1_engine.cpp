#include "foundation/system/sha1_engine.h"
#include <array>
#include <glib.h>

namespace fn {

SHA1Engine::SHA1Engine() : _checksum(g_checksum_new(G_CHECKSUM_SHA1)) { }

SHA1Engine::~SHA1Engine() { g_checksum_free(_checksum); }

void SHA1Engine::update(const void* data, std::size_t size)
{
    g_checksum_update(_checksum, static_cast<const guchar*>(data), static_cast<gssize>(size));
}

ByteArray SHA1Engine::digest()
{
    std::array<guint8, 20> sum;
    gsize size = sum.size();
    g_checksum_get_digest(_checksum, sum.data(), &size);
    g_checksum_reset(_checksum);
    return ByteArray(sum.data(), size);
}

} // namespace fn

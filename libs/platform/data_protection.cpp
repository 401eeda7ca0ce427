#include "platform/data_protection.h"
#include "base/exceptions.h"
#include "base/posix.h"
#include "platform/detail/data_protection_key_private.h"
#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <limits>
#include <new>
#include <sodium.h>
#include <utility>

namespace platform {

template class ScopedOverride<CryptProtectData, DataProtectionCall>;

namespace {

using fn::posix::fail;

// A protected blob: mark and version of the form, nonce, encrypted bytes with their authenticator. The mark is
// authenticated too.
constexpr std::array<std::uint8_t, 4> mark { 'C', 'P', 'D', 1 };
constexpr std::size_t nonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t authenticatorBytes = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t headerBytes = mark.size() + nonceBytes;
constexpr std::size_t overheadBytes = headerBytes + authenticatorBytes;
static_assert(ProtectionKey::sizeBytes == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);

fn::String& lastFailure()
{
    thread_local fn::String text;
    return text;
}

void initializeSodium()
{
    static const bool isReady = ::sodium_init() >= 0;
    if (!isReady) fail("The encryption library can not be used", ENOSYS);
}

struct Release {
    void operator()(std::uint8_t* memory) const noexcept { LocalFree(memory); }
};
using Memory = std::unique_ptr<std::uint8_t, Release>;

/// Memory that is kept out of core dumps and, as far as the user's limit goes, off the swap space.
Memory allocate(std::size_t size)
{
    Memory memory(static_cast<std::uint8_t*>(::sodium_malloc(size)));
    if (!memory) throw std::bad_alloc();
    return memory;
}

void handOver(Memory memory, std::size_t size, DATA_BLOB& out)
{
    out = DATA_BLOB { static_cast<DWORD>(size), memory.release() };
}

void protect(const DATA_BLOB& in, DATA_BLOB& out)
{
    if (in.cbData > std::numeric_limits<DWORD>::max() - overheadBytes) fail("The data is too large", EFBIG);
    const ProtectionKey key(ProtectionKey::IfMissing::Create);
    const auto size = in.cbData + overheadBytes;
    auto blob = allocate(size);
    auto* const nonce = std::ranges::copy(mark, blob.get()).out;
    ::randombytes_buf(nonce, nonceBytes); // The nonce is so large that each call may draw it at random.
    ::crypto_aead_xchacha20poly1305_ietf_encrypt(
        blob.get() + headerBytes, nullptr, in.pbData, in.cbData, mark.data(), mark.size(), nullptr, nonce, key.data());
    handOver(std::move(blob), size, out);
}

void unprotect(const DATA_BLOB& in, DATA_BLOB& out)
{
    if (in.cbData < overheadBytes || !std::equal(mark.begin(), mark.end(), in.pbData)) {
        fail("The data is not protected, or in an unknown form", EBADMSG);
    }
    const ProtectionKey key(ProtectionKey::IfMissing::Fail);
    const auto size = in.cbData - overheadBytes;
    auto plain = allocate(size);
    const auto* const nonce = in.pbData + mark.size();
    if (::crypto_aead_xchacha20poly1305_ietf_decrypt(plain.get(), nullptr, nullptr, in.pbData + headerBytes,
            in.cbData - headerBytes, mark.data(), mark.size(), nonce, key.data())
        != 0) {
        fail("The data has been changed, or was protected with another key", EBADMSG);
    }
    handOver(std::move(plain), size, out);
}

bool areSupported(const DATA_BLOB* in, bool hasOptions, const DATA_BLOB* out)
{
    return in && out && !hasOptions && (in->pbData || in->cbData == 0);
}

/// Runs `call`, or the function that a test has put in its place.
BOOL run(void (*call)(const DATA_BLOB&, DATA_BLOB&), const DATA_BLOB& in, DATA_BLOB& out)
{
    const DATA_BLOB source = in; // `out` may be the same blob.
    out = DATA_BLOB {};
    if (const auto answer = ScopedDataProtection::current()) return answer(source, out);
    try {
        initializeSodium();
        call(source, out);
        return 1;
    } catch (const fn::Exception& exception) {
        lastFailure() = exception.message();
    } catch (const std::exception& exception) {
        lastFailure() = exception.what();
    }
    return 0;
}

} // namespace

BOOL CryptProtectData(DATA_BLOB* pDataIn, const char16_t* szDataDescr, DATA_BLOB* pOptionalEntropy, void* pvReserved,
    CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags, DATA_BLOB* pDataOut)
{
    lastFailure() = fn::String();
    const bool hasOptions = szDataDescr || pOptionalEntropy || pvReserved || pPromptStruct || dwFlags;
    if (areSupported(pDataIn, hasOptions, pDataOut)) return run(protect, *pDataIn, *pDataOut);
    lastFailure() = "An argument is missing or not supported";
    return 0;
}

BOOL CryptUnprotectData(DATA_BLOB* pDataIn, char16_t** ppszDataDescr, DATA_BLOB* pOptionalEntropy, void* pvReserved,
    CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags, DATA_BLOB* pDataOut)
{
    lastFailure() = fn::String();
    const bool hasOptions = ppszDataDescr || pOptionalEntropy || pvReserved || pPromptStruct || dwFlags;
    if (areSupported(pDataIn, hasOptions, pDataOut)) return run(unprotect, *pDataIn, *pDataOut);
    lastFailure() = "An argument is missing or not supported";
    return 0;
}

void* LocalFree(void* memory)
{
    ::sodium_free(memory); // Wipes the memory first.
    return nullptr;
}

fn::String dataProtectionFailure() { return lastFailure(); }

} // namespace platform

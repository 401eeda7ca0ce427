#pragma once
#include <array>
#include <cstdint>

namespace platform {
namespace detail {
class PrivateFolder;
}

/// The secret key of this user, read from the file `protection.key` of `protectionFolder()`. The copy in memory is wiped at
/// the end.
///
/// A key file that other users could have written or read, or that is damaged, is refused with `fn::IOException` and never
/// replaced: with a new key, all bytes that were protected with the old key would be unreadable for good.
class ProtectionKey {
public:
    static constexpr std::size_t sizeBytes = 32;

    enum class IfMissing { Fail, Create };

    /// Reads the key. `Create` makes folder and key if there are none; several processes that do so at once get the same key.
    /// `fn::IOException` with ErrnoInfo on failure.
    explicit ProtectionKey(IfMissing ifMissing);
    ProtectionKey(const ProtectionKey&) = delete;
    ProtectionKey& operator=(const ProtectionKey&) = delete;
    ~ProtectionKey();

    const std::uint8_t* data() const noexcept { return _bytes.data(); }

private:
    bool read(const detail::PrivateFolder& folder); // False if there is no key.

    std::array<std::uint8_t, sizeBytes> _bytes {};
};

} // namespace platform

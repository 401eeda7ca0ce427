#pragma once
#include <array>
#include <cstdint>
#include <span>

namespace platform {
namespace detail {
class PrivateFolder;
}

/// The secret key of this user, read from the file `protection.key` of `protectionFolder()`. The copy in memory is wiped at
/// the end.
///
/// A file that others than this user could have written or read, or that is damaged, is refused with `fn::IOException`
/// and never replaced: a new key would make everything that was protected with the old one unreadable for good.
class ProtectionKey {
public:
    static constexpr std::size_t sizeBytes = 32;

    enum class IfMissing { Fail, Create };

    /// Reads the key. `Create` makes folder and key where there are none; of several processes that do so at once all get
    /// the same key. Else `fn::IOException` with ErrnoInfo.
    explicit ProtectionKey(IfMissing ifMissing);
    ProtectionKey(const ProtectionKey&) = delete;
    ProtectionKey& operator=(const ProtectionKey&) = delete;
    ~ProtectionKey();

    const std::uint8_t* data() const noexcept { return _bytes.data(); }

private:
    bool read(const detail::PrivateFolder& folder); // Whether there is a key.

    std::array<std::uint8_t, sizeBytes> _bytes {};
};

} // namespace platform

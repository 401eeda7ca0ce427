#pragma once
#include "foundation/logging/logging.h"
#include "platform/windows_types.h"
#include <source_location>

namespace core::detail {

inline constexpr auto profileMissing = "Firewall profile has not been initialized yet!";
inline constexpr auto elevationMissing = "Could not get elevated privileges!";
inline constexpr auto pathNotText = "Conversion of process file name string failed!"; // No rule can name it.

/// Logs why an operation fails, as from where it is called. False, as the operation's result.
bool failure(const char* message, const std::source_location& where = std::source_location::current());

/// To be called in a catch block: logs the exception. False, as the operation's result.
bool caught() noexcept;

/// A result as an argument for "0x%08lx", also where `long` is wider.
inline unsigned long printable(platform::HRESULT result) { return static_cast<std::uint32_t>(result); }

} // namespace core::detail

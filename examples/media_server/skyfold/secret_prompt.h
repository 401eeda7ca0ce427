#pragma once
#include <string>

namespace media {

/// Asks on the terminal for a line that is not shown while it is typed; reads it from standard input where that is no
/// terminal. Without its line end. A signal that ends the program ends it with the terminal as it was.
/// `fn::IOException` where nothing can be read, `fn::RuntimeException` where nothing is given or it is longer than 4,096 bytes.
/// The result is the caller's to wipe.
std::string askForSecret(const std::string& question);

/// Overwrites what was asked for.
void wipe(std::string& secret) noexcept;

} // namespace media

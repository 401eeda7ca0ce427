#pragma once
#include <cstdint>
#include <span>

namespace bench {

/// What arguments, results and events carry so that the receiver can tell that they arrived whole and in place: a
/// number and a check of it and of the size, at both ends of the body. Large bodies are not read in between, which
/// would measure memory instead of the transport.
inline constexpr std::size_t stampBytes = 16;

/// `body` has at least `stampBytes`.
void stamp(std::span<std::uint8_t> body, std::uint64_t number);

/// The number of a whole body; a broken one ends the program.
std::uint64_t readStamp(std::span<const std::uint8_t> body);

/// What an owner answers to the argument of that number.
constexpr std::uint64_t answerTo(std::uint64_t number) { return ~number; }

} // namespace bench

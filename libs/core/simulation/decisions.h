#pragma once
#include "base/exceptions.h"
#include "base/export.h"
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace core::simulation {

/// What a decision is about. Each kind draws from a sequence of its own, so that one more or less of one kind changes none of
/// the others.
enum class Choice : std::uint8_t {
    Schedule, ///< Who runs next, and how much time passes.
    Bytes, ///< How reads and writes are cut, and how much a socket holds.
    Fault, ///< Deaths, freezes, failing launches, full queues.
    Load, ///< For the program under test.
};
inline constexpr std::size_t choices = 4;

/// Everything that the simulated world leaves to chance. One from a seed draws each decision and keeps it; one from a story
/// repeats what it was given and then always takes 0, which by convention is the tame answer: the first in line, all bytes,
/// no fault. So a shorter story is a simpler run, and a failing one can be shrunk by cutting it and by putting zeros in.
class FN_EXPORT Decisions {
public:
    explicit Decisions(std::uint64_t seed);

    using Story = std::array<std::vector<std::uint32_t>, choices>;
    explicit Decisions(Story story);

    /// A number from 0 to `count` - 1.
    std::uint32_t choose(Choice choice, std::uint32_t count);

    /// Whether something happens that happens `times` in a million.
    bool happens(Choice choice, std::uint32_t times)
    {
        return times != 0 && choose(choice, million) > million - 1 - times;
    }

    const Story& story() const noexcept { return _made; } ///< All decisions so far.

    /// Has each decision written into memory that outlives a crash of this process, as kind << 32 | decision; `journal[0]` counts
    /// them. What does not fit is not written.
    void keepIn(std::span<std::uint64_t> journal) noexcept { _journal = journal; }
    static Story fromJournal(std::span<const std::uint64_t> journal);

    /// One line a kind: its name and its decisions, a run of zeros as "0*COUNT". Lines that begin with '#' are passed over.
    static std::string toText(const Story& story);
    static Story fromText(std::string_view text); ///< What is no story: `fn::DataFormatException`.

private:
    static constexpr std::uint32_t million = 1'000'000;
    std::uint64_t next(std::size_t kind) noexcept;

    std::array<std::uint64_t, choices> _states {};
    const bool _isRepeating;
    const Story _given;
    Story _made;
    std::span<std::uint64_t> _journal;
};

} // namespace core::simulation

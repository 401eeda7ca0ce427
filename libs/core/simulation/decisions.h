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

/// What a decision is about. Each kind draws from a sequence of its own, so that an additional decision of one kind changes none
/// of the other kinds.
enum class Choice : std::uint8_t {
    Schedule, ///< Which process runs next, and how much time passes.
    Bytes, ///< How reads and writes are cut, and how much a socket holds.
    Fault, ///< Deaths, freezes, failing launches, full queues.
    Load, ///< For the program under test.
};
inline constexpr std::size_t choices = 4;

/// Everything that the simulated world leaves to chance. Made from a seed, the object draws decisions and records them. Made from
/// a story, it repeats the story's decisions and then always takes 0, which by convention is the tame answer: the first in line,
/// all bytes, no fault. So a shorter story is a simpler run, and a failing story can be shrunk by cutting it and by zeros.
class FN_EXPORT Decisions {
public:
    explicit Decisions(std::uint64_t seed); ///< Decides at random, by this seed.

    /// The answers to each kind of choice, in the order in which they are asked for.
    using Story = std::array<std::vector<std::uint32_t>, choices>;
    explicit Decisions(Story story); ///< Decides as this story tells; 0 once it has come to its end.

    /// A number from 0 to `count` - 1.
    std::uint32_t choose(Choice choice, std::uint32_t count);

    /// Decides whether something happens whose frequency is `times` in a million.
    bool happens(Choice choice, std::uint32_t times)
    {
        return times != 0 && choose(choice, million) > million - 1 - times;
    }

    const Story& story() const noexcept { return _made; } ///< All decisions so far.

    /// Writes each decision also into `journal`, memory that outlives a crash of this process: as kind << 32 | decision, behind
    /// their number in `journal[0]`. Decisions beyond its end are not written.
    void keepIn(std::span<std::uint64_t> journal) noexcept { _journal = journal; }
    /// Puts a journal's answers in the order of a story.
    static Story fromJournal(std::span<const std::uint64_t> journal);

    /// A line for each kind: its name and its decisions, a run of zeros as "0*COUNT". Reading skips lines that begin with '#'.
    static std::string toText(const Story& story);
    static Story fromText(std::string_view text); ///< `fn::DataFormatException` if the text is no story.

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

#pragma once
#include "witness.h"
#include <array>
#include <atomic>
#include <filesystem>
#include <optional>
#include <random>

namespace chaos {

using simulated::Deed;
using simulated::Event;

/// What all processes of one run tell, in one order, in a file that they share as memory: what a process has written outlives
/// its death at any moment. Written before the deed that it tells, so a cause always stands before what follows from it.
class Journal {
public:
    static constexpr const char* pathVariable = "CHAOS_JOURNAL"; ///< Of the environment: where it lies.

    static void create(const std::filesystem::path& path);
    explicit Journal(const std::filesystem::path& path);
    Journal(const Journal&) = delete;
    ~Journal();

    void append(const Event& event) noexcept; ///< By any thread. A long text is cut.

    /// The next event and its time, if there is one; valid until the next call. One that was begun and not ended by a process that died is
    /// passed over after a while.
    struct Entry {
        Event event;
        std::int64_t microseconds;
    };
    std::optional<Entry> read();

    // What the processes share beside.
    int next(simulated::Numbered what) noexcept;
    int nextProcess() noexcept;
    std::atomic<bool>& isResting() noexcept;
    std::uint64_t& seed() noexcept;

    static std::int64_t now() noexcept; ///< Microseconds on the clock that all processes share.

private:
    struct Record;
    struct Header;
    Header& header() const noexcept;
    Record& record(std::uint64_t index) const noexcept;

    int _file;
    void* _memory;
    std::uint64_t _read = 0; // How many.
    std::int64_t _missingSince = 0;
};

/// The witness of one process, which it tells the journal named by the environment.
class JournalWitness final : public simulated::Witness {
public:
    explicit JournalWitness(const std::string& name); ///< Of the process. Log lines are told from now on, too.

    std::uint32_t choose(std::uint32_t count) override { return static_cast<std::uint32_t>(_random() % count); }
    bool isResting() const override { return _journal.isResting(); }
    bool mayEndIdle() const override { return false; }
    int process() const override { return _process; }
    int next(simulated::Numbered what) override { return _journal.next(what); }
    void tell(Event event) override;

private:
    mutable Journal _journal;
    const int _process;
    std::mt19937_64 _random;
};

} // namespace chaos

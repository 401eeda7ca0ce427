#pragma once
#include "witness.h"
#include <filesystem>
#include <optional>
#include <random>

namespace simulated {

/// What all processes of one run tell, in one order, in a file that they share as memory: what a process has told outlives its
/// death at any moment. A cause stands before what follows from it, since a deed is told before it is done.
class FN_EXPORT Journal final : public Witness {
public:
    static constexpr const char* pathVariable = "CHAOS_JOURNAL"; ///< Of the environment: where it lies.

    /// For who judges: makes the file, and is nobody of the application.
    Journal(const std::filesystem::path& path, std::uint64_t seed);
    /// For a process of the application, of that name. Its log lines are told, too.
    explicit Journal(const char* name);
    ~Journal() override;

    std::uint32_t choose(std::uint32_t count) override { return static_cast<std::uint32_t>(_random() % count); }
    bool isResting() const override;
    void setResting(bool isResting);
    std::uint32_t pause() override { return 10 - choose(10); } // Nobody lives for long.
    int process() const override { return _process; }
    int next(Numbered what) override;
    void tell(Event event) override; ///< By any thread. A long text is cut.

    /// The next event and its time in microseconds, if there is one. Valid until the journal goes. What was begun by a process that died
    /// is passed over after a while.
    std::optional<std::pair<Event, std::int64_t>> read();

private:
    struct Header;
    struct Record;
    Journal(const std::filesystem::path& path, int flags);

    Header* _header;
    Record* _records;
    int _process = 0;
    std::mt19937_64 _random;
    std::uint64_t _read = 0; // How many.
    std::int64_t _missingSince = 0;
};

} // namespace simulated

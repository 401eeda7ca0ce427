#pragma once
#include "foundation/logging/log_target.h"
#include "foundation/time/clock.h"
#include <atomic>
#include <mutex>
#include <optional>

namespace fn {

/// A log file, which targets of any number of threads and processes may share. Each entry is appended in one call of
/// the system. Nobody waits for another but for about a millisecond at a time, where a file is full.
///
/// A file that is full becomes NAME.1 (the newest), what was NAME.1 becomes NAME.2 and so on, and a new file takes its
/// place. Only files beyond the maximum count are lost. A folder in the place of the last one takes the place of a file.
///
/// A log that somebody else has moved or removed is made again, with its folder (mode 0700, the file 0600), a few
/// milliseconds later at most; so is one that could not be opened, at the next entry. While the disk is full, or a folder or
/// a pipe lies in the log's place, entries are lost and perhaps one is cut off. They are counted: the next one that is
/// written, whole, comes behind a line that tells how many. But who had the log open before something else took its place
/// goes on writing to the file that it was. Thread-safe.
class FN_EXPORT LogFileTarget final : public LogTarget {
public:
    /// Opens nothing before the first entry.
    explicit LogFileTarget(String path, const Clock& clock = Clock::system());

    /// An entry that would make the file larger than this begins a new one; 0, as initially, for no bound. What several
    /// threads and processes write until they see it comes on top: up to a 32nd part for each process, and again for each
    /// millisecond that another process takes to rotate the log. Before the first entry.
    void setMaximumSize(std::uint64_t bytes);

    /// How many files are kept, the log itself among them; at least 1, as initially. Before the first entry.
    void setMaximumCount(int files) { _maximumCount = files; }

    void write(const String& text) override;

private:
    struct Identity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        friend bool operator==(const Identity&, const Identity&) = default;
    };
    struct FileState {
        Identity identity;
        std::int64_t size = 0;
        bool isPipe = false;
    };

    ~LogFileTarget() override;
    void prepare(std::int64_t size);
    bool isTimeToLook() const;
    void look(std::int64_t size);
    bool open();
    bool rotate(std::int64_t size);
    bool moveFilesUp() const;
    int dropOldest(int last) const;
    bool appendOrLose(std::string_view text) noexcept;
    void appendAfterLoss(std::string_view text);
    static std::optional<FileState> stateOf(int descriptor, const char* path);
    bool isFull(std::int64_t fileSize, std::int64_t size) const;
    std::int64_t bytesBetweenLooks() const;
    String numberedPath(int number) const;

    const String _path;
    const Clock& _clock;
    std::int64_t _maximumSize = 0;
    int _maximumCount = 1;

    std::mutex _lock; // Held by who looks after the file. Others go on writing, for a while.
    Identity _opened; // Guarded by _lock.
    std::atomic<int> _descriptor { -1 }; // Once set it keeps its number: a new file is put under it.
    std::atomic<std::int64_t> _bytesUntilLook { 0 };
    std::atomic<std::int64_t> _nextLook { 0 }; // In microseconds of the clock.
    std::atomic<std::uint64_t> _lost { 0 }; // Entries, since the last one that went.
    std::atomic<bool> _cutOff { false }; // The last entry has no end.
};

} // namespace fn

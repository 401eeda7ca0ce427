#pragma once
#include "foundation/logging/log_target.h"
#include "foundation/time/clock.h"
#include <atomic>
#include <mutex>
#include <optional>

namespace fn {

/// A log file, which targets of any number of threads and processes may share. Each entry is appended in one call of the
/// system. Writers wait for each other only where a file is full, for about a millisecond at a time.
///
/// A full file is renamed to NAME.1 (the newest), NAME.1 to NAME.2 and so on, and a new file is begun. Only files beyond the
/// maximum count are lost. If a folder has the last of these names, one file fewer is kept.
///
/// A log that somebody else has moved or removed is made again, with its folder (mode 0700, the file 0600), a few milliseconds
/// later at most; a log that could not be opened is tried again at the next entry. While the disk is full, or a folder or a
/// pipe lies in the log's place, entries are lost, and one may be cut off. Lost entries are counted: a line before the next
/// entry that is written tells how many. A target that had the log open before a folder or a pipe took its place goes on
/// writing to the old file. Thread-safe.
class FN_EXPORT LogFileTarget final : public LogTarget {
public:
    /// Opens nothing before the first entry.
    explicit LogFileTarget(String path, const Clock& clock = Clock::system());

    /// An entry that would make the file larger than `bytes` begins a new file; 0, the initial value, sets no bound. Threads and
    /// processes notice a full file late, so a file may exceed the bound by a 32nd part for each process, and by as much again
    /// for each millisecond that another process takes to rotate the log. To be called before the first entry.
    void setMaximumSize(std::uint64_t bytes);

    /// Sets how many files are kept, the log itself among them; at least 1, the initial value. To be called before the first entry.
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

    std::mutex _lock; // Held by the thread that looks after the file; the others go on writing meanwhile.
    Identity _opened; // Guarded by _lock.
    std::atomic<int> _descriptor { -1 }; // Keeps its number once it is set: dup3() puts new files there.
    std::atomic<std::int64_t> _bytesUntilLook { 0 };
    std::atomic<std::int64_t> _nextLook { 0 }; // In microseconds of the clock.
    std::atomic<std::uint64_t> _lost { 0 }; // Entries lost since an entry was last written.
    std::atomic<bool> _cutOff { false }; // The last entry was written in part.
};

} // namespace fn

#include "foundation/logging/log_file_target.h"
#include "base/posix.h"
#include "foundation/io/path.h"
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>

// How files are changed while others write:
//
// Writers only append to the file under the descriptor. A file that has been renamed still takes their entries, whole and in
// the order of each thread, so nothing is lost by writing to it a little longer. Looking at the path costs as much as a write,
// so a target looks only after some bytes or some milliseconds. Only then does it see that the log is full, or that the path
// leads to another file.
//
// A target that finds the log full takes the lock of the log's own inode. If another process holds that lock, it is about to
// rotate; the target then waits for a moment, since many writers would keep the other process from the file for long. It waits
// no longer, so that nobody is stopped by whatever the holder of the lock does. Under the lock the path is compared once more,
// since the log may have been rotated before. Only the holder of the lock on the inode that the path leads to renames files;
// the last rename takes that position away from it.
//
// dup3() puts the new file under the old descriptor in one step: a write that is under way ends in the old file, the next one
// goes to the new file, and no other thread has to be told.

namespace fn {
namespace {

constexpr std::chrono::milliseconds whileOthersRotate { 1 };
constexpr std::int64_t microsecondsBetweenLooks = 10'000;
constexpr std::int64_t looksPerFile = 64;
constexpr std::int64_t bytesBetweenLooksOfBoundless = 65'536;

// Appends in one call: the file is opened with O_APPEND, with which Linux ignores the offset of pwrite(). write() would make
// the threads of the process wait for each other, since it locks the position in the file.
std::ptrdiff_t appendOnce(int descriptor, std::string_view text) noexcept
{
    return posix::uninterrupted([&] { return ::pwrite(descriptor, text.data(), text.size(), 0); });
}

} // namespace

LogFileTarget::LogFileTarget(String path, const Clock& clock) : _path(std::move(path)), _clock(clock) { }

void LogFileTarget::setMaximumSize(std::uint64_t bytes)
{
    _maximumSize = static_cast<std::int64_t>(std::min<std::uint64_t>(bytes, INT64_MAX));
}

LogFileTarget::~LogFileTarget()
{
    if (const auto descriptor = _descriptor.load(); descriptor >= 0) ::close(descriptor);
}

void LogFileTarget::write(const String& text)
{
    if (text.empty()) return;
    try {
        prepare(static_cast<std::int64_t>(text.size()));
        if (_lost.load(std::memory_order_relaxed) == 0) [[likely]] {
            appendOrLose(text.view());
        } else {
            appendAfterLoss(text.view());
        }
    } catch (const std::exception&) {
        ++_lost; // There is no memory for a copy of the text or the name of a file.
    }
}

// Opens or rotates the file if that is necessary before an entry of `size` bytes.
void LogFileTarget::prepare(std::int64_t size)
{
    const auto left = _bytesUntilLook.fetch_sub(size, std::memory_order_relaxed) - size;
    const bool isOpen = _descriptor.load(std::memory_order_acquire) >= 0;
    std::unique_lock lock(_lock, std::defer_lock);
    if (!isOpen || left < -bytesBetweenLooks()) {
        lock.lock(); // Waits for another thread that rotates the log or opens the first file.
        if (isOpen && _bytesUntilLook.load(std::memory_order_relaxed) >= 0) return;
    } else if ((left >= 0 && !isTimeToLook()) || !lock.try_lock()) {
        return;
    }
    look(size);
}

bool LogFileTarget::isTimeToLook() const
{
    return _clock.monotonic().totalMicroseconds() >= _nextLook.load(std::memory_order_relaxed);
}

// Compares the open file with the file at the path, opens another one and rotates. The caller holds `_lock`.
void LogFileTarget::look(std::int64_t size)
{
    auto room = bytesBetweenLooks();
    for (int steps = 0; steps < 4; ++steps) { // At most: open a full file, rotate, open the next file, compare it.
        const auto log = stateOf(AT_FDCWD, _path.c_str());
        if (_descriptor.load() < 0 || !log || log->identity != _opened) {
            if (!open()) break;
        } else if (!isFull(log->size, size)) {
            if (_maximumSize > 0) room = std::min(room, _maximumSize - log->size);
            break;
        } else if (!rotate(size)) {
            break;
        }
    }
    _bytesUntilLook.store(room - size, std::memory_order_relaxed);
    _nextLook.store(_clock.monotonic().totalMicroseconds() + microsecondsBetweenLooks, std::memory_order_relaxed);
}

// Opens the file that the path leads to, or makes one. On failure the present file stays open. The caller holds `_lock`.
bool LogFileTarget::open()
{
    // Without these flags the call would wait for a pipe at the path, and a terminal at the path might come to control the process.
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY;
    int opened = posix::open(_path, flags, 0600);
    if (opened < 0 && errno == ENOENT) {
        g_mkdir_with_parents(Path::parsePath(_path).directory.c_str(), 0700);
        opened = posix::open(_path, flags, 0600);
    }
    if (opened < 0) return false;
    const auto file = stateOf(opened, "");
    bool usable = file && !file->isPipe;
    if (usable && _descriptor.load() < 0) {
        _descriptor.store(opened, std::memory_order_release);
    } else {
        usable = usable && ::dup3(opened, _descriptor.load(), O_CLOEXEC) >= 0;
        ::close(opened);
    }
    if (usable) _opened = file->identity;
    return usable;
}

// Renames the full log and its predecessors. False if another process is about to rotate, or on failure. The caller holds `_lock`.
bool LogFileTarget::rotate(std::int64_t size)
{
    const int descriptor = _descriptor.load();
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) std::this_thread::sleep_for(whileOthersRotate);
        return false;
    }
    const auto log = stateOf(AT_FDCWD, _path.c_str());
    const bool stillFull = log && log->identity == _opened && isFull(log->size, size);
    const bool done = !stillFull || moveFilesUp();
    ::flock(descriptor, LOCK_UN);
    return done;
}

// Renames the files. The caller holds the lock of the log's inode.
bool LogFileTarget::moveFilesUp() const
{
    if (_maximumCount <= 1) return ::unlink(_path.c_str()) == 0;
    // Files are moved up to the first free number: a rotation that was broken off may have left one, and no file is dropped early.
    const int last = _maximumCount - 1;
    int free = 1;
    while (free < last && ::access(numberedPath(free).c_str(), F_OK) == 0) ++free;
    if (free == last) free = dropOldest(last);
    if (free == 0) return false;
    for (int number = free; number > 0; --number) {
        if (::rename(numberedPath(number - 1).c_str(), numberedPath(number).c_str()) != 0) return false;
    }
    return true;
}

// Removes the file with the number `last`, or the nearest one before it that can be removed (a folder cannot). Returns the free
// number, or 0. rename() could replace the file, but some file systems then write the new file out while the caller waits.
int LogFileTarget::dropOldest(int last) const
{
    int number = last;
    while (number > 0 && ::unlink(numberedPath(number).c_str()) != 0 && errno != ENOENT) --number;
    return number;
}

bool LogFileTarget::appendOrLose(std::string_view text) noexcept
{
    const int descriptor = _descriptor.load(std::memory_order_relaxed);
    auto left = text;
    while (!left.empty()) {
        const auto written = appendOnce(descriptor, left);
        if (written <= 0) break;
        left.remove_prefix(static_cast<std::size_t>(written));
    }
    if (left.empty()) return true;
    if (left.size() < text.size()) _cutOff = true;
    ++_lost;
    return false;
}

// Writes the entry behind a line that tells how many are lost.
void LogFileTarget::appendAfterLoss(std::string_view text)
{
    const auto count = _lost.exchange(0);
    if (count == 0) return void(appendOrLose(text)); // Another thread is telling the number.
    const bool hasNoEnd = _cutOff.exchange(false);
    const auto entry =
        fmt::format("{}(log entries lost: {}; the log took no more)\r\n{}", hasNoEnd ? "\r\n" : "", count, text);
    if (appendOrLose(entry)) return;
    _lost += count;
    if (hasNoEnd) _cutOff = true;
}

// No state if there is no file. statx() is asked for no times: after stat() has read the times, the next write to the file sets
// them anew, which costs more than the rest of the write.
std::optional<LogFileTarget::FileState> LogFileTarget::stateOf(int descriptor, const char* path)
{
    struct statx status = {};
    if (::statx(descriptor, path, AT_EMPTY_PATH, STATX_TYPE | STATX_INO | STATX_SIZE, &status) != 0) return {};
    return FileState { { ::makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino },
        static_cast<std::int64_t>(status.stx_size), S_ISFIFO(status.stx_mode) };
}

// Whether an entry of `size` bytes must go to another file. An empty file takes an entry of any size.
bool LogFileTarget::isFull(std::int64_t fileSize, std::int64_t size) const
{
    return _maximumSize > 0 && fileSize > 0 && fileSize > _maximumSize - size;
}

std::int64_t LogFileTarget::bytesBetweenLooks() const
{
    return _maximumSize > 0 ? _maximumSize / looksPerFile : bytesBetweenLooksOfBoundless;
}

String LogFileTarget::numberedPath(int number) const
{
    return number == 0 ? _path : _path + "." + String::number(number);
}

} // namespace fn

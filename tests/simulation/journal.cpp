#include "journal.h"
#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace simulated {
namespace {

constexpr std::uint64_t mostRecords = 4 * 1024 * 1024; // Hours of load. The file takes what is written.
constexpr std::size_t headerBytes = 4096;
constexpr std::int64_t patience = 20'000'000; // Longer than anybody is stopped in the middle of a record.

std::int64_t now()
{
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

} // namespace

struct Journal::Header {
    std::uint64_t seed;
    std::atomic<bool> isResting;
    std::atomic<std::uint64_t> written;
    std::atomic<int> processes;
    std::array<std::atomic<int>, numberedKinds> numbers;
};

struct Journal::Record {
    Event event; // Its text lies below, at another address in each process.
    std::int64_t microseconds;
    std::atomic<bool> isWhole;
    char text[191];
};

Journal::Journal(const std::filesystem::path& path, int flags)
{
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | flags, 0600);
    constexpr auto bytes = headerBytes + mostRecords * sizeof(Record);
    void* memory = MAP_FAILED;
    if (file >= 0 && ::ftruncate(file, bytes) == 0)
        memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, file, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), path);
    ::close(file);
    _header = static_cast<Header*>(memory);
    _records = reinterpret_cast<Record*>(static_cast<char*>(memory) + headerBytes);
}

Journal::Journal(const std::filesystem::path& path, std::uint64_t seed) : Journal(path, O_CREAT | O_EXCL)
{
    _header->seed = seed;
}

Journal::Journal(const char* name) : Journal(std::filesystem::path(std::getenv(pathVariable)), 0)
{
    _process = ++_header->processes;
    _random.seed(_header->seed + static_cast<std::uint64_t>(_process));
    tell({ .deed = Deed::Starts, .number = ::getpid(), .text = name });
    hearLog();
}

Journal::~Journal() { ::munmap(_header, headerBytes + mostRecords * sizeof(Record)); }

bool Journal::isResting() const { return _header->isResting; }
void Journal::setResting(bool isResting) { _header->isResting = isResting; }
int Journal::next(Numbered what) { return ++_header->numbers[static_cast<std::size_t>(what)]; }

void Journal::tell(Event event)
{
    const auto index = _header->written.fetch_add(1);
    if (index >= mostRecords) std::abort();
    auto& record = _records[index];
    event.process = _process;
    event.text = { record.text, event.text.copy(record.text, sizeof(record.text)) };
    event.how = {};
    record.event = event;
    record.microseconds = now();
    record.isWhole.store(true, std::memory_order_release);
}

std::optional<std::pair<Event, std::int64_t>> Journal::read()
{
    if (_read >= _header->written.load()) return {};
    const auto& record = _records[_read];
    if (!record.isWhole.load(std::memory_order_acquire)) {
        if (_missingSince == 0) _missingSince = now();
        if (now() - _missingSince < patience) return {};
        _missingSince = 0;
        ++_read;
        return read();
    }
    _missingSince = 0;
    ++_read;
    auto event = record.event;
    event.text = { record.text, event.text.size() };
    return std::pair(event, record.microseconds);
}

} // namespace simulated

#include "journal.h"
#include "foundation/logging/category_manager.h"
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace chaos {
namespace {

constexpr std::uint64_t records = 16 * 1024 * 1024; // Two hours of load. The file is as large as what is not read yet.
constexpr std::size_t headerBytes = 4096;
constexpr std::uint64_t readAtOnce = 16 * 1024; // Then their pages are given back.
constexpr std::int64_t patience = 20'000'000; // Longer than anybody is stopped in the middle of a record.

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

/// Everything that a process logs at level 4 and above.
class JournalSink final : public fn::logging::Sink {
    int threshold(const fn::logging::Category&) const override { return 4; }
    void logMessage(const fn::logging::Category& category, const fn::logging::Message& message) override
    {
        const auto line = fmt::format("{}: {}", category.name(), message.text);
        simulated::Witness::current().tell({ .deed = Deed::Logs, .number = message.priority, .text = line });
    }
};

} // namespace

struct Journal::Header {
    std::atomic<std::uint64_t> written;
    std::atomic<bool> isResting;
    std::uint64_t seed;
    std::atomic<int> processes;
    std::array<std::atomic<int>, simulated::numberedKinds> numbers;
};

struct Journal::Record {
    std::atomic<bool> isWhole;
    Deed deed;
    bool flag;
    std::uint8_t textBytes;
    int number;
    int other;
    int process;
    std::int64_t value;
    ipc::ObjectId object;
    std::int64_t microseconds;
    char text[216];
};

void Journal::create(const std::filesystem::path& path)
{
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0 || ::ftruncate(file, headerBytes + records * sizeof(Record)) != 0) fail("make the journal");
    ::close(file);
}

Journal::Journal(const std::filesystem::path& path)
    : _file(::open(path.c_str(), O_RDWR | O_CLOEXEC)),
      _memory(_file < 0 ? MAP_FAILED
                        : ::mmap(nullptr, headerBytes + records * sizeof(Record), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_NORESERVE, _file, 0))
{
    static_assert(sizeof(Record) == 256 && sizeof(Header) <= headerBytes);
    if (_memory == MAP_FAILED) fail("share the journal");
}

Journal::~Journal()
{
    ::munmap(_memory, headerBytes + records * sizeof(Record));
    ::close(_file);
}

Journal::Header& Journal::header() const noexcept { return *static_cast<Header*>(_memory); }

Journal::Record& Journal::record(std::uint64_t index) const noexcept
{
    return reinterpret_cast<Record*>(static_cast<char*>(_memory) + headerBytes)[index];
}

std::int64_t Journal::now() noexcept
{
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

void Journal::append(const Event& event) noexcept
{
    const auto index = header().written.fetch_add(1);
    if (index >= records) std::abort();
    auto& written = record(index);
    written.deed = event.deed;
    written.flag = event.flag;
    written.number = event.number;
    written.other = event.other;
    written.process = event.process;
    written.value = event.value;
    written.object = event.object;
    written.microseconds = now();
    written.textBytes = static_cast<std::uint8_t>(event.text.copy(written.text, sizeof(written.text)));
    written.isWhole.store(true, std::memory_order_release);
}

std::optional<Journal::Entry> Journal::read()
{
    if (_read >= header().written.load()) return {};
    if (_read > 0 && _read % readAtOnce == 0) {
        const auto begin = headerBytes + (_read - readAtOnce) * sizeof(Record);
        ::fallocate(
            _file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(begin), readAtOnce * sizeof(Record));
    }
    const auto& next = record(_read);
    if (!next.isWhole.load(std::memory_order_acquire)) {
        if (_missingSince == 0) _missingSince = now();
        if (now() - _missingSince > patience) ++_read;
        return {};
    }
    _missingSince = 0;
    ++_read;
    return Entry { { .deed = next.deed,
                       .number = next.number,
                       .other = next.other,
                       .value = next.value,
                       .object = next.object,
                       .flag = next.flag,
                       .text = { next.text, next.textBytes },
                       .process = next.process },
        next.microseconds };
}

int Journal::next(simulated::Numbered what) noexcept { return ++header().numbers[static_cast<std::size_t>(what)]; }
int Journal::nextProcess() noexcept { return ++header().processes; }
std::atomic<bool>& Journal::isResting() noexcept { return header().isResting; }
std::uint64_t& Journal::seed() noexcept { return header().seed; }

JournalWitness::JournalWitness(const std::string& name)
    : _journal(std::getenv(Journal::pathVariable)),
      _process(_journal.nextProcess()),
      _random(_journal.seed() + static_cast<std::uint64_t>(_process))
{
    tell({ .deed = Deed::Starts, .number = ::getpid(), .text = name });
    fn::logging::CategoryManager::instance().addSink(fn::makeAuto<JournalSink>());
}

void JournalWitness::tell(Event event)
{
    event.process = _process;
    _journal.append(event);
}

} // namespace chaos
